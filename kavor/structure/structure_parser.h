// Reading a structure: a ".structure" file and the ".base" file it names.
//
// Layout of both files (free-format words and numbers; line breaks only end comments):
//
//   structure file:  <base file name>  block ...
//   base file:       block ...                     (groups only)
//   group block:     <group name> { <parent> entry ... }
//   decompose block: <block name> { decompose <node> <channel> ... }
//   entry:           <node> <type> <align xyz> <roll xyz> <offset xyz> [limits: <min xyz> <max
//   xyz>]
//
// <parent> is "world" or a node of an earlier group; <type> is "hip", "child", "anchor",
// "ik", "friction" or "free"; limits are in degrees. Channel words fill the slots PX, PY,
// PZ, RX, RY, RZ, RtoP_X, RtoP_Y, RtoP_Z in order, "Unused" (any case) leaving a slot empty.
//
// Nodes are numbered base groups first, then the structure's groups, entries in order. The
// first entry of a group hangs below the group's parent, every later entry below the entry
// before it. An "ik" or "friction" entry closes a limb plane that starts at the group's
// last "anchor" entry: anchor, the node after it (middle) and the ik node (end), which is
// re-parented to the anchor while its offset stays measured from the entry before it.
//
// A failed parse yields no structure and one message; the messages of the cases the file
// format has always reported are kept word for word, since users search for them. What is
// refused beside those depends on the read options (read_options.h).
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "kavor/structure/model_structure.h"
#include "kavor/structure/read_options.h"
#include "krx/value.h"

namespace kavor {

// Gives the text of the base file with the given (plain) name, or nothing when there is no
// such base file. An empty text stands for a file that exists but could not be read.
using BaseFileLookup = std::function<std::optional<std::string>(std::string_view base_name)>;

struct StructureParseResult {
  std::unique_ptr<ModelStructure> structure;  // null when parsing failed
  std::string message;                        // why it failed; empty on success
};

// Parses a structure from its text. `source_name` becomes the structure's `source`; the
// base file named on the first word is fetched through `find_base` (which is called only
// for a plain file name, see IsPlainDataFileName).
[[nodiscard]] StructureParseResult ParseStructureText(std::string_view text,
                                                      std::string_view source_name,
                                                      const BaseFileLookup& find_base,
                                                      const StructureReadOptions& options = {});

// Parses the structure `name` (no folder, no extension) from the data folders: the file is
// looked for among the structures, then among the motion-capture structures, and its base
// file among the base files. On failure the message is logged as a warning and nothing is
// returned. The caller owns the result. Without options, the plug-in's preferences decide
// (read_options.h).
std::unique_ptr<ModelStructure> ParseStructure(const KRX::CString& name);
std::unique_ptr<ModelStructure> ParseStructure(const KRX::CString& name,
                                               const StructureReadOptions& options);

}  // namespace kavor

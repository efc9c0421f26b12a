// The syntax of structure and base files: blocks, groups, node entries and decompose
// blocks, read into records that keep each entry as written. structure_parser.h turns them
// into a ModelStructure.
//
// Both kinds of file are free-format text (structure_parser.h describes the layout). A
// block is a name, "{", and either a group (a parent word and node entries) or, in a
// structure file only, a decompose block ("decompose", a node name and channel words); it
// runs up to "}" or the end of the data. A name not followed by "{" is dropped together
// with the word after it. read_options.h tells what strict reading refuses beside that.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "kavor/structure/model_structure.h"
#include "kavor/structure/read_options.h"
#include "kavor/structure/tokenizer.h"

namespace kavor {

enum class StructureFileKind { kStructure, kBase };

// A group as read, with the line of its block name and of every entry (for messages).
struct ReadGroup {
  StructureGroup group;
  int line = 0;
  std::vector<int> entry_lines;
};

struct ReadDecomp {
  StructureDecomp decomp;
  int line = 0;
};

// What the reading of one file has gathered. Node and group names must be unique across
// the base file and the structure file when reading strictly: the names and the node count
// carry over from the base file's state to the structure file's.
struct StructureReadState {
  std::vector<ReadGroup> groups;
  std::vector<ReadDecomp> decomps;
  std::unordered_set<std::string> node_names;
  std::unordered_set<std::string> group_names;
  size_t entry_count = 0;
};

// Reads blocks from the tokenizer's position to the end of the data, appending to `state`.
// `file_label` names the file in messages ("structure human", "basefile humanoid").
// Returns the message of the first error, or empty text.
[[nodiscard]] std::string ReadStructureBlocks(Tokenizer& tokenizer, StructureFileKind kind,
                                              std::string_view file_label,
                                              const StructureReadOptions& options,
                                              StructureReadState& state);

}  // namespace kavor

// Tag template files (".tagt") and BVH map files.
//
// A tag template holds, in order: the tag page's values (structure type, the count and the
// tag name / value pairs, the structure source, the template version), a map section and
// the model's rest data (the model-map section). A BVH map file is the word "BVH" followed
// by a map section.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kavor/structure/read_options.h"
#include "kavor/structure/tokenizer.h"
#include "kavor/tagging/map_file.h"

namespace kavor {

inline constexpr int32_t kTagTemplateVersion = 8;
// Written in place of an empty tag value, so that every value is one word.
inline constexpr const char* kEmptyTagValue = "<EmptyFieldkrx>";

// One tag page value: the control object and, when the value named two objects, the
// extraction object.
struct TagValue {
  std::string tag_name;
  std::string control;
  std::string extraction;
};

// The tag page block at the start of a tag template.
struct TagTemplateHead {
  std::string structure_type;
  std::vector<TagValue> values;
  std::string structure_source;
  int32_t version = 0;
};

// Reads the tag page block from the tokenizer's position. Data that end inside the value
// list end the block: the values present are kept, the structure source is empty and the
// version 0. Reading strictly, such a block is logged as a warning and gives nothing.
std::optional<TagTemplateHead> ReadTagTemplateHead(Tokenizer& tokenizer,
                                                   const StructureReadOptions& options = {});

// Splits a tag value at "|": the first piece names the control object; the second names
// the extraction object only when there are exactly two pieces. "<EmptyFieldkrx>" is empty.
TagValue SplitTagTemplateValue(std::string tag_name, std::string_view value);

// Writes the tag page block.
void WriteTagTemplateHead(std::ostream& out, const TagTemplateHead& head);

// The map section of a map file for the BVH retarget: a file whose extension is "tagt"
// (any case) is read as a tag template up to its map section; any other must start with
// the word "BVH". Failures are logged and give nothing.
std::optional<MapFile> ReadRetargetMapFile(const std::string& path,
                                           const StructureReadOptions& options);

}  // namespace kavor

// The map section of tag templates and BVH map files: which rig object (or capture joint)
// plays which structure node, with the tag's directions and override.
//
//   MapFile2.0
//   Humanoid
//
//   2
//   hip {
//   	Hips;
//   	0 1 0
//   	0 0 1
//   }
//   ...
//
// Numbers are written in the host's text form followed by one blank; words cannot hold
// blanks or "#", node names cannot hold "?" or ";", tag names cannot hold "{".
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "kavor/structure/tokenizer.h"
#include "kavor/tagging/template_tag.h"

namespace kavor {

class RetargetModel;

inline constexpr const char* kMapFileHeader = "MapFile2.0";

struct MapFile {
  std::string structure_source;    // the structure file the tagging refers to
  std::vector<TemplateTag> entries;  // in file order
};

// Reads a map section from the tokenizer's position. A wrong header or a missing "{", ";"
// or "}" is logged as a warning and gives nothing; data that ends after a tag name gives
// the entries read so far.
std::optional<MapFile> ReadMapSection(Tokenizer& tokenizer);

// Writes the map section of a tagged model: every structure node whose object is valid,
// in structure order.
void WriteMapSection(std::ostream& out, const RetargetModel& model);

// A number as the files write it: the host's text form followed by one blank. Values that
// are not finite are written as 0.
std::string FormatFileNumber(double value);
std::string FormatFileNumber(int32_t value);

}  // namespace kavor

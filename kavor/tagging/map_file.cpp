#include "kavor/tagging/map_file.h"

#include <cmath>
#include <string_view>

#include "kavor/host/host.h"
#include "kavor/maps/retarget_model.h"

namespace kavor {

namespace {

// A number read as the C conversions read it: the leading number of the token, 0 when the
// token does not start with one; the rest of the token is consumed either way.
double ReadLooseNumber(Tokenizer& tokenizer) {
  double value = 0.0;
  (void)tokenizer.ReadNumber(value);
  return value;
}

KRX::MATH::CVector3 ReadLooseVector(Tokenizer& tokenizer) {
  const double x = ReadLooseNumber(tokenizer);
  const double y = ReadLooseNumber(tokenizer);
  const double z = ReadLooseNumber(tokenizer);
  return {x, y, z};
}

std::optional<MapFile> Fail(const char* what, std::string_view tag_name) {
  LogWarning(ToWide(std::string(what) + std::string(tag_name)));
  return std::nullopt;
}

void WriteVector(std::ostream& out, const KRX::MATH::CVector3& v) {
  out << FormatFileNumber(v.GetX()) << FormatFileNumber(v.GetY()) << FormatFileNumber(v.GetZ());
}

}  // namespace

std::string FormatFileNumber(double value) {
  if (!std::isfinite(value)) value = 0.0;
  return ToNarrow(KRX::CValue(value).GetString()) + " ";
}

std::string FormatFileNumber(int32_t value) { return std::to_string(value) + " "; }

std::optional<MapFile> ReadMapSection(Tokenizer& tokenizer) {
  const std::string_view header = tokenizer.ReadWord();
  LogInfo(ToWide(header));
  if (header != kMapFileHeader) {
    LogWarning(L"Could not parse the map file");
    return std::nullopt;
  }
  MapFile map;
  map.structure_source = std::string(tokenizer.ReadWord());
  int64_t count = 0;
  (void)tokenizer.ReadInteger(count);
  // Every entry consumes data, so the loop ends at the end of the data whatever the count.
  for (int64_t i = 0; i < count; ++i) {
    TemplateTag tag;
    tag.tag_name = std::string(tokenizer.ReadWord("{"));
    if (!tokenizer.HasMoreTokens()) return map;  // a file that ends early keeps what it has
    if (tokenizer.ReadChar() != '{') return Fail("parse error: '{' expected for tag ", tag.tag_name);
    tag.node_name = std::string(tokenizer.ReadWord("?;"));
    if (tokenizer.ReadChar() != ';') {
      return Fail("parse error: ';' or '?' expected for tag ", tag.tag_name);
    }
    tag.align = ReadLooseVector(tokenizer);
    tag.roll = ReadLooseVector(tokenizer);
    std::optional<char> next = tokenizer.ReadChar();
    if (next == '*') {
      tag.override = std::string(tokenizer.ReadWord());
      next = tokenizer.ReadChar();
    }
    if (next != '}') return Fail("parse error: '}' expected for tag ", tag.tag_name);
    map.entries.push_back(std::move(tag));
  }
  return map;
}

void WriteMapSection(std::ostream& out, const RetargetModel& model) {
  const ModelStructure& structure = *model.structure;
  int32_t mapped = 0;
  for (int32_t i = 0; i < model.NumNodes(); ++i) mapped += model.Node(i).object.IsValid() ? 1 : 0;
  out << kMapFileHeader << "\n" << structure.source << "\n\n" << FormatFileNumber(mapped) << "\n";
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    const NodeMapEntry& node = model.Node(i);
    if (!node.object.IsValid()) continue;
    out << structure.nodes[static_cast<size_t>(i)].name << " {\n";
    out << "\t" << ToNarrow(node.object.GetName()) << ";\n";
    out << "\t";
    WriteVector(out, node.align);
    out << "\n\t";
    WriteVector(out, node.roll);
    out << "\n";
    if (!node.override.empty()) out << "\t*" << node.override << "\n";
    out << "}\n\n";
  }
}

}  // namespace kavor

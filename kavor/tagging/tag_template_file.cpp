#include "kavor/tagging/tag_template_file.h"

#include <algorithm>
#include <cctype>

#include "kavor/host/host.h"
#include "kavor/io/whole_file.h"

namespace kavor {

TagValue SplitTagTemplateValue(std::string tag_name, std::string_view value) {
  TagValue out;
  out.tag_name = std::move(tag_name);
  if (value == kEmptyTagValue) return out;
  std::vector<std::string_view> pieces;
  size_t start = 0;
  while (true) {
    const size_t bar = value.find('|', start);
    pieces.push_back(value.substr(start, bar == std::string_view::npos ? bar : bar - start));
    if (bar == std::string_view::npos) break;
    start = bar + 1;
  }
  out.control = std::string(pieces[0]);
  if (pieces.size() == 2) out.extraction = std::string(pieces[1]);
  return out;
}

std::optional<TagTemplateHead> ReadTagTemplateHead(Tokenizer& tokenizer,
                                                   const StructureReadOptions& options) {
  TagTemplateHead head;
  head.structure_type = std::string(tokenizer.ReadWord());
  int64_t count = 0;
  (void)tokenizer.ReadInteger(count);
  for (int64_t i = 0; i < count; ++i) {
    if (!tokenizer.HasMoreTokens()) {
      if (!options.strict) return head;
      LogWarning(ToWide("The tag template ends after " + std::to_string(i) + " of its " +
                        std::to_string(count) + " tag values."));
      return std::nullopt;
    }
    std::string tag_name(tokenizer.ReadWord());
    head.values.push_back(SplitTagTemplateValue(std::move(tag_name), tokenizer.ReadWord()));
  }
  head.structure_source = std::string(tokenizer.ReadWord());
  (void)tokenizer.ReadInteger(head.version);
  return head;
}

void WriteTagTemplateHead(std::ostream& out, const TagTemplateHead& head) {
  out << head.structure_type << "\n"
      << FormatFileNumber(static_cast<int32_t>(head.values.size())) << "\n";
  for (const TagValue& value : head.values) {
    std::string text = value.control;
    if (!value.extraction.empty()) text += "|" + value.extraction;
    out << value.tag_name << " " << (text.empty() ? std::string(kEmptyTagValue) : text) << "\n";
  }
  out << head.structure_source << "\n" << FormatFileNumber(head.version) << "\n";
}

std::optional<MapFile> ReadRetargetMapFile(const std::string& path,
                                           const StructureReadOptions& options) {
  ReadFileStatus status = ReadFileStatus::kOk;
  const FileBuffer buffer = ReadWholeFile(ToWide(path), &status, kMaxSmallTextFileBytes);
  if (status != ReadFileStatus::kOk) {
    LogWarning(ToWide("Cannot read the map file " + path));
    return std::nullopt;
  }
  Tokenizer tokenizer(buffer.Text());
  const size_t dot = path.rfind('.');
  std::string extension = dot == std::string::npos ? path : path.substr(dot + 1);
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  if (extension == "TAGT") {
    if (!ReadTagTemplateHead(tokenizer, options)) return std::nullopt;
  } else if (tokenizer.ReadWord() != "BVH") {
    LogWarning(
        L"To retarget a BVH file the mapfile must be built from the corresponding BVH ref pose");
    return std::nullopt;
  }
  return ReadMapSection(tokenizer);
}

}  // namespace kavor

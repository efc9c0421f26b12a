#include "kavor/structure/name_rules.h"

#include <array>

namespace kavor {
namespace {

constexpr size_t kMaxNameLength = 255;

char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

// The tag page's fixed parameters and buttons, and the group parent word.
constexpr std::array<std::string_view, 15> kReservedNames = {
    "world",  "StructureTag", "StructureFile", "TemplateFile", "dirty",
    "Load1",  "Save1",        "Apply1",        "Clean1",       "Load2",
    "Save2",  "Apply2",       "Clean2",        "EditBase",     "EditStructure"};
constexpr std::string_view kSelectButtonPrefix = "Select_";

}  // namespace

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (LowerAscii(a[i]) != LowerAscii(b[i])) return false;
  }
  return true;
}

bool IsPlainDataFileName(std::string_view name) {
  if (name.empty() || name.size() > kMaxNameLength) return false;
  if (name.find("..") != std::string_view::npos) return false;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '/' || c == '\\' || byte < 0x20 || byte == 0x7F) return false;
  }
  return true;
}

bool IsStructureNameWord(std::string_view name) {
  if (name.empty() || name.size() > kMaxNameLength) return false;
  for (const char c : name) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_';
    if (!ok) return false;
  }
  return true;
}

bool IsReservedNodeName(std::string_view name) {
  for (const std::string_view reserved : kReservedNames) {
    if (EqualNoCase(name, reserved)) return true;
  }
  return name.size() >= kSelectButtonPrefix.size() &&
         EqualNoCase(name.substr(0, kSelectButtonPrefix.size()), kSelectButtonPrefix);
}

}  // namespace kavor

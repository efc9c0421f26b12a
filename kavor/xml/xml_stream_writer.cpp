#include "kavor/xml/xml_stream_writer.h"

#include <algorithm>
#include <string>

#include "kavor/xml/xml_text.h"
#include "kavor/xml/xml_values.h"

namespace kavor {
namespace {

constexpr std::string_view kDeclaration =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>";

void AppendUtf8(char32_t c, std::string& out) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

// Host text as escaped UTF-8, for an attribute value or for element text.
std::string Escaped(const KRX::CString& text, bool attribute) {
  std::string out;
  const std::wstring& wide = text.GetWideString();
  out.reserve(wide.size());
  for (const wchar_t w : wide) {
    const char32_t c = XmlCodePoint(w);
    switch (c) {
      case U'&':
        out += "&amp;";
        continue;
      case U'<':
        out += "&lt;";
        continue;
      case U'\r':
        out += "&#xD;";
        continue;
      case U'>':
        out += attribute ? ">" : "&gt;";
        continue;
      case U'"':
        out += attribute ? "&quot;" : "\"";
        continue;
      case U'\t':
        out += attribute ? "&#x9;" : "\t";
        continue;
      case U'\n':
        out += attribute ? "&#xA;" : "\n";
        continue;
      default:
        AppendUtf8(c, out);
    }
  }
  return out;
}

}  // namespace

XmlStreamWriter::XmlStreamWriter(const KRX::CString& path) : path_(path) {
  KRX::CString why;
  if (!file_.Open(path, &why)) {
    AddError(L"DOM Exception Writing " + path_ + L"\n reports: \n" + why);
    return;
  }
  file_.Write(kDeclaration);
}

void XmlStreamWriter::NewLine(size_t level, bool first_level_gap) {
  file_.Write('\n');
  if (first_level_gap) file_.Write('\n');
  for (size_t i = 0; i < level; ++i) file_.Write("  ");
}

void XmlStreamWriter::CloseStartTag(std::string_view tag_end) {
  if (!start_pending_) return;
  start_pending_ = false;
  std::stable_sort(pending_.begin(), pending_.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  for (const auto& [name, value] : pending_) {
    file_.Write(' ');
    file_.Write(name);
    file_.Write("=\"");
    file_.Write(value);
    file_.Write('"');
  }
  pending_.clear();
  file_.Write(tag_end);
}

void XmlStreamWriter::StartElement(std::string_view name) {
  CloseStartTag();
  const size_t level = open_.size();
  if (level > 0) open_.back().has_children = true;
  // The document element follows the declaration on the next line; its children get a
  // blank line before them.
  NewLine(level, level == 1);
  file_.Write('<');
  file_.Write(name);
  open_.push_back({std::string(name), false});
  start_pending_ = true;
}

void XmlStreamWriter::AsciiAttribute(std::string_view name, std::string_view value) {
  if (!start_pending_) return;
  for (auto& [known, old_value] : pending_) {
    if (known == name) {
      old_value = std::string(value);
      return;
    }
  }
  pending_.emplace_back(std::string(name), std::string(value));
}

void XmlStreamWriter::Attribute(std::string_view name, const KRX::CString& value) {
  AsciiAttribute(name, Escaped(value, true));
}

void XmlStreamWriter::NumberAttribute(std::string_view name, double value) {
  const KRX::CString text = NumberText(value);
  if (text.IsEmpty()) {
    AddError(L"Atribute : <" + KRX::CString(std::string(name)) +
             L"> not written: not a finite number");
    return;
  }
  AsciiAttribute(name, text.GetAsciiString());
}

void XmlStreamWriter::TransformAttribute(std::string_view name,
                                         const KRX::MATH::CTransformation& value) {
  const KRX::CString text = TransformText(value);
  if (text.IsEmpty()) {
    const KRX::CString element = open_.empty() ? KRX::CString() : KRX::CString(open_.back().name);
    AddError(L"Error writing CTransformation Attribute : <" + KRX::CString(std::string(name)) +
             L"> under : " + element + L": a value is not a finite number");
    return;
  }
  AsciiAttribute(name, text.GetAsciiString());
}

void XmlStreamWriter::Text(const KRX::CString& text) {
  CloseStartTag();
  file_.Write(Escaped(text, false));
}

void XmlStreamWriter::EndElement() {
  if (open_.empty()) return;
  const Open element = std::move(open_.back());
  open_.pop_back();
  if (start_pending_) {
    CloseStartTag("/>");  // neither children nor text
  } else {
    if (element.has_children) NewLine(open_.size(), open_.empty());
    file_.Write("</");
    file_.Write(element.name);
    file_.Write('>');
  }
  if (open_.empty()) file_.Write('\n');
}

void XmlStreamWriter::TextElement(std::string_view name, const KRX::CString& text) {
  StartElement(name);
  Text(text);
  EndElement();
}

bool XmlStreamWriter::Finish() {
  if (finished_) return IsValid();
  finished_ = true;
  while (!open_.empty()) EndElement();
  if (!file_.IsOpen()) return IsValid();
  KRX::CString why;
  if (!file_.Commit(&why)) AddError(L"DOM Exception Writing " + path_ + L"\n reports: \n" + why);
  return IsValid();
}

}  // namespace kavor

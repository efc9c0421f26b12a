#include "kavor/xml/xml_text.h"

namespace kavor {
namespace {

bool IsHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

}  // namespace

std::u16string ToXmlText(const KRX::CString& text) {
  const std::wstring& wide = text.GetWideString();
  std::u16string out;
  out.reserve(wide.size());
  for (const wchar_t w : wide) {
    const char32_t c = XmlCodePoint(w);
    if (c < 0x10000) {
      out.push_back(static_cast<char16_t>(c));
    } else {
      const char32_t v = c - 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (v >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (v & 0x3FF)));
    }
  }
  return out;
}

KRX::CString FromXmlText(const XMLCh* text) {
  std::wstring out;
  if (text == nullptr) return KRX::CString(std::move(out));
  for (const XMLCh* p = text; *p != 0; ++p) {
    const char16_t c = *p;
    if (IsHighSurrogate(c) && IsLowSurrogate(p[1])) {
      const char32_t v = 0x10000 + ((static_cast<char32_t>(c) - 0xD800) << 10) +
                         (static_cast<char32_t>(p[1]) - 0xDC00);
      out.push_back(static_cast<wchar_t>(v));
      ++p;
    } else if (IsHighSurrogate(c) || IsLowSurrogate(c)) {
      out.push_back(L'?');
    } else {
      out.push_back(static_cast<wchar_t>(c));
    }
  }
  return KRX::CString(std::move(out));
}

KRX::CString CountText(long long n) { return KRX::CString(std::to_string(n)); }

}  // namespace kavor

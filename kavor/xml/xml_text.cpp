#include "kavor/xml/xml_text.h"

#include <type_traits>

namespace kavor {
namespace {

// The characters XML 1.0 allows in a document.
bool IsXmlChar(char32_t c) {
  if (c == 0x9 || c == 0xA || c == 0xD) return true;
  if (c >= 0x20 && c <= 0xD7FF) return true;
  if (c >= 0xE000 && c <= 0xFFFD) return true;
  return c >= 0x10000 && c <= 0x10FFFF;
}

bool IsHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

}  // namespace

std::u16string ToXmlText(const KRX::CString& text) {
  const std::wstring& wide = text.GetWideString();
  std::u16string out;
  out.reserve(wide.size());
  for (const wchar_t w : wide) {
    // wchar_t is signed on some targets: go through its unsigned value.
    const char32_t c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(w));
    if (!IsXmlChar(c)) {
      out.push_back(u'?');
    } else if (c < 0x10000) {
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

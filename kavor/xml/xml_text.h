// Text between host strings and the DOM.
//
// Host text is wide (one character per code point). The DOM holds UTF-16. Characters that
// XML cannot carry (most control characters, unpaired surrogates, U+FFFE and U+FFFF, code
// points beyond U+10FFFF) become '?' on the way in, so that whatever the host hands over
// can be written and read back. A path held one byte per character (see kavor/host/host.h)
// therefore round-trips byte for byte.
#pragma once

#include <string>
#include <type_traits>
#include <xercesc/util/XercesDefs.hpp>

#include "krx/value.h"

namespace kavor {

// A host character as the code point a document carries: characters XML 1.0 does not
// allow become '?'.
inline char32_t XmlCodePoint(wchar_t w) {
  // wchar_t is signed on some targets: go through its unsigned value.
  const char32_t c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(w));
  const bool allowed = c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) ||
                       (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
  return allowed ? c : U'?';
}

// Host text as a NUL-terminated DOM string; c_str() gives the XMLCh pointer.
std::u16string ToXmlText(const KRX::CString& text);

// A DOM string (null allowed: gives empty text) as host text. Unpaired surrogates become
// '?'.
KRX::CString FromXmlText(const XMLCh* text);

// A count or line number as decimal host text, for messages.
KRX::CString CountText(long long n);

}  // namespace kavor

// Text encodings of scene files: host text (wide characters) as UTF-8, and bytes as base64.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace KRX::rt::files {

// UTF-8 of the characters. A value that is not a Unicode scalar value (a surrogate, or
// above U+10FFFF) is written as U+FFFD, so the result is always valid UTF-8.
std::string WideToUtf8(const std::wstring& text);

// The characters of valid UTF-8 text; nothing when the bytes are not valid UTF-8
// (overlong forms, surrogates, values above U+10FFFF and truncated sequences are invalid).
std::optional<std::wstring> Utf8ToWide(std::string_view text);

// Standard base64 with "=" padding.
std::string EncodeBase64(const uint8_t* data, size_t size);

// Strict decoding: the length is a multiple of 4, only the alphabet and final padding
// occur, and unused bits are zero. Nothing for anything else.
std::optional<std::vector<uint8_t>> DecodeBase64(std::string_view text);

}  // namespace KRX::rt::files

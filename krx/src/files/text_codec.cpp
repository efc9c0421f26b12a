#include "files/text_codec.h"

#include <array>

namespace KRX::rt::files {

namespace {

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Sextet value of each byte, or -1.
constexpr std::array<int8_t, 256> MakeBase64Table() {
  std::array<int8_t, 256> table{};
  for (int8_t& v : table) v = -1;
  for (int i = 0; i < 64; ++i)
    table[static_cast<uint8_t>(kBase64Alphabet[i])] = static_cast<int8_t>(i);
  return table;
}
constexpr std::array<int8_t, 256> kBase64Table = MakeBase64Table();

void AppendUtf8(std::string& out, uint32_t c) {
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

}  // namespace

std::string WideToUtf8(const std::wstring& text) {
  std::string out;
  out.reserve(text.size());
  for (wchar_t w : text) {
    uint32_t c = static_cast<uint32_t>(w);
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) c = 0xFFFD;
    AppendUtf8(out, c);
  }
  return out;
}

std::optional<std::wstring> Utf8ToWide(std::string_view text) {
  std::wstring out;
  out.reserve(text.size());
  size_t i = 0;
  while (i < text.size()) {
    const uint8_t lead = static_cast<uint8_t>(text[i]);
    if (lead < 0x80) {
      out.push_back(static_cast<wchar_t>(lead));
      ++i;
      continue;
    }
    size_t extra = 0;
    uint32_t c = 0;
    uint32_t min = 0;
    if ((lead & 0xE0) == 0xC0) {
      extra = 1, c = lead & 0x1F, min = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      extra = 2, c = lead & 0x0F, min = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      extra = 3, c = lead & 0x07, min = 0x10000;
    } else {
      return std::nullopt;
    }
    if (text.size() - i <= extra) return std::nullopt;
    for (size_t k = 1; k <= extra; ++k) {
      const uint8_t b = static_cast<uint8_t>(text[i + k]);
      if ((b & 0xC0) != 0x80) return std::nullopt;
      c = (c << 6) | (b & 0x3F);
    }
    if (c < min || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return std::nullopt;
    out.push_back(static_cast<wchar_t>(c));
    i += extra + 1;
  }
  return out;
}

std::string EncodeBase64(const uint8_t* data, size_t size) {
  std::string out;
  out.reserve((size + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    const uint32_t v = (uint32_t{data[i]} << 16) | (uint32_t{data[i + 1]} << 8) | data[i + 2];
    out.push_back(kBase64Alphabet[(v >> 18) & 63]);
    out.push_back(kBase64Alphabet[(v >> 12) & 63]);
    out.push_back(kBase64Alphabet[(v >> 6) & 63]);
    out.push_back(kBase64Alphabet[v & 63]);
  }
  if (size - i == 1) {
    const uint32_t v = uint32_t{data[i]} << 16;
    out.push_back(kBase64Alphabet[(v >> 18) & 63]);
    out.push_back(kBase64Alphabet[(v >> 12) & 63]);
    out += "==";
  } else if (size - i == 2) {
    const uint32_t v = (uint32_t{data[i]} << 16) | (uint32_t{data[i + 1]} << 8);
    out.push_back(kBase64Alphabet[(v >> 18) & 63]);
    out.push_back(kBase64Alphabet[(v >> 12) & 63]);
    out.push_back(kBase64Alphabet[(v >> 6) & 63]);
    out.push_back('=');
  }
  return out;
}

std::optional<std::vector<uint8_t>> DecodeBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::vector<uint8_t> out;
  out.reserve(text.size() / 4 * 3);
  for (size_t i = 0; i < text.size(); i += 4) {
    const bool last = i + 4 == text.size();
    int padding = 0;
    if (last && text[i + 3] == '=') padding = text[i + 2] == '=' ? 2 : 1;
    uint32_t v = 0;
    for (size_t k = 0; k < 4; ++k) {
      int sextet = 0;
      if (k < 4 - static_cast<size_t>(padding)) {
        sextet = kBase64Table[static_cast<uint8_t>(text[i + k])];
        if (sextet < 0) return std::nullopt;
      }
      v = (v << 6) | static_cast<uint32_t>(sextet);
    }
    out.push_back(static_cast<uint8_t>(v >> 16));
    if (padding == 2) {
      if ((v & 0xFFFF) != 0) return std::nullopt;
      break;
    }
    out.push_back(static_cast<uint8_t>(v >> 8));
    if (padding == 1) {
      if ((v & 0xFF) != 0) return std::nullopt;
      break;
    }
    out.push_back(static_cast<uint8_t>(v));
  }
  return out;
}

}  // namespace KRX::rt::files

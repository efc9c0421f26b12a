#include "files/text_codec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KRX::rt::files {
namespace {

TEST(Base64, KnownVectorsAndStrictDecoding) {
  const std::pair<std::string, std::string> known[] = {{"", ""},
                                                       {"f", "Zg=="},
                                                       {"fo", "Zm8="},
                                                       {"foo", "Zm9v"},
                                                       {"foob", "Zm9vYg=="},
                                                       {"fooba", "Zm9vYmE="},
                                                       {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : known) {
    const std::vector<uint8_t> bytes(plain.begin(), plain.end());
    EXPECT_EQ(EncodeBase64(bytes.data(), bytes.size()), encoded);
    EXPECT_EQ(DecodeBase64(encoded), bytes) << encoded;
  }
  std::vector<uint8_t> all(256);  // every byte value, every length up to three blocks
  for (size_t i = 0; i < 256; ++i) all[i] = static_cast<uint8_t>(255 - i);
  for (size_t n = 0; n <= all.size(); n += (n < 9 ? 1 : 61)) {
    const std::vector<uint8_t> part(all.begin(), all.begin() + static_cast<long>(n));
    EXPECT_EQ(DecodeBase64(EncodeBase64(part.data(), part.size())), part) << n;
  }
  for (const char* bad : {"Zg=", "Zg", "Z===", "====", "Zg==Zg==", "Zm9v\n", "Zm9 ",
                          "Zh==", "Zm9=", "Zm!v", "=Zm9"}) {
    EXPECT_FALSE(DecodeBase64(bad).has_value()) << bad;  // refused, not guessed at
  }
}

TEST(Utf8, RoundTripAndInvalidInput) {
  const std::wstring wide = {L'a', 0xE9, 0x20AC, 0x1F600, L'.'};  // one to four bytes
  EXPECT_EQ(WideToUtf8(wide), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80.");
  EXPECT_EQ(Utf8ToWide(WideToUtf8(wide)), wide);
  // Values that are no characters become U+FFFD, so the output is always valid.
  const std::wstring no_characters = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000)};
  EXPECT_EQ(Utf8ToWide(WideToUtf8(no_characters)), (std::wstring{0xFFFD, 0xFFFD}));
  // Overlong, surrogate, out of range, stray continuation and truncated sequences.
  for (const char* bad : {"\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x80",
                          "a\xC3", "\xE2\x82", "\xFF"}) {
    EXPECT_FALSE(Utf8ToWide(bad).has_value()) << bad;
  }
}

}  // namespace
}  // namespace KRX::rt::files

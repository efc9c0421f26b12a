#include "kavor/structure/tokenizer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kavor {
namespace {

TEST(Tokenizer, WordsBlanksAndComments) {
  const struct {
    std::string text;
    Tokenizer::Comments comments;
    std::vector<std::string> words;
  } cases[] = {
      // Every C-locale blank separates words; comments run to the line feed or the end.
      {" alpha\tbeta\ngamma\v\fdelta\r\nepsilon # a comment\n#whole line\nzeta # no line feed",
       Tokenizer::Comments::kHash,
       {"alpha", "beta", "gamma", "delta", "epsilon", "zeta"}},
      // A "#" inside a word ends the word; the rest of the line is a comment.
      {"name#tail of line\nnext", Tokenizer::Comments::kHash, {"name", "next"}},
      // Bytes above 127 (and NUL) are word characters, whatever isspace says elsewhere.
      {std::string("a\xA0"
                   "b \x85x \0z",
                   9),
       Tokenizer::Comments::kHash,
       {"a\xA0"
        "b",
        "\x85x", std::string("\0z", 2)}},
      {"a#b c", Tokenizer::Comments::kNone, {"a#b", "c"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Tokenizer t(c.text, c.comments);
    std::vector<std::string> words;
    for (std::string_view w = t.ReadWord(); !w.empty(); w = t.ReadWord()) words.emplace_back(w);
    EXPECT_EQ(words, c.words);
    EXPECT_TRUE(t.AtEnd());
    EXPECT_FALSE(t.HasMoreTokens());
  }
}

TEST(Tokenizer, DelimitersCharactersAndLines) {
  {  // A delimiter ends the word and is left for the next read; a word that starts with one
     // is empty. A character read skips comments first and stays at the end.
    Tokenizer t("LeftArm{ ;obj # c\n }");
    EXPECT_EQ(t.ReadWord("{"), "LeftArm");
    EXPECT_EQ(t.ReadChar(), '{');
    EXPECT_EQ(t.ReadWord(";"), "");
    EXPECT_EQ(t.ReadChar(), ';');
    EXPECT_EQ(t.ReadWord("?}"), "obj");
    EXPECT_EQ(t.ReadChar(), '}');
    EXPECT_EQ(t.ReadChar(), std::nullopt);
    EXPECT_EQ(t.ReadChar(), std::nullopt);
  }
  {  // Unread goes back to where the last read started, before its blanks. Lines count line
     // feeds, including those that end comments; CR LF is one line end.
    Tokenizer t("a\r\n# note\n\n  b #c\r\nd  42");
    EXPECT_EQ(t.ReadWord(), "a");
    EXPECT_EQ(t.TokenLine(), 1);
    EXPECT_EQ(t.ReadWord(), "b");
    EXPECT_EQ(t.TokenLine(), 4);
    EXPECT_EQ(t.TokenOffset(), 13u);
    EXPECT_EQ(t.ReadWord(), "d");
    t.Unread();
    EXPECT_EQ(t.Position(), 14u);
    EXPECT_EQ(t.ReadWord(), "d");
    EXPECT_EQ(t.TokenLine(), 5);
    int32_t i = 0;
    EXPECT_EQ(t.ReadInteger(i), TokenStatus::kOk);
    t.Unread();
    EXPECT_EQ(t.ReadWord(), "42");
  }
}

TEST(Tokenizer, Numbers) {
  using S = TokenStatus;
  // One token each: the status, the value it leaves, and the whole token consumed. (The
  // structure reader's messages show the other statuses.)
  // clang-format off
  const struct {
    const char* text;
    TokenStatus status;
    double value;
  } reals[] = {
      {"-.5", S::kOk, -0.5}, {"5.", S::kOk, 5.0}, {"2.5E-2", S::kOk, 0.025},
      {"1e-400", S::kOk, 0.0}, {"1,5", S::kTrailingCharacters, 1.0},  // in every locale
      {"+-1", S::kNotANumber, 0.0}, {"-infinity", S::kNotFinite, 0.0},
      {"1e400", S::kOutOfRange, 0.0}, {" \n# nothing", S::kEndOfData, 0.0}};
  // clang-format on
  for (const auto& c : reals) {
    SCOPED_TRACE(c.text);
    Tokenizer t(c.text);
    double d = 7;
    EXPECT_EQ(t.ReadNumber(d), c.status);
    EXPECT_EQ(d, c.value);
    EXPECT_TRUE(t.AtEnd());
  }
  const struct {
    const char* text;
    TokenStatus wide_status, narrow_status;
    int64_t value;
  } integers[] = {{"+3", S::kOk, S::kOk, 3},
                  {"12.7", S::kTrailingCharacters, S::kTrailingCharacters, 12},
                  {"-2147483648", S::kOk, S::kOk, INT32_MIN},
                  {"3000000000", S::kOk, S::kOutOfRange, 3000000000},
                  {"99999999999999999999", S::kOutOfRange, S::kOutOfRange, 0}};
  for (const auto& c : integers) {
    SCOPED_TRACE(c.text);
    Tokenizer wide_tokens(c.text), narrow_tokens(c.text);
    int64_t wide = 7;
    int32_t narrow = 7;
    EXPECT_EQ(wide_tokens.ReadInteger(wide), c.wide_status);
    EXPECT_EQ(wide, c.wide_status == S::kOutOfRange ? 0 : c.value);
    EXPECT_EQ(narrow_tokens.ReadInteger(narrow), c.narrow_status);
    EXPECT_EQ(narrow, c.narrow_status == S::kOutOfRange ? 0 : c.value);
    EXPECT_TRUE(wide_tokens.AtEnd() && narrow_tokens.AtEnd());
  }
  {  // Vectors stop at the first bad component.
    Tokenizer t("1 2 3  4 x 6");
    KRX::MATH::CVector3 v;
    EXPECT_EQ(t.ReadVector(v), S::kOk);
    EXPECT_EQ(v, KRX::MATH::CVector3(1, 2, 3));
    EXPECT_EQ(t.ReadVector(v), S::kNotANumber);
    EXPECT_EQ(v, KRX::MATH::CVector3(4, 0, 0));
    EXPECT_EQ(t.LastToken(), "x");
  }
}

}  // namespace
}  // namespace kavor

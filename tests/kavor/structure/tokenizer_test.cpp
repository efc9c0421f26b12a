#include "kavor/structure/tokenizer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace kavor {
namespace {

// The text in a heap block of exactly its size, with nothing after it: a read past the end
// is caught by the address sanitizer.
class ExactBuffer {
 public:
  explicit ExactBuffer(const std::string& text)
      : size_(text.size()), bytes_(new char[text.size() == 0 ? 1 : text.size()]) {
    if (size_ > 0) std::memcpy(bytes_.get(), text.data(), size_);
  }
  std::string_view View() const { return {bytes_.get(), size_}; }

 private:
  size_t size_;
  std::unique_ptr<char[]> bytes_;
};

TEST(Tokenizer, WordsBlanksAndComments) {
  {  // Every C-locale blank separates words; comments run to the line feed.
    Tokenizer t(" alpha\tbeta\ngamma\v\fdelta\r\nepsilon # a comment\n#whole line\nzeta");
    for (const char* expected : {"alpha", "beta", "gamma", "delta", "epsilon", "zeta"}) {
      EXPECT_EQ(t.ReadWord(), expected);
    }
    EXPECT_EQ(t.ReadWord(), "");
    EXPECT_TRUE(t.AtEnd());
  }
  {  // A "#" inside a word ends the word; the rest of the line is a comment.
    Tokenizer t("name#tail of line\nnext");
    EXPECT_EQ(t.ReadWord(), "name");
    EXPECT_EQ(t.ReadWord(), "next");
  }
  {  // Bytes above 127 (and NUL) are word characters, whatever isspace says elsewhere.
    const std::string text = std::string("a\xA0") + "b \x85x " + std::string(1, '\0') + "z";
    Tokenizer t(text);
    EXPECT_EQ(t.ReadWord(), "a\xA0" "b");
    EXPECT_EQ(t.ReadWord(), "\x85x");
    EXPECT_EQ(t.ReadWord(), std::string(1, '\0') + "z");
  }
  {  // A comment that runs to the end of the data, and data of blanks only.
    Tokenizer t("word # no line feed after this");
    EXPECT_EQ(t.ReadWord(), "word");
    EXPECT_FALSE(t.HasMoreTokens());
    Tokenizer blanks(" \n\t ");
    EXPECT_EQ(blanks.ReadWord(), "");
  }
  {  // Without comments "#" is an ordinary character.
    Tokenizer t("a#b c", Tokenizer::Comments::kNone);
    EXPECT_EQ(t.ReadWord(), "a#b");
    EXPECT_EQ(t.ReadWord(), "c");
  }
}

TEST(Tokenizer, DelimitersAndCharacters) {
  {  // A delimiter ends the word and is left for the next read.
    Tokenizer t("LeftArm{ obj;x");
    EXPECT_EQ(t.ReadWord("{"), "LeftArm");
    EXPECT_EQ(t.ReadChar(), '{');
    EXPECT_EQ(t.ReadWord("?;"), "obj");
    EXPECT_EQ(t.ReadChar(), ';');
    EXPECT_EQ(t.ReadChar(), 'x');
    EXPECT_EQ(t.ReadChar(), std::nullopt);
    EXPECT_EQ(t.ReadChar(), std::nullopt);  // stays at the end
  }
  {  // A word that starts with a delimiter is empty and consumes nothing.
    Tokenizer t("  ;abc");
    EXPECT_EQ(t.ReadWord(";"), "");
    EXPECT_EQ(t.ReadChar(), ';');
    EXPECT_EQ(t.ReadWord(";"), "abc");
  }
  {  // A character read skips comments first.
    Tokenizer t("# comment\n  }");
    EXPECT_EQ(t.ReadChar(), '}');
  }
}

TEST(Tokenizer, Numbers) {
  {  // Well-formed numbers, read as the C conversions read them.
    Tokenizer t("12 -7 +3 1.5 -.5 +.25 1e3 5. 2.5E-2 1e-400 -0");
    int64_t i = 0;
    EXPECT_EQ(t.ReadInteger(i), TokenStatus::kOk);
    EXPECT_EQ(i, 12);
    EXPECT_EQ(t.ReadInteger(i), TokenStatus::kOk);
    EXPECT_EQ(i, -7);
    EXPECT_EQ(t.ReadInteger(i), TokenStatus::kOk);
    EXPECT_EQ(i, 3);
    double d = 0;
    for (double expected : {1.5, -0.5, 0.25, 1000.0, 5.0, 0.025, 0.0, 0.0}) {
      EXPECT_EQ(t.ReadNumber(d), TokenStatus::kOk) << expected;
      EXPECT_EQ(d, expected);
    }
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kEndOfData);
  }
  {  // A number followed by other characters: the leading number, the whole token consumed.
    Tokenizer t("1.0} next 12.7 3abc");
    double d = 0;
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kTrailingCharacters);
    EXPECT_EQ(d, 1.0);
    EXPECT_EQ(t.ReadWord(), "next");
    int32_t i = 0;
    EXPECT_EQ(t.ReadInteger(i), TokenStatus::kTrailingCharacters);
    EXPECT_EQ(i, 12);
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kTrailingCharacters);
    EXPECT_EQ(d, 3.0);
  }
  {  // Not a number at all: 0, token consumed. "1,5" stops at the comma in every locale.
    Tokenizer t("abc +-1 , 1,5");
    double d = 7;
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kNotANumber);
    EXPECT_EQ(d, 0.0);
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kNotANumber);
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kNotANumber);
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kTrailingCharacters);
    EXPECT_EQ(d, 1.0);
  }
  {  // Non-finite and out-of-range values are refused with 0.
    Tokenizer t("nan inf -infinity 1e400 -1e999 99999999999999999999 3000000000 -2147483648");
    double d = 7;
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kNotFinite);
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kNotFinite);
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kNotFinite);
    EXPECT_EQ(d, 0.0);
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kOutOfRange);
    EXPECT_EQ(t.ReadNumber(d), TokenStatus::kOutOfRange);
    int64_t wide = 7;
    EXPECT_EQ(t.ReadInteger(wide), TokenStatus::kOutOfRange);
    EXPECT_EQ(wide, 0);
    int32_t narrow = 7;
    EXPECT_EQ(t.ReadInteger(narrow), TokenStatus::kOutOfRange);
    EXPECT_EQ(narrow, 0);
    EXPECT_EQ(t.ReadInteger(narrow), TokenStatus::kOk);
    EXPECT_EQ(narrow, INT32_MIN);
  }
  {  // Vectors stop at the first bad component.
    Tokenizer t("1 2 3  4 x 6");
    KRX::MATH::CVector3 v;
    EXPECT_EQ(t.ReadVector(v), TokenStatus::kOk);
    EXPECT_EQ(v, KRX::MATH::CVector3(1, 2, 3));
    EXPECT_EQ(t.ReadVector(v), TokenStatus::kNotANumber);
    EXPECT_EQ(v, KRX::MATH::CVector3(4, 0, 0));
    EXPECT_EQ(t.LastToken(), "x");
  }
}

TEST(Tokenizer, NeverReadsPastTheEnd) {
  // Each text ends in the middle of a token with no terminator after it.
  for (const char* text : {"1.5", "-", "+", "1e", "12345678901234567890", "word", "#", "a#"}) {
    ExactBuffer buffer(text);
    {
      Tokenizer t(buffer.View());
      double d = 0;
      (void)t.ReadNumber(d);
      EXPECT_EQ(t.ReadNumber(d), TokenStatus::kEndOfData) << text;
      EXPECT_TRUE(t.AtEnd()) << text;
    }
    {
      Tokenizer t(buffer.View());
      int64_t i = 0;
      (void)t.ReadInteger(i);
      EXPECT_EQ(t.ReadChar(), std::nullopt) << text;
      EXPECT_EQ(t.ReadWord(), "") << text;
    }
  }
  ExactBuffer number("0.125");
  Tokenizer t(number.View());
  double d = 0;
  EXPECT_EQ(t.ReadNumber(d), TokenStatus::kOk);
  EXPECT_EQ(d, 0.125);
}

TEST(Tokenizer, UnreadAndLines) {
  {  // Unread goes back to where the last read started, before its blanks.
    Tokenizer t("first  second 42");
    EXPECT_EQ(t.ReadWord(), "first");
    EXPECT_EQ(t.ReadWord(), "second");
    t.Unread();
    EXPECT_EQ(t.Position(), 5u);
    EXPECT_EQ(t.ReadWord(), "second");
    int32_t i = 0;
    EXPECT_EQ(t.ReadInteger(i), TokenStatus::kOk);
    t.Unread();
    EXPECT_EQ(t.ReadWord(), "42");
  }
  {  // Lines count line feeds, including those that end comments; CR LF is one line end.
    Tokenizer t("a\r\n# note\n\n  b #c\r\nd");
    EXPECT_EQ(t.ReadWord(), "a");
    EXPECT_EQ(t.TokenLine(), 1);
    EXPECT_EQ(t.ReadWord(), "b");
    EXPECT_EQ(t.TokenLine(), 4);
    EXPECT_EQ(t.TokenOffset(), 13u);
    EXPECT_EQ(t.ReadWord(), "d");
    EXPECT_EQ(t.TokenLine(), 5);
    t.Unread();
    EXPECT_EQ(t.ReadWord(), "d");
    EXPECT_EQ(t.TokenLine(), 5);
  }
}

}  // namespace
}  // namespace kavor

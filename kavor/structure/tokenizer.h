// A text tokenizer over a whole-file buffer, shared by the structure, base, tag template,
// map, motion and BVH readers.
//
// The text is 8-bit, read one byte per character. Every read first remembers the current
// position (the mark, so that Unread() can go back to it) and then skips blanks and
// comments. A blank is a space, tab, line feed, vertical tab, form feed or carriage return
// (the C locale's white space; bytes above 127 are never blanks). With Comments::kHash a
// "#" met while skipping starts a comment that runs up to and including the next line feed
// or the end of the data.
//
// Reads never look past the end of the text, whatever it ends with. Numbers are parsed
// without regard to the process locale; a number must be finite and fit its type.
//
// The tokenizer does not own the text: the buffer must outlive it and the words it hands
// out, which point into the buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "krx/math.h"

namespace kavor {

// What a numeric read found.
enum class TokenStatus {
  kOk,                  // the whole token is a number
  kEndOfData,           // only blanks and comments were left; nothing was consumed
  kNotANumber,          // the token does not start with a number; the value is 0
  kTrailingCharacters,  // the token starts with a number but goes on with other characters;
                        // the value is that leading number
  kOutOfRange,          // the number does not fit the type; the value is 0
  kNotFinite,           // "nan", "inf" or "infinity"; the value is 0
};

// A short phrase for messages: "a number", "the end of the data", ...
std::string_view DescribeTokenStatus(TokenStatus status);

class Tokenizer {
 public:
  enum class Comments { kHash, kNone };

  explicit Tokenizer(std::string_view text, Comments comments = Comments::kHash);

  // After skipping, the characters up to (not including) the next blank, "#" (when comments
  // are on), one of `delimiters`, or the end of the data. The stopping character is not
  // consumed, so the word is empty at the end of the data and also when the next character
  // is itself a delimiter (read it with ReadChar()).
  std::string_view ReadWord(std::string_view delimiters = {});

  // After skipping, exactly one character; nothing when only blanks and comments are left
  // (the position then stays at the end of the data).
  std::optional<char> ReadChar();

  // After skipping, a decimal integer with an optional sign; the whole token (up to the next
  // blank or "#") is consumed in every case but kEndOfData. `value` is set in every case
  // (see TokenStatus).
  [[nodiscard]] TokenStatus ReadInteger(int64_t& value);
  [[nodiscard]] TokenStatus ReadInteger(int32_t& value);

  // The same for a decimal floating-point number ("1", "-2.5", ".5", "1e-3").
  [[nodiscard]] TokenStatus ReadNumber(double& value);

  // Three numbers x, y, z. Stops at the first number that is not kOk and returns its
  // status; each component read holds what its read gave, the ones after it are 0.
  [[nodiscard]] TokenStatus ReadVector(KRX::MATH::CVector3& value);

  // Moves the position back to the mark (where the last read started, before its blanks).
  void Unread();

  // True when the position is at the end of the data (blanks or comments may remain before
  // it only if nothing has skipped them yet).
  bool AtEnd() const { return pos_ == text_.size(); }

  // Skips blanks and comments (this counts as a read: the mark is set) and reports whether
  // a token follows.
  bool HasMoreTokens();

  // The 1-based line on which the last token starts (for a read at the end of the data: the
  // last line).
  int TokenLine() const { return token_line_; }
  // Byte offset at which the last token starts.
  size_t TokenOffset() const { return token_start_; }
  // The characters the last read consumed after its blanks and comments.
  std::string_view LastToken() const { return text_.substr(token_start_, pos_ - token_start_); }
  // Byte offset of the read position.
  size_t Position() const { return pos_; }

 private:
  void BeginRead();
  void SkipBlanksAndComments();
  // Consumes the rest of a numeric token and returns it.
  std::string_view TakeToken();

  std::string_view text_;
  Comments comments_;
  size_t pos_ = 0;
  int line_ = 1;
  size_t mark_ = 0;
  int mark_line_ = 1;
  size_t token_start_ = 0;
  int token_line_ = 1;
};

}  // namespace kavor

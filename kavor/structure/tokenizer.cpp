#include "kavor/structure/tokenizer.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace kavor {
namespace {

// The C locale's white space. Taking an unsigned byte keeps bytes above 127 well defined.
bool IsBlank(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// from_chars takes "-" but not "+"; a "+" directly before a digit (or a "." for numbers)
// is accepted the way the C conversions accept it.
std::string_view StripPlus(std::string_view token, bool allow_point) {
  if (token.size() >= 2 && token[0] == '+' &&
      (IsDigit(token[1]) || (allow_point && token[1] == '.'))) {
    return token.substr(1);
  }
  return token;
}

TokenStatus ClassifyParse(std::string_view token, std::from_chars_result result) {
  if (result.ec == std::errc::invalid_argument) return TokenStatus::kNotANumber;
  if (result.ec == std::errc::result_out_of_range) return TokenStatus::kOutOfRange;
  if (result.ptr != token.data() + token.size()) return TokenStatus::kTrailingCharacters;
  return TokenStatus::kOk;
}

// A number out of a double's range that lies between -1 and 1 is an underflow. The wider
// long double tells the two apart for all but absurdly long exponents.
bool IsUnderflow(std::string_view token) {
  long double wide = 0.0L;
  const auto result = std::from_chars(token.data(), token.data() + token.size(), wide,
                                      std::chars_format::general);
  return result.ec == std::errc() && wide > -1.0L && wide < 1.0L;
}

}  // namespace

std::string_view DescribeTokenStatus(TokenStatus status) {
  switch (status) {
    case TokenStatus::kOk:
      return "a number";
    case TokenStatus::kEndOfData:
      return "the end of the data";
    case TokenStatus::kNotANumber:
      return "text that is not a number";
    case TokenStatus::kTrailingCharacters:
      return "a number followed by other characters";
    case TokenStatus::kOutOfRange:
      return "a number out of range";
    case TokenStatus::kNotFinite:
      return "a number that is not finite";
  }
  return "an unknown token";
}

Tokenizer::Tokenizer(std::string_view text, Comments comments)
    : text_(text), comments_(comments) {}

void Tokenizer::BeginRead() {
  mark_ = pos_;
  mark_line_ = line_;
  SkipBlanksAndComments();
  token_start_ = pos_;
  token_line_ = line_;
}

void Tokenizer::SkipBlanksAndComments() {
  while (pos_ < text_.size()) {
    const char c = text_[pos_];
    if (IsBlank(static_cast<unsigned char>(c))) {
      if (c == '\n') ++line_;
      ++pos_;
    } else if (c == '#' && comments_ == Comments::kHash) {
      while (pos_ < text_.size() && text_[pos_] != '\n') ++pos_;
      if (pos_ < text_.size()) {  // the line feed belongs to the comment
        ++pos_;
        ++line_;
      }
    } else {
      return;
    }
  }
}

std::string_view Tokenizer::ReadWord(std::string_view delimiters) {
  BeginRead();
  while (pos_ < text_.size()) {
    const char c = text_[pos_];
    if (IsBlank(static_cast<unsigned char>(c))) break;
    if (c == '#' && comments_ == Comments::kHash) break;
    if (delimiters.find(c) != std::string_view::npos) break;
    ++pos_;
  }
  return LastToken();
}

std::optional<char> Tokenizer::ReadChar() {
  BeginRead();
  if (pos_ >= text_.size()) return std::nullopt;
  // Never a line feed: skipping has passed every blank.
  return text_[pos_++];
}

bool Tokenizer::HasMoreTokens() {
  BeginRead();
  return pos_ < text_.size();
}

void Tokenizer::Unread() {
  pos_ = mark_;
  line_ = mark_line_;
  token_start_ = mark_;
  token_line_ = mark_line_;
}

std::string_view Tokenizer::TakeToken() {
  while (pos_ < text_.size()) {
    const char c = text_[pos_];
    if (IsBlank(static_cast<unsigned char>(c))) break;
    if (c == '#' && comments_ == Comments::kHash) break;
    ++pos_;
  }
  return LastToken();
}

TokenStatus Tokenizer::ReadInteger(int64_t& value) {
  value = 0;
  BeginRead();
  if (pos_ >= text_.size()) return TokenStatus::kEndOfData;
  const std::string_view token = StripPlus(TakeToken(), false);
  int64_t parsed = 0;
  const auto result = std::from_chars(token.data(), token.data() + token.size(), parsed);
  const TokenStatus status = ClassifyParse(token, result);
  if (status == TokenStatus::kOk || status == TokenStatus::kTrailingCharacters) value = parsed;
  return status;
}

TokenStatus Tokenizer::ReadInteger(int32_t& value) {
  value = 0;
  int64_t wide = 0;
  const TokenStatus status = ReadInteger(wide);
  if (wide < std::numeric_limits<int32_t>::min() || wide > std::numeric_limits<int32_t>::max()) {
    return TokenStatus::kOutOfRange;
  }
  value = static_cast<int32_t>(wide);
  return status;
}

TokenStatus Tokenizer::ReadNumber(double& value) {
  value = 0.0;
  BeginRead();
  if (pos_ >= text_.size()) return TokenStatus::kEndOfData;
  const std::string_view token = StripPlus(TakeToken(), true);
  double parsed = 0.0;
  const auto result = std::from_chars(token.data(), token.data() + token.size(), parsed,
                                      std::chars_format::general);
  TokenStatus status = ClassifyParse(token, result);
  if (status == TokenStatus::kOutOfRange && IsUnderflow(token)) {
    // Too small for a double: it reads as zero, as the C conversion gives it.
    parsed = token[0] == '-' ? -0.0 : 0.0;
    status = ClassifyParse(token, std::from_chars_result{result.ptr, std::errc()});
  }
  if (status != TokenStatus::kOk && status != TokenStatus::kTrailingCharacters) return status;
  if (!std::isfinite(parsed)) return TokenStatus::kNotFinite;
  value = parsed;
  return status;
}

TokenStatus Tokenizer::ReadVector(KRX::MATH::CVector3& value) {
  value = KRX::MATH::CVector3();
  double x = 0.0, y = 0.0, z = 0.0;
  TokenStatus status = ReadNumber(x);
  if (status == TokenStatus::kOk) {
    status = ReadNumber(y);
    if (status == TokenStatus::kOk) status = ReadNumber(z);
  }
  value.Set(x, y, z);
  return status;
}

}  // namespace kavor

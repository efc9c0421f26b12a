// Answers files: one scripted answer per line.
#include <charconv>
#include <string>
#include <string_view>

#include "runtime/interaction.h"

namespace KRX::rt {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }

std::string_view Trim(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

// A whole-text decimal integer (optional sign); nothing for anything else.
std::optional<int> ParseInt(std::string_view s) {
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  int value = 0;
  const char* end = s.data() + s.size();
  auto [ptr, ec] = std::from_chars(s.data(), end, value);
  if (s.empty() || ec != std::errc() || ptr != end) return std::nullopt;
  return value;
}

std::string LowerAscii(std::string_view s) {
  std::string out(s);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

}  // namespace

std::string FormatAnswer(const Answer& answer) {
  switch (answer.kind) {
    case AnswerKind::Ok:
      return "ok";
    case AnswerKind::Cancel:
      return "cancel";
    case AnswerKind::Yes:
      return "yes";
    case AnswerKind::No:
      return "no";
    case AnswerKind::Button:
      return "button " + std::to_string(answer.number);
    case AnswerKind::Pick:
      return (answer.number == 2 ? "pick2 " : "pick ") + answer.text.GetAsciiString();
    case AnswerKind::File:
      return "file " + answer.text.GetAsciiString();
  }
  return "?";
}

AnswerScript ParseAnswers(const std::string& text) {
  AnswerScript script;
  std::string_view rest(text);
  int line_number = 0;
  while (!rest.empty()) {
    const size_t eol = rest.find('\n');
    std::string_view line = rest.substr(0, eol);
    rest = eol == std::string_view::npos ? std::string_view() : rest.substr(eol + 1);
    ++line_number;
    line = Trim(line);
    if (line.empty() || line.front() == '#') continue;

    size_t word_end = 0;
    while (word_end < line.size() && !IsBlank(line[word_end])) ++word_end;
    const std::string word = LowerAscii(line.substr(0, word_end));
    const std::string_view argument = Trim(line.substr(word_end));
    auto fail = [&](const std::string& why) {
      script.errors.push_back("line " + std::to_string(line_number) + ": " + why);
    };
    auto no_argument = [&](AnswerKind kind) {
      if (!argument.empty()) {
        fail("'" + word + "' takes nothing after it");
        return;
      }
      script.answers.push_back({kind, 0, CString()});
    };

    if (word == "ok") {
      no_argument(AnswerKind::Ok);
    } else if (word == "cancel") {
      no_argument(AnswerKind::Cancel);
    } else if (word == "yes") {
      no_argument(AnswerKind::Yes);
    } else if (word == "no") {
      no_argument(AnswerKind::No);
    } else if (word == "button") {
      std::optional<int> n = ParseInt(argument);
      if (!n) {
        fail("'button' needs a whole number");
      } else {
        script.answers.push_back({AnswerKind::Button, *n, CString()});
      }
    } else if (word == "pick" || word == "pick2") {
      if (argument.empty()) {
        fail("'" + word + "' needs an object name");
      } else {
        script.answers.push_back({AnswerKind::Pick, word == "pick2" ? 2 : 1, CString(argument)});
      }
    } else if (word == "file") {
      if (argument.empty()) {
        fail("'file' needs a path");
      } else {
        script.answers.push_back({AnswerKind::File, 0, CString(argument)});
      }
    } else if (word == "progress-cancel") {
      std::optional<int> n = ParseInt(argument);
      if (!n) {
        fail("'progress-cancel' needs a whole number");
      } else {
        script.cancel_progress_at = *n;
      }
    } else {
      fail("unknown answer '" + std::string(line) + "'");
    }
  }
  return script;
}

}  // namespace KRX::rt

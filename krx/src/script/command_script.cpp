#include "script/command_script.h"

#include <charconv>
#include <cmath>

namespace KRX::rt {
namespace {

// A cursor over one line; every read is bounds-checked.
class LineCursor {
 public:
  explicit LineCursor(std::string_view text) : text_(text) {}
  bool AtEnd() const { return pos_ >= text_.size(); }
  char Peek() const { return AtEnd() ? '\0' : text_[pos_]; }
  char Take() { return AtEnd() ? '\0' : text_[pos_++]; }
  size_t Column() const { return pos_ + 1; }
  void SkipBlanks() {
    while (!AtEnd() && (text_[pos_] == ' ' || text_[pos_] == '\t' || text_[pos_] == '\r')) ++pos_;
  }
  // True when only blanks or a comment remain.
  bool RestIsEmpty() {
    SkipBlanks();
    return AtEnd() || Peek() == '#';
  }
  std::string_view Word() {
    size_t start = pos_;
    while (!AtEnd()) {
      char c = text_[pos_];
      bool word = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '_' || c == '.' || c == '+' || c == '-';
      if (!word) break;
      ++pos_;
    }
    return text_.substr(start, pos_ - start);
  }

 private:
  std::string_view text_;
  size_t pos_ = 0;
};

bool IsNameStart(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_'; }

ScriptParseResult Fail(int line, size_t column, const std::string& what) {
  ScriptParseResult r;
  r.ok = false;
  r.error = "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " + what;
  return r;
}

// Reads a double-quoted string; the opening quote is already taken.
bool ReadString(LineCursor& cur, std::string& out, std::string& error) {
  while (!cur.AtEnd()) {
    char c = cur.Take();
    if (c == '"') return true;
    if (c == '\\') {
      if (cur.AtEnd()) break;
      char e = cur.Take();
      switch (e) {
        case 'n': out += '\n'; break;
        case 't': out += '\t'; break;
        case 'r': out += '\r'; break;
        case '"': out += '"'; break;
        case '\\': out += '\\'; break;
        default:
          error = std::string("unknown escape \\") + e;
          return false;
      }
      continue;
    }
    out += c;
  }
  error = "unterminated text";
  return false;
}

bool ReadValue(LineCursor& cur, CValue& value, std::string& error) {
  if (cur.Peek() == '"') {
    cur.Take();
    std::string text;
    if (!ReadString(cur, text, error)) return false;
    value = CValue(CString(text));
    return true;
  }
  std::string_view word = cur.Word();
  if (word.empty()) {
    error = "expected a value";
    return false;
  }
  if (word == "true" || word == "True") {
    value = CValue(true);
    return true;
  }
  if (word == "false" || word == "False") {
    value = CValue(false);
    return true;
  }
  if (word == "null") {
    value = CValue();
    return true;
  }
  const char* first = word.data();
  const char* last = word.data() + word.size();
  if (*first == '+') ++first;
  bool integral = word.find_first_of(".eE") == std::string_view::npos;
  if (integral) {
    int32_t i = 0;
    auto [ptr, ec] = std::from_chars(first, last, i);
    if (ec == std::errc() && ptr == last) {
      value = CValue(static_cast<int>(i));
      return true;
    }
  }
  double d = 0.0;
  auto [ptr, ec] = std::from_chars(first, last, d);
  if (ec != std::errc() || ptr != last || !std::isfinite(d)) {
    error = "not a value: " + std::string(word);
    return false;
  }
  value = CValue(d);
  return true;
}

}  // namespace

ScriptParseResult ParseCommandLine(std::string_view line, int line_number) {
  LineCursor cur(line);
  ScriptParseResult result;
  if (cur.RestIsEmpty()) return result;
  if (!IsNameStart(cur.Peek())) return Fail(line_number, cur.Column(), "expected a command name");
  ScriptCommand command;
  command.line = line_number;
  while (!cur.AtEnd() && (IsNameStart(cur.Peek()) || (cur.Peek() >= '0' && cur.Peek() <= '9'))) {
    command.name += cur.Take();
  }
  cur.SkipBlanks();
  if (cur.Take() != '(') return Fail(line_number, cur.Column(), "expected '('");
  cur.SkipBlanks();
  if (cur.Peek() == ')') {
    cur.Take();
  } else {
    for (;;) {
      cur.SkipBlanks();
      CValue value;
      std::string error;
      if (!ReadValue(cur, value, error)) return Fail(line_number, cur.Column(), error);
      command.args.push_back(value);
      cur.SkipBlanks();
      char c = cur.Take();
      if (c == ')') break;
      if (c != ',') return Fail(line_number, cur.Column(), "expected ',' or ')'");
    }
  }
  if (!cur.RestIsEmpty()) return Fail(line_number, cur.Column(), "unexpected text after ')'");
  result.commands.push_back(std::move(command));
  return result;
}

ScriptParseResult ParseCommandScript(std::string_view text) {
  ScriptParseResult all;
  int line_number = 0;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    ++line_number;
    ScriptParseResult one = ParseCommandLine(text.substr(start, end - start), line_number);
    if (!one.ok) return one;
    for (auto& c : one.commands) all.commands.push_back(std::move(c));
    start = end + 1;
  }
  return all;
}

std::string FormatCommand(const ScriptCommand& command) {
  std::string out = command.name + "(";
  for (size_t i = 0; i < command.args.size(); ++i) {
    if (i) out += ", ";
    const CValue& v = command.args[i];
    switch (v.GetType()) {
      case ValueType::Empty: out += "null"; break;
      case ValueType::Bool: out += v.GetBool() ? "true" : "false"; break;
      case ValueType::String: {
        out += '"';
        for (char c : v.GetString().GetAsciiString()) {
          if (c == '"' || c == '\\') out += '\\';
          if (c == '\n') { out += "\\n"; continue; }
          out += c;
        }
        out += '"';
        break;
      }
      default: out += v.GetString().GetAsciiString(); break;
    }
  }
  return out + ")";
}

}  // namespace KRX::rt

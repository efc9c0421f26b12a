#include "scene/expression.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace KRX::rt {

namespace {

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

std::wstring Trim(const std::wstring& s) {
  size_t begin = 0, end = s.size();
  while (begin < end && IsBlank(s[begin])) ++begin;
  while (end > begin && IsBlank(s[end - 1])) --end;
  return s.substr(begin, end - begin);
}

// A plain decimal number, the whole (trimmed) text.
bool ParseNumber(const std::wstring& text, double* out) {
  const std::wstring s = Trim(text);
  if (s.empty()) return false;
  std::string narrow;
  for (wchar_t c : s) {
    const bool ok = (c >= L'0' && c <= L'9') || c == L'.' || c == L'-' || c == L'+' || c == L'e' ||
                    c == L'E';
    if (!ok) return false;
    narrow.push_back(static_cast<char>(c));
  }
  char* stop = nullptr;
  errno = 0;
  const double v = std::strtod(narrow.c_str(), &stop);
  if (stop != narrow.c_str() + narrow.size() || errno == ERANGE || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

}  // namespace

bool ParseExpression(const std::wstring& text, ParsedExpression* out) {
  std::wstring rest = Trim(text);
  if (rest.empty()) return false;
  ParsedExpression parsed;
  double constant = 0.0;
  if (ParseNumber(rest, &constant)) {
    out->source.clear();
    out->scale = 1.0;
    out->offset = constant;
    return true;
  }
  // A trailing "+ c" or "- c"; a sign right after a digit and "e" is a number's exponent.
  for (size_t pos = rest.size(); pos-- > 1;) {
    const wchar_t c = rest[pos];
    if (c != L'+' && c != L'-') continue;
    const wchar_t prev = rest[pos - 1];
    if ((prev == L'e' || prev == L'E') && pos >= 2 && rest[pos - 2] >= L'0' && rest[pos - 2] <= L'9') {
      continue;
    }
    const std::wstring before = Trim(rest.substr(0, pos));
    double value = 0.0;
    if (before.empty() || before.back() == L'*') continue;
    if (!ParseNumber(rest.substr(pos + 1), &value)) continue;
    parsed.offset = c == L'-' ? -value : value;
    rest = before;
    break;
  }
  // "name * k" or "k * name".
  const size_t star = rest.find(L'*');
  if (star != std::wstring::npos) {
    const std::wstring left = Trim(rest.substr(0, star));
    const std::wstring right = Trim(rest.substr(star + 1));
    double k = 0.0;
    if (ParseNumber(right, &k)) {
      rest = left;
    } else if (ParseNumber(left, &k)) {
      rest = right;
    } else {
      return false;
    }
    parsed.scale = k;
  }
  rest = Trim(rest);
  if (rest.empty() || rest.find(L'*') != std::wstring::npos) return false;
  if (ParseNumber(rest, &constant)) {
    parsed.offset += parsed.scale * constant;
    parsed.scale = 1.0;
  } else {
    parsed.source = rest;
  }
  *out = parsed;
  return true;
}

}  // namespace KRX::rt

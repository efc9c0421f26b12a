// Host value types: wide text, references and variant values with the host's conversions.
#include "krx/value.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "runtime/item.h"
#include "scene/scene_edit.h"

namespace KRX {

namespace {

wchar_t LowerChar(wchar_t c) { return (c >= L'A' && c <= L'Z') ? c - L'A' + L'a' : c; }
wchar_t UpperChar(wchar_t c) { return (c >= L'a' && c <= L'z') ? c - L'a' + L'A' : c; }

bool IsBlank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r'; }

// Parses the whole text as a number ("12", "-1.5e3", "true", "false"), surrounding blanks
// allowed. False when it is not one.
bool ParseNumber(const std::wstring& text, double* out) {
  size_t begin = 0, end = text.size();
  while (begin < end && IsBlank(text[begin])) ++begin;
  while (end > begin && IsBlank(text[end - 1])) --end;
  if (begin == end) return false;
  std::string narrow;
  narrow.reserve(end - begin);
  for (size_t i = begin; i < end; ++i) {
    const wchar_t c = LowerChar(text[i]);
    if (c > 127) return false;
    narrow.push_back(static_cast<char>(c));
  }
  if (narrow == "true") {
    *out = 1.0;
    return true;
  }
  if (narrow == "false") {
    *out = 0.0;
    return true;
  }
  // Only plain decimal notation: no hexadecimal, "inf" or "nan".
  for (char c : narrow) {
    const bool ok = (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e';
    if (!ok) return false;
  }
  char* stop = nullptr;
  errno = 0;
  const double v = std::strtod(narrow.c_str(), &stop);
  if (stop != narrow.c_str() + narrow.size() || errno == ERANGE || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

int32_t RoundToInt(double v) {
  if (!std::isfinite(v)) return 0;
  const double r = std::round(v);
  if (r >= static_cast<double>(std::numeric_limits<int32_t>::max())) {
    return std::numeric_limits<int32_t>::max();
  }
  if (r <= static_cast<double>(std::numeric_limits<int32_t>::min())) {
    return std::numeric_limits<int32_t>::min();
  }
  return static_cast<int32_t>(r);
}

// The shortest decimal text that reads back as the same double.
std::string FormatDouble(double v) {
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  char buffer[32];
  for (int precision = 1; precision <= 17; ++precision) {
    std::snprintf(buffer, sizeof(buffer), "%.*g", precision, v);
    if (std::strtod(buffer, nullptr) == v) break;
  }
  return buffer;
}

}  // namespace

// ---- CString ----

CString::CString(const char* s) {
  for (const char* p = s ? s : ""; *p; ++p) s_.push_back(static_cast<unsigned char>(*p));
}

CString::CString(const std::string& s) : CString(std::string_view(s)) {}

CString::CString(std::string_view s) {
  s_.reserve(s.size());
  for (char c : s) s_.push_back(static_cast<unsigned char>(c));
}

std::string CString::GetAsciiString() const {
  std::string out;
  out.reserve(s_.size());
  for (wchar_t c : s_) {
    out.push_back((c >= 0 && c < 256) ? static_cast<char>(static_cast<unsigned char>(c)) : '?');
  }
  return out;
}

CString CString::GetSubString(size_t start, size_t count) const {
  if (start >= s_.size()) return CString();
  return CString(s_.substr(start, count));
}

CString CString::Upper() const {
  std::wstring out = s_;
  for (wchar_t& c : out) c = UpperChar(c);
  return CString(std::move(out));
}

CString CString::Lower() const {
  std::wstring out = s_;
  for (wchar_t& c : out) c = LowerChar(c);
  return CString(std::move(out));
}

// ---- CRef ----

bool CRef::IsValid() const {
  std::shared_ptr<rt::Item> item = item_.lock();
  return item && !item->deleted;
}

CString CRef::GetAsText() const {
  std::shared_ptr<rt::Item> item = item_.lock();
  if (!item || item->deleted) return CString();
  return rt::FullNameOf(*item);
}

CRef CRef::FromText(const CString& full_name) {
  std::shared_ptr<rt::Item> item = rt::FindItemByFullName(full_name);
  return item ? CRef(std::weak_ptr<rt::Item>(item)) : CRef();
}

bool CRef::operator==(const CRef& o) const {
  return !item_.owner_before(o.item_) && !o.item_.owner_before(item_);
}

// ---- CValue ----
// Variant alternatives: 0 empty, 1 bool, 2 int, 3 double, 4 text, 5 reference, 6 array.

CValue::CValue(CValueArray a) : v_(std::make_shared<const CValueArray>(std::move(a))) {}

ValueType CValue::GetType() const {
  switch (v_.index()) {
    case 1: return ValueType::Bool;
    case 2: return ValueType::Int;
    case 3: return ValueType::Double;
    case 4: return ValueType::String;
    case 5: return ValueType::Ref;
    case 6: return ValueType::Array;
    default: return ValueType::Empty;
  }
}

double CValue::GetDouble() const {
  switch (v_.index()) {
    case 1: return std::get<1>(v_) ? 1.0 : 0.0;
    case 2: return std::get<2>(v_);
    case 3: return std::get<3>(v_);
    case 4: {
      double v = 0.0;
      return ParseNumber(std::get<4>(v_).GetWideString(), &v) ? v : 0.0;
    }
    default: return 0.0;
  }
}

bool CValue::GetBool() const {
  switch (v_.index()) {
    case 1: return std::get<1>(v_);
    case 2: return std::get<2>(v_) != 0;
    case 3: return std::get<3>(v_) != 0.0;
    case 4: return GetDouble() != 0.0;
    case 5: return std::get<5>(v_).IsValid();
    default: return false;
  }
}

int32_t CValue::GetInt() const {
  switch (v_.index()) {
    case 1: return std::get<1>(v_) ? 1 : 0;
    case 2: return std::get<2>(v_);
    case 3:
    case 4: return RoundToInt(GetDouble());
    default: return 0;
  }
}

CString CValue::GetString() const {
  switch (v_.index()) {
    case 1: return std::get<1>(v_) ? CString(L"true") : CString(L"false");
    case 2: return CString(std::to_string(std::get<2>(v_)));
    case 3: return CString(FormatDouble(std::get<3>(v_)));
    case 4: return std::get<4>(v_);
    case 5: return std::get<5>(v_).GetAsText();
    case 6: {
      CString out;
      for (const CValue& v : *std::get<6>(v_)) {
        if (!out.IsEmpty()) out += CString(L",");
        out += v.GetString();
      }
      return out;
    }
    default: return CString();
  }
}

CRef CValue::GetRef() const {
  if (v_.index() == 5) return std::get<5>(v_);
  if (v_.index() == 4) return CRef::FromText(std::get<4>(v_));
  return CRef();
}

const CValueArray& CValue::GetArray() const {
  static const CValueArray kEmpty;
  return v_.index() == 6 ? *std::get<6>(v_) : kEmpty;
}

bool CValue::operator==(const CValue& o) const {
  if (v_.index() != o.v_.index()) return false;
  if (v_.index() == 6) return GetArray() == o.GetArray();
  return v_ == o.v_;
}

}  // namespace KRX

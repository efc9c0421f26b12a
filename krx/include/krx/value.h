// Host value types: wide text, statuses, variant values and object references.
#pragma once

#include <cfloat>
#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace KRX {

namespace rt {
struct Item;  // the runtime's scene item; opaque to the plug-in
}

// Every callback and most SDK calls report one of these. Values are part of the module
// interface: be careful when changing them.
enum class CStatus : int {
  OK = 0,
  Fail = 1,
  InvalidArgument = 2,
  Abort = 3,
  NotImpl = 4,
  Unexpected = 5,
  False = 6,
};

inline bool Succeeded(CStatus s) { return s == CStatus::OK; }

// A time argument equal to this (the largest double) means the current frame of the
// project's "Play Control".
inline constexpr double kCurrentTime = DBL_MAX;

// Log severities, as numeric codes.
inline constexpr int kSeverityError = 2;
inline constexpr int kSeverityWarning = 4;
inline constexpr int kSeverityInfo = 8;

// Wide text. Files and 8-bit interfaces use GetAsciiString(): one byte per character,
// characters above 255 become '?'.
class CString {
 public:
  CString() = default;
  CString(const wchar_t* s) : s_(s ? s : L"") {}  // NOLINT: implicit like host text
  CString(std::wstring s) : s_(std::move(s)) {}   // NOLINT
  CString(const char* s);                          // NOLINT: bytes widened one to one
  CString(const std::string& s);                   // NOLINT
  CString(std::string_view s);                     // NOLINT

  const std::wstring& GetWideString() const { return s_; }
  std::string GetAsciiString() const;
  bool IsEmpty() const { return s_.empty(); }
  size_t Length() const { return s_.size(); }
  void Clear() { s_.clear(); }

  // Position of `what` at or after `from`, or npos.
  size_t FindString(const CString& what, size_t from = 0) const { return s_.find(what.s_, from); }
  size_t ReverseFindString(const CString& what) const { return s_.rfind(what.s_); }
  CString GetSubString(size_t start, size_t count = std::wstring::npos) const;
  CString Upper() const;
  CString Lower() const;
  bool IsEqualNoCase(const CString& o) const { return Lower() == o.Lower(); }

  CString& operator+=(const CString& o) {
    s_ += o.s_;
    return *this;
  }
  friend CString operator+(CString a, const CString& b) { return a += b; }
  bool operator==(const CString& o) const = default;
  auto operator<=>(const CString& o) const = default;
  wchar_t operator[](size_t i) const { return s_[i]; }

  static constexpr size_t npos = std::wstring::npos;

 private:
  std::wstring s_;
};

// A reference to a scene item (object, property, parameter, operator, ...). It does not
// keep the item alive: once the item is deleted the reference becomes invalid.
class CRef {
 public:
  CRef() = default;
  explicit CRef(std::weak_ptr<rt::Item> item) : item_(std::move(item)) {}

  bool IsValid() const;
  // Full name of the referenced item ("Model.child.kine.local"), empty when invalid.
  CString GetAsText() const;
  // Resolves a full name in the active scene; the reference is invalid when nothing
  // matches.
  static CRef FromText(const CString& full_name);
  std::shared_ptr<rt::Item> Lock() const { return item_.lock(); }
  bool operator==(const CRef& o) const;

 protected:
  std::weak_ptr<rt::Item> item_;
};

using CRefArray = std::vector<CRef>;

class CValue;
using CValueArray = std::vector<CValue>;

// Value type codes. They are part of the module interface and are written to scene
// files: be careful when changing them.
enum class ValueType : int {
  Empty = 0,
  Int = 3,
  Double = 5,
  String = 8,
  Bool = 11,
  Ref = 13,
  Array = 8204,
};

// A variant value. An empty value means "absent" (an argument left out, no return value).
class CValue {
 public:
  CValue() = default;
  CValue(bool b) : v_(b) {}                         // NOLINT
  CValue(int i) : v_(static_cast<int32_t>(i)) {}    // NOLINT
  CValue(int64_t i) : v_(static_cast<double>(i)) {}  // NOLINT: wide integers as numbers
  CValue(double d) : v_(d) {}                       // NOLINT
  CValue(const CString& s) : v_(s) {}               // NOLINT
  CValue(const wchar_t* s) : v_(CString(s)) {}      // NOLINT
  CValue(const char* s) : v_(CString(s)) {}         // NOLINT
  CValue(const CRef& r) : v_(r) {}                  // NOLINT
  CValue(CValueArray a);                            // NOLINT

  ValueType GetType() const;
  bool IsEmpty() const { return v_.index() == 0; }

  // Conversions as a host does them: numbers and booleans convert to each other, text
  // parses as a number ("12", "1.5", "true"), a reference converts to its full name.
  // A failed conversion gives 0, false or empty text.
  bool GetBool() const;
  int32_t GetInt() const;
  double GetDouble() const;
  CString GetString() const;
  // A reference value as it is; a text value is resolved as a full name in the active scene.
  CRef GetRef() const;
  const CValueArray& GetArray() const;

  bool operator==(const CValue& o) const;

 private:
  std::variant<std::monostate, bool, int32_t, double, CString, CRef,
               std::shared_ptr<const CValueArray>>
      v_;
};

}  // namespace KRX

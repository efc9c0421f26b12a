#include "files/json_reader.h"

#include <cmath>
#include <optional>

#include "files/scene_format.h"
#include "files/text_codec.h"

namespace KRX::rt::files {

namespace {

// Thrown by the parse callback to stop a document that nests too deeply.
struct TooDeep {};

std::string Key(const char* key) { return std::string("\"") + key + "\""; }

}  // namespace

bool ParseJsonDocument(const uint8_t* data, size_t size, int max_depth, Json* out,
                       std::string* error) {
  // The parser itself keeps its state on the heap; the bound keeps the documents that the
  // reader walks (and the values it builds from them) shallow.
  const Json::parser_callback_t limit_depth = [max_depth](int depth, Json::parse_event_t, Json&) {
    if (depth > max_depth) throw TooDeep{};
    return true;
  };
  try {
    *out = Json::parse(data, data + size, limit_depth, /*allow_exceptions=*/true,
                       /*ignore_comments=*/false);
  } catch (const TooDeep&) {
    *error = "the document nests deeper than " + std::to_string(max_depth) + " levels";
    return false;
  } catch (const Json::parse_error& e) {
    *error = "not a valid JSON document (byte " + std::to_string(e.byte) + "): " + e.what();
    return false;
  } catch (const Json::exception& e) {
    *error = std::string("not a valid JSON document: ") + e.what();
    return false;
  }
  return true;
}

void JsonReader::NameCurrent(const CString& name) {
  if (!path_.empty()) path_.back() += " \"" + WideToUtf8(name.GetWideString()) + "\"";
}

std::string JsonReader::Where() const {
  std::string where;
  for (const std::string& segment : path_) {
    if (!where.empty()) where += "/";
    where += segment;
  }
  return where;
}

void JsonReader::Fail(const std::string& what) const {
  const std::string where = Where();
  throw DocumentError{where.empty() ? what : "at " + where + ": " + what};
}

const Json* JsonReader::FindMember(const Json& object, const char* key) const {
  if (!object.is_object()) Fail("expected an object");
  auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

const Json& JsonReader::Member(const Json& object, const char* key) const {
  const Json* value = FindMember(object, key);
  if (!value) Fail("missing " + Key(key));
  return *value;
}

const Json& JsonReader::Object(const Json& value, const std::string& what) const {
  if (!value.is_object()) Fail(what + " is not an object");
  return value;
}

const Json::array_t& JsonReader::Array(const Json& value, const std::string& what) const {
  if (!value.is_array()) Fail(what + " is not an array");
  return value.get_ref<const Json::array_t&>();
}

const Json& JsonReader::ObjectMember(const Json& object, const char* key) const {
  return Object(Member(object, key), Key(key));
}

const Json::array_t& JsonReader::ArrayMember(const Json& object, const char* key) const {
  return Array(Member(object, key), Key(key));
}

CString JsonReader::Text(const Json& value, const std::string& what, size_t max_length) const {
  if (!value.is_string()) Fail(what + " is not text");
  const std::string& utf8 = value.get_ref<const std::string&>();
  std::optional<std::wstring> wide = Utf8ToWide(utf8);
  if (!wide) Fail(what + " is not valid UTF-8 text");
  if (wide->size() > max_length) {
    Fail(what + " is longer than " + std::to_string(max_length) + " characters");
  }
  return CString(std::move(*wide));
}

CString JsonReader::TextMember(const Json& object, const char* key, size_t max_length) const {
  return Text(Member(object, key), Key(key), max_length);
}

CString JsonReader::NameMember(const Json& object, const char* key) const {
  CString name = Text(Member(object, key), Key(key), kMaxNameLength);
  if (name.IsEmpty()) Fail(Key(key) + " is empty");
  for (wchar_t c : name.GetWideString()) {
    if (c == L'.') Fail(Key(key) + " \"" + WideToUtf8(name.GetWideString()) + "\" contains \".\"");
    if (c < 0x20 || c == 0x7F) Fail(Key(key) + " contains a control character");
  }
  return name;
}

int64_t JsonReader::Integer(const Json& value, const std::string& what, int64_t lo,
                            int64_t hi) const {
  int64_t v = 0;
  if (value.is_number_unsigned()) {
    const uint64_t u = value.get<uint64_t>();
    if (u > static_cast<uint64_t>(INT64_MAX)) Fail(what + " is out of range");
    v = static_cast<int64_t>(u);
  } else if (value.is_number_integer()) {
    v = value.get<int64_t>();
  } else {
    Fail(what + " is not an integer");
  }
  if (v < lo || v > hi) {
    Fail(what + " is " + std::to_string(v) + ", outside " + std::to_string(lo) + ".." +
         std::to_string(hi));
  }
  return v;
}

int64_t JsonReader::IntegerMember(const Json& object, const char* key, int64_t lo,
                                  int64_t hi) const {
  return Integer(Member(object, key), Key(key), lo, hi);
}

double JsonReader::Number(const Json& value, const std::string& what) const {
  if (!value.is_number()) Fail(what + " is not a number");
  const double v = value.get<double>();
  if (!std::isfinite(v)) Fail(what + " is not a finite number");
  return v;
}

double JsonReader::NumberMember(const Json& object, const char* key) const {
  return Number(Member(object, key), Key(key));
}

bool JsonReader::BoolMember(const Json& object, const char* key) const {
  const Json& value = Member(object, key);
  if (!value.is_boolean()) Fail(Key(key) + " is not true or false");
  return value.get<bool>();
}

}  // namespace KRX::rt::files

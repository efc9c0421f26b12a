// Checked access to a parsed JSON document from an untrusted file. Every accessor checks
// presence, type and range, and a failure throws DocumentError with the position in the
// document ("objects[3] \"hip\"/params[2] \"posx\": ...") so that the reader's code stays
// a straight sequence of reads. DocumentError never leaves the files area.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "krx/value.h"

namespace KRX::rt::files {

// Documents read from files: objects are maps, so a key look-up stays fast whatever an
// untrusted file holds.
using Json = nlohmann::json;
// Documents written: objects keep their keys in the order written, for readable files.
using OutJson = nlohmann::ordered_json;

struct DocumentError {
  std::string message;
};

// Parses the bytes with nesting bounded by `max_depth`. On failure `error` gives the byte
// offset and what was wrong.
[[nodiscard]] bool ParseJsonDocument(const uint8_t* data, size_t size, int max_depth, Json* out,
                                     std::string* error);

class JsonReader {
 public:
  // Marks where the reader is for the messages; ends with the scope.
  class Scope {
   public:
    Scope(JsonReader& reader, std::string segment) : reader_(reader) {
      reader_.path_.push_back(std::move(segment));
    }
    ~Scope() { reader_.path_.pop_back(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    JsonReader& reader_;
  };

  // Puts the reader back at a position it was at before (for checks made after a first
  // pass), for the scope's life.
  class Reposition {
   public:
    Reposition(JsonReader& reader, std::vector<std::string> path) : reader_(reader) {
      std::swap(reader_.path_, path);
      saved_ = std::move(path);
    }
    ~Reposition() { std::swap(reader_.path_, saved_); }
    Reposition(const Reposition&) = delete;
    Reposition& operator=(const Reposition&) = delete;

   private:
    JsonReader& reader_;
    std::vector<std::string> saved_;
  };

  const std::vector<std::string>& Path() const { return path_; }

  // Adds the item's name to the innermost position, once it is known.
  void NameCurrent(const CString& name);

  [[noreturn]] void Fail(const std::string& what) const;

  const Json& Member(const Json& object, const char* key) const;
  // Null when absent.
  const Json* FindMember(const Json& object, const char* key) const;
  const Json& ObjectMember(const Json& object, const char* key) const;
  const Json::array_t& ArrayMember(const Json& object, const char* key) const;

  // Text of any content up to `max_length` characters.
  CString TextMember(const Json& object, const char* key, size_t max_length) const;
  CString Text(const Json& value, const std::string& what, size_t max_length) const;
  // An item name: not empty, at most kMaxNameLength characters, no ".", no control
  // characters (a "." would make full names ambiguous).
  CString NameMember(const Json& object, const char* key) const;
  int64_t IntegerMember(const Json& object, const char* key, int64_t lo, int64_t hi) const;
  int64_t Integer(const Json& value, const std::string& what, int64_t lo, int64_t hi) const;
  // A finite number (integer or not).
  double NumberMember(const Json& object, const char* key) const;
  double Number(const Json& value, const std::string& what) const;
  bool BoolMember(const Json& object, const char* key) const;

  const Json& Object(const Json& value, const std::string& what) const;
  const Json::array_t& Array(const Json& value, const std::string& what) const;

 private:
  std::string Where() const;
  std::vector<std::string> path_;
};

}  // namespace KRX::rt::files

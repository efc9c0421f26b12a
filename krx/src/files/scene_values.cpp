#include "files/scene_values.h"

#include <cmath>
#include <cstdint>
#include <string>

#include "anim/fcurve_edit.h"
#include "files/scene_format.h"
#include "files/text_codec.h"

namespace KRX::rt::files {

namespace {

// A key record's fields; the last, the key's constraints, is written only when it has any.
constexpr size_t kKeyFields = 8;
constexpr size_t kKeyFieldsWithConstraints = 9;

double Finite(double v, const std::string& what) {
  if (!std::isfinite(v)) throw DocumentError{what + " is not a finite number"};
  return v;
}

}  // namespace

OutJson EncodeText(const CString& text) { return WideToUtf8(text.GetWideString()); }

bool IsKnownValueType(int64_t code) {
  switch (code) {
    case static_cast<int>(ValueType::Empty):
    case static_cast<int>(ValueType::Int):
    case static_cast<int>(ValueType::Double):
    case static_cast<int>(ValueType::String):
    case static_cast<int>(ValueType::Bool):
    case static_cast<int>(ValueType::Ref):
    case static_cast<int>(ValueType::Array):
      return true;
    default:
      return false;
  }
}

OutJson EncodeValue(const CValue& value, const RefEncoder& encode_ref, const std::string& what) {
  switch (value.GetType()) {
    case ValueType::Empty:
      return nullptr;
    case ValueType::Bool:
      return value.GetBool();
    case ValueType::Int:
      return static_cast<int64_t>(value.GetInt());
    case ValueType::Double:
      // A JSON float always carries a fraction or an exponent, so it reads back as a
      // double and not as an integer.
      return OutJson(Finite(value.GetDouble(), what));
    case ValueType::String:
      return EncodeText(value.GetString());
    case ValueType::Ref:
      return OutJson{{"ref", encode_ref(value.GetRef())}};
    case ValueType::Array: {
      OutJson array = OutJson::array();
      for (const CValue& element : value.GetArray()) {
        array.push_back(EncodeValue(element, encode_ref, what));
      }
      return array;
    }
  }
  return nullptr;
}

bool ValueHasRef(const Json& value) {
  if (value.is_object()) return true;
  if (value.is_array()) {
    for (const Json& element : value) {
      if (ValueHasRef(element)) return true;
    }
  }
  return false;
}

CValue DecodeValue(JsonReader& reader, const Json& value, const std::string& what,
                   const RefResolver& resolve) {
  switch (value.type()) {
    case Json::value_t::null:
      return CValue();
    case Json::value_t::boolean:
      return CValue(value.get<bool>());
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
      return CValue(static_cast<int>(reader.Integer(value, what, INT32_MIN, INT32_MAX)));
    case Json::value_t::number_float:
      return CValue(reader.Number(value, what));
    case Json::value_t::string:
      return CValue(reader.Text(value, what, kMaxTextLength));
    case Json::value_t::array: {
      CValueArray elements;
      elements.reserve(value.size());
      for (const Json& element : value) {
        elements.push_back(DecodeValue(reader, element, what, resolve));
      }
      return CValue(std::move(elements));
    }
    case Json::value_t::object: {
      if (value.size() != 1) reader.Fail(what + ": a reference has exactly one member, \"ref\"");
      const Json& target = reader.Member(value, "ref");
      if (target.is_null()) return CValue(CRef());
      return CValue(resolve(reader.Text(target, what + " reference", kMaxTextLength)));
    }
    default:
      reader.Fail(what + " is not a value");
  }
}

OutJson EncodeKeys(const FCurveItem& fcurve, const std::string& what) {
  OutJson out = OutJson::array();
  // Both forms of a curve write the same full records, so a file does not show (and a
  // reader need not know) how the curve was held.
  for (size_t i = 0; i < fcurve.KeyCount(); ++i) {
    const FCurveKeyData key = fcurve.Key(i);
    const std::string key_what = what + " key at frame " + std::to_string(key.time);
    const bool computed = fcurve.AutoTangent(i);
    OutJson record = OutJson::array(
        {Finite(key.time, key_what), Finite(key.value, key_what), Finite(key.left_dx, key_what),
         Finite(key.left_dy, key_what), Finite(key.right_dx, key_what),
         Finite(key.right_dy, key_what), static_cast<int>(key.interpolation), computed ? 1 : 0});
    if (key.constraints != 0) record.push_back(key.constraints);
    out.push_back(std::move(record));
  }
  return out;
}

void DecodeKeys(JsonReader& reader, const Json& keys, FCurveItem* fcurve) {
  const Json::array_t& array = reader.Array(keys, "\"fcurve\"");
  std::vector<FCurveKeyData> out;
  std::vector<bool> computed;
  out.reserve(array.size());
  computed.reserve(array.size());
  for (size_t i = 0; i < array.size(); ++i) {
    const std::string what = "key " + std::to_string(i);
    const Json::array_t& fields = reader.Array(array[i], what);
    if (fields.size() != kKeyFields && fields.size() != kKeyFieldsWithConstraints) {
      reader.Fail(what + " has " + std::to_string(fields.size()) + " fields, not " +
                  std::to_string(kKeyFields) + " or " + std::to_string(kKeyFieldsWithConstraints));
    }
    FCurveKeyData key;
    key.time = reader.Number(fields[0], what + " time");
    key.value = reader.Number(fields[1], what + " value");
    key.left_dx = reader.Number(fields[2], what + " left dx");
    key.left_dy = reader.Number(fields[3], what + " left dy");
    key.right_dx = reader.Number(fields[4], what + " right dx");
    key.right_dy = reader.Number(fields[5], what + " right dy");
    key.interpolation = static_cast<Interpolation>(reader.Integer(
        fields[6], what + " interpolation", static_cast<int>(Interpolation::Constant),
        static_cast<int>(Interpolation::Bezier)));
    computed.push_back(reader.Integer(fields[7], what + " computed tangents flag", 0, 1) == 1);
    if (fields.size() == kKeyFieldsWithConstraints) {
      key.constraints =
          static_cast<int>(reader.Integer(fields[8], what + " constraints", 0, INT32_MAX));
    }
    out.push_back(key);
  }
  std::string why;
  if (!ValidateKeys(out, &why)) reader.Fail("function curve: " + why);
  fcurve->sampled.reset();
  fcurve->keys = std::move(out);
  fcurve->auto_tangents = std::move(computed);
  fcurve->Compact();
}

OutJson EncodeGrid(const GridTable& grid, const RefEncoder& encode_ref, const std::string& what) {
  OutJson out;
  out["columns"] = grid.columns;
  out["rows"] = grid.rows;
  OutJson column_labels = OutJson::array();
  for (const CString& label : grid.column_labels) column_labels.push_back(EncodeText(label));
  out["column_labels"] = std::move(column_labels);
  OutJson column_types = OutJson::array();
  for (ValueType type : grid.column_types) column_types.push_back(static_cast<int>(type));
  out["column_types"] = std::move(column_types);
  OutJson row_labels = OutJson::array();
  for (const CString& label : grid.row_labels) row_labels.push_back(EncodeText(label));
  out["row_labels"] = std::move(row_labels);
  OutJson cells = OutJson::array();
  for (const CValue& cell : grid.cells) cells.push_back(EncodeValue(cell, encode_ref, what));
  out["cells"] = std::move(cells);
  return out;
}

GridTable DecodeGridShape(JsonReader& reader, const Json& grid, const Json::array_t** cells) {
  reader.Object(grid, "\"grid\"");
  GridTable out;
  out.columns = static_cast<int>(reader.IntegerMember(grid, "columns", 0, kMaxGridColumns));
  out.rows = static_cast<int>(reader.IntegerMember(grid, "rows", 0, kMaxGridCells));
  const int64_t count = int64_t{out.columns} * out.rows;
  if (count > kMaxGridCells) {
    reader.Fail("the grid has more than " + std::to_string(kMaxGridCells) + " cells");
  }
  auto sized = [&](const char* key, size_t expected) -> const Json::array_t& {
    const Json::array_t& array = reader.ArrayMember(grid, key);
    if (array.size() != expected) {
      reader.Fail(std::string("\"") + key + "\" has " + std::to_string(array.size()) +
                  " entries, not " + std::to_string(expected));
    }
    return array;
  };
  for (const Json& label : sized("column_labels", static_cast<size_t>(out.columns))) {
    out.column_labels.push_back(reader.Text(label, "column label", kMaxTextLength));
  }
  for (const Json& type : sized("column_types", static_cast<size_t>(out.columns))) {
    const int64_t code = reader.Integer(type, "column type", 0, INT32_MAX);
    if (!IsKnownValueType(code)) reader.Fail("column type " + std::to_string(code) + " is unknown");
    out.column_types.push_back(static_cast<ValueType>(code));
  }
  for (const Json& label : sized("row_labels", static_cast<size_t>(out.rows))) {
    out.row_labels.push_back(reader.Text(label, "row label", kMaxTextLength));
  }
  *cells = &sized("cells", static_cast<size_t>(count));
  out.cells.resize(static_cast<size_t>(count));
  return out;
}

}  // namespace KRX::rt::files

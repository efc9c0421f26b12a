// Values, function-curve keys and grid tables in scene files (see scene_format.h).
#pragma once

#include <functional>
#include <vector>

#include "files/json_reader.h"
#include "krx/property.h"
#include "runtime/item.h"

namespace KRX::rt::files {

// How a reference inside a value is written: its target's full name, or null.
using RefEncoder = std::function<OutJson(const CRef& ref)>;
// How a full name read from a value becomes a reference (fails through the reader when it
// names nothing).
using RefResolver = std::function<CRef(const CString& full_name)>;

// Text as a JSON string (UTF-8).
OutJson EncodeText(const CString& text);
// Throws DocumentError (naming `what`) for a number that is not finite.
OutJson EncodeValue(const CValue& value, const RefEncoder& encode_ref, const std::string& what);
// True when the encoded value holds a reference (it can only be decoded once every item of
// the scene exists).
bool ValueHasRef(const Json& value);
CValue DecodeValue(JsonReader& reader, const Json& value, const std::string& what,
                   const RefResolver& resolve);

bool IsKnownValueType(int64_t code);

// A function curve's keys with, per key, whether its tangents are computed ones (see
// FCurveItem::auto_tangents).
OutJson EncodeKeys(const FCurveItem& fcurve, const std::string& what);
// Keys as ValidateKeys accepts them, or a failure. Fills keys and auto_tangents.
void DecodeKeys(JsonReader& reader, const Json& keys, FCurveItem* fcurve);

// Grid cells are decoded by the caller (they may hold references): `cells` receives the
// encoded cells in row-major order, checked to number columns x rows.
OutJson EncodeGrid(const GridTable& grid, const RefEncoder& encode_ref, const std::string& what);
GridTable DecodeGridShape(JsonReader& reader, const Json& grid, const Json::array_t** cells);

}  // namespace KRX::rt::files

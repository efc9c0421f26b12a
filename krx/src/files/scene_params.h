// Parameters in scene files: every field of a parameter item (see scene_format.h).
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "files/scene_values.h"

namespace KRX::rt::files {

// Throws DocumentError (naming the parameter) for a number that is not finite.
OutJson EncodeParam(const ParamItem& param, const RefEncoder& encode_ref);

// Reads one value of the parameter into `slot`, now or later (a value holding a
// reference can only be read once every item of the scene exists).
using ValueSink = std::function<void(const Json& value, CValue* slot, const std::string& what)>;

// A parameter owned by `owner`, every field checked: name, known value type, texts, the
// values (through `read_value`), a function curve or an expression only on a numeric
// parameter (the expression of the form the scene evaluates), and a grid's shape.
std::shared_ptr<ParamItem> DecodeParam(JsonReader& reader, const Json& record, Item& owner,
                                       const ValueSink& read_value);

}  // namespace KRX::rt::files

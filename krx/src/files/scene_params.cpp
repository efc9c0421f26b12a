#include "files/scene_params.h"

#include "files/scene_format.h"
#include "files/scene_values.h"
#include "files/text_codec.h"
#include "scene/expression.h"
#include "scene/scene_edit.h"

namespace KRX::rt::files {

namespace {

// The name the scene gives a parameter's function curve.
constexpr const wchar_t* kFCurveName = L"fcurve";

bool IsNumeric(ValueType type) {
  return type == ValueType::Int || type == ValueType::Double || type == ValueType::Bool;
}

}  // namespace

OutJson EncodeParam(const ParamItem& param, const RefEncoder& encode_ref) {
  const std::string what = "parameter \"" + WideToUtf8(FullNameOf(param).GetWideString()) + "\"";
  OutJson out;
  out["name"] = EncodeText(param.name);
  out["value_type"] = static_cast<int>(param.value_type);
  out["capabilities"] = param.capabilities;
  out["label"] = EncodeText(param.label);
  out["description"] = EncodeText(param.description);
  out["value"] = EncodeValue(param.value, encode_ref, what);
  out["default"] = EncodeValue(param.default_value, encode_ref, what + " default");
  out["min"] = EncodeValue(param.min, encode_ref, what + " minimum");
  out["max"] = EncodeValue(param.max, encode_ref, what + " maximum");
  out["suggested_min"] = EncodeValue(param.suggested_min, encode_ref, what + " suggested minimum");
  out["suggested_max"] = EncodeValue(param.suggested_max, encode_ref, what + " suggested maximum");
  if (param.fcurve) {
    out["fcurve"] = EncodeKeys(*param.fcurve, what);
    out["fcurve_type"] = static_cast<int>(param.fcurve->curve_type);
    out["fcurve_interpolation"] = static_cast<int>(param.fcurve->interpolation);
  }
  if (param.expression) out["expression"] = EncodeText(*param.expression);
  if (param.grid) out["grid"] = EncodeGrid(*param.grid, encode_ref, what + " cell");
  return out;
}

std::shared_ptr<ParamItem> DecodeParam(JsonReader& reader, const Json& record, Item& owner,
                                       const ValueSink& read_value) {
  reader.Object(record, "the parameter");
  auto param = std::make_shared<ParamItem>();
  param->name = reader.NameMember(record, "name");
  reader.NameCurrent(param->name);
  param->owner = &owner;
  const int64_t value_type = reader.IntegerMember(record, "value_type", 0, INT32_MAX);
  if (!IsKnownValueType(value_type)) {
    reader.Fail("value type " + std::to_string(value_type) + " is unknown");
  }
  param->value_type = static_cast<ValueType>(value_type);
  param->capabilities =
      static_cast<int>(reader.IntegerMember(record, "capabilities", 0, INT32_MAX));
  param->label = reader.TextMember(record, "label", kMaxTextLength);
  param->description = reader.TextMember(record, "description", kMaxTextLength);
  read_value(reader.Member(record, "value"), &param->value, "\"value\"");
  read_value(reader.Member(record, "default"), &param->default_value, "\"default\"");
  read_value(reader.Member(record, "min"), &param->min, "\"min\"");
  read_value(reader.Member(record, "max"), &param->max, "\"max\"");
  read_value(reader.Member(record, "suggested_min"), &param->suggested_min, "\"suggested_min\"");
  read_value(reader.Member(record, "suggested_max"), &param->suggested_max, "\"suggested_max\"");

  if (const Json* keys = reader.FindMember(record, "fcurve")) {
    if (!IsNumeric(param->value_type)) {
      reader.Fail("a function curve drives a parameter that is not a number");
    }
    auto fcurve = std::make_shared<FCurveItem>();
    fcurve->name = kFCurveName;
    DecodeKeys(reader, *keys, fcurve.get());
    // Files written before curves had a type and an interpolation of their own hold
    // standard curves adding Bezier keys.
    if (const Json* type = reader.FindMember(record, "fcurve_type")) {
      const int64_t code = reader.Integer(*type, "\"fcurve_type\"", 0, INT32_MAX);
      if (code != static_cast<int>(FCurveType::Standard)) {
        reader.Fail("function curve type " + std::to_string(code) + " is unknown");
      }
      fcurve->curve_type = static_cast<FCurveType>(code);
    }
    if (const Json* interpolation = reader.FindMember(record, "fcurve_interpolation")) {
      fcurve->interpolation = static_cast<Interpolation>(reader.Integer(
          *interpolation, "\"fcurve_interpolation\"", static_cast<int>(Interpolation::Constant),
          static_cast<int>(Interpolation::Bezier)));
    }
    fcurve->owner = param.get();
    param->fcurve = std::move(fcurve);
  } else if (reader.FindMember(record, "fcurve_type") ||
             reader.FindMember(record, "fcurve_interpolation")) {
    reader.Fail("a function curve's type or interpolation is given without its keys");
  }
  if (const Json* expression = reader.FindMember(record, "expression")) {
    if (!IsNumeric(param->value_type)) {
      reader.Fail("an expression drives a parameter that is not a number");
    }
    param->expression = reader.Text(*expression, "\"expression\"", kMaxTextLength);
    // Its source is resolved when the scene evaluates it (and may name nothing, as it can
    // in a scene whose source was deleted); its form must be right.
    ParsedExpression parsed;
    if (!ParseExpression(param->expression->GetWideString(), &parsed)) {
      reader.Fail("the expression \"" + WideToUtf8(param->expression->GetWideString()) +
                  "\" is not a parameter's full name, scaled and offset, nor a number");
    }
  }
  if (const Json* grid = reader.FindMember(record, "grid")) {
    JsonReader::Scope scope(reader, "grid");
    const Json::array_t* cells = nullptr;
    param->grid = DecodeGridShape(reader, *grid, &cells);
    // The cells are in place now: their addresses stay valid for reads made later.
    for (size_t i = 0; i < cells->size(); ++i) {
      read_value((*cells)[i], &param->grid->cells[i], "cell " + std::to_string(i));
    }
  }
  return param;
}

}  // namespace KRX::rt::files

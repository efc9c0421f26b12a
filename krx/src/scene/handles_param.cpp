// Parameter and CustomProperty handles.
#include <cmath>

#include "anim/fcurve_edit.h"
#include "anim/sampled_curve.h"
#include "krx/property.h"
#include "scene/evaluation.h"
#include "scene/expression.h"
#include "scene/handles.h"
#include "scene/items.h"
#include "scene/scene_edit.h"

namespace KRX {

using rt::LiveAs;
using rt::RefOf;

namespace {

bool IsNumeric(ValueType type) {
  return type == ValueType::Int || type == ValueType::Double || type == ValueType::Bool;
}

// Any operator writing the parameter.
bool HasWriters(rt::ParamItem& param) {
  rt::EnsureParamBinding(param);
  return !param.binding.writers.empty();
}

}  // namespace

CValue Parameter::GetValue(double time) const {
  auto* param = LiveAs<rt::ParamItem>(*this);
  if (!param) return CValue();
  const rt::ReadScope scope(time);
  rt::NoteUpdateRead(*param);
  return rt::EvaluateParamValue(*param, scope.time());
}

CStatus Parameter::PutValue(const CValue& value, double time) {
  auto* param = LiveAs<rt::ParamItem>(*this);
  if (!param) return CStatus::Fail;
  const rt::ReadScope scope(time);
  return rt::PutParamValue(*param, value, scope.time());
}

ValueType Parameter::GetValueType() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param ? param->value_type : ValueType::Empty;
}

int Parameter::GetCapabilities() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param ? param->capabilities : 0;
}

CStatus Parameter::PutCapabilityFlag(int flag, bool on) {
  auto* param = LiveAs<rt::ParamItem>(*this);
  if (!param) return CStatus::Fail;
  param->capabilities = on ? (param->capabilities | flag) : (param->capabilities & ~flag);
  return CStatus::OK;
}

CValue Parameter::GetMin() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param ? param->min : CValue();
}

CValue Parameter::GetMax() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param ? param->max : CValue();
}

CValue Parameter::GetSuggestedMin() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param ? param->suggested_min : CValue();
}

CValue Parameter::GetSuggestedMax() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param ? param->suggested_max : CValue();
}

CValue Parameter::GetDefault() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param ? param->default_value : CValue();
}

CString Parameter::GetLabel() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param ? param->label : CString();
}

CString Parameter::GetDescription() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param ? param->description : CString();
}

bool Parameter::IsAnimated(AnimationSource source) const {
  auto* param = LiveAs<rt::ParamItem>(*this);
  if (!param) return false;
  switch (source) {
    case AnimationSource::FCurve:
      return param->fcurve != nullptr;
    case AnimationSource::Expression:
      return param->expression.has_value();
    case AnimationSource::Operator:
      return HasWriters(*param);
    case AnimationSource::None:  // any source
      return param->fcurve || param->expression || HasWriters(*param);
  }
  return false;
}

AnimationSource Parameter::GetSourceKind() const {
  auto* param = LiveAs<rt::ParamItem>(*this);
  if (!param) return AnimationSource::None;
  if (param->fcurve) return AnimationSource::FCurve;
  if (param->expression) return AnimationSource::Expression;
  if (HasWriters(*param)) return AnimationSource::Operator;
  return AnimationSource::None;
}

FCurve Parameter::GetFCurve() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param && param->fcurve ? FCurve(RefOf(param->fcurve)) : FCurve();
}

FCurve Parameter::AddFCurve(const std::vector<FCurveKeyData>& keys) {
  auto* param = LiveAs<rt::ParamItem>(*this);
  if (!param || param->grid || !IsNumeric(param->value_type)) return FCurve();
  auto fcurve = std::make_shared<rt::FCurveItem>();
  fcurve->name = L"fcurve";
  fcurve->owner = param;
  for (const FCurveKeyData& key : keys) rt::InsertKey(fcurve->keys, key);
  fcurve->auto_tangents.assign(fcurve->keys.size(), false);
  fcurve->Compact();
  if (param->fcurve) param->fcurve->deleted = true;
  param->fcurve = fcurve;
  param->expression.reset();
  param->transient_value.reset();
  rt::BumpStructure();
  return FCurve(RefOf(fcurve));
}

FCurve Parameter::AddFCurve(FCurveType type) {
  if (type != FCurveType::Standard) return FCurve();
  FCurve curve = AddFCurve();
  if (auto* item = LiveAs<rt::FCurveItem>(curve)) item->curve_type = type;
  return curve;
}

FCurve Parameter::AddSampledFCurve(double start, double step, std::vector<double> values,
                                   Interpolation interpolation) {
  auto* param = LiveAs<rt::ParamItem>(*this);
  if (!param || param->grid || !IsNumeric(param->value_type)) return FCurve();
  if (!rt::ValidSampling(start, step, values.size())) return FCurve();
  for (double value : values) {
    if (!std::isfinite(value)) return FCurve();
  }
  if (values.size() < 2) {
    std::vector<FCurveKeyData> keys;
    if (!values.empty())
      keys.push_back({.time = start, .value = values[0], .interpolation = interpolation});
    return AddFCurve(keys);
  }
  FCurve curve = AddFCurve();
  auto* item = LiveAs<rt::FCurveItem>(curve);
  item->sampled = rt::SampledCurve{start, step, interpolation, std::move(values)};
  return curve;
}

CStatus Parameter::AddExpression(const CString& text) {
  auto* param = LiveAs<rt::ParamItem>(*this);
  if (!param || param->grid || !IsNumeric(param->value_type)) return CStatus::Fail;
  rt::ParsedExpression parsed;
  if (!rt::ParseExpression(text.GetWideString(), &parsed)) return CStatus::InvalidArgument;
  if (!parsed.source.empty()) {
    auto source = std::dynamic_pointer_cast<rt::ParamItem>(rt::FindItemByFullName(parsed.source));
    if (!source || source.get() == param || !IsNumeric(source->value_type))
      return CStatus::InvalidArgument;
  }
  param->expression = text;
  if (param->fcurve) param->fcurve->deleted = true;
  param->fcurve.reset();
  param->transient_value.reset();
  param->cycle_reported = false;
  rt::BumpStructure();
  return CStatus::OK;
}

CString Parameter::GetExpression() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param && param->expression ? *param->expression : CString();
}

CStatus Parameter::RemoveAnimation() {
  auto* param = LiveAs<rt::ParamItem>(*this);
  if (!param) return CStatus::Fail;
  if (!param->fcurve && !param->expression) return CStatus::OK;
  {
    const rt::ReadScope scope(kCurrentTime);
    param->value = rt::OwnValueAt(*param, scope.time());
  }
  if (param->fcurve) param->fcurve->deleted = true;
  param->fcurve.reset();
  param->expression.reset();
  param->transient_value.reset();
  rt::BumpStructure();
  return CStatus::OK;
}

GridData Parameter::GetGridData() const {
  const auto* param = LiveAs<rt::ParamItem>(*this);
  return param && param->grid ? GridData(GetRef()) : GridData();
}

// ---- CustomProperty ----

Parameter CustomProperty::AddParameter(const CString& name, ValueType type, int capabilities,
                                       const CString& label, const CString& description,
                                       const CValue& default_value, const CValue& min,
                                       const CValue& max, const CValue& suggested_min,
                                       const CValue& suggested_max) {
  auto* property = LiveAs<rt::Item>(*this);
  if (!property) return Parameter();
  const bool known = type == ValueType::Int || type == ValueType::Double ||
                     type == ValueType::String || type == ValueType::Bool;
  if (!known) return Parameter();
  std::shared_ptr<rt::ParamItem> param =
      rt::AddParamTo(*property, name, type, CValue(), capabilities);
  if (!param) return Parameter();
  param->label = label.IsEmpty() ? name : label;
  param->description = description;
  param->min = IsNumeric(type) ? min : CValue();
  param->max = IsNumeric(type) ? max : CValue();
  param->suggested_min = IsNumeric(type) ? suggested_min : CValue();
  param->suggested_max = IsNumeric(type) ? suggested_max : CValue();
  param->value = rt::ConvertForParam(*param, default_value);
  param->default_value = param->value;
  return Parameter(RefOf(param));
}

Parameter CustomProperty::AddGridParameter(const CString& name) {
  auto* property = LiveAs<rt::Item>(*this);
  if (!property) return Parameter();
  std::shared_ptr<rt::ParamItem> param =
      rt::AddParamTo(*property, name, ValueType::Empty, CValue(), kCapPersistable);
  if (!param) return Parameter();
  param->grid = rt::GridTable();
  return Parameter(RefOf(param));
}

CStatus CustomProperty::RemoveParameter(const Parameter& p) {
  auto* property = LiveAs<rt::Item>(*this);
  auto* param = LiveAs<rt::ParamItem>(p);
  if (!property || !param || param->owner != property) return CStatus::InvalidArgument;
  return rt::DeleteItem(param->shared_from_this());
}

}  // namespace KRX

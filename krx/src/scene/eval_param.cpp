// Parameter values at a time: transient puts, function curves, expressions, static values
// and operator writes; and the SDK's puts.
#include <cmath>

#include "anim/fcurve_eval.h"
#include "runtime/log.h"
#include "scene/evaluation.h"
#include "scene/expression.h"
#include "scene/items.h"
#include "scene/kine_math.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

bool IsNumeric(ValueType type) {
  return type == ValueType::Int || type == ValueType::Double || type == ValueType::Bool;
}

CValue Typed(ValueType type, double v) {
  switch (type) {
    case ValueType::Int:
      return CValue(static_cast<int>(std::isfinite(v) ? std::lround(v) : 0));
    case ValueType::Bool:
      return CValue(v != 0.0);
    default:
      return CValue(v);
  }
}

double ExpressionValue(ParamItem& param, double time) {
  const ParamItem::Binding& binding = param.binding;
  if (!binding.expression_ok) return param.value.GetDouble();
  ParamItem* source = binding.expression_source;
  if (!source) return binding.expression_offset;
  if (param.evaluating) {
    if (!param.cycle_reported) {
      param.cycle_reported = true;
      Log(CString(L"Evaluation cycle: the expression of ") + FullNameOf(param) +
              CString(L" depends on its own value; the cycle is broken"),
          kSeverityError);
    }
    return param.value.GetDouble();
  }
  param.evaluating = true;
  const double v = EvaluateParamValue(*source, time).GetDouble();
  param.evaluating = false;
  return v * binding.expression_scale + binding.expression_offset;
}

double BaseValue(ParamItem& param, double time) {
  if (param.transient_value && param.transient_time == time)
    return param.transient_value->GetDouble();
  if (param.fcurve && param.fcurve->KeyCount() > 0) return param.fcurve->Evaluate(time);
  if (param.expression) return ExpressionValue(param, time);
  return param.value.GetDouble();
}

// The value the last operator writing the parameter put at `time`, if any.
const CValue* WrittenValue(ParamItem& param, double time) {
  const CValue* written = nullptr;
  for (size_t w = 0; w < param.binding.writers.size(); ++w) {
    OperatorItem& op = *param.binding.writers[w];
    ApplyWriter(op, param, time);
    const OperatorRun* run = RunAt(op, time);
    if (!run || run->running) continue;
    for (size_t i = 0; i < op.ports.size() && i < run->results.size(); ++i) {
      if (!op.ports[i].output || run->results[i].value == std::nullopt) continue;
      if (op.ports[i].item == &param && !op.ports[i].target.expired())
        written = &*run->results[i].value;
    }
  }
  return written;
}

MATH::CTransformation NeutralAt(ObjectItem& object, double time) {
  double n[9];
  for (size_t i = 0; i < 9; ++i) {
    ParamItem* p = object.binding.local[10 + i];
    n[i] = p ? EvaluateParamDouble(*p, time) : (i >= 6 ? 1.0 : 0.0);
  }
  ParamItem* order = object.binding.local[kRotOrderIndex];
  return ComposeSrt(n, RotationOrderFrom(order ? EvaluateParamDouble(*order, time) : 0.0));
}

MATH::RotationOrder OrderAt(ObjectItem& object, double time) {
  ParamItem* order = object.binding.local[kRotOrderIndex];
  return RotationOrderFrom(order ? EvaluateParamDouble(*order, time) : 0.0);
}

CStatus PutGlobalComponent(KineStateItem& state, size_t index, const CValue& value, double time) {
  ObjectItem& object = *state.object;
  const Pose pose = EvaluateObject(object, time);
  const MATH::RotationOrder order = OrderAt(object, time);
  SrtValues values = DecomposeSrt(pose.global, order);
  values[index] = value.GetDouble();
  return PutStateTransform(state, ComposeSrt(values.data(), order), time);
}

}  // namespace

bool HasAnimationSource(const ParamItem& param) {
  return (param.fcurve && param.fcurve->KeyCount() > 0) || param.expression.has_value();
}

void EnsureParamBinding(ParamItem& param) {
  ParamItem::Binding& binding = param.binding;
  if (binding.stamp == StructureStamp()) return;
  EnsureWriterIndex(ActiveScene());
  binding.writers = WritersOf(param);
  binding.expression_ok = false;
  binding.expression_source = nullptr;
  binding.expression_scale = 1.0;
  binding.expression_offset = 0.0;
  ParsedExpression parsed;
  if (param.expression && ParseExpression(param.expression->GetWideString(), &parsed)) {
    binding.expression_scale = parsed.scale;
    binding.expression_offset = parsed.offset;
    if (parsed.source.empty()) {
      binding.expression_ok = true;
    } else {
      auto source = std::dynamic_pointer_cast<ParamItem>(FindItemByFullName(parsed.source));
      if (source && source.get() != &param && IsNumeric(source->value_type)) {
        binding.expression_source = source.get();
        binding.expression_ok = true;
      }
    }
  }
  binding.stamp = StructureStamp();
}

double EvaluateParamDouble(ParamItem& param, double time) {
  EnsureParamBinding(param);
  if (param.binding.writers.empty()) return BaseValue(param, time);
  const double base = BaseValue(param, time);
  const CValue* written = WrittenValue(param, time);
  return written ? written->GetDouble() : base;
}

CValue OwnValueAt(ParamItem& param, double time) {
  if (IsNumeric(param.value_type)) return Typed(param.value_type, EvaluateParamDouble(param, time));
  if (param.transient_value && param.transient_time == time) return *param.transient_value;
  return param.value;
}

CValue EvaluateParamValue(ParamItem& param, double time) {
  if (param.grid) return CValue();
  if (param.owner && param.owner->cls == ClassID::KinematicState &&
      static_cast<KineStateItem*>(param.owner)->object) {
    auto* state = static_cast<KineStateItem*>(param.owner);
    ObjectItem& object = *state->object;
    EnsureObjectBinding(object);
    const int index = KineParamIndex(object, param, state->global);
    const bool derived = state->global ? !HasAnimationSource(param) : IsDriven(object);
    if (index >= 0 && index < static_cast<int>(kGlobalKineParamCount) && derived) {
      const Pose pose = EvaluateObject(object, time);
      MATH::CTransformation t = pose.global;
      if (!state->global) t = MATH::MapWorldPoseToObjectSpace(NeutralAt(object, time), pose.local);
      return CValue(DecomposeSrt(t, OrderAt(object, time))[static_cast<size_t>(index)]);
    }
  }
  if (IsNumeric(param.value_type)) return Typed(param.value_type, EvaluateParamDouble(param, time));
  EnsureParamBinding(param);
  if (!param.binding.writers.empty()) {
    if (const CValue* written = WrittenValue(param, time)) return ConvertForParam(param, *written);
  }
  if (param.transient_value && param.transient_time == time) return *param.transient_value;
  return param.value;
}

CValue ConvertForParam(const ParamItem& param, const CValue& value) {
  auto clamp = [&param](double v) {
    if (!param.min.IsEmpty() && v < param.min.GetDouble()) v = param.min.GetDouble();
    if (!param.max.IsEmpty() && v > param.max.GetDouble()) v = param.max.GetDouble();
    return v;
  };
  switch (param.value_type) {
    case ValueType::Int:
      return CValue(static_cast<int>(std::lround(clamp(value.GetInt()))));
    case ValueType::Double: {
      const double v = value.GetDouble();
      return CValue(std::isfinite(v) ? clamp(v) : 0.0);
    }
    case ValueType::Bool:
      return CValue(value.GetBool());
    case ValueType::String:
      return CValue(value.GetString());
    default:
      return value;
  }
}

CStatus PutParamValue(ParamItem& param, const CValue& value, double time) {
  if (param.deleted || param.grid) return CStatus::Fail;
  const double at = ResolveTime(time);
  auto* state = param.owner && param.owner->cls == ClassID::KinematicState
                    ? static_cast<KineStateItem*>(param.owner)
                    : nullptr;
  if (state && state->global && state->object) {
    EnsureObjectBinding(*state->object);
    const int index = KineParamIndex(*state->object, param, true);
    if (index >= 0 && !HasAnimationSource(param)) {
      return PutGlobalComponent(*state, static_cast<size_t>(index), value, at);
    }
  }
  const CValue converted = ConvertForParam(param, value);
  if (HasAnimationSource(param)) {
    AddTransient(param, converted, at);
    return CStatus::OK;
  }
  if (param.value == converted) return CStatus::OK;
  param.value = converted;
  Invalidate(param);
  return CStatus::OK;
}

}  // namespace KRX::rt

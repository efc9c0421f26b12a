// Kinematics at a time: parameters, neutral pose, parent, constraints, animated global
// parameters and the operators writing the object's states; puts on kinematic states.
#include <algorithm>

#include "scene/chains.h"
#include "scene/evaluation.h"
#include "scene/items.h"
#include "scene/kine_math.h"

namespace KRX::rt {

namespace {

using MATH::CTransformation;

double DefaultKineValue(size_t index) {
  return (index >= 6 && index < 9) || index >= 16 ? 1.0 : 0.0;
}

void ReadKineValues(ObjectItem& object, double time, double* values) {
  for (size_t i = 0; i < kLocalKineParamCount; ++i) {
    ParamItem* p = object.binding.local[i];
    values[i] = p ? EvaluateParamDouble(*p, time) : DefaultKineValue(i);
  }
}

// The local transform from the parameters: the values composed with the neutral pose.
CTransformation LocalFromParams(ObjectItem& object, double time) {
  double v[kLocalKineParamCount];
  ReadKineValues(object, time, v);
  const MATH::RotationOrder order = RotationOrderFrom(v[kRotOrderIndex]);
  CTransformation local = ComposeSrt(v, order);
  if (!IsIdentitySrt(v + 10)) local = CTransformation::Mul(local, ComposeSrt(v + 10, order));
  return local;
}

void DeriveLocal(EvalCache& cache) {
  cache.local = MATH::MapWorldPoseToObjectSpace(cache.parent_global, cache.global);
}

ObjectItem* ConstrainingObject(const ConstraintItem& constraint) {
  for (const auto& weak : constraint.constraining) {
    std::shared_ptr<Item> item = weak.lock();
    if (item && !item->deleted) {
      if (auto* object = dynamic_cast<ObjectItem*>(item.get())) return object;
    }
  }
  return nullptr;
}

void ApplyConstraints(ObjectItem& object, double time) {
  for (size_t i = 0; i < object.binding.constraints.size(); ++i) {
    const ConstraintItem& constraint = *object.binding.constraints[i];
    ObjectItem* source = ConstrainingObject(constraint);
    if (!source) continue;
    const Pose driver = EvaluateObject(*source, time);
    EvalCache& cache = object.cache;
    if (constraint.type == L"Position Cns") {
      cache.global.SetTranslation(driver.global.GetTranslation());
    } else if (constraint.type == L"Orientation Cns") {
      cache.global.SetRotation(driver.global.GetRotation());
    } else {
      continue;
    }
    DeriveLocal(cache);
  }
}

// Global parameters driven by a curve, an expression or a transient put replace their
// component of the global transform.
void ApplyDrivenGlobals(ObjectItem& object, double time) {
  ParamItem* order_param = object.binding.local[kRotOrderIndex];
  const MATH::RotationOrder order =
      RotationOrderFrom(order_param ? EvaluateParamDouble(*order_param, time) : 0.0);
  SrtValues values = DecomposeSrt(object.cache.global, order);
  bool any = false;
  for (size_t i = 0; i < kGlobalKineParamCount; ++i) {
    ParamItem* p = object.binding.global[i];
    if (!p) continue;
    const bool transient = p->transient_value && p->transient_time == time;
    if (!transient && !HasAnimationSource(*p)) continue;
    values[i] = EvaluateParamDouble(*p, time);
    any = true;
  }
  if (!any) return;
  object.cache.global = ComposeSrt(values.data(), order);
  DeriveLocal(object.cache);
}

// An object asked for while it is being evaluated.
Pose Reentered(ObjectItem& object, double time) {
  const EvalCache& cache = object.cache;
  if (cache.time == time && cache.revision == ActiveScene().revision) {
    if (!IsOwnOutputRead(object)) ReportCycle(object);
    return {cache.local, cache.global};
  }
  // At another time: what its own parameters and its parent give, without caching.
  CTransformation parent_global;
  if (object.binding.parent) parent_global = EvaluateObject(*object.binding.parent, time).global;
  const CTransformation local = LocalFromParams(object, time);
  return {local, CTransformation::Mul(local, parent_global)};
}

void AddWriters(std::vector<OperatorItem*>& out, const Item* state) {
  if (!state) return;
  for (OperatorItem* op : WritersOf(*state)) {
    if (std::find(out.begin(), out.end(), op) == out.end()) out.push_back(op);
  }
}

}  // namespace

void EnsureObjectBinding(ObjectItem& object) {
  KineBinding& binding = object.binding;
  // The binding in use stays while the object is being evaluated.
  if (binding.stamp == StructureStamp() || object.evaluating) return;
  EnsureWriterIndex(ActiveScene());
  binding.local.fill(nullptr);
  binding.global.fill(nullptr);
  binding.global_driven = false;
  auto bind = [](const KineStateItem* state, ParamItem** slots, size_t count) {
    if (!state) return;
    for (const auto& param : state->params) {
      if (param->deleted) continue;
      for (size_t i = 0; i < count; ++i) {
        if (!slots[i] && param->name.GetWideString() == kKineParamNames[i]) {
          slots[i] = dynamic_cast<ParamItem*>(param.get());
          break;
        }
      }
    }
  };
  const KinematicsItem* kine = object.kinematics.get();
  bind(kine ? kine->local.get() : nullptr, binding.local.data(), kLocalKineParamCount);
  bind(kine ? kine->global.get() : nullptr, binding.global.data(), kGlobalKineParamCount);
  for (ParamItem* p : binding.global) {
    if (p && (p->fcurve || p->expression)) binding.global_driven = true;
  }
  binding.parent = dynamic_cast<ObjectItem*>(object.owner);
  binding.constraints.clear();
  for (const auto& property : object.properties) {
    if (property->deleted) continue;
    if (auto* constraint = dynamic_cast<ConstraintItem*>(property.get())) {
      binding.constraints.push_back(constraint);
    }
  }
  binding.writers.clear();
  AddWriters(binding.writers, kine ? kine->local.get() : nullptr);
  AddWriters(binding.writers, kine ? kine->global.get() : nullptr);
  std::sort(binding.writers.begin(), binding.writers.end(),
            [](const OperatorItem* a, const OperatorItem* b) { return a->connect_order < b->connect_order; });
  binding.stamp = StructureStamp();
}

Pose EvaluateObject(ObjectItem& object, double time) {
  EvalCache& cache = object.cache;
  const uint64_t revision = ActiveScene().revision;
  if (cache.complete && cache.time == time && cache.revision == revision) {
    return {cache.local, cache.global};
  }
  if (object.evaluating) return Reentered(object, time);
  EnsureObjectBinding(object);
  CTransformation parent_global;
  if (object.binding.parent) parent_global = EvaluateObject(*object.binding.parent, time).global;
  // The parent's operators may have read (and so evaluated) this object meanwhile.
  if (cache.complete && cache.time == time && cache.revision == revision) {
    return {cache.local, cache.global};
  }
  object.evaluating = true;
  cache.time = time;
  cache.revision = revision;
  cache.complete = false;
  cache.parent_global = parent_global;
  cache.local = LocalFromParams(object, time);
  cache.global = CTransformation::Mul(cache.local, parent_global);
  if (!object.binding.constraints.empty()) ApplyConstraints(object, time);
  if (object.cls == ClassID::ChainBone) ApplyChainSolve(object, time);
  if (object.binding.global_driven) ApplyDrivenGlobals(object, time);
  for (size_t i = 0; i < object.binding.writers.size(); ++i) {
    ApplyWriter(*object.binding.writers[i], object, time);
  }
  cache.complete = true;
  object.evaluating = false;
  return {cache.local, cache.global};
}

bool IsDriven(ObjectItem& object) {
  EnsureObjectBinding(object);
  const KineBinding& b = object.binding;
  return !b.constraints.empty() || !b.writers.empty() || b.global_driven;
}

void WriteState(ObjectItem& object, bool global, const CTransformation& transform, double time) {
  EvaluateObject(object, time);
  EvalCache& cache = object.cache;
  if (cache.time != time || cache.revision != ActiveScene().revision) return;
  if (global) {
    cache.global = transform;
    DeriveLocal(cache);
  } else {
    cache.local = transform;
    cache.global = CTransformation::Mul(transform, cache.parent_global);
  }
}

int KineParamIndex(ObjectItem& object, const ParamItem& param, bool global) {
  EnsureObjectBinding(object);
  const size_t count = global ? kGlobalKineParamCount : kLocalKineParamCount;
  const ParamItem* const* slots = global ? object.binding.global.data() : object.binding.local.data();
  for (size_t i = 0; i < count; ++i) {
    if (slots[i] == &param) return static_cast<int>(i);
  }
  return -1;
}

CStatus PutStateTransform(KineStateItem& state, const CTransformation& transform, double time) {
  ObjectItem* object = state.object;
  if (!object || state.deleted) return CStatus::Fail;
  if (ContextItem* context = RunningOutputContext(state)) {
    // Inside the update of the operator writing this object: its write.
    const auto* output =
        dynamic_cast<const KineStateItem*>(OutputTargetOf(*context->op, context->output_index).get());
    CTransformation written = transform;
    if (output && output->global != state.global) {
      const CTransformation& parent_global = object->cache.parent_global;
      written = state.global ? MATH::MapWorldPoseToObjectSpace(parent_global, transform)
                             : CTransformation::Mul(transform, parent_global);
    }
    context->output_transform = written;
    return CStatus::OK;
  }
  const double at = ResolveTime(time);
  EnsureObjectBinding(*object);
  CTransformation local = transform;
  if (state.global) {
    CTransformation parent_global;
    if (object->binding.parent) parent_global = EvaluateObject(*object->binding.parent, at).global;
    local = MATH::MapWorldPoseToObjectSpace(parent_global, transform);
  }
  double v[kLocalKineParamCount];
  ReadKineValues(*object, at, v);
  const MATH::RotationOrder order = RotationOrderFrom(v[kRotOrderIndex]);
  if (!IsIdentitySrt(v + 10)) local = MATH::MapWorldPoseToObjectSpace(ComposeSrt(v + 10, order), local);
  const SrtValues values = DecomposeSrt(local, order);
  std::array<ParamItem*, kLocalKineParamCount> params = object->binding.local;
  for (size_t i = 0; i < kGlobalKineParamCount; ++i) {
    if (params[i]) PutParamValue(*params[i], values[i], at);
  }
  return CStatus::OK;
}

}  // namespace KRX::rt

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

// Composes the local transform an operator has not overwritten yet.
void ResolvePending(ObjectItem& object, EvalCache& cache) {
  if (!cache.local_pending) return;
  cache.local_pending = false;
  cache.local = LocalFromParams(object, cache.time);
  cache.global = CTransformation::Mul(cache.local, cache.parent_global);
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

void ApplyConstraints(ObjectItem& object, EvalCache& cache, double time) {
  for (size_t i = 0; i < object.binding.constraints.size(); ++i) {
    const ConstraintItem& constraint = *object.binding.constraints[i];
    ObjectItem* source = ConstrainingObject(constraint);
    if (!source) continue;
    const Pose driver = EvaluateObject(*source, time);
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
void ApplyDrivenGlobals(ObjectItem& object, EvalCache& cache, double time) {
  ParamItem* order_param = object.binding.local[kRotOrderIndex];
  const MATH::RotationOrder order =
      RotationOrderFrom(order_param ? EvaluateParamDouble(*order_param, time) : 0.0);
  SrtValues values = DecomposeSrt(cache.global, order);
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
  cache.global = ComposeSrt(values.data(), order);
  DeriveLocal(cache);
}

EvalCache* FindEntry(ObjectItem& object, double time, uint64_t revision) {
  for (EvalCache& entry : object.cache) {
    if (entry.revision == revision && entry.time == time) return &entry;
  }
  return nullptr;
}

// An entry to fill at `time`: one out of date, else the oldest complete one. Null when
// every entry is being filled (reads nested across more times than are kept).
EvalCache* ClaimEntry(ObjectItem& object, uint64_t revision) {
  for (EvalCache& entry : object.cache) {
    if (entry.revision != revision) return &entry;
  }
  for (size_t k = 0; k < kCachedTimes; ++k) {
    const size_t index = (object.next_cache + k) % kCachedTimes;
    if (object.cache[index].complete) {
      object.next_cache = static_cast<uint32_t>((index + 1) % kCachedTimes);
      return &object.cache[index];
    }
  }
  return nullptr;
}

// What the object's parameters and its parent give, uncached.
Pose Uncached(ObjectItem& object, double time) {
  CTransformation parent_global;
  if (object.binding.parent) parent_global = EvaluateObject(*object.binding.parent, time).global;
  const CTransformation local = LocalFromParams(object, time);
  return {local, CTransformation::Mul(local, parent_global)};
}

// An object asked for while it is being evaluated at that time: its value so far.
Pose Reentered(ObjectItem& object, EvalCache& cache) {
  ReportCycle(object);
  ResolvePending(object, cache);
  return {cache.local, cache.global};
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
            [](const OperatorItem* a, const OperatorItem* b) {
              return a->connect_order < b->connect_order;
            });
  binding.stamp = StructureStamp();
}

Pose EvaluateObject(ObjectItem& object, double time) {
  const uint64_t revision = ActiveScene().revision;
  if (EvalCache* entry = FindEntry(object, time, revision)) {
    if (entry->complete) return {entry->local, entry->global};
    return Reentered(object, *entry);
  }
  EnsureObjectBinding(object);
  CTransformation parent_global;
  if (object.binding.parent) parent_global = EvaluateObject(*object.binding.parent, time).global;
  // The parent's operators may have read (and so evaluated) this object meanwhile.
  if (EvalCache* entry = FindEntry(object, time, revision); entry && entry->complete) {
    return {entry->local, entry->global};
  }
  EvalCache* claimed = ClaimEntry(object, revision);
  if (!claimed) return Uncached(object, time);
  NoteEvaluated();
  EvalCache& cache = *claimed;
  ++object.evaluating;
  cache.time = time;
  cache.revision = revision;
  cache.complete = false;
  cache.parent_global = parent_global;
  const KineBinding& binding = object.binding;
  // An object whose state operators overwrite composes its local from the parameters only
  // when something asks for the value before their write (see ResolvePending).
  cache.local_pending = !binding.writers.empty() && binding.constraints.empty() &&
                        !binding.global_driven && object.cls != ClassID::ChainBone;
  if (!cache.local_pending) {
    cache.local = LocalFromParams(object, time);
    cache.global = CTransformation::Mul(cache.local, parent_global);
  }
  if (!binding.constraints.empty()) ApplyConstraints(object, cache, time);
  if (object.cls == ClassID::ChainBone) ApplyChainSolve(object, time);
  if (binding.global_driven) ApplyDrivenGlobals(object, cache, time);
  for (size_t i = 0; i < binding.writers.size(); ++i)
    ApplyWriter(*binding.writers[i], object, time);
  ResolvePending(object, cache);
  cache.complete = true;
  --object.evaluating;
  return {cache.local, cache.global};
}

EvalCache* CacheAt(ObjectItem& object, double time) {
  EvalCache* entry = FindEntry(object, time, ActiveScene().revision);
  if (entry) ResolvePending(object, *entry);
  return entry;
}

bool IsDriven(ObjectItem& object) {
  EnsureObjectBinding(object);
  const KineBinding& b = object.binding;
  return !b.constraints.empty() || !b.writers.empty() || b.global_driven;
}

void WriteState(ObjectItem& object, bool global, const CTransformation& transform, double time) {
  EvalCache* entry = FindEntry(object, time, ActiveScene().revision);
  if (!entry) {
    EvaluateObject(object, time);
    entry = FindEntry(object, time, ActiveScene().revision);
    if (!entry) return;
  }
  EvalCache& cache = *entry;
  cache.local_pending = false;
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
  const ParamItem* const* slots =
      global ? object.binding.global.data() : object.binding.local.data();
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
    // A class test by ID: this runs on every operator write.
    const std::shared_ptr<Item> target = OutputTargetOf(*context->op, context->output_index);
    const auto* output = target && target->cls == ClassID::KinematicState
                             ? static_cast<const KineStateItem*>(target.get())
                             : nullptr;
    CTransformation written = transform;
    if (output && output->global != state.global) {
      EvaluateObject(*object, context->time);
      const EvalCache* entry = CacheAt(*object, context->time);
      const CTransformation parent_global = entry ? entry->parent_global : CTransformation();
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
  if (!IsIdentitySrt(v + 10))
    local = MATH::MapWorldPoseToObjectSpace(ComposeSrt(v + 10, order), local);
  const SrtValues values = DecomposeSrt(local, order);
  std::array<ParamItem*, kLocalKineParamCount> params = object->binding.local;
  for (size_t i = 0; i < kGlobalKineParamCount; ++i) {
    if (params[i]) PutParamValue(*params[i], values[i], at);
  }
  return CStatus::OK;
}

}  // namespace KRX::rt

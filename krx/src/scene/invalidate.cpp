// Invalidation by dependency: a change marks out of date only what depends on the item that
// changed, following what each item's place implies (children below an object, an object's
// parameters, an operator's outputs) and the dependents lists built from the scene's
// connections (input ports, expressions, constraints, up-vector references) and from the
// reads operators' updates make.
#include <algorithm>

#include "scene/chains.h"
#include "scene/evaluation.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

uint64_t g_visit = 0;

bool IsChainClass(ClassID cls) {
  return cls == ClassID::ChainRoot || cls == ClassID::ChainBone || cls == ClassID::ChainEffector;
}

// What a dependency on `item` is recorded on: an object for its kinematic states and their
// parameters (their values follow the object's pose), the item itself otherwise.
Item& DependencyKey(Item& item) {
  Item* at = &item;
  if (at->cls == ClassID::Parameter && at->owner && at->owner->cls == ClassID::KinematicState) {
    at = at->owner;
  }
  if (at->cls == ClassID::KinematicState) {
    if (ObjectItem* object = static_cast<KineStateItem*>(at)->object) return *object;
  }
  return *at;
}

void AddDependent(Item& on, Item& dependent, uint64_t stamp) {
  if (on.dependents_stamp != stamp) {
    on.dependents.clear();
    on.dependents_stamp = stamp;
  }
  if (std::find(on.dependents.begin(), on.dependents.end(), &dependent) == on.dependents.end()) {
    on.dependents.push_back(&dependent);
  }
}

// Rebuilds every item's dependents list when the structure moved.
void EnsureDependents(Scene& scene) {
  const uint64_t stamp = StructureStamp();
  if (scene.eval.dependents_stamp == stamp) return;
  scene.eval.dependents_stamp = stamp;
  auto visit = [stamp](Item& item) {
    if (item.deleted) return true;
    if (item.cls == ClassID::CustomOperator) {
      auto& op = static_cast<OperatorItem&>(item);
      if (!op.connected) return true;
      for (const PortData& port : op.ports) {
        std::shared_ptr<Item> target = port.target.lock();
        if (!port.output && target && !target->deleted)
          AddDependent(DependencyKey(*target), op, stamp);
      }
    } else if (item.cls == ClassID::Parameter) {
      auto& param = static_cast<ParamItem&>(item);
      if (param.expression) {
        EnsureParamBinding(param);
        if (ParamItem* source = param.binding.expression_source) {
          AddDependent(DependencyKey(*source), param, stamp);
        }
      }
    } else if (item.cls == ClassID::Constraint) {
      auto& constraint = static_cast<ConstraintItem&>(item);
      for (const auto& weak : constraint.constraining) {
        std::shared_ptr<Item> source = weak.lock();
        if (source && constraint.constrained) AddDependent(*source, *constraint.constrained, stamp);
      }
    } else if (item.cls == ClassID::ChainBone) {
      auto& bone = static_cast<ObjectItem&>(item);
      ObjectItem* reference = UpVectorReferenceOf(bone);
      ObjectItem* root = ChainRootOf(bone);
      if (reference && root) AddDependent(*reference, *root, stamp);
    }
    return true;
  };
  if (scene.root) ForEachItem(*scene.root, visit);
  if (scene.project) ForEachItem(*scene.project, visit);
}

void ClearObject(ObjectItem& object) {
  for (EvalCache& entry : object.cache) {
    if (entry.complete) entry.revision = 0;
  }
}

void ClearRuns(OperatorItem& op) {
  for (OperatorRun& run : op.runs) {
    if (!run.running) run.revision = 0;
  }
}

void Walk(Scene& scene, Item& changed, const OperatorItem* except) {
  EnsureDependents(scene);
  const uint64_t mark = ++g_visit;
  const uint64_t stamp = scene.eval.dependents_stamp;
  if (except) const_cast<OperatorItem*>(except)->visit_mark = mark;
  std::vector<Item*> stack{&changed};
  auto push = [&stack, mark](Item* item) {
    if (item && item->visit_mark != mark && !item->deleted) stack.push_back(item);
  };
  while (!stack.empty()) {
    Item& item = *stack.back();
    stack.pop_back();
    if (item.visit_mark == mark) continue;
    item.visit_mark = mark;
    if (IsObjectClass(item.cls)) {
      auto& object = static_cast<ObjectItem&>(item);
      ClearObject(object);
      for (const auto& child : object.children) push(child.get());
      if (IsChainClass(item.cls)) push(ChainRootOf(object));
    } else if (item.cls == ClassID::KinematicState) {
      push(static_cast<KineStateItem&>(item).object);
    } else if (item.cls == ClassID::Parameter) {
      // A kinematic parameter moves its object; a parameter of a chain's property (roll,
      // bend normal) its chain.
      Item* owner = item.owner;
      if (owner && owner->cls == ClassID::KinematicState) {
        push(static_cast<KineStateItem*>(owner)->object);
      } else if (owner && owner->owner && IsChainClass(owner->owner->cls)) {
        push(owner->owner);
      }
    } else if (item.cls == ClassID::FCurve) {
      push(item.owner);
    } else if (item.cls == ClassID::CustomOperator) {
      auto& op = static_cast<OperatorItem&>(item);
      ClearRuns(op);
      for (const PortData& port : op.ports) {
        if (port.output && !port.target.expired()) push(port.item);
      }
    }
    if (item.dependents_stamp == stamp) {
      for (Item* dependent : item.dependents) push(dependent);
    }
  }
}

}  // namespace

void Invalidate(Item& changed, const OperatorItem* except) {
  Scene& scene = ActiveScene();
  if (EvalDepth() > 0) {
    std::weak_ptr<Item> left_out;
    if (except) left_out = const_cast<OperatorItem*>(except)->weak_from_this();
    scene.eval.pending_invalidations.emplace_back(changed.weak_from_this(), std::move(left_out));
    return;
  }
  // Nothing evaluated since the revision last moved: nothing is cached, nothing to walk.
  if (!scene.eval.evaluated) return;
  Walk(scene, changed, except);
}

void FlushInvalidations() {
  Scene& scene = ActiveScene();
  if (EvalDepth() > 0 || scene.eval.pending_invalidations.empty()) return;
  auto pending = std::move(scene.eval.pending_invalidations);
  scene.eval.pending_invalidations.clear();
  if (!scene.eval.evaluated) return;
  for (const auto& [weak, left_out] : pending) {
    std::shared_ptr<Item> item = weak.lock();
    std::shared_ptr<Item> op = left_out.lock();
    if (!item || item->deleted) continue;
    Walk(scene, *item, op ? static_cast<OperatorItem*>(op.get()) : nullptr);
  }
}

void NoteEvaluated() { ActiveScene().eval.evaluated = true; }

void NoteUpdateRead(Item& item) {
  OperatorItem* op = RunningUpdate();
  if (!op) return;
  Item& key = DependencyKey(item);
  // Reads through the operator's own ports are known already.
  for (const PortData& port : op->ports) {
    if (!port.output && !port.target.expired() && &DependencyKey(*port.item) == &key) return;
  }
  Scene& scene = ActiveScene();
  EnsureDependents(scene);
  AddDependent(key, *op, scene.eval.dependents_stamp);
}

}  // namespace KRX::rt

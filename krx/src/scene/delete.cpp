// Deleting scene items and what goes with them.
#include <algorithm>

#include "runtime/scene_state.h"
#include "scene/evaluation.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

template <typename T>
bool EraseFrom(std::vector<std::shared_ptr<T>>& list, const Item* item) {
  auto it = std::find_if(list.begin(), list.end(), [item](const auto& p) { return p.get() == item; });
  if (it == list.end()) return false;
  list.erase(it);
  return true;
}

// "Play Control" and its parameters stay.
bool IsPlayControl(const Item& item, const Scene& scene) {
  const Item* property = dynamic_cast<const ParamItem*>(&item) ? item.owner : &item;
  return property && property->owner == scene.project.get() && property->name == CString(L"Play Control");
}

// Removes the item from what holds it. False when it cannot be deleted.
bool Detach(const std::shared_ptr<Item>& item, Scene& scene) {
  if (item == scene.root || item == scene.project) return false;
  if (dynamic_cast<KinematicsItem*>(item.get()) || dynamic_cast<KineStateItem*>(item.get())) return false;
  if (dynamic_cast<ContextItem*>(item.get())) return false;
  if (IsPlayControl(*item, scene)) return false;
  if (auto* object = dynamic_cast<ObjectItem*>(item.get())) {
    auto* parent = dynamic_cast<ObjectItem*>(object->owner);
    return parent && EraseFrom(parent->children, object);
  }
  if (auto* op = dynamic_cast<OperatorItem*>(item.get())) {
    if (op->owner) return EraseFrom(op->owner->operators, op);
    return EraseFrom(scene.pending_operators, op);
  }
  if (auto* param = dynamic_cast<ParamItem*>(item.get())) {
    if (!param->owner || dynamic_cast<KineStateItem*>(param->owner)) return false;
    return EraseFrom(param->owner->params, param);
  }
  if (!item->owner) return false;
  return EraseFrom(item->owner->properties, item.get());
}

void DeleteFCurve(FCurveItem& fcurve) {
  auto* param = dynamic_cast<ParamItem*>(fcurve.owner);
  if (!param || param->fcurve.get() != &fcurve) return;
  const ReadScope scope(kCurrentTime);
  param->value = OwnValueAt(*param, scope.time());
  param->transient_value.reset();
  fcurve.deleted = true;
  param->fcurve.reset();
}

bool NamesDeleted(const OperatorItem& op) {
  for (const PortData& port : op.ports) {
    std::shared_ptr<Item> target = port.target.lock();
    if (!target || target->deleted) return true;
  }
  return false;
}

}  // namespace

CStatus DeleteItem(const std::shared_ptr<Item>& item) {
  if (!item || item->deleted) return CStatus::Fail;
  Scene& scene = ActiveScene();
  if (auto* fcurve = dynamic_cast<FCurveItem*>(item.get())) {
    const std::shared_ptr<Item> keep = item;
    DeleteFCurve(*fcurve);
    BumpStructure();
    return CStatus::OK;
  }
  if (!Detach(item, scene)) return CStatus::Fail;

  // Everything below goes; so do the operators naming any of it in a port.
  std::vector<std::shared_ptr<OperatorItem>> ended;
  ForEachItem(*item, [&ended](Item& below) {
    below.deleted = true;
    if (auto* op = dynamic_cast<OperatorItem*>(&below)) {
      ended.push_back(std::static_pointer_cast<OperatorItem>(op->shared_from_this()));
    }
    return true;
  });
  std::vector<std::shared_ptr<OperatorItem>> broken;
  ForEachSceneItem([&broken](Item& holder) {
    for (const auto& held : holder.operators) {
      auto* op = dynamic_cast<OperatorItem*>(held.get());
      if (op && !op->deleted && NamesDeleted(*op)) {
        broken.push_back(std::static_pointer_cast<OperatorItem>(op->shared_from_this()));
      }
    }
    return true;
  });
  for (const auto& op : broken) {
    if (op->owner) EraseFrom(op->owner->operators, op.get());
    op->connected = false;
    ForEachItem(*op, [](Item& below) {
      below.deleted = true;
      return true;
    });
    ended.push_back(op);
  }
  auto& selection = scene.selection;
  selection.erase(std::remove_if(selection.begin(), selection.end(),
                                 [](const std::weak_ptr<Item>& s) {
                                   std::shared_ptr<Item> selected = s.lock();
                                   return !selected || selected->deleted;
                                 }),
                  selection.end());
  BumpTopology();
  for (const auto& op : ended) {
    op->connected = false;
    TerminateOperator(*op);
  }
  return CStatus::OK;
}

}  // namespace KRX::rt

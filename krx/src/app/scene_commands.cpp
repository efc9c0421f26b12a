// Host commands on scene items: deleting, selecting, enumerating and removing animation.
#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "app/app_commands.h"
#include "app/app_items.h"
#include "app/command_args.h"
#include "krx/property.h"
#include "runtime/commands.h"
#include "runtime/scene_state.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

// Items selected as branches. Keyed by address; the weak reference tells whether the
// address still belongs to the same item.
std::map<const Item*, std::weak_ptr<Item>>& BranchSelections() {
  static auto* branches = new std::map<const Item*, std::weak_ptr<Item>>;
  return *branches;
}

std::string Names(const std::vector<CString>& names) {
  std::string out;
  for (const CString& n : names) {
    if (!out.empty()) out += ", ";
    out += "'" + n.GetAsciiString() + "'";
  }
  return out;
}

// DeleteObj(items): deletes objects, properties, parameters of custom properties and
// operators. Fails when something named does not exist or cannot be deleted (the rest is
// deleted all the same).
CStatus DeleteObj(const CValueArray& args, CValue&) {
  std::vector<CString> unresolved;
  std::vector<std::shared_ptr<Item>> items = ResolveItems(Arg(args, 0), &unresolved);
  CStatus status = CStatus::OK;
  if (items.empty() && unresolved.empty()) {
    CommandError("DeleteObj", "nothing to delete");
    return CStatus::InvalidArgument;
  }
  if (!unresolved.empty()) {
    CommandError("DeleteObj", "nothing is named " + Names(unresolved));
    status = CStatus::Fail;
  }
  for (const std::shared_ptr<Item>& item : items) {
    // An earlier deletion in the list may have taken this item with it.
    if (item->deleted) continue;
    const std::string name = SIObject(RefToItem(item)).GetFullName().GetAsciiString();
    if (DeleteItem(item) != CStatus::OK) {
      CommandError("DeleteObj", "cannot delete '" + name + "'");
      status = CStatus::Fail;
    }
  }
  return status;
}

// SelectObj(items, "BRANCH" or empty, ...): adds the items to the selection, in order,
// each once. "BRANCH" selects each item with everything below it.
CStatus SelectObj(const CValueArray& args, CValue&) {
  std::vector<CString> unresolved;
  std::vector<std::shared_ptr<Item>> items = ResolveItems(Arg(args, 0), &unresolved);
  if (!unresolved.empty()) CommandError("SelectObj", "nothing is named " + Names(unresolved));
  const CValue& mode = Arg(args, 1);
  const bool branch = !mode.IsEmpty() && mode.GetString().IsEqualNoCase(L"BRANCH");
  std::vector<std::weak_ptr<Item>>& selection = ActiveScene().selection;
  for (const std::shared_ptr<Item>& item : items) {
    const bool present =
        std::any_of(selection.begin(), selection.end(),
                    [&item](const std::weak_ptr<Item>& s) { return s.lock() == item; });
    if (!present) selection.push_back(item);
    if (branch) BranchSelections()[item.get()] = item;
  }
  return unresolved.empty() ? CStatus::OK : CStatus::Fail;
}

CStatus DeselectAll(const CValueArray&, CValue&) {
  ActiveScene().selection.clear();
  BranchSelections().clear();
  return CStatus::OK;
}

// EnumElements(item): what lies directly inside an item, as references:
//   a kinematic state: the operators that write it;
//   the kinematics: its local and global states;
//   a 3D object: its children, then its properties;
//   a property (and anything else holding parameters): its parameters.
// This host keeps no animation mixer: "X.Mixer..." gives an empty list.
CStatus EnumElements(const CValueArray& args, CValue& result) {
  const CValue& target = Arg(args, 0);
  CValueArray elements;
  result = CValue(elements);
  std::shared_ptr<Item> item = ResolveItem(target);
  if (!item) {
    const CString name = target.GetString();
    if (name.FindString(CString(L".Mixer")) != CString::npos) return CStatus::OK;
    CommandError("EnumElements", "nothing is named '" + name.GetAsciiString() + "'");
    return CStatus::Fail;
  }
  if (item->cls == ClassID::KinematicState) {
    std::set<const Item*> seen;
    auto add = [&](OperatorItem& op) {
      if (seen.insert(&op).second) elements.push_back(RefValue(op.shared_from_this()));
    };
    for (const auto& op : item->operators) {
      if (auto* o = dynamic_cast<OperatorItem*>(op.get()); o && !o->deleted) add(*o);
    }
    // Operators that write this state through a port other than their first output.
    ForEachSceneOperator([&](OperatorItem& op) {
      for (const PortData& port : op.ports) {
        if (port.output && port.target.lock() == item) add(op);
      }
    });
  } else if (auto* kine = dynamic_cast<KinematicsItem*>(item.get())) {
    if (kine->local) elements.push_back(RefValue(kine->local));
    if (kine->global) elements.push_back(RefValue(kine->global));
  } else {
    if (auto* object = dynamic_cast<ObjectItem*>(item.get())) {
      for (const auto& child : object->children) {
        if (child && !child->deleted) elements.push_back(RefValue(child));
      }
    }
    for (const auto& property : item->properties) {
      if (property && !property->deleted) elements.push_back(RefValue(property));
    }
    for (const auto& param : item->params) {
      if (param && !param->deleted) elements.push_back(RefValue(param));
    }
  }
  result = CValue(std::move(elements));
  return CStatus::OK;
}

// RemoveAllAnimation(items, ...): removes the function curves and expressions of every
// parameter of the items, or of the selection when no item is given. An item selected
// as a branch, or named with the prefix "B:", takes everything below it along. The further
// arguments (what to remove, as a host passes them) are accepted and not needed: curves and
// expressions are all the animation this host keeps on parameters.
CStatus RemoveAllAnimation(const CValueArray& args, CValue&) {
  std::vector<std::pair<std::shared_ptr<Item>, bool>> targets;
  if (Arg(args, 0).IsEmpty()) {
    for (const std::weak_ptr<Item>& entry : ActiveScene().selection) {
      std::shared_ptr<Item> item = entry.lock();
      if (item && !item->deleted) targets.emplace_back(item, IsBranchSelected(*item));
    }
  } else {
    std::vector<CString> unresolved;
    targets = ResolveBranchItems(Arg(args, 0), &unresolved);
    if (!unresolved.empty()) {
      CommandError("RemoveAllAnimation", "nothing is named " + Names(unresolved));
      return CStatus::Fail;
    }
  }
  std::vector<std::shared_ptr<Item>> animated;
  std::set<const Item*> seen;
  for (const auto& [item, branch] : targets) {
    ForEachParameterBelow(*item, branch, [&](ParamItem& param) {
      if ((param.fcurve || param.expression) && seen.insert(&param).second) {
        animated.push_back(param.shared_from_this());
      }
    });
  }
  for (const auto& param : animated) Parameter(RefToItem(param)).RemoveAnimation();
  return CStatus::OK;
}

}  // namespace

bool IsBranchSelected(const Item& item) {
  auto it = BranchSelections().find(&item);
  if (it == BranchSelections().end() || it->second.lock().get() != &item) return false;
  for (const std::weak_ptr<Item>& entry : ActiveScene().selection) {
    if (entry.lock().get() == &item) return true;
  }
  return false;
}

void RegisterSceneCommands() {
  RegisterHostCommand(L"DeleteObj", DeleteObj);
  RegisterHostCommand(L"SelectObj", SelectObj);
  RegisterHostCommand(L"DeselectAll", DeselectAll);
  RegisterHostCommand(L"EnumElements", EnumElements);
  RegisterHostCommand(L"RemoveAllAnimation", RemoveAllAnimation);
}

}  // namespace KRX::rt

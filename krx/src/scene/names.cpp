// Names and full names of scene items, resolving full names, and walking the item tree.
#include <string>
#include <unordered_set>

#include "runtime/scene_state.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

bool IsModel(const Item& item) { return item.cls == ClassID::Model; }

// Calls `fn` for every object in the model's name space: the objects below it, not
// looking inside nested models (which are in it themselves). Stops when `fn` is true.
template <typename Fn>
bool AnyInNameSpace(const ObjectItem& model, const Fn& fn) {
  for (const auto& child : model.children) {
    if (!child || child->deleted) continue;
    if (fn(*child)) return true;
    if (!IsModel(*child) && AnyInNameSpace(*child, fn)) return true;
  }
  return false;
}

std::vector<std::wstring> SplitFullName(const std::wstring& text) {
  std::vector<std::wstring> parts;
  size_t start = 0;
  while (true) {
    const size_t dot = text.find(L'.', start);
    parts.push_back(text.substr(start, dot == std::wstring::npos ? std::wstring::npos : dot - start));
    if (dot == std::wstring::npos) break;
    start = dot + 1;
  }
  return parts;
}

// Resolves parts[i..] below `context`, trying every item of the right name in turn.
std::shared_ptr<Item> ResolveBelow(Item& context, const std::vector<std::wstring>& parts, size_t i) {
  if (i == parts.size()) return context.deleted ? nullptr : context.shared_from_this();
  const std::wstring& name = parts[i];
  auto descend = [&](const std::shared_ptr<Item>& candidate) -> std::shared_ptr<Item> {
    if (!candidate || candidate->deleted || candidate->name.GetWideString() != name) return nullptr;
    return ResolveBelow(*candidate, parts, i + 1);
  };
  if (IsModel(context)) {
    if (auto* model = dynamic_cast<ObjectItem*>(&context)) {
      std::shared_ptr<Item> found;
      AnyInNameSpace(*model, [&](ObjectItem& object) {
        found = descend(object.shared_from_this());
        return found != nullptr;
      });
      if (found) return found;
    }
  }
  if (auto* kine = dynamic_cast<KinematicsItem*>(&context)) {
    if (auto found = descend(kine->local)) return found;
    if (auto found = descend(kine->global)) return found;
  }
  for (const auto& property : context.properties) {
    if (auto found = descend(property)) return found;
  }
  for (const auto& param : context.params) {
    if (auto found = descend(param)) return found;
  }
  for (const auto& op : context.operators) {
    if (auto found = descend(op)) return found;
  }
  return nullptr;
}

std::wstring StripTrailingDigits(const std::wstring& name, long* number) {
  size_t end = name.size();
  while (end > 0 && name[end - 1] >= L'0' && name[end - 1] <= L'9') --end;
  *number = 0;
  const std::wstring digits = name.substr(end);
  if (!digits.empty() && digits.size() < 9) *number = std::stol(digits);
  return name.substr(0, end);
}

template <typename Taken>
CString FirstFreeName(const CString& wanted, const Taken& taken) {
  if (!taken(wanted.GetWideString())) return wanted;
  long number = 0;
  const std::wstring base = StripTrailingDigits(wanted.GetWideString(), &number);
  for (long n = number + 1;; ++n) {
    std::wstring candidate = base + std::to_wstring(n);
    if (!taken(candidate)) return CString(std::move(candidate));
  }
}

}  // namespace

ObjectItem* ModelOf(const Item& item) {
  if (!item.owner) {
    return IsModel(item) ? const_cast<ObjectItem*>(dynamic_cast<const ObjectItem*>(&item)) : nullptr;
  }
  for (Item* up = item.owner; up; up = up->owner) {
    if (IsModel(*up)) return dynamic_cast<ObjectItem*>(up);
  }
  return nullptr;
}

CString FullNameOf(const Item& item) {
  if (!item.owner) return item.name;
  if (dynamic_cast<const ObjectItem*>(&item)) {
    const ObjectItem* model = ModelOf(item);
    if (!model || !model->owner) return item.name;  // in the scene root's name space
    return FullNameOf(*model) + CString(L".") + item.name;
  }
  return FullNameOf(*item.owner) + CString(L".") + item.name;
}

std::shared_ptr<Item> FindItemByFullName(const CString& full_name) {
  if (full_name.IsEmpty()) return nullptr;
  Scene& scene = ActiveScene();
  const std::vector<std::wstring> parts = SplitFullName(full_name.GetWideString());
  if (scene.root) {
    if (parts[0] == scene.root->name.GetWideString()) {
      if (auto found = ResolveBelow(*scene.root, parts, 1)) return found;
    }
    if (auto found = ResolveBelow(*scene.root, parts, 0)) return found;
  }
  if (scene.project && parts[0] == scene.project->name.GetWideString()) {
    if (auto found = ResolveBelow(*scene.project, parts, 1)) return found;
  }
  // "PlayControl.Current": the play control by its script name, as command logs write it.
  if (scene.project && parts[0] == L"PlayControl") {
    std::vector<std::wstring> spelled = parts;
    spelled[0] = L"Play Control";
    if (auto found = ResolveBelow(*scene.project, spelled, 0)) return found;
  }
  return nullptr;
}

CString UniqueObjectName(const ObjectItem& model, const CString& wanted, const Item* ignore) {
  std::unordered_set<std::wstring> names;
  AnyInNameSpace(model, [&](const ObjectItem& object) {
    if (&object != ignore) names.insert(object.name.GetWideString());
    return false;
  });
  return FirstFreeName(wanted, [&names](const std::wstring& n) { return names.count(n) != 0; });
}

CString UniqueMemberName(const std::vector<std::shared_ptr<Item>>& siblings, const CString& wanted,
                         const Item* ignore) {
  return FirstFreeName(wanted, [&](const std::wstring& n) {
    for (const auto& s : siblings) {
      if (s && s.get() != ignore && !s->deleted && s->name.GetWideString() == n) return true;
    }
    return false;
  });
}

bool ForEachItem(Item& item, const std::function<bool(Item&)>& fn) {
  if (!fn(item)) return false;
  for (const auto& param : item.params) {
    if (!ForEachItem(*param, fn)) return false;
    if (auto* typed = dynamic_cast<ParamItem*>(param.get()); typed && typed->fcurve) {
      if (!fn(*typed->fcurve)) return false;
    }
  }
  for (const auto& property : item.properties) {
    if (!ForEachItem(*property, fn)) return false;
    if (auto* kine = dynamic_cast<KinematicsItem*>(property.get())) {
      if (kine->local && !ForEachItem(*kine->local, fn)) return false;
      if (kine->global && !ForEachItem(*kine->global, fn)) return false;
    }
  }
  for (const auto& op : item.operators) {
    if (!ForEachItem(*op, fn)) return false;
  }
  if (auto* object = dynamic_cast<ObjectItem*>(&item)) {
    for (const auto& child : object->children) {
      if (!ForEachItem(*child, fn)) return false;
    }
  }
  return true;
}

void ForEachSceneItem(const std::function<bool(Item&)>& fn) {
  Scene& scene = ActiveScene();
  if (scene.root && !ForEachItem(*scene.root, fn)) return;
  if (scene.project) ForEachItem(*scene.project, fn);
}

}  // namespace KRX::rt

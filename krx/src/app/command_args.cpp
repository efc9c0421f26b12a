#include "app/command_args.h"

#include "runtime/log.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

CString TrimBlanks(const std::wstring& s) {
  size_t begin = 0, end = s.size();
  while (begin < end && (s[begin] == L' ' || s[begin] == L'\t')) ++begin;
  while (end > begin && (s[end - 1] == L' ' || s[end - 1] == L'\t')) --end;
  return CString(s.substr(begin, end - begin));
}

void AddResolved(const CValue& value, std::vector<std::shared_ptr<Item>>& items,
                 std::vector<CString>* unresolved, std::vector<bool>* branches) {
  switch (value.GetType()) {
    case ValueType::Empty:
      return;
    case ValueType::Array:
      for (const CValue& element : value.GetArray())
        AddResolved(element, items, unresolved, branches);
      return;
    case ValueType::Ref: {
      std::shared_ptr<Item> item = value.GetRef().Lock();
      if (item && !item->deleted) {
        items.push_back(item);
        if (branches) branches->push_back(false);
      } else if (unresolved) {
        unresolved->push_back(CString(L"<deleted item>"));
      }
      return;
    }
    default:
      break;
  }
  const std::wstring text = value.GetString().GetWideString();
  size_t start = 0;
  while (start <= text.size()) {
    size_t comma = text.find(L',', start);
    if (comma == std::wstring::npos) comma = text.size();
    CString name = TrimBlanks(text.substr(start, comma - start));
    // "B:name" names the item with everything below it, where the caller takes branches.
    const bool branch = branches && name.Length() > 2 && name.GetSubString(0, 2) == CString(L"B:");
    if (branch) name = name.GetSubString(2);
    if (!name.IsEmpty()) {
      std::shared_ptr<Item> item = CRef::FromText(name).Lock();
      if (item && !item->deleted) {
        items.push_back(item);
        if (branches) branches->push_back(branch);
      } else if (unresolved) {
        unresolved->push_back(name);
      }
    }
    start = comma + 1;
  }
}

}  // namespace

const CValue& Arg(const CValueArray& args, size_t index) {
  static const CValue kEmpty;
  return index < args.size() ? args[index] : kEmpty;
}

std::vector<std::shared_ptr<Item>> ResolveItems(const CValue& value,
                                                std::vector<CString>* unresolved) {
  std::vector<std::shared_ptr<Item>> items;
  AddResolved(value, items, unresolved, nullptr);
  return items;
}

std::vector<std::pair<std::shared_ptr<Item>, bool>> ResolveBranchItems(
    const CValue& value, std::vector<CString>* unresolved) {
  std::vector<std::shared_ptr<Item>> items;
  std::vector<bool> branches;
  AddResolved(value, items, unresolved, &branches);
  std::vector<std::pair<std::shared_ptr<Item>, bool>> out;
  out.reserve(items.size());
  for (size_t i = 0; i < items.size(); ++i) out.emplace_back(items[i], branches[i]);
  return out;
}

std::shared_ptr<Item> ResolveItem(const CValue& value) {
  std::vector<std::shared_ptr<Item>> items = ResolveItems(value);
  return items.empty() ? nullptr : items.front();
}

CValue RefValue(const std::shared_ptr<Item>& item) {
  return CValue(CRef(std::weak_ptr<Item>(item)));
}

bool IsObjectItem(const Item& item) { return IsObjectClass(item.cls); }

void ForEachParameterBelow(Item& item, bool branch, const std::function<void(ParamItem&)>& fn) {
  if (auto* param = dynamic_cast<ParamItem*>(&item)) {
    fn(*param);
    return;
  }
  for (const auto& p : item.params) {
    if (auto* param = dynamic_cast<ParamItem*>(p.get())) fn(*param);
  }
  if (auto* kine = dynamic_cast<KinematicsItem*>(&item)) {
    if (kine->local) ForEachParameterBelow(*kine->local, false, fn);
    if (kine->global) ForEachParameterBelow(*kine->global, false, fn);
  }
  for (const auto& property : item.properties) {
    if (property) ForEachParameterBelow(*property, false, fn);
  }
  if (!branch) return;
  if (auto* object = dynamic_cast<ObjectItem*>(&item)) {
    for (const auto& child : object->children) {
      if (child) ForEachParameterBelow(*child, true, fn);
    }
  }
}

void ForEachSceneOperator(const std::function<void(OperatorItem&)>& fn) {
  ForEachSceneItem([&fn](Item& item) {
    if (auto* op = dynamic_cast<OperatorItem*>(&item); op && !op->deleted) fn(*op);
    return true;
  });
}

void CommandError(const char* command, const std::string& text) {
  Log(CString(std::string(command) + ": " + text), kSeverityError);
}

}  // namespace KRX::rt

// Host commands on values: parameters and preferences by full name, and expressions.
#include <cmath>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/app_commands.h"
#include "app/app_items.h"
#include "app/app_settings.h"
#include "app/command_args.h"
#include "krx/application.h"
#include "krx/property.h"
#include "plugins/pages.h"
#include "runtime/commands.h"

namespace KRX::rt {

namespace {

struct AttributeTable {
  std::weak_ptr<Item> item;
  std::map<std::wstring, CValue> values;
};

std::map<const Item*, AttributeTable>& Attributes() {
  static auto* table = new std::map<const Item*, AttributeTable>;
  return *table;
}

// What a value command's first argument names.
struct ValueTarget {
  bool preference = false;
  std::shared_ptr<ParamItem> param;
  // No such parameter: the nearest item the name's leading part names, and the rest.
  std::shared_ptr<Item> holder;
  CString rest;
};

std::shared_ptr<Item> LiveItemNamed(const CString& name) {
  std::shared_ptr<Item> item = CRef::FromText(name).Lock();
  return item && !item->deleted ? item : nullptr;
}

// Resolves the target; logs and gives nothing when it names nothing usable.
std::optional<ValueTarget> ResolveTarget(const char* command, const CValue& argument) {
  ValueTarget target;
  if (argument.GetType() == ValueType::Ref) {
    std::shared_ptr<Item> item = argument.GetRef().Lock();
    target.param = std::dynamic_pointer_cast<ParamItem>(item);
    if (target.param && !target.param->deleted) return target;
    CommandError(command, "the reference is not a parameter");
    return std::nullopt;
  }
  const CString name = argument.GetString();
  if (name.IsEmpty()) {
    CommandError(command, "no parameter given");
    return std::nullopt;
  }
  if (IsPreferenceName(name)) {
    target.preference = true;
    return target;
  }
  if (std::shared_ptr<Item> item = LiveItemNamed(name)) {
    target.param = std::dynamic_pointer_cast<ParamItem>(item);
    if (target.param) return target;
    CommandError(command, "'" + name.GetAsciiString() + "' is not a parameter");
    return std::nullopt;
  }
  const std::wstring& text = name.GetWideString();
  for (size_t dot = text.rfind(L'.'); dot != std::wstring::npos && dot > 0;
       dot = text.rfind(L'.', dot - 1)) {
    if (std::shared_ptr<Item> holder = LiveItemNamed(CString(text.substr(0, dot)))) {
      target.holder = holder;
      target.rest = CString(text.substr(dot + 1));
      if (target.rest.IsEmpty()) break;
      return target;
    }
  }
  CommandError(command, "nothing is named '" + name.GetAsciiString() + "'");
  return std::nullopt;
}

double TimeArg(const CValue& value) { return value.IsEmpty() ? kCurrentTime : value.GetDouble(); }

// GetValue(name, time): a parameter's value at the time (the current frame when left
// out), a preference, or a value SetValue kept on an item.
CStatus GetValue(const CValueArray& args, CValue& result) {
  std::optional<ValueTarget> target = ResolveTarget("GetValue", Arg(args, 0));
  if (!target) return CStatus::Fail;
  if (target->preference) {
    result = GetPreference(Arg(args, 0).GetString());
    if (!result.IsEmpty()) return CStatus::OK;
    CommandError("GetValue",
                 "no preference named '" + Arg(args, 0).GetString().GetAsciiString() + "'");
    return CStatus::Fail;
  }
  if (target->param) {
    result = Parameter(RefToItem(target->param)).GetValue(TimeArg(Arg(args, 1)));
    return CStatus::OK;
  }
  std::optional<CValue> kept = GetItemAttribute(*target->holder, target->rest);
  if (kept) {
    result = *kept;
    return CStatus::OK;
  }
  CommandError("GetValue", "nothing is named '" + Arg(args, 0).GetString().GetAsciiString() + "'");
  return CStatus::Fail;
}

// SetValue(name, value, time): puts a parameter's value (a page showing the parameter
// hears of it), a preference, or - for a name the item has no parameter for, such as an
// object's "visibility.selectability" - keeps the value on the item for GetValue.
CStatus SetValue(const CValueArray& args, CValue&) {
  std::optional<ValueTarget> target = ResolveTarget("SetValue", Arg(args, 0));
  if (!target) return CStatus::Fail;
  const CValue& value = Arg(args, 1);
  if (target->preference) {
    const CString name = Arg(args, 0).GetString();
    const bool is_switch = name.IsEqualNoCase(CString(kCommandLogPreference));
    SetPreference(name, is_switch ? CValue(value.GetBool()) : value);
    return CStatus::OK;
  }
  if (target->param) {
    Parameter param(RefToItem(target->param));
    const CStatus status = param.PutValue(value, TimeArg(Arg(args, 2)));
    if (status != CStatus::OK) {
      CommandError("SetValue", "cannot set '" + param.GetFullName().GetAsciiString() + "'");
      return status;
    }
    NotifyParameterChanged(param);
    return CStatus::OK;
  }
  PutItemAttribute(target->holder, target->rest, value);
  return CStatus::OK;
}

std::shared_ptr<ParamItem> ResolveParameter(const char* command, const CValue& argument) {
  std::optional<ValueTarget> target = ResolveTarget(command, argument);
  if (!target) return nullptr;
  if (!target->param) {
    CommandError(command, "'" + argument.GetString().GetAsciiString() + "' is not a parameter");
    return nullptr;
  }
  return target->param;
}

// AddExpr(parameter, expression, ...): drives the parameter by the expression.
CStatus AddExpr(const CValueArray& args, CValue&) {
  std::shared_ptr<ParamItem> param = ResolveParameter("AddExpr", Arg(args, 0));
  if (!param) return CStatus::Fail;
  const CString text = Arg(args, 1).GetString();
  if (text.IsEmpty()) {
    CommandError("AddExpr", "no expression given");
    return CStatus::InvalidArgument;
  }
  const CStatus status = Parameter(RefToItem(param)).AddExpression(text);
  if (status != CStatus::OK) {
    CommandError("AddExpr", "cannot use the expression '" + text.GetAsciiString() + "'");
  }
  return status;
}

// SetExpr(parameter, expression): replaces the parameter's expression. Without an
// expression the parameter's expression is removed (it keeps its current value); a
// parameter without one is left as it is.
CStatus SetExpr(const CValueArray& args, CValue&) {
  std::shared_ptr<ParamItem> param = ResolveParameter("SetExpr", Arg(args, 0));
  if (!param) return CStatus::Fail;
  Parameter handle(RefToItem(param));
  const CString text = Arg(args, 1).GetString();
  if (text.IsEmpty()) {
    return param->expression ? handle.RemoveAnimation() : CStatus::OK;
  }
  const CStatus status = handle.AddExpression(text);
  if (status != CStatus::OK) {
    CommandError("SetExpr", "cannot use the expression '" + text.GetAsciiString() + "'");
  }
  return status;
}

// SaveKey(parameters, frame): keys each parameter's current value at the frame (the
// current frame when left out), giving a parameter without a function curve a new one.
// `parameters` is one full name, several separated by commas, or references. Nothing is
// keyed unless every name is a parameter that can take keys; each keyed parameter's page
// hears of the change as from SetValue.
CStatus SaveKey(const CValueArray& args, CValue&) {
  const CValue& names = Arg(args, 0);
  if (names.IsEmpty() || (names.GetType() == ValueType::String && names.GetString().IsEmpty())) {
    CommandError("SaveKey", "no parameter given");
    return CStatus::InvalidArgument;
  }
  const double frame =
      Arg(args, 1).IsEmpty() ? Application().GetCurrentFrame() : Arg(args, 1).GetDouble();
  if (!std::isfinite(frame)) {
    CommandError("SaveKey", "the frame is not a number");
    return CStatus::InvalidArgument;
  }
  std::vector<CString> unresolved;
  const std::vector<std::shared_ptr<Item>> items = ResolveItems(names, &unresolved);
  if (!unresolved.empty()) {
    CommandError("SaveKey", "nothing is named '" + unresolved.front().GetAsciiString() + "'");
    return CStatus::Fail;
  }
  std::vector<Parameter> params;
  for (const std::shared_ptr<Item>& item : items) {
    auto param = std::dynamic_pointer_cast<ParamItem>(item);
    if (!param) {
      CommandError("SaveKey", "'" + SIObject(RefToItem(item)).GetFullName().GetAsciiString() +
                                  "' is not a parameter");
      return CStatus::Fail;
    }
    const ValueType type = param->value_type;
    params.emplace_back(RefToItem(param));
    if (param->grid || param->expression ||
        (type != ValueType::Int && type != ValueType::Double && type != ValueType::Bool)) {
      CommandError("SaveKey",
                   "'" + params.back().GetFullName().GetAsciiString() + "' cannot be keyed");
      return CStatus::Fail;
    }
  }
  for (Parameter& param : params) {
    const double value = param.GetValue().GetDouble();
    // Whole numbers and switches hold their keyed value until the next key.
    const Interpolation interpolation =
        param.GetValueType() == ValueType::Double ? Interpolation::Bezier : Interpolation::Constant;
    FCurve curve = param.GetFCurve();
    if (!curve.IsValid()) curve = param.AddFCurve();
    if (!curve.IsValid() || curve.AddKey(frame, value, interpolation) < 0) {
      CommandError("SaveKey", "cannot key '" + param.GetFullName().GetAsciiString() + "'");
      return CStatus::Fail;
    }
    NotifyParameterChanged(param);
  }
  return CStatus::OK;
}

}  // namespace

void PutItemAttribute(const std::shared_ptr<Item>& item, const CString& path, const CValue& value) {
  if (!item) return;
  // Tables of items that are gone are dropped here, so the map does not grow with them.
  std::erase_if(Attributes(), [](const auto& entry) { return entry.second.item.expired(); });
  AttributeTable& table = Attributes()[item.get()];
  if (table.item.lock() != item) table = AttributeTable{item, {}};
  table.values[path.GetWideString()] = value;
}

std::optional<CValue> GetItemAttribute(const Item& item, const CString& path) {
  auto it = Attributes().find(&item);
  if (it == Attributes().end()) return std::nullopt;
  if (it->second.item.lock().get() != &item) {
    // The address now belongs to another item.
    Attributes().erase(it);
    return std::nullopt;
  }
  auto value = it->second.values.find(path.GetWideString());
  if (value == it->second.values.end()) return std::nullopt;
  return value->second;
}

void ClearItemAttributes() { Attributes().clear(); }

void RegisterValueCommands() {
  RegisterHostCommand(L"GetValue", GetValue);
  RegisterHostCommand(L"SetValue", SetValue);
  RegisterHostCommand(L"AddExpr", AddExpr);
  RegisterHostCommand(L"SetExpr", SetExpr);
  RegisterHostCommand(L"SaveKey", SaveKey);
}

}  // namespace KRX::rt

// Helpers shared by the application's host commands: reading arguments, resolving the
// items they name and walking what lies below an item.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "runtime/item.h"

namespace KRX::rt {

// The argument at `index`, the empty value when it was left out.
const CValue& Arg(const CValueArray& args, size_t index);

// The items an argument names: a reference, an array of references or names, or text
// holding one full name or several separated by commas. Names that resolve to nothing are
// added to `unresolved` (when given). Deleted items are left out.
std::vector<std::shared_ptr<Item>> ResolveItems(const CValue& value,
                                                std::vector<CString>* unresolved = nullptr);
// The same where a name may carry the prefix "B:" ("B:Model": the model with everything
// below it); the flag tells which items were named so.
std::vector<std::pair<std::shared_ptr<Item>, bool>> ResolveBranchItems(
    const CValue& value, std::vector<CString>* unresolved = nullptr);
// The first item an argument names, or null.
std::shared_ptr<Item> ResolveItem(const CValue& value);

// A reference to the item as a value.
CValue RefValue(const std::shared_ptr<Item>& item);

// True for the 3D object families (models, nulls, primitives, curves, chain elements).
bool IsObjectItem(const Item& item);

// Calls `fn` for every parameter of the item: its own, those of its properties, of its
// kinematic states and, with `branch`, of every object below it.
void ForEachParameterBelow(Item& item, bool branch, const std::function<void(ParamItem&)>& fn);

// Calls `fn` for every operator in the active scene.
void ForEachSceneOperator(const std::function<void(OperatorItem&)>& fn);

// Logs an error of a host command: "NAME: text".
void CommandError(const char* command, const std::string& text);

}  // namespace KRX::rt

// The application's host commands, registered in groups by RegisterAppCommands.
#pragma once

#include <memory>
#include <optional>

#include "runtime/item.h"

namespace KRX::rt {

// DeleteObj, SelectObj, DeselectAll, EnumElements, RemoveAllAnimation.
void RegisterSceneCommands();
// GetValue, SetValue, AddExpr, SetExpr.
void RegisterValueCommands();
// FrameAll, InspectObj, PickObject, ShowFileForEdit.
void RegisterInterfaceCommands();

// Whether the item was selected as a branch (SelectObj with "BRANCH") and is still
// selected.
bool IsBranchSelected(const Item& item);

// Values that SetValue put on an item under a name the item has no parameter for
// ("visibility.selectability" on an object of this host), so that GetValue gives them
// back. They go with the item.
void PutItemAttribute(const std::shared_ptr<Item>& item, const CString& path, const CValue& value);
std::optional<CValue> GetItemAttribute(const Item& item, const CString& path);
void ClearItemAttributes();

}  // namespace KRX::rt

// Runtime items behind the plug-in boundary's SDK handles: the registrar handed to a
// plug-in's entry point, commands, menus, page layouts and page event contexts.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "plugins/menus.h"
#include "plugins/plugin_loader.h"
#include "runtime/item.h"

namespace KRX::rt {

// Lives only while the entry point runs; a registrar handle kept past it is invalid.
struct RegistrarItem : Item {
  RegistrarItem() : Item(ClassID::PluginRegistrar) { type = L"PluginRegistrar"; }
  LoadedPluginInfo* info = nullptr;
};

struct CommandArgument {
  CString name;
  CValue default_value;
};

// A plug-in command as its _Init declared it. ArgumentArray handles refer to this item.
struct CommandItem : Item {
  CommandItem() : Item(ClassID::Command) { type = L"Command"; }
  CString script_name;
  std::vector<CommandArgument> arguments;  // in declaration order
  bool return_value = false;
  int flags = 0;
  bool initialised = false;  // _Init ran successfully
};

struct MenuItem : Item {
  MenuItem() : Item(ClassID::Menu) { type = L"Menu"; }
  int anchor = 0;
  bool submenu = false;
  bool dynamic = false;
  std::vector<MenuEntry> entries;  // in the order _Init added them
};

enum class LayoutEntryKind {
  Tab,
  Group,
  EndGroup,
  Row,
  EndRow,
  Item,        // bound to a parameter of the property
  Button,
  EnumControl,
  StaticText,
  Spacer,
};

// One recorded layout entry; PPGItem handles refer to it. `name` is the parameter or
// button name (the text for static text).
struct LayoutEntryItem : Item {
  LayoutEntryItem() : Item(ClassID::PPGItem) { type = L"PPGItem"; }
  LayoutEntryKind kind = LayoutEntryKind::Item;
  CString label;
  CString control;
  CValueArray enum_items;  // label, value, label, value, ...
  bool border = true;      // groups
  int width = 0, height = 0;  // spacers
  std::map<std::wstring, CValue> attributes;
};

struct LayoutItem : Item {
  LayoutItem() : Item(ClassID::PPGLayout) { type = L"PPGLayout"; }
  std::vector<std::shared_ptr<LayoutEntryItem>> entries;  // in the order added
  std::map<std::wstring, CValue> attributes;               // "helpfile", ...
};

// The context of a page callback (_DefineLayout, _PPGEvent).
struct PageContextItem : ContextItem {
  PPGEvent event = PPGEvent::OnInit;
  std::shared_ptr<LayoutItem> layout;
};

// Casts a handle's item to a runtime item type; null when invalid or of another type.
template <typename T>
std::shared_ptr<T> ItemAs(const CRef& ref) {
  return std::dynamic_pointer_cast<T>(ref.Lock());
}

// A handle's reference to an item.
inline CRef RefTo(const std::shared_ptr<Item>& item) { return CRef(std::weak_ptr<Item>(item)); }

}  // namespace KRX::rt

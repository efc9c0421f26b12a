// Plug-in menus. A registered menu's _Init runs once when its plug-in is loaded and adds
// the menu's items; there is no screen, so "clicking" an item is a call by its label.
#pragma once

#include <vector>

#include "krx/plugin.h"

namespace KRX::rt {

struct MenuEntry {
  CString label;
  CString callback;  // the item callback's symbol name ("TagMenuItem")
};

struct MenuRecord {
  CString name;  // the registered menu name ("Rig to Rig")
  int anchor = 0;
  bool submenu = false;
  bool dynamic = false;
  std::vector<MenuEntry> items;  // in the order the menu's _Init added them
};

// Every plug-in menu, in registration order (plug-ins in load order).
std::vector<MenuRecord> Menus();

// Runs the callback of the first menu item with this label, with a context whose source
// is the item's menu. Fails (and logs) when no item has the label or its callback is not
// exported; otherwise gives the callback's status.
CStatus InvokeMenuItem(const CString& label);

}  // namespace KRX::rt

#include "plugins/menus.h"

#include <memory>
#include <string>

#include "plugins/plugin_items.h"
#include "plugins/plugin_registry.h"
#include "runtime/callbacks.h"
#include "runtime/log.h"

namespace KRX::rt {

namespace {

std::vector<std::shared_ptr<MenuItem>>& MenuTable() {
  static auto* menus = new std::vector<std::shared_ptr<MenuItem>>;
  return *menus;
}

CRef NewMenuContext(const std::shared_ptr<MenuItem>& menu, std::shared_ptr<ContextItem>* keep) {
  *keep = std::make_shared<ContextItem>();
  (*keep)->source = menu;
  return RefTo(*keep);
}

}  // namespace

void InitPluginMenus(const LoadedPluginInfo& info) {
  for (const RegisteredMenu& registered : info.menus) {
    auto menu = std::make_shared<MenuItem>();
    menu->name = registered.name;
    menu->anchor = registered.anchor;
    menu->submenu = registered.submenu;
    menu->dynamic = registered.dynamic;
    MenuTable().push_back(menu);
    std::shared_ptr<ContextItem> context;
    CRef ref = NewMenuContext(menu, &context);
    bool found = false;
    CStatus status = InvokeCallback(registered.name, "_Init", ref, &found);
    const std::string symbol = CallbackPrefix(registered.name) + "_Init";
    if (!found) {
      Log(CString("Menu \"") + registered.name + CString("\" has no callback " + symbol + "."),
          kSeverityWarning);
    } else if (status != CStatus::OK) {
      Log(CString("Menu \"") + registered.name +
              CString("\": " + symbol + " failed with status " +
                      std::to_string(static_cast<int>(status)) + "."),
          kSeverityWarning);
    }
  }
}

void ForgetPluginMenus() { MenuTable().clear(); }

std::vector<MenuRecord> Menus() {
  std::vector<MenuRecord> records;
  for (const std::shared_ptr<MenuItem>& menu : MenuTable()) {
    records.push_back({menu->name, menu->anchor, menu->submenu, menu->dynamic, {}});
    for (const MenuEntry& entry : menu->entries) records.back().items.push_back(entry);
  }
  return records;
}

CStatus InvokeMenuItem(const CString& label) {
  // Copied: the callback may load or unload plug-ins and so change the table.
  const std::vector<std::shared_ptr<MenuItem>> menus = MenuTable();
  for (const std::shared_ptr<MenuItem>& menu : menus) {
    for (const MenuEntry& entry : menu->entries) {
      if (entry.label != label) continue;
      const MenuEntry chosen = entry;
      std::shared_ptr<ContextItem> context;
      CRef ref = NewMenuContext(menu, &context);
      bool found = false;
      CStatus status = InvokeCallback(chosen.callback, "", ref, &found);
      if (!found) {
        Log(CString("Menu item \"") + label + CString("\": callback ") + chosen.callback +
                CString(" not found."),
            kSeverityError);
        return CStatus::Fail;
      }
      return status;
    }
  }
  Log(CString("No menu item labelled \"") + label + CString("\"."), kSeverityError);
  return CStatus::InvalidArgument;
}

}  // namespace KRX::rt

namespace KRX {

CStatus Menu::AddCallbackItem(const CString& label, const CString& callback) {
  auto menu = rt::ItemAs<rt::MenuItem>(*this);
  if (!menu) return CStatus::Fail;
  if (label.IsEmpty() || callback.IsEmpty()) return CStatus::InvalidArgument;
  menu->entries.push_back({label, callback});
  return CStatus::OK;
}

}  // namespace KRX

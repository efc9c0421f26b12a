// The process-wide record of loaded plug-ins and how their callbacks are resolved.
// Internal to the plug-in boundary (krx/src/plugins).
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "plugins/plugin_loader.h"

namespace KRX::rt {

struct PluginModule {
  void* handle = nullptr;    // dlopen handle; null for an in-process plug-in
  CallbackResolver resolver;  // in-process plug-ins only
};

struct PluginRegistry {
  // Parallel arrays, in load order.
  std::vector<LoadedPluginInfo> infos;
  std::vector<PluginModule> modules;
  std::unordered_map<std::string, CallbackFn> in_process_callbacks;
  // Symbol -> function (null when nothing exports it), filled on first lookup.
  std::unordered_map<std::string, CallbackFn> cache;
};

// Never destroyed: callbacks can still be looked up while other statics are torn down.
PluginRegistry& Registry();

// The symbol in one module only.
CallbackFn ResolveInModule(const PluginModule& module, const std::string& symbol);
void InvalidateCallbackCache();

// Calls `fn`; an exception it throws is logged as an error naming `symbol` and gives Fail.
CStatus CallGuarded(CallbackFn fn, const std::string& symbol, CRef& context);

// The loaded plug-in that registered `name` as a command (by name or script name), or -1.
int FindCommandOwner(const CString& name, RegisteredCommand* command = nullptr);

// Per-area hooks of the loader: run the menus' _Init of a newly loaded plug-in; forget
// everything the plug-ins' code made (called by UnloadAllPlugins).
void InitPluginMenus(const LoadedPluginInfo& info);
void ForgetPluginCommands();
void ForgetPluginMenus();
void ForgetPages();

}  // namespace KRX::rt

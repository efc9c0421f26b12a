#include "plugins/plugin_loader.h"

#include <dlfcn.h>

#include <exception>
#include <memory>

#include "plugins/plugin_items.h"
#include "plugins/plugin_registry.h"
#include "runtime/callbacks.h"
#include "runtime/scene_state.h"

namespace KRX::rt {

namespace {

constexpr const char* kEntryPoint = "KRXLoadPlugin";

void SetError(std::string* error, std::string text) {
  if (error) *error = std::move(text);
}

bool IsNameLoaded(const CString& name) {
  for (const LoadedPluginInfo& info : Registry().infos) {
    if (!name.IsEmpty() && info.name == name) return true;
  }
  return false;
}

// Calls the entry point with a fresh registrar and, when it succeeds, makes the plug-in
// known: its callbacks become visible and its menus run their _Init.
bool RegisterPlugin(LoadPluginFn entry, PluginModule module, const std::string& path,
                    std::string* error) {
  LoadedPluginInfo info;
  info.path = path;
  auto registrar_item = std::make_shared<RegistrarItem>();
  registrar_item->info = &info;
  PluginRegistrar registrar(RefTo(registrar_item));
  CStatus status = CStatus::Fail;
  try {
    status = entry(registrar);
  } catch (const std::exception& e) {
    SetError(error, std::string(kEntryPoint) + " threw an exception: " + e.what());
    return false;
  } catch (...) {
    SetError(error, std::string(kEntryPoint) + " threw an exception");
    return false;
  }
  // A registrar handle the plug-in kept must not reach `info` after this point.
  registrar_item->info = nullptr;
  if (status != CStatus::OK) {
    SetError(error, std::string(kEntryPoint) + " failed with status " +
                        std::to_string(static_cast<int>(status)));
    return false;
  }
  if (IsNameLoaded(info.name)) {
    SetError(error, "a plug-in named \"" + info.name.GetAsciiString() + "\" is already loaded");
    return false;
  }
  PluginRegistry& registry = Registry();
  registry.infos.push_back(std::move(info));
  registry.modules.push_back(std::move(module));
  InvalidateCallbackCache();
  InitPluginMenus(registry.infos.back());
  return true;
}

}  // namespace

PluginRegistry& Registry() {
  static PluginRegistry* registry = new PluginRegistry;
  return *registry;
}

CallbackFn ResolveInModule(const PluginModule& module, const std::string& symbol) {
  if (module.handle) {
    return reinterpret_cast<CallbackFn>(dlsym(module.handle, symbol.c_str()));
  }
  if (module.resolver) return module.resolver(symbol);
  return reinterpret_cast<CallbackFn>(dlsym(RTLD_DEFAULT, symbol.c_str()));
}

void InvalidateCallbackCache() {
  Registry().cache.clear();
  BumpCallbackGeneration();
}

int FindCommandOwner(const CString& name, RegisteredCommand* command) {
  const std::vector<LoadedPluginInfo>& infos = Registry().infos;
  for (size_t i = 0; i < infos.size(); ++i) {
    for (const RegisteredCommand& c : infos[i].commands) {
      if (c.name == name || c.script_name == name) {
        if (command) *command = c;
        return static_cast<int>(i);
      }
    }
  }
  return -1;
}

bool LoadPlugin(const std::string& path, std::string* error) {
  dlerror();
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* why = dlerror();
    SetError(error, why ? why : "cannot open " + path);
    return false;
  }
  for (const PluginModule& m : Registry().modules) {
    if (m.handle == handle) {
      dlclose(handle);  // drops the reference this call added
      SetError(error, path + " is already loaded");
      return false;
    }
  }
  auto entry = reinterpret_cast<LoadPluginFn>(dlsym(handle, kEntryPoint));
  if (!entry) {
    dlclose(handle);
    SetError(error, path + " does not export " + kEntryPoint);
    return false;
  }
  PluginModule module;
  module.handle = handle;
  if (!RegisterPlugin(entry, module, path, error)) {
    dlclose(handle);
    return false;
  }
  return true;
}

bool LoadInProcessPlugin(LoadPluginFn entry, CallbackResolver resolver, std::string* error) {
  if (!entry) {
    SetError(error, "no entry point given");
    return false;
  }
  PluginModule module;
  module.resolver = std::move(resolver);
  return RegisterPlugin(entry, std::move(module), std::string(), error);
}

CallbackResolver ResolveFromTable(std::vector<std::pair<std::string, CallbackFn>> table) {
  auto shared =
      std::make_shared<const std::vector<std::pair<std::string, CallbackFn>>>(std::move(table));
  return [shared](const std::string& symbol) -> CallbackFn {
    for (const auto& [name, fn] : *shared) {
      if (name == symbol) return fn;
    }
    return nullptr;
  };
}

void RegisterInProcessCallback(const std::string& symbol, CallbackFn fn) {
  Registry().in_process_callbacks[symbol] = fn;
  InvalidateCallbackCache();
}

void ClearInProcessCallbacks() {
  Registry().in_process_callbacks.clear();
  InvalidateCallbackCache();
}

const std::vector<LoadedPluginInfo>& LoadedPlugins() { return Registry().infos; }

void UnloadAllPlugins() {
  // Operators' _Term must run while their module is still mapped.
  ResetScene();
  ForgetPages();
  ForgetPluginMenus();
  ForgetPluginCommands();
  PluginRegistry& registry = Registry();
  std::vector<PluginModule> modules = std::move(registry.modules);
  registry.modules.clear();
  registry.infos.clear();
  InvalidateCallbackCache();
  for (auto it = modules.rbegin(); it != modules.rend(); ++it) {
    if (it->handle) dlclose(it->handle);
  }
}

}  // namespace KRX::rt

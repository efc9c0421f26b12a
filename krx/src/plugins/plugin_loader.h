// Loading plug-in modules and what they registered.
//
// A plug-in is a module exporting `KRXLoadPlugin(PluginRegistrar&)`. The loader opens it,
// hands it a registrar that records every registration in order, and from then on finds
// the plug-in's callbacks by symbol name in that module. A plug-in can also be "loaded"
// in process (its entry point called directly) with an explicit way to resolve callback
// names: that is how tests drive a plug-in linked statically into the test program.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "krx/plugin.h"

namespace KRX::rt {

// Maps a callback symbol ("RetargetOp_Update") to the function, or null.
using CallbackResolver = std::function<CallbackFn(const std::string& symbol)>;

enum class RegistrationKind { Author, Name, Version, Command, Property, Menu, Operator, Event };

// One registrar call, in the order the plug-in made it. `name` is the text given (the
// author, the plug-in name, "3.0" for a version, the command/property/menu/... name).
struct RegistrationStep {
  RegistrationKind kind = RegistrationKind::Name;
  CString name;
};

struct RegisteredCommand {
  CString name;
  CString script_name;
};

struct RegisteredMenu {
  int anchor = 0;
  CString name;
  bool submenu = false;
  bool dynamic = false;
};

struct RegisteredEvent {
  CString name;
  int event_id = 0;
};

struct LoadedPluginInfo {
  std::string path;  // the module file; empty for an in-process plug-in
  CString author;
  CString name;
  int version_major = 0;
  int version_minor = 0;
  std::vector<RegisteredCommand> commands;
  std::vector<CString> properties;
  std::vector<RegisteredMenu> menus;
  std::vector<CString> operators;
  std::vector<RegisteredEvent> events;
  std::vector<RegistrationStep> steps;  // every registration, in order
};

// Opens the module (RTLD_NOW | RTLD_LOCAL), calls its KRXLoadPlugin and keeps the module
// open. On failure (no such file, no entry point, the entry point failing or throwing, the
// module already loaded) `error` tells why and nothing stays registered.
bool LoadPlugin(const std::string& path, std::string* error);

// Calls `entry` directly. Callbacks are then looked up through `resolver`; a null resolver
// searches the symbols the running program exports (dlsym(RTLD_DEFAULT, ...)), which finds
// a statically linked plug-in's callbacks only when the program exports them and linked
// them in. Prefer an explicit table (ResolveFromTable) for plug-ins linked statically.
bool LoadInProcessPlugin(LoadPluginFn entry, CallbackResolver resolver, std::string* error = nullptr);

// A resolver over a fixed table of (symbol, function).
CallbackResolver ResolveFromTable(std::vector<std::pair<std::string, CallbackFn>> table);

// A callback that every lookup finds first, whatever the loaded modules export. For tests.
void RegisterInProcessCallback(const std::string& symbol, CallbackFn fn);
void ClearInProcessCallbacks();

// Loaded plug-ins in load order.
const std::vector<LoadedPluginInfo>& LoadedPlugins();

// Resets the scene (so every operator's _Term runs while its code is still loaded), forgets
// every registration, command, menu and page of the plug-ins, then closes the modules in
// reverse load order. Call before the process ends.
void UnloadAllPlugins();

}  // namespace KRX::rt

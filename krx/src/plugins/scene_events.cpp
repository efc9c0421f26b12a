#include "plugins/scene_events.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "plugins/plugin_items.h"
#include "plugins/plugin_registry.h"

namespace KRX::rt {

void FireSceneEvent(bool opened) {
  const std::string symbol = opened ? kOpenSceneCallback : kNewSceneCallback;
  PluginRegistry& registry = Registry();
  // Collected first: a callback may load plug-ins. One module's symbol can also be found
  // through another route (an in-process table naming it); each function runs once.
  std::vector<CallbackFn> callbacks;
  auto add = [&callbacks](CallbackFn fn) {
    if (fn && std::find(callbacks.begin(), callbacks.end(), fn) == callbacks.end()) {
      callbacks.push_back(fn);
    }
  };
  if (auto it = registry.in_process_callbacks.find(symbol);
      it != registry.in_process_callbacks.end()) {
    add(it->second);
  }
  for (const PluginModule& module : registry.modules) add(ResolveInModule(module, symbol));
  for (CallbackFn fn : callbacks) {
    auto context = std::make_shared<ContextItem>();
    CRef ref = RefTo(context);
    CallGuarded(fn, symbol, ref);
  }
}

}  // namespace KRX::rt

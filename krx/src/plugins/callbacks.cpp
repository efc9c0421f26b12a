// Finding plug-in callbacks by name and calling them so that nothing thrown escapes.
#include "runtime/callbacks.h"

#include <cwctype>
#include <exception>

#include "plugins/plugin_registry.h"
#include "runtime/log.h"

namespace KRX::rt {

CStatus CallGuarded(CallbackFn fn, const std::string& symbol, CRef& context) {
  try {
    return fn(context);
  } catch (const std::exception& e) {
    Log(CString("Plug-in callback " + symbol + " failed: " + e.what()), kSeverityError);
  } catch (...) {
    Log(CString("Plug-in callback " + symbol + " failed with an unknown exception"),
        kSeverityError);
  }
  return CStatus::Fail;
}

std::string CallbackPrefix(const CString& registered_name) {
  std::string prefix;
  prefix.reserve(registered_name.Length());
  for (wchar_t c : registered_name.GetWideString()) {
    if (std::iswspace(static_cast<wint_t>(c))) continue;
    prefix.push_back(c < 256 ? static_cast<char>(c) : '?');
  }
  return prefix;
}

CallbackFn FindCallbackSymbol(const std::string& symbol) {
  PluginRegistry& registry = Registry();
  if (auto hit = registry.cache.find(symbol); hit != registry.cache.end()) return hit->second;
  CallbackFn fn = nullptr;
  if (auto it = registry.in_process_callbacks.find(symbol);
      it != registry.in_process_callbacks.end()) {
    fn = it->second;
  }
  for (size_t i = 0; !fn && i < registry.modules.size(); ++i) {
    fn = ResolveInModule(registry.modules[i], symbol);
  }
  registry.cache.emplace(symbol, fn);
  return fn;
}

CallbackFn FindCallback(const CString& registered_name, const char* suffix) {
  return FindCallbackSymbol(CallbackPrefix(registered_name) + (suffix ? suffix : ""));
}

CStatus InvokeCallbackSymbol(const std::string& symbol, CRef& context, bool* found) {
  CallbackFn fn = FindCallbackSymbol(symbol);
  if (found) *found = fn != nullptr;
  if (!fn) return CStatus::OK;
  return CallGuarded(fn, symbol, context);
}

CStatus CallOperatorCallback(CallbackFn fn, const CString& registered_name, const char* suffix,
                             CRef& context) {
  try {
    return fn(context);
  } catch (const std::exception& e) {
    Log(CString("Plug-in callback " + CallbackPrefix(registered_name) + suffix +
                " failed: " + e.what()),
        kSeverityError);
  } catch (...) {
    Log(CString("Plug-in callback " + CallbackPrefix(registered_name) + suffix +
                " failed with an unknown exception"),
        kSeverityError);
  }
  return CStatus::Fail;
}

namespace {
uint64_t g_callback_generation = 1;
}  // namespace

uint64_t CallbackGeneration() { return g_callback_generation; }
void BumpCallbackGeneration() { ++g_callback_generation; }

CStatus InvokeCallback(const CString& registered_name, const char* suffix, CRef& context,
                       bool* found) {
  return InvokeCallbackSymbol(CallbackPrefix(registered_name) + (suffix ? suffix : ""), context,
                              found);
}

bool IsRegisteredOperator(const CString& name) {
  for (const LoadedPluginInfo& info : Registry().infos) {
    for (const CString& op : info.operators) {
      if (op == name) return true;
    }
  }
  return false;
}

bool IsRegisteredProperty(const CString& name) {
  for (const LoadedPluginInfo& info : Registry().infos) {
    for (const CString& p : info.properties) {
      if (p == name) return true;
    }
  }
  return false;
}

}  // namespace KRX::rt

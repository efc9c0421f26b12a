// The command table: host commands by name, and plug-in commands run through their
// _Init (once, to learn the arguments) and _Execute callbacks.
#include <exception>
#include <map>
#include <memory>
#include <string>

#include "krx/application.h"
#include "plugins/plugin_items.h"
#include "plugins/plugin_registry.h"
#include "runtime/callbacks.h"
#include "runtime/commands.h"
#include "runtime/log.h"

namespace KRX::rt {

namespace {

// Commands may run commands; a plug-in command that keeps calling itself is stopped here
// instead of exhausting the stack.
constexpr int kMaxCommandDepth = 64;

struct HostCommandTable {
  std::map<std::wstring, HostCommandFn> commands;
  bool areas_registered = false;
};

HostCommandTable& HostTable() {
  static HostCommandTable* table = new HostCommandTable;
  return *table;
}

void EnsureHostCommands() {
  HostCommandTable& table = HostTable();
  if (table.areas_registered) return;
  table.areas_registered = true;
  RegisterAppCommands();
  RegisterSceneFileCommands();
}

// Plug-in command items by registered command name, created on first use.
std::map<std::wstring, std::shared_ptr<CommandItem>>& PluginCommands() {
  static auto* commands = new std::map<std::wstring, std::shared_ptr<CommandItem>>;
  return *commands;
}

int& CommandDepth() {
  static int depth = 0;
  return depth;
}

struct DepthGuard {
  DepthGuard() { ++CommandDepth(); }
  ~DepthGuard() { --CommandDepth(); }
  DepthGuard(const DepthGuard&) = delete;
  DepthGuard& operator=(const DepthGuard&) = delete;
};

void LogError(const std::string& text) { Log(CString(text), kSeverityError); }

// The context a command callback receives: the command as source, and the current frame
// as its time (a command may read the context as an operator context for its time).
std::shared_ptr<ContextItem> NewCommandContext(const std::shared_ptr<CommandItem>& command) {
  auto context = std::make_shared<ContextItem>();
  context->source = command;
  context->time = Application().GetCurrentFrame();
  return context;
}

// Runs the command's _Init once so that it declares its arguments, return value and flags.
CStatus InitCommand(const RegisteredCommand& registered,
                    const std::shared_ptr<CommandItem>& command) {
  command->arguments.clear();
  command->return_value = false;
  command->flags = 0;
  std::shared_ptr<ContextItem> context = NewCommandContext(command);
  CRef ref = RefTo(context);
  CStatus status = InvokeCallback(registered.name, "_Init", ref);
  if (status != CStatus::OK) {
    LogError("Command " + registered.name.GetAsciiString() + ": initialisation failed.");
    return status;
  }
  command->initialised = true;
  return CStatus::OK;
}

// The command's item, its _Init run; null when it is not a plug-in command or _Init failed.
// The caller holds the item: a command that unloads plug-ins while it runs must not free
// its own item.
std::shared_ptr<CommandItem> InitialisedCommand(const CString& name,
                                                RegisteredCommand* registered) {
  if (FindCommandOwner(name, registered) < 0) return nullptr;
  std::shared_ptr<CommandItem>& slot = PluginCommands()[registered->name.GetWideString()];
  if (!slot) {
    slot = std::make_shared<CommandItem>();
    slot->name = registered->name;
    slot->script_name = registered->script_name;
  }
  std::shared_ptr<CommandItem> command = slot;
  if (!command->initialised && InitCommand(*registered, command) != CStatus::OK) return nullptr;
  return command;
}

}  // namespace

void RegisterHostCommand(const CString& name, HostCommandFn fn) {
  HostTable().commands[name.GetWideString()] = std::move(fn);
}

bool IsHostCommand(const CString& name) {
  EnsureHostCommands();
  return HostTable().commands.count(name.GetWideString()) > 0;
}

CStatus ExecuteHostCommand(const CString& name, const CValueArray& args, CValue& result) {
  EnsureHostCommands();
  result = CValue();
  auto it = HostTable().commands.find(name.GetWideString());
  if (it == HostTable().commands.end()) return CStatus::Fail;
  if (CommandDepth() >= kMaxCommandDepth) {
    LogError("Command " + name.GetAsciiString() + ": commands nested too deeply.");
    return CStatus::Abort;
  }
  DepthGuard depth;
  // Copied so that a command that re-registers itself does not run a destroyed function.
  HostCommandFn fn = it->second;
  try {
    return fn(args, result);
  } catch (const std::exception& e) {
    LogError("Command " + name.GetAsciiString() + " failed: " + e.what());
  } catch (...) {
    LogError("Command " + name.GetAsciiString() + " failed with an unknown exception");
  }
  return CStatus::Fail;
}

bool IsPluginCommand(const CString& name) { return FindCommandOwner(name) >= 0; }

bool DescribePluginCommand(const CString& name, PluginCommandInfo* info) {
  RegisteredCommand registered;
  std::shared_ptr<CommandItem> command = InitialisedCommand(name, &registered);
  if (!command) return false;
  if (info) {
    info->name = registered.name;
    info->script_name = registered.script_name;
    info->argument_names.clear();
    info->argument_defaults.clear();
    for (const CommandArgument& a : command->arguments) {
      info->argument_names.push_back(a.name);
      info->argument_defaults.push_back(a.default_value);
    }
    info->return_value = command->return_value;
    info->flags = command->flags;
  }
  return true;
}

CStatus ExecutePluginCommand(const CString& name, const CValueArray& args, CValue& result) {
  result = CValue();
  RegisteredCommand registered;
  if (FindCommandOwner(name, &registered) < 0) return CStatus::Fail;
  if (CommandDepth() >= kMaxCommandDepth) {
    LogError("Command " + name.GetAsciiString() + ": commands nested too deeply.");
    return CStatus::Abort;
  }
  DepthGuard depth;
  std::shared_ptr<CommandItem> command = InitialisedCommand(name, &registered);
  if (!command) return CStatus::Fail;
  const size_t declared = command->arguments.size();
  if (args.size() > declared) {
    LogError("Command " + registered.name.GetAsciiString() + " takes " +
             std::to_string(declared) + " argument(s); " + std::to_string(args.size()) +
             " were given.");
    return CStatus::InvalidArgument;
  }
  // An argument left out (or given as the empty value) takes its declared default.
  CValueArray values;
  values.reserve(declared);
  for (size_t i = 0; i < declared; ++i) {
    const bool given = i < args.size() && !args[i].IsEmpty();
    values.push_back(given ? args[i] : command->arguments[i].default_value);
  }
  std::shared_ptr<ContextItem> context = NewCommandContext(command);
  context->attributes[L"Arguments"] = CValue(std::move(values));
  CRef ref = RefTo(context);
  bool found = false;
  CStatus status = InvokeCallback(registered.name, "_Execute", ref, &found);
  if (!found) {
    LogError("Command " + registered.name.GetAsciiString() + " has no _Execute callback.");
    return CStatus::Fail;
  }
  if (command->return_value) {
    auto it = context->attributes.find(L"ReturnValue");
    if (it != context->attributes.end()) result = it->second;
  }
  return status;
}

void ForgetPluginCommands() { PluginCommands().clear(); }

}  // namespace KRX::rt

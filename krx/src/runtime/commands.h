// Command dispatch: the host's own commands and the commands plug-ins registered.
#pragma once

#include <functional>
#include <vector>

#include "krx/value.h"

namespace KRX::rt {

using HostCommandFn = std::function<CStatus(const CValueArray& args, CValue& result)>;

// Host commands are registered once per process by the runtime itself.
void RegisterHostCommand(const CString& name, HostCommandFn fn);
bool IsHostCommand(const CString& name);
CStatus ExecuteHostCommand(const CString& name, const CValueArray& args, CValue& result);

// Each area of the runtime registers its host commands through one of these; the command
// table calls all of them once, before the first command runs.
void RegisterAppCommands();        // krx/src/app: DeleteObj, SelectObj, GetValue, ...
void RegisterSceneFileCommands();  // krx/src/files: NewScene, OpenScene, SaveScene,
                                   // ExportTransforms

// Plug-in commands (registered through a PluginRegistrar): runs _Init once per command
// to learn its arguments, then _Execute with "Arguments" filled in order (missing
// trailing arguments take the registered defaults) and returns "ReturnValue".
// An argument left out of "Arguments" or given as the empty value takes its declared
// default; more arguments than declared fail with a logged error. `result` is empty unless
// the command enabled its return value. Exceptions never cross (logged, CStatus::Fail).
bool IsPluginCommand(const CString& name);
CStatus ExecutePluginCommand(const CString& name, const CValueArray& args, CValue& result);

// What a plug-in command's _Init declared (it runs _Init if the command was not used yet).
struct PluginCommandInfo {
  CString name;
  CString script_name;
  std::vector<CString> argument_names;
  CValueArray argument_defaults;
  bool return_value = false;
  int flags = 0;  // kCommandFlagNoLogging (0x800000): the command is not echoed to the log
};
bool DescribePluginCommand(const CString& name, PluginCommandInfo* info);

}  // namespace KRX::rt

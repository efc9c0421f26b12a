// Command dispatch: the host's own commands and the commands plug-ins registered.
#pragma once

#include <functional>

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
bool IsPluginCommand(const CString& name);
CStatus ExecutePluginCommand(const CString& name, const CValueArray& args, CValue& result);

}  // namespace KRX::rt

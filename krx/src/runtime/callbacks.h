// How the runtime reaches plug-in code: callbacks found by name in the loaded modules.
#pragma once

#include <cstdint>
#include <string>

#include "krx/plugin.h"

namespace KRX::rt {

// Looks up `<registered name without blanks><suffix>` ("RetargetOp" + "_Update") in the
// loaded plug-in modules. Null when no module exports it.
CallbackFn FindCallback(const CString& registered_name, const char* suffix);

// Calls the callback if it exists. Exceptions never cross: a throwing callback is logged
// as an error and reported as CStatus::Fail. `found` (optional) tells whether it existed;
// a callback that does not exist is not an error and gives CStatus::OK.
CStatus InvokeCallback(const CString& registered_name, const char* suffix, CRef& context,
                       bool* found = nullptr);

// The same for a callback known by its whole symbol name (menu item callbacks such as
// "TagMenuItem", scene event callbacks such as "MyNewScene_OnEvent").
CallbackFn FindCallbackSymbol(const std::string& symbol);
CStatus InvokeCallbackSymbol(const std::string& symbol, CRef& context, bool* found = nullptr);

// Calls a callback already found (an operator's _Update kept on the operator) as
// InvokeCallback does; the symbol for a failure's message is built only then.
CStatus CallOperatorCallback(CallbackFn fn, const CString& registered_name, const char* suffix,
                             CRef& context);
// Moves whenever what a callback name resolves to may change (a plug-in loaded or unloaded,
// an in-process callback registered); a callback kept from before must be found again.
uint64_t CallbackGeneration();
void BumpCallbackGeneration();

// The symbol prefix of a registered name: the name with its blanks removed, one byte per
// character ("Rig to Rig" -> "RigtoRig").
std::string CallbackPrefix(const CString& registered_name);

// True when a loaded plug-in registered an operator / a property with this name.
bool IsRegisteredOperator(const CString& name);
bool IsRegisteredProperty(const CString& name);

}  // namespace KRX::rt

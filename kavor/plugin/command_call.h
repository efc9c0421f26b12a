// The shell shared by every plug-in command: declaring arguments in _Init, reading them
// by index in _Execute, reporting a failed check and storing the return value.
//
// A command's checks run in a fixed order and the first that fails logs its message
// (severity 4) and ends the command. Commands never fail towards the host: _Execute
// always reports success, and an exception thrown by the work is logged, not passed on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "krx/krx.h"

namespace kavor {

enum class CommandReturn {
  kEnabled,  // the command hands back a value in "ReturnValue"
  kNone,     // the command has no return value
};

// Body of a command's _Init: takes the command from the context, enables its return value
// (or not), sets each host command flag given in `flags` and adds the arguments by name,
// in order, each with an empty default value.
KRX::CStatus DeclareCommand(KRX::CRef& context,
                            std::initializer_list<const wchar_t*> argument_names,
                            CommandReturn return_value = CommandReturn::kEnabled, int flags = 0);

// What a failed check leaves in "ReturnValue".
enum class OnFailure {
  kStoreFalse,    // boolean false
  kStoreNothing,  // nothing at all
};

// One run of a command's _Execute.
class CommandCall {
 public:
  CommandCall(KRX::CRef& context, OnFailure on_failure);

  // True when argument `index` was given: its value is not the empty value.
  bool Has(size_t index) const;

  // The argument read in each kind; a missing argument reads as the kind's empty value.
  // A model is the argument as an object reference (text resolves as a full name).
  KRX::Model ModelAt(size_t index) const;
  KRX::CString TextAt(size_t index) const;
  int32_t IntegerAt(size_t index) const;
  bool FlagAt(size_t index) const;

  // The argument, or `fallback` when it is missing.
  int32_t IntegerOr(size_t index, int32_t fallback) const;
  bool FlagOr(size_t index, bool fallback) const;
  KRX::CString TextOr(size_t index, const KRX::CString& fallback) const;

  // Checks. Each returns whether it holds; when it does not, the message is logged and
  // the failure recorded as the command's result.
  bool Require(size_t index, const wchar_t* missing_message);
  bool RequireModel(size_t index, KRX::Model* model, const wchar_t* missing_message,
                    const wchar_t* invalid_message);
  bool Check(bool condition, const wchar_t* message);

  // Logs `message` and records the failure.
  void Fail(const KRX::CString& message);

  // Stores the command's return value.
  void Return(const KRX::CValue& value);

  // The evaluation time of the call, in frames (the context viewed as an operator context).
  double TimeFrames() const;

 private:
  KRX::CRef& context_;
  KRX::CValueArray arguments_;
  OnFailure on_failure_;
};

using CommandBody = void (*)(CommandCall& call);

// Runs `body` as the _Execute of the command `name`. Always returns success; an exception
// thrown by `body` is logged as an error and counts as a failure.
KRX::CStatus ExecuteCommandBody(KRX::CRef& context, const char* name, OnFailure on_failure,
                                CommandBody body);

}  // namespace kavor

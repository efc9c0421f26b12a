// The shell every plug-in command runs in: declaring its arguments in _Init, and in
// _Execute checking them as its row of the command table says, reporting the first check
// that fails and handing the work over.
//
// A failed check logs its message (severity 4) and ends the command. Commands never fail
// towards the host: _Execute always reports success, and an exception thrown by the work
// is logged, not passed on.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kavor/plugin/command_table.h"
#include "krx/krx.h"

namespace kavor {

// The arguments of one run of a command, read by index in the kind its row gives.
class CommandCall {
 public:
  CommandCall(KRX::CRef& context, const CommandRow& row);

  // True when argument `index` was given: its value is not the empty value.
  bool Has(size_t index) const;

  // The argument read in its kind; a missing argument reads as the kind's empty value.
  // A model is the argument as an object reference (text resolves as a full name).
  KRX::Model ModelAt(size_t index) const;
  KRX::CString TextAt(size_t index) const;
  int32_t IntegerAt(size_t index) const;
  bool FlagAt(size_t index) const;

  // The argument, or `fallback` when it is missing.
  int32_t IntegerOr(size_t index, int32_t fallback) const;
  bool FlagOr(size_t index, bool fallback) const;
  KRX::CString TextOr(size_t index, const KRX::CString& fallback) const;

  // The evaluation time of the call, in frames (the context viewed as an operator context).
  double TimeFrames() const;

 private:
  // Debug builds stop when a hand-over reads an argument in another kind than its row's.
  void ExpectKind(size_t index, ArgumentKind kind) const;

  KRX::CRef& context_;
  [[maybe_unused]] const CommandRow& row_;  // read by the debug-build kind check
  KRX::CValueArray arguments_;
};

// The body of a command's _Init: takes the command from the context, declares its return
// value (or not), sets its flags and adds its arguments by name, in order, each with an
// empty default value.
KRX::CStatus InitCommand(KRX::CRef& context, const CommandRow& row);

// The body of a command's _Execute: the checks in the row's order, then the hand-over.
// Always returns success.
KRX::CStatus ExecuteCommand(KRX::CRef& context, const CommandRow& row);

}  // namespace kavor

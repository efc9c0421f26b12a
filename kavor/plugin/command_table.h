// The plug-in's commands as one table: each command's arguments with the kind they are
// read in and the check made on them, what the command hands back, and the operation it
// hands its work to. The callbacks the host finds by name (<Name>_Init, <Name>_Execute)
// all run the same shell over their row.
//
// The messages of failed checks are built from the table as
//   <command name> " command missing " <missing words>
//   <command name> " command invalid " <invalid words>
// and scripts that watch the log match them byte for byte: be careful when changing the
// words here.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "krx/krx.h"

namespace kavor {

class CommandCall;

// How an argument's value is read.
enum class ArgumentKind {
  kModel,    // an object reference (or a full name as text) wrapped as a model
  kText,     // host text
  kInteger,  // 32-bit signed integer
  kFlag,     // boolean
};

// What is checked on an argument before the work is handed over.
enum class ArgumentCheck {
  kOptional,           // nothing: a missing argument takes the hand-over's default
  kPresent,            // missing is refused
  kValidModel,         // missing is refused, then a model that is not valid
  kPresentAfterGiven,  // missing is refused when the argument before it was given
};

struct ArgumentRow {
  const char* name = nullptr;  // as declared in _Init; null ends the list
  ArgumentKind kind = ArgumentKind::kText;
  ArgumentCheck check = ArgumentCheck::kOptional;
  const char* missing = nullptr;  // the words after "missing "
  const char* invalid = nullptr;  // the words after "invalid "; null: the missing words
};

// The order in which a command's checks run. The first that fails ends the command.
enum class CheckOrder {
  kArgumentByArgument,  // each argument's presence, then its validity, in argument order
  kPresenceFirst,       // every presence in argument order, then every model's validity
};

// What the command leaves in "ReturnValue".
enum class CommandReturn {
  kValue,      // the hand-over's value; boolean false when a check fails
  kNotStored,  // a return value is declared but nothing is ever stored
  kNone,       // no return value is declared
};

// The work of a command once its checks passed; the value it returns is stored as the
// command's return value when the command has one.
using HandOver = KRX::CValue (*)(const CommandCall& call);

inline constexpr size_t kMaxCommandArguments = 7;

struct CommandRow {
  const char* name;  // the registered name, which is also the script name
  std::array<ArgumentRow, kMaxCommandArguments> arguments;
  CommandReturn returns;
  HandOver hand_over;
  CheckOrder order = CheckOrder::kArgumentByArgument;
  int flags = 0;  // host command flags set to true in _Init

  constexpr size_t ArgumentCount() const {
    size_t count = 0;
    while (count < arguments.size() && arguments[count].name != nullptr) ++count;
    return count;
  }
};

// Every command, in the order the plug-in registers them.
std::span<const CommandRow> CommandTable();

}  // namespace kavor

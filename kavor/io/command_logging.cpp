#include "kavor/io/command_logging.h"

#include "kavor/host/host.h"

namespace kavor {

bool SetCommandLogging(bool on) {
  KRX::CValue current;
  const bool read = TryRunCommand(L"GetValue", {kCommandLogPreference}, &current);
  const bool previous = read && !current.IsEmpty() ? current.GetBool() : true;
  TryRunCommand(L"SetValue", {kCommandLogPreference, on});
  return previous;
}

}  // namespace kavor

// Switching the host's command log, which long workflows turn off while they run so that
// the hundreds of commands they issue do not flood it.
#pragma once

namespace kavor {

// The host preference that holds the command-log switch.
inline constexpr const wchar_t* kCommandLogPreference = L"preferences.scripting.cmdlog";

// Reads the current setting with the host command "GetValue", then sets it to `on` with
// "SetValue". Returns the setting as it was before (true, the host's default, when it
// could not be read).
bool SetCommandLogging(bool on);

// Switches command logging off for its lifetime and restores the previous setting when it
// goes out of scope, on every way out of the workflow.
class ScopedCommandLoggingOff {
 public:
  ScopedCommandLoggingOff() : previous_(SetCommandLogging(false)) {}
  ~ScopedCommandLoggingOff() { SetCommandLogging(previous_); }
  ScopedCommandLoggingOff(const ScopedCommandLoggingOff&) = delete;
  ScopedCommandLoggingOff& operator=(const ScopedCommandLoggingOff&) = delete;

  // The setting that will be restored.
  bool previous() const { return previous_; }

 private:
  bool previous_;
};

}  // namespace kavor

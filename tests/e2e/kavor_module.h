// The real plug-in module, loaded through the host's loader by the first end-to-end test
// and unloaded when the tests end (a module can be loaded only once per process).
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "krx/krx.h"
#include "plugins/plugin_loader.h"

namespace kavor::e2e {

// Runs a command by name, as a script does, and gives its return value.
inline KRX::CValue RunCommand(const wchar_t* command, const KRX::CValueArray& args) {
  KRX::CValue result;
  KRX::Application().ExecuteCommand(command, args, result);
  return result;
}

// Fixture of the end-to-end tests: the module loaded ($KAVOR_BUILD_DIR/libkavor.so, or
// beside the test program), a fresh scene and an empty log.
class KavorModuleTest : public ::testing::Test {
 protected:
  void SetUp() override;

  // The texts logged with severity `severity` since the last ClearLog, in order.
  static std::vector<std::string> LoggedTexts(int severity);

  const KRX::rt::LoadedPluginInfo* module_ = nullptr;
};

}  // namespace kavor::e2e

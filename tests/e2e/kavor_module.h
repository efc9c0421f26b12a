// The real plug-in module, loaded through the host's loader once per test process.
//
// A module can be loaded only once per process, so every end-to-end test shares one load:
// the first test that asks loads it and the process unloads it when the tests end.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "krx/krx.h"
#include "plugins/plugin_loader.h"

namespace kavor::e2e {

// The module file: $KAVOR_BUILD_DIR/libkavor.so, or beside the test program when the
// variable is not set.
std::string KavorModulePath();

// The loaded module's record; null (and `error` set) when it could not be loaded.
const KRX::rt::LoadedPluginInfo* KavorModule(std::string* error);

// Fixture of the end-to-end tests: the module loaded, a fresh scene and an empty log.
class KavorModuleTest : public ::testing::Test {
 protected:
  void SetUp() override;

  // The texts logged with severity `severity` since the last ClearLog, in order.
  static std::vector<std::string> LoggedTexts(int severity);

  const KRX::rt::LoadedPluginInfo* module_ = nullptr;
};

}  // namespace kavor::e2e

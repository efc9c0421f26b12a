// Shared set-up of the plug-in boundary tests: every test starts and ends with no plug-in
// loaded, no in-process callbacks and an empty log.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plugins/plugin_loader.h"
#include "runtime/log.h"

namespace KRX::rt {

class PluginFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    UnloadAllPlugins();
    ClearInProcessCallbacks();
    ClearLog();
  }
  void TearDown() override {
    UnloadAllPlugins();
    ClearInProcessCallbacks();
  }

  static void LoadTestPlugin() {
    std::string error;
    ASSERT_TRUE(LoadPlugin(KRX_TEST_PLUGIN_PATH, &error)) << error;
  }

  // What the test plug-in's callbacks noted in the log, in order, without the "tp: " prefix.
  static std::vector<std::string> Notes() {
    std::vector<std::string> notes;
    for (const LogLine& line : LogLines()) {
      const std::string text = line.text.GetAsciiString();
      if (text.rfind("tp: ", 0) == 0) notes.push_back(text.substr(4));
    }
    return notes;
  }

  // True when a line of this severity containing every one of `parts` was logged.
  static bool Logged(int severity, const std::vector<std::string>& parts) {
    for (const LogLine& line : LogLines()) {
      if (line.severity != severity) continue;
      const std::string text = line.text.GetAsciiString();
      bool all = true;
      for (const std::string& part : parts) all = all && text.find(part) != std::string::npos;
      if (all) return true;
    }
    return false;
  }
};

}  // namespace KRX::rt

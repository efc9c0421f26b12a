// Fixture of the end-to-end tests on the shared captures: the module loaded, a scene with
// the shipped data roots, and preferences of the test's own that are dropped afterwards.
#pragma once

#include <filesystem>

#include "e2e/kavor_module.h"
#include "kavor/motion/capture_rig_support.h"
#include "kavor/xml/preferences.h"

namespace kavor::e2e {

class CaptureSceneTest : public KavorModuleTest {
 protected:
  void SetUp() override {
    KavorModuleTest::SetUp();
    capturetest::NewSceneWithShippedData();
  }
  void TearDown() override {
    KRX::rt::SetInstallationPath(1, "");
    KRX::rt::ResetScene();
  }

  // Sets one option in a preferences file of the tests' own, which the plug-in then reads.
  static bool UsePreference(const wchar_t* section, const wchar_t* key, int value) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / "kavor_e2e_preferences";
    std::filesystem::create_directories(folder);
    KRX::rt::SetInstallationPath(1, folder.string() + "/");
    Preferences preferences;
    preferences.SetInteger(section, key, value);
    return preferences.Close();
  }
};

}  // namespace kavor::e2e

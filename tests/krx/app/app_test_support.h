// Shared set-up of the application tests: every test starts with an empty scene, no
// queued answers or records, an empty log and default preferences.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "app/app_commands.h"
#include "app/app_settings.h"
#include "app/command_history.h"
#include "krx/krx.h"
#include "runtime/interaction.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace KRX::rt {

class AppFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetScene();
    ResetInteraction();
    SetInteractionHooks({});
    ResetPreferences();
    ClearItemAttributes();
    ClearCommandHistory();
    ClearLog();
  }
  void TearDown() override {
    SetInteractionHooks({});
    ResetInteraction();
  }

  // True when a line of this severity containing `part` was logged.
  static bool Logged(int severity, const std::string& part) {
    for (const LogLine& line : LogLines()) {
      if (line.severity == severity && line.text.GetAsciiString().find(part) != std::string::npos) {
        return true;
      }
    }
    return false;
  }

  static CValue Run(const CString& name, const CValueArray& args, CStatus expected = CStatus::OK) {
    CValue result;
    EXPECT_EQ(Application().ExecuteCommand(name, args, result), expected) << name.GetAsciiString();
    return result;
  }

  // The model "Hero" below the scene root, holding "hips", which holds "hand".
  void AddHero() {
    hero_ = Model(Application().GetActiveSceneRoot().AddModel(L"Hero"));
    hips_ = hero_.AddNull(L"hips");
    hand_ = hips_.AddNull(L"hand");
    ASSERT_TRUE(hand_.IsValid());
  }

  Model hero_;
  X3DObject hips_, hand_;
};

}  // namespace KRX::rt

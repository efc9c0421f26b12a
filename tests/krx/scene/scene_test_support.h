// Shared set-up of the scene and evaluation tests: each test starts and ends with an empty
// scene, no plug-in, no in-process callbacks and an empty log.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "krx/krx.h"
#include "plugins/plugin_loader.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace KRX::rt::testing {

class SceneTest : public ::testing::Test {
 protected:
  void SetUp() override {
    UnloadAllPlugins();
    ClearInProcessCallbacks();
    ResetScene();
    ClearLog();
    root_ = Application().GetActiveSceneRoot();
  }
  void TearDown() override {
    UnloadAllPlugins();
    ClearInProcessCallbacks();
    ResetScene();
  }

  static KinematicState Local(const X3DObject& o) { return o.GetKinematics().GetLocal(); }
  static KinematicState Global(const X3DObject& o) { return o.GetKinematics().GetGlobal(); }

  static void Put(const X3DObject& o, const wchar_t* param, const CValue& v) {
    ASSERT_TRUE(Succeeded(Local(o).PutParameterValue(param, v))) << CString(param).GetAsciiString();
  }
  static MATH::CVector3 GlobalPosition(const X3DObject& o, double time = kCurrentTime) {
    return Global(o).GetTransform(time).GetTranslation();
  }

  // Lines logged with this severity that contain `part`.
  static int CountLogged(int severity, const std::string& part) {
    int n = 0;
    for (const LogLine& line : LogLines()) {
      if (line.severity == severity && line.text.GetAsciiString().find(part) != std::string::npos) ++n;
    }
    return n;
  }

  Model root_;
};

inline void ExpectNear(const MATH::CVector3& actual, const MATH::CVector3& expected,
                       double tolerance = 1e-9) {
  EXPECT_NEAR(actual.GetX(), expected.GetX(), tolerance);
  EXPECT_NEAR(actual.GetY(), expected.GetY(), tolerance);
  EXPECT_NEAR(actual.GetZ(), expected.GetZ(), tolerance);
}

inline FCurveKeyData Key(double time, double value, Interpolation interpolation = Interpolation::Linear) {
  FCurveKeyData k;
  k.time = time;
  k.value = value;
  k.interpolation = interpolation;
  return k;
}

}  // namespace KRX::rt::testing

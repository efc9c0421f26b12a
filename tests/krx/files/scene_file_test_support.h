// Shared set-up of the scene file tests: an in-process plug-in with an operator and a
// property type, a scene that uses every kind of content a scene file carries, and helpers
// to compare what the scene evaluates to.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "krx/krx.h"

namespace KRX::rt::testing {

// What the test plug-in's callbacks counted since the fixture started.
struct PluginCounts {
  int op_init = 0;
  int op_term = 0;
  int op_update_without_data = 0;  // updates that found no user data from _Init
  int prop_define = 0;
  int scene_opened = 0;
  int scene_new = 0;
};
PluginCounts& Counts();

class SceneFileFixture : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::string Path(const std::string& name) const { return (folder_ / name).string(); }

  std::filesystem::path folder_;
};

// Builds the reference scene in the active scene:
//   Rig (model)
//     hip (null)        posx animated by a Bezier curve, rotorder YZX, neutral pose set
//       knee (null)     rotz driven by an expression on hip's rotx
//     tip (sphere)      orientation constraint on "knee"
//     ctrl (null)       property "Controls" (custom, every value type, limits, a grid),
//                       a "FileTestProp" property (plug-in type), a user-data blob,
//                       "Display Property"
//     path (curve)      three points
//     src, dst (nulls)  the operator FileTestOp writes dst's global from src's global
//                       and ctrl.Controls.amount
// Play Control: In 1, Out 24, Rate 30, Current 5. Selection: knee, then ctrl.
void BuildReferenceScene();

// Global transform of the object with this full name at `frame`.
MATH::CTransformation GlobalAt(const CString& full_name, double frame);

void ExpectSameTransform(const MATH::CTransformation& a, const MATH::CTransformation& b,
                         double epsilon, const std::string& what);

// One line per item of the active scene, in walk order, with everything a scene file must
// keep: full name, class, type, every field of parameters (values, curves, expressions,
// grids), blob bytes, constraints, curve points, operators and their ports, and the
// selection. Read from the runtime's items, independently of the scene file code.
std::vector<std::string> SceneFingerprint();

std::vector<uint8_t> FileBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes);

}  // namespace KRX::rt::testing

// Shared set-up of the scene file tests: an in-process plug-in with an operator and a
// property type, one scene that holds every kind of item a scene file carries, and a
// fingerprint of the scene read from the runtime's items.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "krx/krx.h"

namespace KRX::rt::testing {

// What the test plug-in's callbacks counted since the fixture started.
struct PluginCounts {
  int op_init = 0, op_term = 0, prop_define = 0;
  int scene_opened = 0, scene_new = 0;
};
PluginCounts& Counts();

class SceneFileFixture : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::string Path(const std::string& name) const { return (folder_ / name).string(); }

  std::filesystem::path folder_;
};

// Model "Rig" with: hip (null; rotorder, neutral pose, a Bezier/Linear/Constant curve with
// handles of its own plus one auto-tangent key), knee (expression on hip's rotx), tip
// (sphere, orientation constraint on knee), ctrl (custom property of every value type
// with limits and a grid, a plug-in property, a blob, "Display Property"), path (curve),
// src and dst (the operator FileTestOp moves dst's global up from src's by
// ctrl.Controls.amount plus the 7 its _Init stored). Play Control 1..24 at 30, current
// frame 5, selection knee then ctrl.
void BuildReferenceScene();

// One line per item in walk order with every field a scene file must keep, then the
// selection; read from the runtime's items, independently of the scene file code.
std::vector<std::string> SceneFingerprint();

MATH::CTransformation GlobalAt(const CString& full_name, double frame);
std::vector<uint8_t> FileBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes);

}  // namespace KRX::rt::testing

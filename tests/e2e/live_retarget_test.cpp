// The live retarget driven by command name only, on real captures: a capture onto a copy of
// itself, one naming convention onto another, the setup through a scene file and a motion
// file, and its removal.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "e2e/capture_scene_test.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/motion/capture_rig_support.h"

namespace kavor::e2e {
namespace {

namespace fs = std::filesystem;
namespace ct = capturetest;
using KRX::MATH::CVector3;

constexpr int32_t kFirst = 1;
constexpr int32_t kLast = 120;

KRX::Model Scene(const wchar_t* name) {
  return KRX::Model(KRX::Application().GetActiveSceneRoot().FindChild(name, L"", false));
}

// Imports a capture and tags it with a shipped template, by command.
KRX::Model ImportTagged(const fs::path& capture, const wchar_t* name, const char* tag_template) {
  RunCommand(L"ImportBVH", {KRX::CValue(capture.wstring()), KRX::CValue(name)});
  EXPECT_TRUE(
      RunCommand(L"LoadTagTemplateFile",
                 {KRX::CValue(name), KRX::CValue(ct::ShippedTemplate(tag_template).wstring())})
          .GetBool());
  return Scene(name);
}

CVector3 GlobalAt(const KRX::Model& model, const std::wstring& joint, double frame) {
  const KRX::X3DObject object = model.FindChild(joint, L"", true);
  return object.GetKinematics().GetGlobal().GetTransform(frame).GetTranslation();
}

// The joints of a model, by name, that a retarget operator drives.
std::vector<std::wstring> DrivenJoints(const KRX::Model& model) {
  std::vector<std::wstring> names;
  for (const KRX::X3DObject& object : model.FindChildren(L"", L"", true)) {
    if (FindOperatorByName(object.GetKinematics().GetGlobal().GetFullName(), L"RetargetGlobalOp",
                           nullptr)) {
      names.push_back(object.GetName().GetWideString());
    }
  }
  return names;
}

double LegLength(const wchar_t* model) {
  return RunCommand(L"GetValue", {KRX::CValue(std::wstring(model) + L".ZRKMap.LegLength")})
      .GetDouble();
}

using Poses = std::map<std::wstring, std::vector<CVector3>>;

Poses Record(const KRX::Model& model, const std::vector<std::wstring>& joints) {
  // The first evaluation of a chain operator after it was made or loaded writes nothing.
  for (const std::wstring& joint : joints) GlobalAt(model, joint, kFirst);
  Poses poses;
  for (int32_t f = kFirst; f <= kLast; ++f) {
    for (const std::wstring& joint : joints) poses[joint].push_back(GlobalAt(model, joint, f));
  }
  return poses;
}

double LargestDifference(const Poses& a, const Poses& b) {
  double largest = 0.0;
  for (const auto& [joint, path] : a) {
    const auto other = b.find(joint);
    if (other == b.end()) return INFINITY;
    for (size_t f = 0; f < path.size(); ++f) {
      const double d = (path[f] - other->second[f]).GetLength();
      largest = std::max(largest, d);
    }
  }
  return largest;
}

using LiveRetargetTest = CaptureSceneTest;

TEST_F(LiveRetargetTest, ACaptureOntoItsOwnCopyFollowsItJointForJoint) {
  const fs::path capture = ct::SharedCapture("cmu_02_01.bvh");
  if (capture.empty()) GTEST_SKIP() << "the shared captures are not here";
  const KRX::Model source = ImportTagged(capture, L"Source", "CmuJointNames.tagt");
  const KRX::Model target = ImportTagged(capture, L"Target", "CmuJointNames.tagt");
  ASSERT_TRUE(RunCommand(L"Retarget", {KRX::CValue(L"Source"), KRX::CValue(L"Target"),
                                       KRX::CValue(kFirst), KRX::CValue(kLast)})
                  .GetBool());
  EXPECT_EQ(RunCommand(L"RetargetExtractStartFrame", {KRX::CValue(L"Target")}).GetInt(), kFirst);
  EXPECT_EQ(RunCommand(L"RetargetExtractEndFrame", {KRX::CValue(L"Target")}).GetInt(), kLast + 1);

  const std::vector<std::wstring> joints = DrivenJoints(target);
  ASSERT_GE(joints.size(), 15u);
  const double leg = LegLength(L"Target");
  ASSERT_GT(leg, 0.0);
  // Retargeting again replaces the first setup.
  ASSERT_TRUE(RunCommand(L"Retarget", {KRX::CValue(L"Source"), KRX::CValue(L"Target"),
                                       KRX::CValue(kFirst), KRX::CValue(kLast)})
                  .GetBool());
  EXPECT_EQ(DrivenJoints(target).size(), joints.size());
  // With the default contact blend, hands and feet lose a little of their own motion for a
  // few frames after each contact; blending out only the contact's drift, a capture onto a
  // copy of itself follows it joint for joint.
  const Poses straight_line = Record(target, joints);
  EXPECT_LT(LargestDifference(straight_line, Record(source, joints)), 0.015 * leg);
  ASSERT_TRUE(UsePreference(L"RETARGET", L"BLEND_DRIFT_ONLY", 1));
  ASSERT_TRUE(UsePreference(L"RETARGET", L"STRAIGHT_LIMB_MICRORADIANS", 1));
  ASSERT_TRUE(RunCommand(L"Retarget", {KRX::CValue(L"Source"), KRX::CValue(L"Target"),
                                       KRX::CValue(kFirst), KRX::CValue(kLast)})
                  .GetBool());
  const Poses played = Record(target, joints);
  EXPECT_LT(LargestDifference(played, Record(source, joints)), 1e-4 * leg);

  // Saved and reopened, the operators bind again and play the same poses.
  const fs::path scene = fs::temp_directory_path() / "kavor_live_retarget.krxs";
  ASSERT_TRUE(RunCommand(L"SaveScene", {KRX::CValue(scene.wstring())}).GetBool());
  ASSERT_TRUE(RunCommand(L"OpenScene", {KRX::CValue(scene.wstring())}).GetBool());
  EXPECT_LT(LargestDifference(Record(Scene(L"Target"), joints), played), 1e-9 * leg);
  fs::remove(scene);

  // Removing everything leaves no trace of the plug-in on the model.
  RunCommand(L"RemoveAllKavorPropsAndOps", {KRX::CValue(L"Target")});
  EXPECT_TRUE(DrivenJoints(Scene(L"Target")).empty());
  for (const KRX::Property& property : Scene(L"Target").GetProperties()) {
    const std::wstring name = property.GetName().GetWideString();
    EXPECT_TRUE(name.rfind(L"ZRK", 0) != 0 && name != L"RetargetAdjustPPG") << name;
  }
}

TEST_F(LiveRetargetTest, OneNamingOntoAnotherKeepsBonesAndScalesTheHips) {
  const fs::path cmu = ct::SharedCapture("cmu_02_01.bvh");
  const fs::path other = ct::SharedCapture("dataset-1_walk_normal_001.bvh");
  if (cmu.empty() || other.empty()) GTEST_SKIP() << "the shared captures are not here";
  const KRX::Model source = ImportTagged(cmu, L"Source", "CmuJointNames.tagt");
  const KRX::Model target = ImportTagged(other, L"Target", "JointRootNames.tagt");
  ASSERT_TRUE(RunCommand(L"Retarget", {KRX::CValue(L"Source"), KRX::CValue(L"Target"),
                                       KRX::CValue(kFirst), KRX::CValue(kLast)})
                  .GetBool());
  const std::vector<std::wstring> joints = DrivenJoints(target);
  ASSERT_GE(joints.size(), 10u);
  const Poses played = Record(target, joints);
  for (const auto& [joint, path] : played) {
    for (const CVector3& p : path) {
      ASSERT_TRUE(std::isfinite(p.GetX()) && std::isfinite(p.GetY()) && std::isfinite(p.GetZ()))
          << joint;
    }
  }
  // Bone lengths: each driven joint keeps its distance to its driven parent, limb ends too
  // (this source's spine has a joint more than the target's).
  for (const std::wstring& joint : joints) {
    const KRX::X3DObject object = target.FindChild(joint, L"", true);
    const KRX::X3DObject parent(object.GetParent());
    const auto parent_path = played.find(parent.GetName().GetWideString());
    if (parent_path == played.end()) continue;
    const double rest = (played.at(joint)[0] - parent_path->second[0]).GetLength();
    for (size_t f = 1; f < parent_path->second.size(); ++f) {
      EXPECT_NEAR((played.at(joint)[f] - parent_path->second[f]).GetLength(), rest, 1e-4 * rest)
          << joint << " frame " << f;
    }
  }
  // The hips travel the source's way, scaled by the two leg lengths.
  const double ratio = LegLength(L"Target") / LegLength(L"Source");
  const CVector3 source_travel =
      GlobalAt(source, L"Hips", kLast) - GlobalAt(source, L"Hips", kFirst);
  const CVector3 target_travel =
      GlobalAt(target, L"Hips", kLast) - GlobalAt(target, L"Hips", kFirst);
  const CVector3 level_source(source_travel.GetX(), 0.0, source_travel.GetZ());
  const CVector3 level_target(target_travel.GetX(), 0.0, target_travel.GetZ());
  EXPECT_NEAR(level_target.GetLength(), ratio * level_source.GetLength(),
              0.02 * ratio * level_source.GetLength());
  // Where a source foot stands (moving less than 0.5 % of the leg in a frame, near its
  // lowest), the target's foot slides no more than the source's, scaled.
  const Poses source_feet = Record(source, {L"LeftFoot", L"RightFoot"});
  const double source_leg = LegLength(L"Source");
  int32_t planted = 0;
  for (const auto& [source_foot, target_foot] :
       {std::pair{L"LeftFoot", L"Foot_L"}, std::pair{L"RightFoot", L"Foot_R"}}) {
    const std::vector<CVector3>& from = source_feet.at(source_foot);
    const std::vector<CVector3>& to = played.at(target_foot);
    double lowest = INFINITY;
    for (const CVector3& p : from) lowest = std::min(lowest, p.GetY());
    for (size_t f = 1; f < from.size(); ++f) {
      const CVector3 step = from[f] - from[f - 1];
      const double source_slide = std::hypot(step.GetX(), step.GetZ());
      if (source_slide > 0.005 * source_leg || from[f].GetY() > lowest + 0.1 * source_leg) continue;
      ++planted;
      const CVector3 target_step = to[f] - to[f - 1];
      EXPECT_LE(std::hypot(target_step.GetX(), target_step.GetZ()),
                ratio * source_slide + 1e-6 * source_leg)
          << target_foot << " frame " << f;
    }
  }
  EXPECT_GT(planted, 10);
}

TEST_F(LiveRetargetTest, AMotionFileGivesWhatRetargetingDirectlyGives) {
  const fs::path capture = ct::SharedCapture("cmu_02_01.bvh");
  const fs::path other = ct::SharedCapture("cmu_01_01.bvh");
  if (capture.empty() || other.empty()) GTEST_SKIP() << "the shared captures are not here";
  ImportTagged(capture, L"Source", "CmuJointNames.tagt");
  const KRX::Model direct = ImportTagged(other, L"Direct", "CmuJointNames.tagt");
  const KRX::Model loaded = ImportTagged(other, L"Loaded", "CmuJointNames.tagt");
  ASSERT_TRUE(RunCommand(L"Retarget", {KRX::CValue(L"Source"), KRX::CValue(L"Direct"),
                                       KRX::CValue(kFirst), KRX::CValue(kLast)})
                  .GetBool());
  const fs::path file = fs::temp_directory_path() / "kavor_live_retarget.kavor";
  ASSERT_TRUE(RunCommand(L"SaveKavorFile", {KRX::CValue(L"Source"), KRX::CValue(file.wstring()),
                                            KRX::CValue(kFirst), KRX::CValue(kLast)})
                  .GetBool());
  ASSERT_TRUE(RunCommand(L"LoadKavorFile",
                         {KRX::CValue(L"Loaded"), KRX::CValue(file.wstring()), KRX::CValue(kFirst)})
                  .GetBool())
      << ::testing::PrintToString(LoggedTexts(4)) << ::testing::PrintToString(LoggedTexts(2));
  fs::remove(file);
  const std::vector<std::wstring> joints = DrivenJoints(direct);
  ASSERT_FALSE(joints.empty());
  EXPECT_LT(LargestDifference(Record(loaded, joints), Record(direct, joints)),
            1e-3 * LegLength(L"Direct"));
}

}  // namespace
}  // namespace kavor::e2e

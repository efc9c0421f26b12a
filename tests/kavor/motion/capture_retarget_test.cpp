// A real capture, tagged with the shipped template, retargeted frame by frame onto a copy
// of itself and onto a copy 1.5 times its size.
#include <gtest/gtest.h>

#include <cmath>

#include "kavor/motion/capture_rig_support.h"
#include "kavor/motion/extraction.h"
#include "kavor/motion/normalize.h"
#include "kavor/motion/play_control.h"
#include "kavor/motion/pose.h"
#include "runtime/log.h"

namespace kavor {
namespace {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
namespace ct = capturetest;

constexpr int kFrames = 120;

// Every bound node's model-space pose of the source rig at each frame.
std::vector<std::vector<CTransformation>> SourcePoses(RetargetModel& source) {
  std::vector<std::vector<CTransformation>> poses;
  for (int f = 1; f <= kFrames; ++f) {
    SetCurrentFrame(f);
    RefreshModel(source.model);
    ComputePose(source, f, false);
    std::vector<CTransformation> frame;
    for (int32_t i = 0; i < source.NumNodes(); ++i) frame.push_back(source.Node(i).global_pose);
    poses.push_back(frame);
  }
  return poses;
}

// The angle of the turn from one rotation to the other.
double AngleBetween(const KRX::MATH::CQuaternion& q, const KRX::MATH::CQuaternion& w) {
  const double dot =
      std::fabs(q.GetW() * w.GetW() + q.GetX() * w.GetX() + q.GetY() * w.GetY() + q.GetZ() * w.GetZ());
  return 2 * std::acos(std::min(1.0, dot));
}

class CaptureRetargetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture = ct::SharedCapture("cmu_02_01.bvh");
    if (capture.empty()) GTEST_SKIP() << "the shared captures are not here";
    ct::NewSceneWithShippedData();
  }
  void TearDown() override { KRX::rt::ResetScene(); }

  // Retargets the first kFrames frames of the capture onto a copy `scale` times its size;
  // `check` sees the target after each frame with the source's own pose of that frame.
  template <typename Check>
  void Retarget(double scale, Check check) {
    const KRX::Model source_model = ct::ImportCapture(capture, L"Source");
    const KRX::Model target_model = ct::ImportCapture(capture, L"Target", scale);
    ASSERT_TRUE(ct::TagInBindPose(source_model, ct::ShippedTemplate("CmuJointNames.tagt")));
    ASSERT_TRUE(ct::TagInBindPose(target_model, ct::ShippedTemplate("CmuJointNames.tagt")));
    ct::TaggedModel source = ct::ReadTagged(source_model);
    ct::TaggedModel target = ct::ReadTagged(target_model);
    ASSERT_TRUE(source.retarget && target.retarget && target.glue);
    EXPECT_NEAR(target.retarget->leg_length, scale * source.retarget->leg_length, 1e-9);
    const auto expected = SourcePoses(*source.retarget);
    ASSERT_TRUE(BindSource(*target.retarget, *source.retarget, *target.glue));
    EXPECT_NEAR(target.retarget->scale, scale, 1e-9);
    for (int f = 1; f <= kFrames; ++f) {
      SetCurrentFrame(f);
      RefreshModel(source.retarget->model);
      ExtractFrame(*target.retarget, *source.retarget, f);
      check(*target.retarget, expected[static_cast<size_t>(f - 1)]);
    }
  }

  ct::fs::path capture;
};

TEST_F(CaptureRetargetTest, ACopyOfTheRigReproducesItsPoses) {
  double worst_angle = 0.0, worst_offset = 0.0;
  Retarget(1.0, [&](RetargetModel& target, const std::vector<CTransformation>& source) {
    for (int32_t i = 0; i < target.NumNodes(); ++i) {
      if (target.Node(i).source_index < 0) continue;
      const CTransformation& pose = target.Node(i).global_pose;
      const CTransformation& want = source[static_cast<size_t>(i)];
      const auto q = pose.GetRotationQuaternion();
      const auto w = want.GetRotationQuaternion();
      worst_angle = std::max(worst_angle, AngleBetween(q, w));
      worst_offset = std::max(worst_offset, (pose.GetTranslation() - want.GetTranslation()).GetLength());
    }
  });
  EXPECT_LT(worst_angle, 1e-6);
  EXPECT_LT(worst_offset, 1e-6);
}

TEST_F(CaptureRetargetTest, ALargerCopyKeepsTheRotationsAndScalesTheRootPath) {
  double worst_angle = 0.0, worst_root = 0.0;
  Retarget(1.5, [&](RetargetModel& target, const std::vector<CTransformation>& source) {
    for (int32_t i = 0; i < target.NumNodes(); ++i) {
      if (target.Node(i).source_index < 0) continue;
      const auto q = target.Node(i).global_pose.GetRotationQuaternion();
      const auto w = source[static_cast<size_t>(i)].GetRotationQuaternion();
      worst_angle = std::max(worst_angle, AngleBetween(q, w));
    }
    const CVector3 root = target.Node(0).global_pose.GetTranslation();
    worst_root = std::max(worst_root, (root - source[0].GetTranslation() * 1.5).GetLength());
  });
  EXPECT_LT(worst_angle, 1e-6);
  EXPECT_LT(worst_root, 1e-6);
}

}  // namespace
}  // namespace kavor

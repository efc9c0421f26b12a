// Whole retargets of a real capture onto a copy 1.5 times its size: rig to rig over a frame
// range, and the same motion saved to a motion file, read back and applied from there.
#include "kavor/motion/apply_motion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "kavor/motion/capture_rig_support.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/motion/normalize.h"
#include "kavor/motion/play_control.h"
#include "kavor/motion/pose.h"
#include "runtime/log.h"

namespace kavor {
namespace {

using KRX::MATH::CVector3;
namespace ct = capturetest;

constexpr int32_t kFirst = 1;
constexpr int32_t kEnd = 151;  // frames 1 to 150

class MotionFlowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture = ct::SharedCapture("cmu_02_01.bvh");
    if (capture.empty()) GTEST_SKIP() << "the shared captures are not here";
    ct::NewSceneWithShippedData();
    source_model = ct::ImportCapture(capture, L"Source");
    target_model = ct::ImportCapture(capture, L"Target", 1.5);
    const ct::fs::path tags = ct::ShippedTemplate("CmuJointNames.tagt");
    ASSERT_TRUE(ct::TagInBindPose(source_model, tags));
    ASSERT_TRUE(ct::TagInBindPose(target_model, tags));
  }
  void TearDown() override { KRX::rt::ResetScene(); }

  // Runs a flow on freshly read models and keeps the finished motion it hands over.
  template <typename Flow>
  std::optional<NormalizedMotion> Run(Flow flow) {
    ct::TaggedModel target = ct::ReadTagged(target_model);
    EXPECT_TRUE(target.retarget && target.glue);
    if (!target.retarget || !target.glue) return std::nullopt;
    std::optional<NormalizedMotion> kept;
    const MotionHandOver keep = [&](GlueMap&, NormalizedMotion& motion, int32_t) {
      kept = motion;
      return true;
    };
    EXPECT_TRUE(flow(target, keep));
    if (kept) {
      kept->target = nullptr;
      kept->source = nullptr;
    }
    return kept;
  }

  std::optional<NormalizedMotion> RigToRig() {
    return Run([&](ct::TaggedModel& target, const MotionHandOver& keep) {
      ct::TaggedModel source = ct::ReadTagged(source_model);
      if (!source.retarget) return false;
      const bool done = ApplyRigMotion(*target.retarget, *source.retarget, *target.glue, kFirst, kEnd, keep);
      RestoreModelTransforms(*target.retarget, *source.retarget);
      return done;
    });
  }

  ct::fs::path capture;
  KRX::Model source_model, target_model;
};

int32_t NodeIndex(const KRX::Model& model, const char* name) {
  std::optional<ModelStructure> structure = ReadStructureProperty(model);
  return structure ? FindNodeIndex(*structure, name) : -1;
}

TEST_F(MotionFlowTest, APlantedSourceFootStaysPlantedOnTheTarget) {
  SetCurrentFrame(7);
  const std::optional<NormalizedMotion> motion = RigToRig();
  ASSERT_TRUE(motion);
  ASSERT_EQ(motion->frame_count, kEnd - kFirst);
  EXPECT_EQ(CurrentFrame(), 7.0);

  // The source foot's path, frame by frame, from the source rig itself.
  ct::TaggedModel source = ct::ReadTagged(source_model);
  ASSERT_TRUE(source.retarget);
  const int32_t foot = NodeIndex(source_model, "lAnkle");
  ASSERT_GE(foot, 0);
  std::vector<CVector3> path;
  for (int32_t f = kFirst; f < kEnd; ++f) {
    SetCurrentFrame(f);
    RefreshModel(source_model);
    ComputePose(*source.retarget, f, false);
    path.push_back(source.retarget->Node(foot).global_pose.GetTranslation());
  }
  // Contact frames: the source foot moves less than half a percent of its bone length
  // horizontally from one frame to the next. Over each run of them the target foot may
  // drift no more than the source's drift scaled to the target's size.
  const double still = 0.005 * source.retarget->Node(foot).length;
  int contacts = 0;
  double worst_excess = 0.0;
  size_t run_start = 0;
  for (size_t f = 1; f <= path.size(); ++f) {
    const bool moving = f == path.size() || std::fabs(path[f].GetX() - path[f - 1].GetX()) >= still ||
                        std::fabs(path[f].GetZ() - path[f - 1].GetZ()) >= still;
    if (!moving) continue;
    if (f - 1 > run_start) {
      const auto& target_path = motion->global_poses[static_cast<size_t>(foot)];
      CVector3 source_drift = path[f - 1] - path[run_start];
      CVector3 target_drift = target_path[f - 1].GetTranslation() - target_path[run_start].GetTranslation();
      source_drift.PutY(0);
      target_drift.PutY(0);
      worst_excess = std::max(worst_excess, target_drift.GetLength() - 1.5 * source_drift.GetLength());
      contacts += static_cast<int>(f - 1 - run_start);
    }
    run_start = f;
  }
  EXPECT_GT(contacts, 20);
  EXPECT_LT(worst_excess, 1e-6);

  // Every limb plane ends with a unit up-vector in every frame.
  for (const auto& plane : motion->up_vectors) {
    for (const CVector3& up : plane) EXPECT_NEAR(up.GetLength(), 1.0, 1e-9);
  }
}

TEST_F(MotionFlowTest, AMotionFileGivesTheSameFinishedMotion) {
  const std::optional<NormalizedMotion> direct = RigToRig();
  ASSERT_TRUE(direct);

  const ct::fs::path file = ct::fs::temp_directory_path() / "kavor_motion_flow_test.kavor";
  {
    ct::TaggedModel source = ct::ReadTagged(source_model);
    ASSERT_TRUE(source.retarget);
    ASSERT_TRUE(WriteKavorFile(*source.retarget, ToWide(file.string()), kFirst, kEnd - 1));
  }
  std::unique_ptr<KavorMotion> saved = ReadKavorMotionFile(ToWide(file.string()));
  ct::fs::remove(file);
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->model->frame_count, kEnd - kFirst);

  const std::optional<NormalizedMotion> from_file = Run([&](ct::TaggedModel& target, const MotionHandOver& keep) {
    return ApplyFileMotion(*target.retarget, *saved->model, *target.glue, 1, keep);
  });
  ASSERT_TRUE(from_file);
  ASSERT_EQ(from_file->frame_count, direct->frame_count);
  ASSERT_EQ(from_file->NumNodes(), direct->NumNodes());
  double worst = 0.0;
  for (int32_t i = 0; i < direct->NumNodes(); ++i) {
    for (int32_t f = 0; f < direct->frame_count; ++f) {
      const auto& a = direct->global_poses[static_cast<size_t>(i)][static_cast<size_t>(f)];
      const auto& b = from_file->global_poses[static_cast<size_t>(i)][static_cast<size_t>(f)];
      worst = std::max(worst, (a.GetTranslation() - b.GetTranslation()).GetLength());
      EXPECT_TRUE(a.GetRotationQuaternion().SameRotation(b.GetRotationQuaternion(), 1e-9));
    }
  }
  EXPECT_LT(worst, 1e-9);
}

// A four-legged capture onto a copy 1.3 times its size takes the many-feet path: every leg
// gets its limb height, and the hind feet reach as low as the source's, scaled.
TEST(FourLeggedMotionFlow, FeetFollowTheSourceScaled) {
  const ct::fs::path capture = ct::SharedCapture("dog_D1_001_KAN01_001.bvh");
  if (capture.empty()) GTEST_SKIP() << "the shared captures are not here";
  ct::NewSceneWithShippedData();
  const KRX::Model source_model = ct::ImportCapture(capture, L"Dog");
  const KRX::Model target_model = ct::ImportCapture(capture, L"BigDog", 1.3);
  const ct::fs::path tags = ct::ShippedTemplate("DogJointNames.tagt");
  ASSERT_TRUE(ct::TagInBindPose(source_model, tags));
  ASSERT_TRUE(ct::TagInBindPose(target_model, tags));
  ct::TaggedModel source = ct::ReadTagged(source_model);
  ct::TaggedModel target = ct::ReadTagged(target_model);
  ASSERT_TRUE(source.retarget && target.retarget && target.glue);
  std::optional<NormalizedMotion> kept;
  const MotionHandOver keep = [&](GlueMap&, NormalizedMotion& motion, int32_t) {
    kept = motion;
    return true;
  };
  ASSERT_TRUE(ApplyRigMotion(*target.retarget, *source.retarget, *target.glue, 1, 121, keep));
  RestoreModelTransforms(*target.retarget, *source.retarget);
  ASSERT_TRUE(kept);
  const ModelStructure& structure = *target.structure;
  int feet = 0;
  for (const StructureNode& node : structure.nodes) feet += node.friction ? 1 : 0;
  EXPECT_EQ(feet, 4);
  for (int32_t p = 0; p < structure.NumPlanes(); ++p) EXPECT_GT(kept->limb_heights[static_cast<size_t>(p)], 1.0);
  const int32_t hock = FindNodeIndex(structure, "lHock");
  double target_low = 1e300, source_low = 1e300;
  for (int32_t f = 0; f < kept->frame_count; ++f) {
    SetCurrentFrame(f + 1);
    RefreshModel(source_model);
    ComputePose(*source.retarget, f + 1, false);
    source_low = std::min(source_low, source.retarget->Node(hock).global_pose.GetTranslation().GetY());
    target_low = std::min(target_low, kept->global_poses[static_cast<size_t>(hock)][static_cast<size_t>(f)].GetTranslation().GetY());
    for (const auto& node : kept->global_poses) {
      const CVector3 t = node[static_cast<size_t>(f)].GetTranslation();
      ASSERT_TRUE(std::isfinite(t.GetX()) && std::isfinite(t.GetY()) && std::isfinite(t.GetZ()));
    }
  }
  EXPECT_NEAR(target_low, 1.3 * source_low, 1e-6 * std::fabs(source_low) + 1e-9);
  KRX::rt::ResetScene();
}

}  // namespace
}  // namespace kavor

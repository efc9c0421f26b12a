// Real captures carried over to copies of themselves: frame by frame onto a copy and onto a
// copy 1.5 times its size, whole retargets rig to rig and through a motion file, and a
// four-legged capture on the many-feet path.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "kavor/motion/apply_motion.h"
#include "kavor/motion/capture_rig_support.h"
#include "kavor/motion/finish.h"
#include "kavor/motion/kavor_file.h"
#include "kavor/motion/normalize.h"
#include "kavor/motion/play_control.h"
#include "kavor/motion/pose.h"

namespace kavor {
namespace {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
namespace ct = capturetest;

constexpr int32_t kFirst = 1;
constexpr int32_t kEnd = 151;  // frames 1 to 150

// The source's own pose (`ComputePose` without extraction objects) at scene frame `f`.
std::vector<CTransformation> PoseAt(RetargetModel& model, int32_t f) {
  SetCurrentFrame(f);
  RefreshModel(model.model);
  ComputePose(model, f, false);
  std::vector<CTransformation> pose;
  for (int32_t i = 0; i < model.NumNodes(); ++i) pose.push_back(model.Node(i).global_pose);
  return pose;
}

// A capture tagged twice with a shipped template: as the source and as a larger target.
class MotionFlowTest : public ::testing::Test {
 protected:
  void TearDown() override { KRX::rt::ResetScene(); }

  // False when the shared captures are not here. The walk goes onto a target 1.5 times its
  // size.
  bool Load(const char* file = "cmu_02_01.bvh", const char* tag_template = "CmuJointNames.tagt",
            double scale = 1.5) {
    capture = ct::SharedCapture(file);
    if (capture.empty()) return false;
    ct::NewSceneWithShippedData();
    source_model = ct::ImportCapture(capture, L"Source");
    target_model = ct::ImportCapture(capture, L"Target", scale);
    tags = ct::ShippedTemplate(tag_template);
    EXPECT_TRUE(ct::TagInBindPose(source_model, tags) && ct::TagInBindPose(target_model, tags));
    return true;
  }

  // Runs a flow on the freshly read target and keeps the finished motion it hands over.
  template <typename Flow>
  std::optional<NormalizedMotion> Run(Flow flow) {
    ct::TaggedModel target = ct::ReadTagged(target_model);
    EXPECT_TRUE(target.retarget && target.glue);
    if (!target.retarget || !target.glue) return std::nullopt;
    std::optional<NormalizedMotion> kept;
    const MotionHandOver keep = [&](GlueMap&, NormalizedMotion& motion, int32_t) {
      kept = motion;
      kept->target = kept->source = nullptr;
      return true;
    };
    EXPECT_TRUE(flow(target, keep));
    return kept;
  }

  std::optional<NormalizedMotion> RigToRig(int32_t end = kEnd) {
    return Run([&](ct::TaggedModel& target, const MotionHandOver& keep) {
      ct::TaggedModel source = ct::ReadTagged(source_model);
      if (!source.retarget) return false;
      const bool done =
          ApplyRigMotion(*target.retarget, *source.retarget, *target.glue, kFirst, end, keep);
      RestoreModelTransforms(*target.retarget, *source.retarget);
      return done;
    });
  }

  ct::fs::path capture, tags;
  KRX::Model source_model, target_model;
};

TEST_F(MotionFlowTest, EachFrameKeepsTheRotationsAndScalesTheRootPath) {
  if (!Load()) GTEST_SKIP() << "no shared captures";
  const KRX::Model copy_model = ct::ImportCapture(capture, L"Copy");
  ASSERT_TRUE(ct::TagInBindPose(copy_model, tags));
  for (const auto& [model, scale] : {std::pair{copy_model, 1.0}, {target_model, 1.5}}) {
    ct::TaggedModel source = ct::ReadTagged(source_model);
    ct::TaggedModel target = ct::ReadTagged(model);
    ASSERT_TRUE(source.retarget && target.retarget && target.glue);
    EXPECT_NEAR(target.retarget->leg_length, scale * source.retarget->leg_length, 1e-9);
    std::vector<std::vector<CTransformation>> expected;
    for (int32_t f = kFirst; f < kEnd; ++f) expected.push_back(PoseAt(*source.retarget, f));
    ASSERT_TRUE(BindSource(*target.retarget, *source.retarget, *target.glue));
    EXPECT_NEAR(target.retarget->scale, scale, 1e-9);
    // The copy reproduces every driven node's pose; the larger copy every rotation, and
    // its root follows the source's path scaled.
    int turned = 0;
    double worst_offset = 0.0;
    for (int32_t f = kFirst; f < kEnd; ++f) {
      SetCurrentFrame(f);
      RefreshModel(source.retarget->model);
      ExtractFrame(*target.retarget, *source.retarget, f);
      const std::vector<CTransformation>& want = expected[static_cast<size_t>(f - kFirst)];
      for (int32_t i = 0; i < target.retarget->NumNodes(); ++i) {
        if (target.retarget->Node(i).source_index < 0) continue;
        const CTransformation& pose = target.retarget->Node(i).global_pose;
        const CTransformation& source_pose = want[static_cast<size_t>(i)];
        turned +=
            !pose.GetRotationQuaternion().SameRotation(source_pose.GetRotationQuaternion(), 1e-7);
        if (scale == 1.0 || i == 0) {
          const CVector3 offset = pose.GetTranslation() - source_pose.GetTranslation() * scale;
          worst_offset = std::max(worst_offset, offset.GetLength());
        }
      }
    }
    RestoreModelTransforms(*target.retarget, *source.retarget);
    EXPECT_EQ(turned, 0) << scale;
    EXPECT_LT(worst_offset, 1e-6) << scale;
  }
}

TEST_F(MotionFlowTest, APlantedSourceFootStaysPlantedOnTheTarget) {
  if (!Load()) GTEST_SKIP() << "no shared captures";
  SetCurrentFrame(7);
  const std::optional<NormalizedMotion> motion = RigToRig();
  ASSERT_TRUE(motion);
  ASSERT_EQ(motion->frame_count, kEnd - kFirst);
  EXPECT_EQ(CurrentFrame(), 7.0);

  ct::TaggedModel source = ct::ReadTagged(source_model);
  ASSERT_TRUE(source.retarget);
  const int32_t foot = FindNodeIndex(*source.structure, "lAnkle");
  ASSERT_GE(foot, 0);
  std::vector<CVector3> path;
  for (int32_t f = kFirst; f < kEnd; ++f) {
    path.push_back(PoseAt(*source.retarget, f)[static_cast<size_t>(foot)].GetTranslation());
  }
  // Contact frames: the source foot moves less than half a percent of its bone length
  // horizontally from one frame to the next. Over each run of them the target foot may
  // drift no more than the source's drift scaled to the target's size.
  const double still = 0.005 * source.retarget->Node(foot).length;
  const auto& target_path = motion->global_poses[static_cast<size_t>(foot)];
  ASSERT_EQ(target_path.size(), path.size());
  const auto drift = [](CVector3 from, CVector3 to) {
    const CVector3 d = to - from;
    return std::hypot(d.GetX(), d.GetZ());
  };
  int contacts = 0;
  double worst_excess = 0.0;
  size_t run_start = 0;
  for (size_t f = 1; f <= path.size(); ++f) {
    if (f < path.size() && std::fabs(path[f].GetX() - path[f - 1].GetX()) < still &&
        std::fabs(path[f].GetZ() - path[f - 1].GetZ()) < still) {
      continue;
    }
    const double target_drift =
        drift(target_path[run_start].GetTranslation(), target_path[f - 1].GetTranslation());
    worst_excess = std::max(worst_excess, target_drift - 1.5 * drift(path[run_start], path[f - 1]));
    contacts += static_cast<int>(f - 1 - run_start);
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
  if (!Load()) GTEST_SKIP() << "no shared captures";
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

  const std::optional<NormalizedMotion> from_file =
      Run([&](ct::TaggedModel& target, const MotionHandOver& keep) {
        return ApplyFileMotion(*target.retarget, *saved->model, *target.glue, 1, keep);
      });
  ASSERT_TRUE(from_file);
  ASSERT_EQ(from_file->frame_count, direct->frame_count);
  ASSERT_EQ(from_file->NumNodes(), direct->NumNodes());
  double worst_offset = 0.0;
  int turned = 0;
  for (size_t i = 0; i < direct->global_poses.size(); ++i) {
    for (size_t f = 0; f < direct->global_poses[i].size(); ++f) {
      const CTransformation& a = direct->global_poses[i][f];
      const CTransformation& b = from_file->global_poses[i][f];
      worst_offset = std::max(worst_offset, (a.GetTranslation() - b.GetTranslation()).GetLength());
      turned += !a.GetRotationQuaternion().SameRotation(b.GetRotationQuaternion(), 1e-9);
    }
  }
  EXPECT_LT(worst_offset, 1e-9);
  EXPECT_EQ(turned, 0);
}

// A four-legged capture onto a copy 1.3 times its size takes the many-feet path: every leg
// gets its limb height, and the hind feet reach as low as the source's, scaled.
TEST_F(MotionFlowTest, FourLeggedFeetFollowTheSourceScaled) {
  if (!Load("dog_D1_001_KAN01_001.bvh", "DogJointNames.tagt", 1.3))
    GTEST_SKIP() << "no shared captures";
  const std::optional<NormalizedMotion> kept = RigToRig(121);
  ct::TaggedModel source = ct::ReadTagged(source_model);
  ASSERT_TRUE(kept && source.retarget);
  EXPECT_EQ(CountFeet(*source.structure), 4);
  for (double height : kept->limb_heights) EXPECT_GT(height, 1.0);
  const int32_t hock = FindNodeIndex(*source.structure, "lHock");
  ASSERT_GE(hock, 0);
  ASSERT_EQ(kept->global_poses.at(static_cast<size_t>(hock)).size(), 120u);
  double target_low = 1e300, source_low = 1e300;
  for (int32_t f = 0; f < kept->frame_count; ++f) {
    const auto frame = static_cast<size_t>(f);
    source_low = std::min(
        source_low,
        PoseAt(*source.retarget, f + 1)[static_cast<size_t>(hock)].GetTranslation().GetY());
    target_low = std::min(
        target_low, kept->global_poses[static_cast<size_t>(hock)][frame].GetTranslation().GetY());
    for (const auto& node : kept->global_poses) {
      const CVector3 t = node[frame].GetTranslation();
      ASSERT_TRUE(std::isfinite(t.GetX()) && std::isfinite(t.GetY()) && std::isfinite(t.GetZ()));
    }
  }
  EXPECT_NEAR(target_low, 1.3 * source_low, 1e-6 * std::fabs(source_low) + 1e-9);
}

}  // namespace
}  // namespace kavor

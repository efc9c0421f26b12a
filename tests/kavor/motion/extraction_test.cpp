// Binding a source to a target and carrying frames over, on the small legged test rig
// driven by a motion or a capture skeleton held in memory (so every source value is known
// exactly).
#include "kavor/motion/extraction.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

#include "kavor/maps/mocap_skeleton.h"
#include "kavor/maps/rest_data.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/motion/apply_motion.h"
#include "kavor/motion/normalize.h"
#include "runtime/log.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
using rigtest::RigTest;

constexpr double kPi = 3.14159265358979323846;

void ExpectNear(const CVector3& actual, const CVector3& expected, double tolerance = 1e-9) {
  EXPECT_NEAR(actual.GetX(), expected.GetX(), tolerance);
  EXPECT_NEAR(actual.GetY(), expected.GetY(), tolerance);
  EXPECT_NEAR(actual.GetZ(), expected.GetZ(), tolerance);
}

bool Logged(const wchar_t* text) {
  for (const KRX::rt::LogLine& line : KRX::rt::LogLines()) {
    if (line.text.GetWideString().find(text) != std::wstring::npos) return true;
  }
  return false;
}

bool SameRotation(const CRotation& a, const CRotation& b) {
  return a.GetQuaternion().SameRotation(b.GetQuaternion(), 1e-9);
}

// The test rig as target and a one-frame motion of the same structure as source, its
// normalized rotations chosen so that the target stands unrotated, its positions those of
// the target's bind pose.
class ExtractionTest : public RigTest {
 protected:
  void SetUp() override {
    RigTest::SetUp();
    target_structure = rigtest::MakeStructure();
    source_structure = *target_structure;
    for (StructureNode& node : source_structure.nodes) node.obj_is_valid = true;
    rig = rigtest::BuildRig("Target");
    rigtest::TagRig(rig, *target_structure);
    target = std::make_unique<RetargetModel>(rig.model, target_structure.get());
    ComputeRestData(*target);
    source = std::make_unique<RetargetModel>(&source_structure);
    source->frame_count = 1;
    source->poses.resize(static_cast<size_t>(source->NumNodes()));
    for (int32_t i = 0; i < source->NumNodes(); ++i) {
      CTransformation pose = target->Node(i).global_pose;
      pose.SetRotation(target->Node(i).rest_rotation_inverse.GetRotation());
      source->poses[static_cast<size_t>(i)] = pose;
      source->Node(i).length = target->Node(i).length;
    }
    source->leg_length = target->leg_length;
    source->hip_offset = target->hip_offset;
  }

  int32_t Index(const char* name) const { return FindNodeIndex(*target_structure, name); }
  CTransformation& SourcePose(const char* name) {
    return source->poses[static_cast<size_t>(FindNodeIndex(source_structure, name))];
  }
  const CTransformation& TargetPose(const char* name) { return target->Node(Index(name)).global_pose; }

  std::unique_ptr<ModelStructure> target_structure;
  ModelStructure source_structure;
  rigtest::Rig rig;
  std::unique_ptr<RetargetModel> target;
  std::unique_ptr<RetargetModel> source;
  GlueMap glue;
};

TEST_F(ExtractionTest, AnIdenticalMotionGivesTheBindPoseBack) {
  const std::vector<CTransformation> bind = [&] {
    std::vector<CTransformation> poses;
    for (int32_t i = 0; i < target->NumNodes(); ++i) poses.push_back(target->Node(i).global_pose);
    return poses;
  }();
  ASSERT_TRUE(BindSource(*target, *source, glue));
  for (int32_t i = 0; i < target->NumNodes(); ++i) EXPECT_EQ(target->Node(i).source_index, i);
  ExtractFrame(*target, *source, 0);
  for (int32_t i = 0; i < target->NumNodes(); ++i) {
    SCOPED_TRACE(target_structure->nodes[static_cast<size_t>(i)].name);
    ExpectNear(target->Node(i).global_pose.GetTranslation(), bind[static_cast<size_t>(i)].GetTranslation());
    EXPECT_TRUE(SameRotation(target->Node(i).global_pose.GetRotation(), CRotation()));
  }
}

TEST_F(ExtractionTest, HipsMoveByTheLegLengthRatioAboutTheHipOffset) {
  ASSERT_TRUE(BindSource(*target, *source, glue));
  EXPECT_DOUBLE_EQ(target->scale, 1.0);
  source->leg_length = 1.0;
  source->hip_offset = 0.1;
  target->leg_length = 2.0;
  target->hip_offset = 0.2;
  SourcePose("Hips").SetTranslationFromValues(1, 1.1, 0);
  ExtractFrame(*target, *source, 0);
  ExpectNear(TargetPose("Hips").GetTranslation(), CVector3(2, 2.2, 0));
  // The knee keeps the target's own offsets below the moved hips.
  ExpectNear(TargetPose("lKnee").GetTranslation(), CVector3(2 + 1, 2.2 - 0.5 - 3.5, 0));
}

TEST_F(ExtractionTest, LimbEndsTakeTheSourceOffsetScaledByTheBoneRatio) {
  ASSERT_TRUE(BindSource(*target, *source, glue));
  const int32_t ankle = Index("lAnkle");
  const double target_length = target->Node(ankle).length;
  source->Node(ankle).length = target_length / 2;  // a source foot bone half as long
  // A limb end hangs from its limb's anchor: the source foot is pulled up and forward, 3
  // below the hip joint and 1 ahead.
  const CVector3 hip = SourcePose("lHip").GetTranslation();
  SourcePose("lAnkle").SetTranslation(hip + CVector3(0, -3, 1));
  ExtractFrame(*target, *source, 0);
  const CVector3 offset = TargetPose("lAnkle").GetTranslation() - TargetPose("lHip").GetTranslation();
  ExpectNear(offset, CVector3(0, -6, 2));
  // A toe that only follows keeps its own offset from the moved foot.
  ExpectNear(TargetPose("lToes").GetTranslation() - TargetPose("lAnkle").GetTranslation(), CVector3(0, 0, 1));
}

TEST_F(ExtractionTest, RotationsComeFromTheSourceOrTheOverride) {
  const int32_t toes = Index("lToes");
  target->Node(toes).override = "Chest";
  const CRotation turn = CRotation::FromAxisAngle(CVector3(0, 1, 0), kPi / 2);
  SourcePose("Chest").SetRotation(
      CRotation::Mul(target->Node(Index("Chest")).rest_rotation_inverse.GetRotation(), turn));
  ASSERT_TRUE(BindSource(*target, *source, glue));
  EXPECT_EQ(target->Node(toes).override_source_index, Index("Chest"));
  ExtractFrame(*target, *source, 0);
  // The chest turns a quarter about +Y; the toes take the chest's normalized rotation
  // through their own rest frame.
  EXPECT_TRUE(SameRotation(TargetPose("Chest").GetRotation(), turn));
  const CRotation expected =
      CRotation::Mul(target->Node(toes).rest_rotation.GetRotation(),
                     CRotation::Mul(target->Node(Index("Chest")).rest_rotation_inverse.GetRotation(), turn));
  EXPECT_TRUE(SameRotation(TargetPose("lToes").GetRotation(), expected));
}

TEST_F(ExtractionTest, ANodeTheSourceLacksFollowsItsParentAndLeavesTheHierarchy) {
  source_structure.nodes[static_cast<size_t>(Index("Spine"))].obj_is_valid = false;
  ASSERT_TRUE(BindSource(*target, *source, glue));
  EXPECT_EQ(target->Node(Index("Spine")).source_index, -1);
  EXPECT_EQ(target_structure->nodes[static_cast<size_t>(Index("Chest"))].parent, 0);
  // The hips turn; the spine keeps its bind rotation relative to them frame after frame.
  const CRotation turn = CRotation::FromAxisAngle(CVector3(0, 1, 0), 0.7);
  SourcePose("Hips").SetRotation(CRotation::Mul(target->Node(0).rest_rotation_inverse.GetRotation(), turn));
  for (int frame = 0; frame < 3; ++frame) {
    ExtractFrame(*target, *source, 0);
    EXPECT_TRUE(SameRotation(TargetPose("Spine").GetRotation(), turn));
  }
}

TEST_F(ExtractionTest, AFreeNodeBehindItsParentBecomesAChildNode) {
  ASSERT_TRUE(BindSource(*target, *source, glue));
  const int32_t chest = Index("Chest");
  const CVector3 spine = SourcePose("Spine").GetTranslation();
  SourcePose("Chest").SetTranslation(spine + CVector3(0, 2, 0));
  ExtractFrame(*target, *source, 0);
  EXPECT_EQ(target_structure->nodes[static_cast<size_t>(chest)].type, StructureNodeType::kFree);
  SourcePose("Chest").SetTranslation(spine + CVector3(0, -2, 0));
  ExtractFrame(*target, *source, 0);
  EXPECT_EQ(target_structure->nodes[static_cast<size_t>(chest)].type, StructureNodeType::kChild);
  // From then on the chest keeps the target's own offset above the spine.
  ExpectNear(TargetPose("Chest").GetTranslation() - TargetPose("Spine").GetTranslation(), CVector3(0, 2, 0));
}

TEST_F(ExtractionTest, SolveLimbsReachesTheFootWithTheBonesLengthsKept) {
  const StructurePlane& plane = target_structure->planes[0];
  const int32_t ankle = plane.span, knee = plane.chain[1], hip = plane.chain[2];
  const auto position = [&](int32_t i) { return target->Node(i).global_pose.GetTranslation(); };
  const double upper = (position(knee) - position(hip)).GetLength();
  const double lower = (position(ankle) - position(knee)).GetLength();
  target->Node(knee).length = upper;
  target->Node(ankle).length = upper + lower;
  // The foot is pulled up and forward; the limb must bend towards +Z (knee forward) when
  // the plane normal is -X.
  target->Node(ankle).global_pose.SetTranslation(position(hip) + CVector3(0, -5, 2));
  target->Plane(0).up_vector = CVector3(-1, 0, 0);
  target->Plane(0).rest_end_direction = CVector3(0, -1, 0);
  SolveLimbs(*target);
  EXPECT_NEAR((position(knee) - position(hip)).GetLength(), upper, 1e-9);
  EXPECT_NEAR(position(knee).GetX(), position(hip).GetX(), 1e-9);
  EXPECT_GT(position(knee).GetZ(), position(hip).GetZ() + 0.5);
  // The lower bone now points at the foot.
  const CVector3 aim = target->Node(knee).global_pose.GetRotation().GetQuaternion().Rotate(CVector3(0, -1, 0));
  CVector3 to_foot = position(ankle) - position(knee);
  to_foot.NormalizeInPlace();
  ExpectNear(aim, to_foot, 1e-9);
  EXPECT_NEAR((position(ankle) - position(knee)).GetLength(), lower, 1e-9);
}

// A capture skeleton of the rig's own layout drives it through the capture flow: one
// motion frame per sample, starting at scene frame 1, the hips following the capture's.
TEST_F(ExtractionTest, ACaptureSkeletonDrivesTheRig) {
  struct JointLayout {
    const char* name;
    int32_t parent;
    CVector3 offset;
  };
  const JointLayout layouts[] = {{"Hips", -1, {0, 10, 0}},   {"lHip", 0, {1, -0.5, 0}}, {"lKnee", 1, {0, -3.5, 0}},
                             {"lAnkle", 2, {0, -4, 0}}, {"lToes", 3, {0, 0, 1}},    {"Spine", 0, {0, 2, 0}},
                             {"Chest", 5, {0, 2, 0}}};
  constexpr int kSamples = 3;
  MocapSkeleton skeleton;
  for (const JointLayout& layout : layouts) {
    MocapJoint& joint = skeleton.joints.emplace_back();
    joint.name = layout.name;
    joint.parent = layout.parent;
    joint.tagged = true;
    joint.node_name = layout.name;
    const StructureNode& node = target_structure->nodes[static_cast<size_t>(Index(layout.name))];
    joint.align = node.align;
    joint.roll = node.roll;
    for (int f = 0; f < kSamples; ++f) {
      joint.translations.push_back(layout.parent < 0 ? layout.offset + CVector3(f, 0, 0) : layout.offset);
      joint.rotations.emplace_back(1, 0, 0, 0);
    }
  }
  skeleton.frame_count = kSamples;
  PoseSkeleton(skeleton, 0);
  ModelStructure capture_structure = *target_structure;
  RetargetModel capture(&skeleton, &capture_structure);
  ComputeRestData(capture);
  EXPECT_NEAR(capture.leg_length, target->leg_length, 1e-9);

  std::optional<NormalizedMotion> kept;
  int32_t inserted_at = -1;
  const MotionHandOver keep = [&](GlueMap&, NormalizedMotion& motion, int32_t insertion) {
    kept = motion;
    inserted_at = insertion;
    return true;
  };
  ASSERT_TRUE(ApplyMocapMotion(*target, capture, glue, keep));
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->frame_count, kSamples);
  EXPECT_EQ(inserted_at, 1);
  for (int f = 0; f < kSamples; ++f) {
    ExpectNear(kept->global_poses[0][static_cast<size_t>(f)].GetTranslation(), CVector3(f, 10, 0));
  }
  // A capture without a skeleton is no capture source.
  RetargetModel empty(&capture_structure);
  EXPECT_FALSE(ApplyMocapMotion(*target, empty, glue, keep));
}

TEST_F(ExtractionTest, StructuresOfAnotherKindAreRefused) {
  source_structure.type = "Quadruped";
  EXPECT_FALSE(BindSource(*target, *source, glue));
  EXPECT_TRUE(Logged(L"The normalized motion must have the same type as the model structure."));
  source_structure.type = target_structure->type;
  source_structure.nodes[0].name = "Pelvis";
  KRX::rt::ClearLog();
  EXPECT_FALSE(BindSource(*target, *source, glue));
  EXPECT_FALSE(Logged(L"normalized motion"));
}

TEST(LimbMath, UpVectorsAndStraightLimbs) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  RetargetModel model(structure.get());
  const StructurePlane& plane = structure->planes[0];
  model.Node(plane.anchor_index).global_pose.SetTranslationFromValues(0, 8, 0);
  model.Node(plane.mid).global_pose.SetTranslationFromValues(0, 4, 1);
  model.Node(plane.span).global_pose.SetTranslationFromValues(0, 0, 0);
  ComputeUpVectors(model);
  ExpectNear(model.Plane(0).up_vector, CVector3(-1, 0, 0));
  model.Node(plane.mid).global_pose.SetTranslationFromValues(0, 4, 0.001);
  ComputeUpVectors(model);
  ExpectNear(model.Plane(0).up_vector, CVector3());
}

TEST(LimbMath, NormalizeThenDenormalizeGivesTheRotationBack) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  RetargetModel model(structure.get());
  const CRotation rest = CRotation::FromAxisAngle(CVector3(1, 2, 3), 0.9);
  const CRotation pose = CRotation::FromAxisAngle(CVector3(-2, 1, 0.5), 2.1);
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    model.Node(i).rest_rotation.SetRotation(rest);
    model.Node(i).rest_rotation_inverse.SetRotation(rest.Inverse());
    model.Node(i).global_pose.SetRotation(pose);
  }
  NormalizeRotations(model, false);
  EXPECT_FALSE(SameRotation(model.Node(0).global_pose.GetRotation(), pose));
  DenormalizeRotations(model);
  EXPECT_TRUE(SameRotation(model.Node(0).global_pose.GetRotation(), pose));
}

}  // namespace
}  // namespace kavor

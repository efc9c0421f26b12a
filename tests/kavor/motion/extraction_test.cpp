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

namespace kavor {
namespace {

using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
using rigtest::RigTest;

void ExpectNear(const CVector3& actual, const CVector3& expected, double tolerance = 1e-9) {
  EXPECT_TRUE(actual.Equals(expected, tolerance))
      << actual.GetX() << " " << actual.GetY() << " " << actual.GetZ();
}

bool SameRotation(const CRotation& a, const CRotation& b) {
  return a.GetQuaternion().SameRotation(b.GetQuaternion(), 1e-9);
}

CRotation About(const CVector3& axis, double angle) {
  return CRotation::FromAxisAngle(axis, angle);
}
const CVector3 kX(1, 0, 0), kY(0, 1, 0);

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
    for (int32_t i = 0; i < source->NumNodes(); ++i) {
      CTransformation& pose = source->poses.emplace_back(target->Node(i).global_pose);
      pose.SetRotation(target->Node(i).rest_rotation_inverse.GetRotation());
      source->Node(i).length = target->Node(i).length;
    }
    source->leg_length = target->leg_length;
    source->hip_offset = target->hip_offset;
  }

  int32_t Index(const char* name) const { return FindNodeIndex(*target_structure, name); }
  CTransformation& SourcePose(const char* name) {
    return source->poses[static_cast<size_t>(Index(name))];
  }
  const CTransformation& TargetPose(const char* name) {
    return target->Node(Index(name)).global_pose;
  }
  // A source rotation that the target node `name` takes as the world rotation `world`.
  void TurnSource(const char* name, const CRotation& world) {
    SourcePose(name).SetRotation(
        CRotation::Mul(target->Node(Index(name)).rest_rotation_inverse.GetRotation(), world));
  }

  std::unique_ptr<ModelStructure> target_structure;
  ModelStructure source_structure;
  rigtest::Rig rig;
  std::unique_ptr<RetargetModel> target;
  std::unique_ptr<RetargetModel> source;
  GlueMap glue;
};

TEST_F(ExtractionTest, HipsMoveByTheLegLengthRatioAboutTheHipOffset) {
  ASSERT_TRUE(BindSource(*target, *source, glue));
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
  source->Node(ankle).length = target->Node(ankle).length / 2;  // a source foot half as long
  // The source foot pulled up and forward: 3 below the hip joint and 1 ahead.
  SourcePose("lAnkle").SetTranslation(SourcePose("lHip").GetTranslation() + CVector3(0, -3, 1));
  ExtractFrame(*target, *source, 0);
  ExpectNear(TargetPose("lAnkle").GetTranslation() - TargetPose("lHip").GetTranslation(),
             CVector3(0, -6, 2));
  // A toe that only follows keeps its own offset from the moved foot.
  ExpectNear(TargetPose("lToes").GetTranslation() - TargetPose("lAnkle").GetTranslation(),
             CVector3(0, 0, 1));
}

TEST_F(ExtractionTest, RotationsComeFromTheSourceOrTheOverride) {
  const int32_t toes = Index("lToes");
  target->Node(toes).override = "Chest";
  const CRotation turn = About(kY, KRX::MATH::kPi / 2);
  TurnSource("Chest", turn);
  ASSERT_TRUE(BindSource(*target, *source, glue));
  EXPECT_EQ(target->Node(toes).override_source_index, Index("Chest"));
  ExtractFrame(*target, *source, 0);
  EXPECT_TRUE(SameRotation(TargetPose("Chest").GetRotation(), turn));
  // The toes take the chest's normalized rotation through their own rest frame.
  const CRotation expected = CRotation::Mul(target->Node(toes).rest_rotation.GetRotation(),
                                            SourcePose("Chest").GetRotation());
  EXPECT_TRUE(SameRotation(TargetPose("lToes").GetRotation(), expected));
}

TEST_F(ExtractionTest, ANodeWithoutASource) {
  source_structure.nodes[static_cast<size_t>(Index("Spine"))].obj_is_valid = false;
  // A rest rotation of 0.3 rad about X on the spine, which stands unrotated when bound.
  target->Node(Index("Spine")).rest_rotation.SetRotation(About(kX, 0.3));
  ASSERT_TRUE(BindSource(*target, *source, glue));
  EXPECT_EQ(target->Node(Index("Spine")).source_index, -1);
  // It leaves the hierarchy: its child moves up to its parent, and it hangs from the root.
  EXPECT_EQ(target_structure->nodes[static_cast<size_t>(Index("Chest"))].parent, 0);
  const CRotation turn = About(kY, 0.7);
  TurnSource("Hips", turn);
  // By default it keeps its global rotation and takes its rest rotation once more each frame;
  // as an option it keeps its bind rotation relative to the hips, frame after frame.
  for (int frame = 1; frame <= 3; ++frame) {
    ExtractFrame(*target, *source, 0);
    EXPECT_TRUE(SameRotation(TargetPose("Spine").GetRotation(), About(kX, 0.3 * frame)));
  }
  for (int frame = 1; frame <= 2; ++frame) {
    ExtractFrame(*target, *source, 0, {UnsourcedNodeRule::kKeepBindRotation});
    EXPECT_TRUE(SameRotation(TargetPose("Spine").GetRotation(), turn));
  }
}

// An unbound node within 1e-5 of its parent's limb end (a foot control on the ankle) keeps
// its parent; farther away it hangs from the root.
TEST_F(ExtractionTest, AnUnboundNodeOnItsParentsLimbEndKeepsItsParent) {
  const int32_t toes = Index("lToes"), ankle = Index("lAnkle");
  source_structure.nodes[static_cast<size_t>(toes)].obj_is_valid = false;
  for (const auto& [gap, parent] : {std::pair{0.9e-5, ankle}, {1.1e-5, 0}}) {
    target_structure->nodes[static_cast<size_t>(toes)].parent = ankle;
    rigtest::PlaceAt(rig.toes, 1, 2, gap);  // the ankle is at (1, 2, 0)
    ASSERT_TRUE(BindSource(*target, *source, glue));
    EXPECT_EQ(target_structure->nodes[static_cast<size_t>(toes)].parent, parent) << gap;
  }
}

TEST_F(ExtractionTest, AFreeNodeBehindItsParentBecomesAChildNode) {
  ASSERT_TRUE(BindSource(*target, *source, glue));
  const StructureNode& chest = target_structure->nodes[static_cast<size_t>(Index("Chest"))];
  const CVector3 spine = SourcePose("Spine").GetTranslation();
  SourcePose("Chest").SetTranslation(spine + CVector3(0, 0.01, 0));  // just ahead of the spine
  ExtractFrame(*target, *source, 0);
  EXPECT_EQ(chest.type, StructureNodeType::kFree);
  SourcePose("Chest").SetTranslation(spine);  // not ahead
  ExtractFrame(*target, *source, 0);
  EXPECT_EQ(chest.type, StructureNodeType::kChild);
  // From then on the chest keeps the offset it last took from the source, as a child does.
  SourcePose("Chest").SetTranslation(spine + CVector3(0, 3, 0));
  ExtractFrame(*target, *source, 0);
  ExpectNear(TargetPose("Chest").GetTranslation() - TargetPose("Spine").GetTranslation(),
             CVector3(0, 0.01, 0));
}

TEST_F(ExtractionTest, SolveLimbsReachesTheFootWithTheBonesLengthsKept) {
  const StructurePlane& plane = target_structure->planes[0];
  const int32_t ankle = plane.span, knee = plane.chain[1], hip = plane.chain[2];
  const auto position = [&](int32_t i) { return target->Node(i).global_pose.GetTranslation(); };
  const double upper = (position(knee) - position(hip)).GetLength();
  const double lower = (position(ankle) - position(knee)).GetLength();
  target->Node(knee).length = upper;
  target->Node(ankle).length = upper + lower;
  // The foot pulled up and forward; with the plane normal -X the knee bends forward (+Z).
  target->Node(ankle).global_pose.SetTranslation(position(hip) + CVector3(0, -5, 2));
  target->Plane(0).up_vector = CVector3(-1, 0, 0);
  target->Plane(0).rest_end_direction = CVector3(0, -1, 0);
  SolveLimbs(*target);
  EXPECT_NEAR((position(knee) - position(hip)).GetLength(), upper, 1e-9);
  EXPECT_NEAR((position(ankle) - position(knee)).GetLength(), lower, 1e-9);
  EXPECT_NEAR(position(knee).GetX(), position(hip).GetX(), 1e-9);
  EXPECT_GT(position(knee).GetZ(), position(hip).GetZ() + 0.5);
  // The lower bone now points at the foot.
  CVector3 to_foot = position(ankle) - position(knee);
  to_foot.NormalizeInPlace();
  ExpectNear(
      target->Node(knee).global_pose.GetRotation().GetQuaternion().Rotate(CVector3(0, -1, 0)),
      to_foot);
  // A chain cut to two nodes (a bone without an object) is left as it is.
  target_structure->planes[0].chain.pop_back();
  target->Node(ankle).global_pose.SetTranslation(position(hip) + CVector3(0, -3, 3));
  const CVector3 knee_before = position(knee);
  SolveLimbs(*target);
  ExpectNear(position(knee), knee_before);
}

// A capture skeleton of the rig's own layout drives it through the capture flow: one
// motion frame per sample, starting at scene frame 1, the hips following the capture's.
TEST_F(ExtractionTest, ACaptureSkeletonDrivesTheRig) {
  constexpr int kSamples = 3;
  MocapSkeleton skeleton;
  skeleton.frame_count = kSamples;
  for (int32_t i = 0; i < target_structure->NumNodes(); ++i) {
    const StructureNode& node = target_structure->nodes[static_cast<size_t>(i)];
    MocapJoint& joint = skeleton.joints.emplace_back();
    joint.name = joint.node_name = node.name;
    joint.parent = node.parent;
    joint.tagged = true;
    joint.align = node.align;
    joint.roll = node.roll;
    const CVector3 offset =
        target->Node(i).global_pose.GetTranslation() -
        (node.parent < 0 ? CVector3() : target->Node(node.parent).global_pose.GetTranslation());
    for (int f = 0; f < kSamples; ++f) {
      joint.translations.push_back(node.parent < 0 ? offset + CVector3(f, 0, 0) : offset);
      joint.rotations.emplace_back(1, 0, 0, 0);
    }
  }
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
  ASSERT_EQ(kept->frame_count, kSamples);
  ASSERT_EQ(kept->global_poses[0].size(), size_t{kSamples});
  EXPECT_EQ(inserted_at, 1);
  for (int f = 0; f < kSamples; ++f) {
    ExpectNear(kept->global_poses[0][static_cast<size_t>(f)].GetTranslation(), CVector3(f, 10, 0));
  }
  RetargetModel empty(&capture_structure);  // no skeleton: no capture source
  EXPECT_FALSE(ApplyMocapMotion(*target, empty, glue, keep));
}

TEST_F(ExtractionTest, StructuresOfAnotherKindAreRefused) {
  source_structure.type = "Quadruped";
  EXPECT_FALSE(BindSource(*target, *source, glue));
  EXPECT_TRUE(rigtest::LoggedLine(
      4, "The normalized motion must have the same type as the model structure."));
  source_structure.type = target_structure->type;
  source_structure.nodes[0].name = "Pelvis";
  KRX::rt::ClearLog();
  EXPECT_FALSE(BindSource(*target, *source, glue));
  EXPECT_TRUE(KRX::rt::LogLines().empty());
}

TEST(LimbMath, UpVectorsAndStraightLimbs) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  RetargetModel model(structure.get());
  const StructurePlane& plane = structure->planes[0];
  model.Node(plane.anchor_index).global_pose.SetTranslationFromValues(0, 8, 0);
  model.Node(plane.span).global_pose.SetTranslationFromValues(0, 0, 0);
  // The middle node bent forward so that the limb's angle at the anchor is `angle`: a limb
  // straighter than 0.1 rad has no up-vector.
  for (const auto& [angle, up] : {std::pair{0.1001, CVector3(-1, 0, 0)}, {0.0999, CVector3()}}) {
    model.Node(plane.mid).global_pose.SetTranslationFromValues(0, 4, 4 * std::tan(angle));
    ComputeUpVectors(model);
    ExpectNear(model.Plane(0).up_vector, up);
  }
}

// A four-node leg of plain objects (the middle ones do not follow the end): +1 when the
// pair next to the anchor and the pair next to the end bend to the same side, else -1.
TEST_F(RigTest, BendSignsOfLongerChains) {
  StructureParseResult parsed = ParseStructureText(
      "Long\nleg { Hips lHip anchor 0 -1 0 0 0 1 0 0 0  lKnee child 0 -1 0 0 0 1 0 -1 0\n"
      "  lShin child 0 -1 0 0 0 1 0 -1 0  lAnkle friction 0 -1 0 0 0 1 0 -1 0 }\n",
      "Long", [](std::string_view) -> std::optional<std::string> {
        return std::string("hips { world Hips hip 0 1 0 0 0 1 0 10 0 }\n");
      });
  ASSERT_TRUE(parsed.structure && parsed.structure->NumPlanes() == 1) << parsed.message;
  ASSERT_EQ(parsed.structure->planes[0].chain.size(), 4u);
  const KRX::Model rig(KRX::Application().GetActiveSceneRoot().AddModel(L"Long"));
  for (const auto& [shin_z, sign] : {std::pair{1.5, 1}, {-0.5, -1}}) {
    RetargetModel model(parsed.structure.get());
    const CVector3 at[] = {{0, 10, 0}, {0, 0, 0}, {0, -1, 1}, {0, -2, shin_z}, {0, -3, 0}};
    for (int32_t i = 0; i < 5; ++i) {
      const std::string name = "n" + std::to_string(i) + (sign > 0 ? "a" : "b");
      model.Node(i).object =
          rigtest::AddNullAt(rig, name.c_str(), at[i].GetX(), at[i].GetY(), at[i].GetZ());
    }
    ComputeBendSigns(model);
    EXPECT_EQ(model.Plane(0).bend_sign, sign);
    ExpectNear(model.Node(4).object.GetKinematics().GetGlobal().GetTransform().GetTranslation(),
               at[4]);
  }
}

TEST(LimbMath, NormalizeThenDenormalizeGivesTheRotationBack) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  RetargetModel model(structure.get());
  const CRotation rest = About(CVector3(1, 2, 3), 0.9);
  const CRotation pose = About(CVector3(-2, 1, 0.5), 2.1);
  model.Node(0).rest_rotation.SetRotation(rest);
  model.Node(0).rest_rotation_inverse.SetRotation(rest.Inverse());
  model.Node(0).global_pose.SetRotation(pose);
  NormalizeRotations(model, false);
  EXPECT_FALSE(SameRotation(model.Node(0).global_pose.GetRotation(), pose));
  DenormalizeRotations(model);
  EXPECT_TRUE(SameRotation(model.Node(0).global_pose.GetRotation(), pose));
}

}  // namespace
}  // namespace kavor

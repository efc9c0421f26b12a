// Rest data of a tagged rig: lengths, rest rotations, leg length and hip offset, checked
// against values worked out by hand from the rig's joint positions.
#include "kavor/maps/rest_data.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>

#include "kavor/io/scene_helpers.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/motion/capture_rig_support.h"
#include "kavor/tagging/tags.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
using rigtest::RigTest;

void ExpectQuaternion(const CTransformation& t, double w, double x, double y, double z) {
  const CQuaternion q = t.GetRotationQuaternion();
  EXPECT_TRUE(q.SameRotation(CQuaternion(w, x, y, z), 1e-5))
      << q.GetW() << " " << q.GetX() << " " << q.GetY() << " " << q.GetZ();
}

TEST(AlignPair, KnownAnswers) {
  const CVector3 x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
  ExpectQuaternion(AlignPair(x, y, z, y), 0.70710678, 0, -0.70710678, 0);
  ExpectQuaternion(AlignPair(y, x, z, y), 0.5, 0.5, 0.5, 0.5);
  ExpectQuaternion(AlignPair(z, -y, z, y), 0, 0, 0, 1);  // roll opposite: half a turn about t
  {  // A roll `gap` short of opposite turns by pi - gap about r x u (-Z here), onto u; within
     // 1e-5 rad of half a turn about t (+Z) instead, which lands 2 gap beyond u.
    for (const auto& [gap, miss] : {std::pair{2e-5, 0.0}, {0.5e-5, 1e-5}}) {
      const CVector3 r(-std::sin(gap), -std::cos(gap), 0);
      const CVector3 turned = AlignPair(z, r, z, y).GetRotationQuaternion().Rotate(r);
      EXPECT_TRUE(turned.Equals(CVector3(std::sin(miss), std::cos(miss), 0), 1e-10)) << gap;
    }
  }
  {  // Align exactly opposite the target: still lands on it, roll turned towards u.
    const CTransformation r = AlignPair(-z, y, z, y);
    EXPECT_TRUE(r.GetRotationQuaternion().Rotate(-z).Equals(z, 1e-9));
    EXPECT_TRUE(r.GetRotationQuaternion().Rotate(y).Equals(y, 1e-9));
  }
  {  // Degenerate input gives a rotation, never NaN.
    const CQuaternion q = AlignPair(CVector3(), y, z, y).GetRotationQuaternion();
    EXPECT_TRUE(std::isfinite(q.GetW()) && std::isfinite(q.GetX()));
  }
}

// Lengths, leg length and hip offset from the joint positions of a rig 1.5 times the size
// whose model is moved and turned when it is tagged: rest data are measured in the model's
// own space.
TEST_F(RigTest, RestDataOfATaggedRig) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  const rigtest::Rig rig = rigtest::BuildRig("Placed", 1.5);
  CTransformation placed;
  placed.SetTranslationFromValues(30, 2, -7);
  placed.SetRotation(KRX::MATH::CRotation::FromAxisAngle(CVector3(0, 1, 0), 1.1));
  rig.model.GetKinematics().GetGlobal().PutTransform(placed);
  rigtest::TagRig(rig, *structure);
  RetargetModel model(rig.model, structure.get());
  ComputeRestData(model);
  const auto length = [&](const char* node) {
    return model.Node(FindNodeIndex(*structure, node)).length / 1.5;
  };
  EXPECT_NEAR(length("Hips"), 10.0, 1e-9);  // the root: its distance from the model
  EXPECT_NEAR(length("lHip"), std::hypot(1.0, 0.5), 1e-9);
  EXPECT_NEAR(length("lKnee"), 3.5, 1e-9);
  EXPECT_NEAR(length("lAnkle"), 7.5, 1e-9);  // ankle back to the hip through the knee
  EXPECT_NEAR(length("Chest"), 2.0, 1e-9);
  EXPECT_NEAR(model.leg_length, 7.5 * 1.5, 1e-9);
  EXPECT_NEAR(model.hip_offset, 0.5 * 1.5, 1e-9);
  // Rest rotations turn the tag's align onto +Z and roll onto +Y.
  const NodeMapEntry& hips = model.Node(0);
  EXPECT_TRUE(hips.align.Equals(CVector3(0, 1, 0), 1e-6));
  EXPECT_TRUE(hips.rest_rotation.GetRotationQuaternion()
                  .Rotate(hips.align)
                  .Equals(CVector3(0, 0, 1), 1e-6));
  EXPECT_TRUE(
      hips.rest_rotation.GetRotationQuaternion().Rotate(hips.roll).Equals(CVector3(0, 1, 0), 1e-6));
}

TEST_F(RigTest, LimbLengthBridgesAnUnboundNode) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  const rigtest::Rig rig = rigtest::BuildRig("Walker");
  // The knee a unit forward, the foot where it was: through the knee the leg is longer than
  // hip to ankle.
  rigtest::PlaceAt(rig.knee, 1, 6, 1);
  rigtest::PlaceAt(rig.ankle, 1, 2, 0);
  rigtest::TagRig(rig, *structure);
  {
    RetargetModel model(rig.model, structure.get());
    ComputeRestData(model);
    EXPECT_NEAR(model.Node(FindNodeIndex(*structure, "lAnkle")).length,
                std::hypot(3.5, 1.0) + std::hypot(4.0, 1.0), 1e-9);
  }
  // Without the knee's tag the leg is measured straight from the ankle to the hip.
  KRX::Property tag;
  ASSERT_TRUE(FindPropertyByName(rig.knee, kTagProperty, &tag));
  ASSERT_TRUE(DeleteByName(tag.GetFullName()));
  std::unique_ptr<ModelStructure> fresh = rigtest::MakeStructure();
  RetargetModel model(rig.model, fresh.get());
  ComputeRestData(model);
  EXPECT_NEAR(model.Node(FindNodeIndex(*fresh, "lAnkle")).length, 7.5, 1e-9);
  EXPECT_FALSE(model.IsBound(FindNodeIndex(*fresh, "lKnee")));
}

// Leg length and hip offset from the feet's lengths and the base node's align direction.
TEST(LegLengthAndHipOffset, FromTheFirstOfTheLongestFeet) {
  {  // No feet: both 0.
    StructureParseResult parsed =
        ParseStructureText("Trunk\n", "Trunk", [](std::string_view) -> std::optional<std::string> {
          return std::string("hips { world Hips hip 0 1 0 0 0 1 0 10 0 }\n");
        });
    ASSERT_TRUE(parsed.structure) << parsed.message;
    RetargetModel model(parsed.structure.get());
    model.leg_length = model.hip_offset = 3.0;
    ComputeLegLength(model);
    ComputeHipOffset(model);
    EXPECT_EQ(model.leg_length, 0.0);
    EXPECT_EQ(model.hip_offset, 0.0);
  }
  {  // Two feet of the same length: the hip offset is measured at the first one's anchor.
    std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
    RetargetModel model(structure.get());
    const int32_t ankle = FindNodeIndex(*structure, "lAnkle");
    const int32_t toes = FindNodeIndex(*structure, "lToes");
    structure->nodes[static_cast<size_t>(toes)].friction = true;  // a second foot, on the ankle
    model.Node(ankle).length = model.Node(toes).length = 7.5;
    model.Node(0).align = CVector3(0, 1, 0);
    model.Node(FindNodeIndex(*structure, "lHip")).global_pose.SetTranslationFromValues(0, -4, 0);
    model.Node(ankle).global_pose.SetTranslationFromValues(0, -8, 0);
    ComputeLegLength(model);
    ComputeHipOffset(model);
    EXPECT_DOUBLE_EQ(model.leg_length, 7.5);
    EXPECT_DOUBLE_EQ(model.hip_offset, 4.0);
  }
}

// A real capture's skeleton in its bind pose (offsets only): every rest measure follows
// from the file's joint offsets.
TEST_F(RigTest, RestDataOfAnImportedCapture) {
  const std::filesystem::path bvh = capturetest::SharedCapture("cmu_02_01.bvh");
  if (bvh.empty()) GTEST_SKIP() << "the shared capture is not there";
  const std::map<std::string, CVector3> offsets = capturetest::JointOffsets(bvh);
  ASSERT_EQ(offsets.count("LeftFoot"), 1u);
  const KRX::Model rig = capturetest::ImportInBindPose(bvh, L"Walker");
  ASSERT_TRUE(rig.IsValid());
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  rigtest::TagObjects(rig, *structure,
                      {{L"Hips", L"Hips"},
                       {L"lHip", L"LeftUpLeg"},
                       {L"lKnee", L"LeftLeg"},
                       {L"lAnkle", L"LeftFoot"},
                       {L"lToes", L"LeftToeBase"},
                       {L"Spine", L"Spine"},
                       {L"Chest", L"Spine1"}});
  RetargetModel model(rig, structure.get());
  ComputeRestData(model);
  const CVector3 hip = offsets.at("LHipJoint") + offsets.at("LeftUpLeg");
  const double thigh = offsets.at("LeftLeg").GetLength();
  const double leg = thigh + offsets.at("LeftFoot").GetLength();
  EXPECT_NEAR(model.Node(FindNodeIndex(*structure, "lHip")).length, hip.GetLength(), 1e-9);
  EXPECT_NEAR(model.Node(FindNodeIndex(*structure, "lKnee")).length, thigh, 1e-9);
  EXPECT_NEAR(model.Node(FindNodeIndex(*structure, "lAnkle")).length, leg, 1e-9);
  EXPECT_NEAR(model.leg_length, leg, 1e-9);
  EXPECT_NEAR(model.hip_offset, -hip.GetY(), 1e-9);  // the hips' align is +Y
}

TEST_F(RigTest, IndexErrorsAreLoggedAndContained) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  RetargetModel model(structure.get());
  model.Node(-1).length = 5.0;
  EXPECT_TRUE(rigtest::LoggedLine(4, "invalid nodeMap index! -1"));
  EXPECT_EQ(model.Node(model.NumNodes()).length, 0.0);  // the scratch entry starts afresh
  model.Plane(99).stretch = 2.0;
  EXPECT_TRUE(rigtest::LoggedLine(4, "invalid planeMap index! 99"));
  EXPECT_EQ(model.Plane(0).stretch, 1.0);
}

}  // namespace
}  // namespace kavor

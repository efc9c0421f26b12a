// Rest data of a tagged rig: lengths, rest rotations, leg length and hip offset, checked
// against values worked out by hand from the rig's joint positions.
#include <gtest/gtest.h>

#include <cmath>

#include "kavor/io/io_test_support.h"
#include "kavor/maps/rest_data.h"
#include "kavor/tagging/tags.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/rig_test_support.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
using rigtest::RigTest;

void ExpectQuaternion(const CTransformation& t, double w, double x, double y, double z) {
  EXPECT_TRUE(t.GetRotationQuaternion().SameRotation(CQuaternion(w, x, y, z), 1e-5))
      << t.GetRotationQuaternion().GetW() << " " << t.GetRotationQuaternion().GetX() << " "
      << t.GetRotationQuaternion().GetY() << " " << t.GetRotationQuaternion().GetZ();
}

// Tags every node of the test structure on the rig built by BuildRig.
void TagRig(const rigtest::Rig& rig, ModelStructure& structure) {
  KRX::Model model = rig.model;
  KRX::CustomProperty page = model.AddCustomProperty(L"TagPage");
  for (const wchar_t* fixed : {L"StructureTag", L"StructureFile", L"TemplateFile", L"dirty"}) {
    page.AddParameter(fixed, KRX::ValueType::String, 4, L"", L"", KRX::CValue(L""));
  }
  const std::pair<const wchar_t*, const wchar_t*> assignments[] = {
      {L"Hips", L"Hips"},   {L"lHip", L"LeftUpLeg"}, {L"lKnee", L"LeftLeg"}, {L"lAnkle", L"LeftFoot"},
      {L"lToes", L"LeftToe"}, {L"Spine", L"Spine"},  {L"Chest", L"Chest"}};
  for (const auto& [node, object] : assignments) {
    page.AddParameter(node, KRX::ValueType::String, 4, L"", L"", KRX::CValue(object));
  }
  ASSERT_TRUE(CreateTagsFromPage(rig.model, structure, page, false));
}

TEST(AlignPair, KnownAnswers) {
  const CVector3 x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
  ExpectQuaternion(AlignPair(x, y, z, y), 0.70710678, 0, -0.70710678, 0);
  ExpectQuaternion(AlignPair(y, x, z, y), 0.5, 0.5, 0.5, 0.5);
  {  // Roll exactly opposite: a half turn about the target direction.
    const CTransformation r = AlignPair(z, -y, z, y);
    ExpectQuaternion(r, 0, 0, 0, 1);
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

TEST_F(RigTest, RestDataOfATaggedRig) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  ASSERT_TRUE(structure);
  const rigtest::Rig rig = rigtest::BuildRig("Walker");
  TagRig(rig, *structure);
  RetargetModel model(rig.model, structure.get());
  ComputeRestData(model);
  const int32_t hips = FindNodeIndex(*structure, "Hips");
  const int32_t knee = FindNodeIndex(*structure, "lKnee");
  const int32_t ankle = FindNodeIndex(*structure, "lAnkle");
  EXPECT_NEAR(model.Node(hips).length, 10.0, 1e-9);  // the root: its distance from the model
  EXPECT_NEAR(model.Node(FindNodeIndex(*structure, "lHip")).length, std::hypot(1.0, 0.5), 1e-9);
  EXPECT_NEAR(model.Node(knee).length, 3.5, 1e-9);
  EXPECT_NEAR(model.Node(ankle).length, 7.5, 1e-9);  // ankle back to the hip through the knee
  EXPECT_NEAR(model.Node(FindNodeIndex(*structure, "Chest")).length, 2.0, 1e-9);
  EXPECT_NEAR(model.leg_length, 7.5, 1e-9);
  EXPECT_NEAR(model.hip_offset, 0.5, 1e-9);
  // Untransformed nulls: rest rotations turn the tag's align onto +Z and roll onto +Y.
  const CTransformation& rest = model.Node(hips).rest_rotation;
  EXPECT_TRUE(rest.GetRotationQuaternion().Rotate(model.Node(hips).align).Equals(CVector3(0, 0, 1), 1e-6));
  EXPECT_TRUE(rest.GetRotationQuaternion().Rotate(model.Node(hips).roll).Equals(CVector3(0, 1, 0), 1e-6));
}

TEST_F(RigTest, LimbLengthBridgesAnUnboundNode) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  const rigtest::Rig rig = rigtest::BuildRig("Walker");
  // The knee a unit forward: through the knee the leg is longer than hip to ankle.
  CTransformation knee = rig.knee.GetKinematics().GetGlobal().GetTransform();
  knee.SetTranslationFromValues(1, 6, 1);
  rig.knee.GetKinematics().GetGlobal().PutTransform(knee);
  CTransformation ankle = rig.ankle.GetKinematics().GetGlobal().GetTransform();
  ankle.SetTranslationFromValues(1, 2, 0);  // the foot stays where it was
  rig.ankle.GetKinematics().GetGlobal().PutTransform(ankle);
  TagRig(rig, *structure);
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

TEST_F(RigTest, RestDataIgnoreWhereTheCharacterStands) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  const rigtest::Rig rig = rigtest::BuildRig("Walker", 1.5);
  // The whole character moved, turned and tagged there.
  CTransformation placed;
  placed.SetTranslationFromValues(30, 2, -7);
  placed.SetRotation(KRX::MATH::CRotation::FromAxisAngle(CVector3(0, 1, 0), 1.1));
  rig.model.GetKinematics().GetGlobal().PutTransform(placed);
  TagRig(rig, *structure);
  RetargetModel model(rig.model, structure.get());
  ComputeRestData(model);
  EXPECT_NEAR(model.leg_length, 7.5 * 1.5, 1e-9);
  EXPECT_NEAR(model.hip_offset, 0.5 * 1.5, 1e-9);
  const int32_t hips = FindNodeIndex(*structure, "Hips");
  EXPECT_TRUE(model.Node(hips).align.Equals(CVector3(0, 1, 0), 1e-6));
}

TEST_F(RigTest, IndexErrorsAreLoggedAndContained) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  RetargetModel model(structure.get());
  model.Node(-1).length = 5.0;
  EXPECT_TRUE(iotest::Logged(4, {"invalid nodeMap index! -1"}));
  EXPECT_EQ(model.Node(model.NumNodes()).length, 0.0);  // the scratch entry starts afresh
  model.Plane(99).stretch = 2.0;
  EXPECT_TRUE(iotest::Logged(4, {"invalid planeMap index! 99"}));
  EXPECT_EQ(model.Plane(0).stretch, 1.0);
}

}  // namespace
}  // namespace kavor

// Tags written from a tag page and from template records, and read back into a
// RetargetModel.
#include "kavor/tagging/tags.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numbers>
#include <sstream>

#include "kavor/io/scene_helpers.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/tagging/map_file.h"

namespace kavor {
namespace {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
using rigtest::RigTest;

std::string TagText(const KRX::X3DObject& object, const wchar_t* property, const wchar_t* name) {
  KRX::Property tag;
  if (!FindPropertyByName(object, property, &tag)) return "<no tag>";
  return ToNarrow(tag.GetParameterValue(name).GetString());
}

CVector3 TagVector(const KRX::X3DObject& object, const wchar_t* property, const wchar_t* prefix) {
  KRX::Property tag;
  if (!FindPropertyByName(object, property, &tag)) return {};
  const std::wstring p(prefix);
  return {tag.GetParameterValue((p + L"x").c_str()).GetDouble(),
          tag.GetParameterValue((p + L"y").c_str()).GetDouble(),
          tag.GetParameterValue((p + L"z").c_str()).GetDouble()};
}

TEST_F(RigTest, TagsFromThePage) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  rigtest::Rig rig = rigtest::BuildRig("Walker");
  KRX::X3DObject knee_joint = rigtest::AddNullAt(rig.knee, "LeftLegJoint", 1, 6, 0);
  // The ankle turned a quarter about Z; the toes mirrored.
  CTransformation turned = rig.ankle.GetKinematics().GetGlobal().GetTransform();
  turned.SetRotation(KRX::MATH::CRotation::FromAxisAngle(CVector3(0, 0, 1), std::numbers::pi / 2));
  rig.ankle.GetKinematics().GetGlobal().PutTransform(turned);
  CTransformation mirrored = rig.toes.GetKinematics().GetGlobal().GetTransform();
  mirrored.SetScalingFromValues(-1, 1, 1);
  rig.toes.GetKinematics().GetGlobal().PutTransform(mirrored);

  rigtest::TagObjects(rig.model, *structure,
                      {{L"Hips", L"Hips"},
                       {L"cog", L"Hips"},  // never an override
                       {L"lHip", L"LeftUpLeg|LeftUpLeg"},
                       {L"lKnee", L"LeftLeg|LeftLegJoint"},
                       {L"lAnkle", L"LeftFoot|LeftLeg|Chest"},
                       {L"lToes", L"LeftToe"},
                       {L"Spine", L"Spine"},
                       {L"Chest", L"Spine"},
                       {L"Missing", L"NoSuchObject"}});
  EXPECT_EQ(TagText(rig.hips, kTagProperty, L"tagname"), "Hips");
  EXPECT_EQ(TagText(rig.hips, kTagProperty, L"override"), "");
  EXPECT_EQ(TagText(rig.spine, kTagProperty, L"override"), "Chest");
  EXPECT_EQ(TagText(rig.chest, kTagProperty, L"tagname"), "<no tag>");
  // Extraction equal to the control object, or three fields: no extraction object.
  EXPECT_EQ(TagText(rig.hip, kTagProperty, L"extractNode"), "");
  EXPECT_EQ(TagText(rig.ankle, kTagProperty, L"extractNode"), "");
  EXPECT_EQ(TagText(rig.knee, kTagProperty, L"extractNode"), "LeftLegJoint");
  EXPECT_TRUE(FindPropertyByName(knee_joint, kExtractionTagProperty, nullptr));
  EXPECT_FALSE(FindPropertyByName(rig.hip, kExtractionTagProperty, nullptr));
  // Directions in the object's frame: the foot's world +Z stays +Z, its +Y is the
  // object's +X after a quarter turn about Z. Mirrored toes negate both.
  EXPECT_TRUE(TagVector(rig.ankle, kTagProperty, L"align").Equals(CVector3(0, 0, 1), 1e-6));
  EXPECT_TRUE(TagVector(rig.ankle, kTagProperty, L"roll").Equals(CVector3(1, 0, 0), 1e-6));
  EXPECT_TRUE(TagVector(rig.toes, kTagProperty, L"align").Equals(CVector3(0, 0, -1), 1e-6));
  // The toes turned with the ankle: world +Y is their +X, negated by the mirror.
  EXPECT_TRUE(TagVector(rig.toes, kTagProperty, L"roll").Equals(CVector3(-1, 0, 0), 1e-6));

  // Read back.
  RetargetModel model(rig.model, structure.get());
  const NodeMapEntry& knee = model.Node(FindNodeIndex(*structure, "lKnee"));
  ASSERT_TRUE(knee.extraction);
  EXPECT_EQ(knee.extraction->object, knee_joint);
  EXPECT_TRUE(knee.tpose.GetTranslation().Equals(CVector3(1, 6, 0), 1e-9));
  const NodeMapEntry& ankle = model.Node(FindNodeIndex(*structure, "lAnkle"));
  EXPECT_TRUE(
      ankle.tpose.GetRotationQuaternion().SameRotation(turned.GetRotationQuaternion(), 1e-9));

  // Tagging again starts from a model without tags.
  rigtest::TagObjects(rig.model, *structure, {{L"Hips", L"Hips"}});
  EXPECT_EQ(TagText(rig.knee, kTagProperty, L"tagname"), "<no tag>");
  EXPECT_FALSE(FindPropertyByName(knee_joint, kExtractionTagProperty, nullptr));
}

TEST_F(RigTest, TemplateTagsTakeTheRestPoseWhenRead) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  rigtest::Rig rig = rigtest::BuildRig("Walker");
  std::vector<TemplateTag> records(3);
  records[0].tag_name = records[0].node_name = "Hips";
  records[0].align = CVector3(0, 1, 0);
  records[1].tag_name = "lHip";  // the condition object is missing: the alternative is used
  records[1].condition_node = "NoSuchObject";
  records[1].node_name = "Nothing";
  records[1].alternative_node = "LeftUpLeg";
  records[2].tag_name = records[2].node_name = "Spine";
  records[2].override = "Chest";
  ASSERT_TRUE(ApplyTemplateTags(records, rig.model));
  EXPECT_EQ(TagText(rig.hip, kTagProperty, L"tagname"), "lHip");
  EXPECT_EQ(TagText(rig.spine, kTagProperty, L"override"), "Chest");

  CTransformation moved = rig.hips.GetKinematics().GetGlobal().GetTransform();
  moved.SetTranslationFromValues(3, 11, 4);
  rig.hips.GetKinematics().GetGlobal().PutTransform(moved);
  RetargetModel model(rig.model, structure.get());
  EXPECT_TRUE(model.Node(0).tpose.GetTranslation().Equals(CVector3(3, 11, 4), 1e-9));
  EXPECT_TRUE(model.Node(0).align.Equals(CVector3(0, 1, 0), 1e-6));

  // A record whose object is missing stops with a warning.
  records[0].node_name = "Ghost";
  EXPECT_FALSE(ApplyTemplateTags(records, rig.model));
  EXPECT_TRUE(rigtest::LoggedLine(4, "cannot apply tag Hips, node not found: Ghost"));
}

TEST_F(RigTest, ReadingSkipsUntaggedNodesAndSplitsChannels) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  rigtest::Rig rig = rigtest::BuildRig("Walker");
  KRX::X3DObject cog = rigtest::AddNullAt(rig.model, "CogCtl", 0, 10, 0);
  KRX::X3DObject pelvis = rigtest::AddNullAt(cog, "PelvisCtl", 0, 10, 0);
  rigtest::TagObjects(rig.model, *structure,
                      {{L"Hips", L"Hips"},
                       {L"lHip", L"LeftUpLeg"},
                       {L"lKnee", L"LeftLeg"},
                       {L"lToes", L"LeftToe"},
                       {L"Chest", L"Chest"},
                       {L"cog", L"CogCtl"},
                       {L"pelvis", L"PelvisCtl"}});
  RetargetModel model(rig.model, structure.get());
  // The ankle and the spine have no objects: their children hang from their parents.
  EXPECT_EQ(structure->nodes[static_cast<size_t>(FindNodeIndex(*structure, "lToes"))].parent,
            FindNodeIndex(*structure, "lHip"));
  EXPECT_EQ(structure->nodes[static_cast<size_t>(FindNodeIndex(*structure, "Chest"))].parent,
            FindNodeIndex(*structure, "Hips"));
  // The hips' translation goes to cog (slots PX, PY, PZ), its rotation to pelvis.
  const std::vector<SubControlEntry>& subs = model.Node(0).sub_controls;
  ASSERT_EQ(subs.size(), 2u);
  EXPECT_EQ(subs[0].object, cog);
  EXPECT_EQ(subs[0].channels, 1u | 2u | 4u);
  EXPECT_EQ(subs[1].object, pelvis);
  EXPECT_EQ(subs[1].channels, 8u | 16u | 32u);

  // The map section lists the tagged nodes in structure order.
  std::ostringstream out;
  WriteTagTemplate(out, model);
  const std::string text = out.str();
  Tokenizer tokenizer(text);
  const std::optional<MapFile> map = ReadMapSection(tokenizer);
  ASSERT_TRUE(map);
  EXPECT_EQ(map->structure_source, "TestRig");
  ASSERT_EQ(map->entries.size(), 5u);
  EXPECT_EQ(map->entries[0].node_name, "Hips");
  EXPECT_TRUE(map->entries[0].align.Equals(model.Node(0).align, 1e-12));
}

TEST_F(RigTest, PlanesAndSubControlsFoundByOverride) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  rigtest::Rig rig = rigtest::BuildRig("Walker");
  // The knee turned a quarter about Z, the ankle left where it stood: the knee-to-ankle
  // direction (0, -4, 0) in the knee's frame is -X.
  CTransformation knee = rig.knee.GetKinematics().GetGlobal().GetTransform();
  knee.SetRotation(KRX::MATH::CRotation::FromAxisAngle(CVector3(0, 0, 1), std::numbers::pi / 2));
  rig.knee.GetKinematics().GetGlobal().PutTransform(knee);
  CTransformation ankle;
  ankle.SetTranslationFromValues(1, 2, 0);
  rig.ankle.GetKinematics().GetGlobal().PutTransform(ankle);
  KRX::X3DObject pelvis = rigtest::AddNullAt(rig.model, "PelvisCtl", 0, 10, 0);
  // PelvisCtl plays Spine and, as its override, the "pelvis" sub-control.
  rigtest::TagObjects(rig.model, *structure,
                      {{L"Hips", L"Hips"},
                       {L"lHip", L"LeftUpLeg"},
                       {L"lKnee", L"LeftLeg"},
                       {L"lAnkle", L"LeftFoot"},
                       {L"Spine", L"PelvisCtl"},
                       {L"pelvis", L"PelvisCtl"}});

  RetargetModel model(structure.get());
  model.model = rig.model;
  ReadTags(model);
  EXPECT_TRUE(model.Plane(0).rest_end_direction.Equals(CVector3(-1, 0, 0), 1e-9));
  // The node next to the limb end keeps its object's local transform: 3.5 below the hip.
  const NodeMapEntry& knee_entry = model.Node(FindNodeIndex(*structure, "lKnee"));
  EXPECT_TRUE(knee_entry.local_pose.GetTranslation().Equals(CVector3(0, -3.5, 0), 1e-9));
  EXPECT_TRUE(knee_entry.local_pose.GetRotationQuaternion().SameRotation(
      knee.GetRotationQuaternion(), 1e-9));

  const std::vector<SubControlEntry>& subs = model.Node(0).sub_controls;
  ASSERT_EQ(subs.size(), 1u);  // nothing plays "cog"
  EXPECT_EQ(subs[0].object, pelvis);
  EXPECT_EQ(subs[0].name, "pelvis");
  EXPECT_EQ(subs[0].node_index, 0);
  EXPECT_EQ(subs[0].channels, 8u | 16u | 32u);
}

TEST(TposeTransform, SevenNumbersThatReadBackExactly) {
  CTransformation transform;
  transform.SetRotation(KRX::MATH::CRotation::FromAxisAngle(CVector3(1, 2, 3), 2.5));
  transform.SetTranslationFromValues(0.1, -1.0 / 3.0, 12345.678901234567);
  const std::string text = FormatTposeTransform(transform);
  EXPECT_EQ(std::count(text.begin(), text.end(), ','), 6);
  CTransformation read;
  ASSERT_TRUE(ParseTposeTransform(text, read));
  EXPECT_EQ(read.GetTranslation(), transform.GetTranslation());
  EXPECT_TRUE(read.GetRotationQuaternion().SameRotation(transform.GetRotationQuaternion(), 1e-15));
  // A template tag's text (the node name) or six numbers: not a transform.
  EXPECT_FALSE(ParseTposeTransform("Hips", read));
  EXPECT_FALSE(ParseTposeTransform("0,0,1,0,1,2", read));
}

TEST(SplitTagValue, Fields) {
  const std::tuple<const char*, int, std::string> cases[] = {
      {"a|b", 1, "a"}, {"a|b", 2, "b"}, {"a|b|c", 2, ""}, {"", 1, ""}, {"a", 2, ""}};
  for (const auto& [value, field, expected] : cases) {
    EXPECT_EQ(SplitTagValue(value, field), expected) << value << " " << field;
  }
}

}  // namespace
}  // namespace kavor

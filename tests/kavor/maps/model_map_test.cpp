// The structure and the rest data stored on a model: round trips, the version rules and
// damaged data.
#include <gtest/gtest.h>

#include <cmath>

#include "kavor/io/io_test_support.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/mocap_skeleton.h"
#include "kavor/maps/model_map.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/tags.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CVector3;
using rigtest::RigTest;

KRX::Property StoredProperty(const KRX::X3DObject& model, const wchar_t* name) {
  KRX::Property property;
  EXPECT_TRUE(FindPropertyByName(model, name, &property));
  return property;
}

TEST_F(RigTest, StructureRoundTripAndVersions) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  rigtest::Rig rig = rigtest::BuildRig("Walker");
  WriteStructureProperty(*structure, rig.model);
  WriteStructureProperty(*structure, rig.model);  // replaced, not added
  int count = 0;
  for (const KRX::Property& p : rig.model.GetProperties()) count += p.GetName() == KRX::CString(kStructureProperty);
  EXPECT_EQ(count, 1);
  {
    const std::optional<ModelStructure> read = ReadStructureProperty(rig.model);
    ASSERT_TRUE(read);
    ASSERT_EQ(read->NumNodes(), structure->NumNodes());
    for (size_t i = 0; i < structure->nodes.size(); ++i) {
      const StructureNode& a = structure->nodes[i];
      const StructureNode& b = read->nodes[i];
      EXPECT_EQ(a.name, b.name);
      EXPECT_EQ(a.parent, b.parent);
      EXPECT_EQ(a.offset_parent, b.offset_parent);
      EXPECT_EQ(a.type, b.type);
      EXPECT_EQ(a.friction, b.friction);
      EXPECT_TRUE(a.align.Equals(b.align) && a.roll.Equals(b.roll));
      EXPECT_EQ(b.offset, CVector3());  // offsets live only in the group tables
    }
    ASSERT_EQ(read->planes.size(), 1u);
    EXPECT_EQ(read->planes[0].chain, structure->planes[0].chain);
    ASSERT_EQ(read->decomps.size(), 1u);
    EXPECT_EQ(read->decomps[0].channels, (std::vector<std::string>{"cog", "pelvis"}));
    const StructureGroupNode* knee = FindGroupNode(*read, "lKnee");
    ASSERT_NE(knee, nullptr);
    EXPECT_TRUE(knee->offset.Equals(CVector3(0, -4, 0)));
  }
  KRX::Property property = StoredProperty(rig.model, kStructureProperty);
  {  // Version 7: eleven node columns, no mirrors.
    property.PutParameterValue(L"Version", KRX::CValue(7));
    KRX::GridData nodes = property.GetParameter(L"Nodes").GetGridData();
    nodes.PutColumnCount(11);
    const std::optional<ModelStructure> read = ReadStructureProperty(rig.model);
    ASSERT_TRUE(read);
    for (const StructureNode& node : read->nodes) EXPECT_EQ(node.mirror_index, -1);
  }
  {  // Version 6 is refused with its note.
    KRX::rt::ClearLog();
    property.PutParameterValue(L"Version", KRX::CValue(6));
    EXPECT_FALSE(ReadStructureProperty(rig.model));
    EXPECT_TRUE(iotest::Logged(8, {"The embedded model structure has an outdated version number.  Please reload the tag template."}));
  }
  {  // Damaged counts and cells: refused, never read outside the tables.
    property.PutParameterValue(L"Version", KRX::CValue(8));
    property.GetParameter(L"Nodes").GetGridData().PutColumnCount(12);
    property.PutParameterValue(L"numNodes", KRX::CValue(500));
    EXPECT_FALSE(ReadStructureProperty(rig.model));
    property.PutParameterValue(L"numNodes", KRX::CValue(structure->NumNodes()));
    property.GetParameter(L"Nodes").GetGridData().PutCell(0, 1, KRX::CValue(99));  // a parent after its child
    EXPECT_FALSE(ReadStructureProperty(rig.model));
    EXPECT_TRUE(iotest::Logged(2, {"The embedded model structure is damaged"}));
  }
  EXPECT_EQ(TextToVector("1,2.5,-3"), CVector3(1, 2.5, -3));
  KRX::rt::ClearLog();
  EXPECT_EQ(TextToVector("1,2"), CVector3());
  EXPECT_TRUE(iotest::Logged(8, {"Error converting string to CVector3  : <1,2"}));
}

TEST_F(RigTest, ModelMapRoundTripAndChecks) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  rigtest::Rig rig = rigtest::BuildRig("Walker");
  RetargetModel written(structure.get());
  written.model = rig.model;
  for (int32_t i = 0; i < written.NumNodes(); ++i) {
    written.Node(i).length = 1.5 * i;
    written.Node(i).rest_rotation.SetRotation(
        KRX::MATH::CRotation::FromAxisAngle(CVector3(0, 1, 0), 0.1 * i));
  }
  written.Node(2).extraction = std::make_unique<ExtractionEntry>();
  written.Node(2).extraction->object = rig.ankle;
  written.Node(2).extraction->transform.SetRotation(KRX::MATH::CRotation::FromAxisAngle(CVector3(1, 0, 0), 0.5));
  written.hip_offset = 0.25;
  written.leg_length = 7.5;
  WriteModelMap(written);

  auto read_back = [&]() {
    auto model = std::make_unique<RetargetModel>(structure.get());
    model->model = rig.model;
    KRX::rt::ClearLog();
    ReadModelMap(*model);
    return model;
  };
  {
    std::unique_ptr<RetargetModel> read = read_back();
    ASSERT_TRUE(read->valid);
    EXPECT_DOUBLE_EQ(read->Node(3).length, 4.5);
    EXPECT_TRUE(read->Node(3).rest_rotation.GetRotationQuaternion().SameRotation(
        written.Node(3).rest_rotation.GetRotationQuaternion(), 1e-12));
    ASSERT_TRUE(read->Node(2).extraction);
    EXPECT_EQ(read->Node(2).extraction->object, rig.ankle);
    EXPECT_FALSE(read->Node(1).extraction);  // four zeros: no extraction
    EXPECT_DOUBLE_EQ(read->hip_offset, 0.25);
    EXPECT_DOUBLE_EQ(read->leg_length, 7.5);
  }
  KRX::Property property = StoredProperty(rig.model, kModelMapProperty);
  {  // An extraction rotation of norm exactly 0.5 is no extraction.
    property.GetParameter(L"Nodes").GetGridData().PutCell(6, 1, KRX::CValue(0.5));
    EXPECT_FALSE(read_back()->Node(1).extraction);
  }
  {
    property.PutParameterValue(L"Version", KRX::CValue(5));
    EXPECT_FALSE(read_back()->valid);
    EXPECT_TRUE(iotest::Logged(8, {"ModelMap property has version 5, was expecting 4 or lower"}));
    property.PutParameterValue(L"Version", KRX::CValue(4));
    property.PutParameterValue(L"Type", KRX::CValue(L"Quadruped"));
    EXPECT_FALSE(read_back()->valid);
    EXPECT_TRUE(iotest::Logged(8, {"ModelMap property has type Quadruped, was expecting TestBase"}));
    property.PutParameterValue(L"Type", KRX::CValue(L"TestBase"));
    property.GetParameter(L"Nodes").GetGridData().PutRowCount(2);  // damaged: too few rows
    EXPECT_FALSE(read_back()->valid);
    DeleteByName(property.GetFullName());
    EXPECT_FALSE(read_back()->valid);
    EXPECT_TRUE(iotest::Logged(8, {"ModelMap property not found"}));
  }
  // Limb ends and spine nodes above a node.
  EXPECT_TRUE(HasNoFrictionOrFreeAncestor(written, 0));
  EXPECT_TRUE(HasNoFrictionOrFreeAncestor(written, FindNodeIndex(*structure, "lAnkle")));
  EXPECT_FALSE(HasNoFrictionOrFreeAncestor(written, FindNodeIndex(*structure, "lToes")));
  EXPECT_FALSE(HasNoFrictionOrFreeAncestor(written, FindNodeIndex(*structure, "Chest")));
}

TEST(SkeletonTags, JointsMatchLooselyAndMissingOnesAreSkipped) {
  KRX::rt::ClearLog();
  MocapSkeleton skeleton;
  skeleton.joints.resize(3);
  skeleton.joints[0].name = "Hips";
  skeleton.joints[1].name = "LeftUpLeg";
  skeleton.joints[2].name = "Left Knee";
  std::vector<TemplateTag> tags(3);
  tags[0].tag_name = "Hips";
  tags[0].node_name = "HIPS";
  tags[0].align = CVector3(0, 1, 0);
  tags[1].tag_name = "lKnee";
  tags[1].node_name = "left_knee";  // "_" stands for any character
  tags[2].tag_name = "lAnkle";
  tags[2].node_name = "LeftFoot";
  EXPECT_TRUE(ApplyTagsToSkeleton(tags, skeleton));
  EXPECT_TRUE(skeleton.joints[0].tagged);
  EXPECT_EQ(skeleton.joints[0].node_name, "Hips");
  EXPECT_EQ(skeleton.joints[0].align, CVector3(0, 1, 0));
  EXPECT_FALSE(skeleton.joints[1].tagged);
  EXPECT_EQ(skeleton.joints[2].node_name, "lKnee");
  EXPECT_TRUE(iotest::Logged(4, {"cannot apply tag lAnkle, node not found: LeftFoot"}));
}

}  // namespace
}  // namespace kavor

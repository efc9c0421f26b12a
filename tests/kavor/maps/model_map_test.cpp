// The rest data stored on a model: the layout, the round trip and the reader's checks; and
// the ancestor rule used by motion files and finishing.
#include "kavor/maps/model_map.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kavor/io/scene_helpers.h"
#include "kavor/maps/mocap_skeleton.h"
#include "kavor/maps/rig_test_support.h"
#include "kavor/tagging/tags.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CRotation;
using KRX::MATH::CVector3;
using rigtest::RigTest;

// Node order of the test structure: Hips, lHip, lKnee, lAnkle, lToes, Spine, Chest.
constexpr int32_t kMapKnee = 2;
constexpr int32_t kMapAnkle = 3;

// A map written for the test rig: node i has length 1.5 i and a rest rotation of 0.1 i
// about Y; the ankle is read from LeftFoot, turned 0.5 about X.
class ModelMapTest : public RigTest {
 protected:
  void SetUp() override {
    RigTest::SetUp();
    structure_ = rigtest::MakeStructure();
    rig_ = rigtest::BuildRig("Walker");
    written_ = std::make_unique<RetargetModel>(structure_.get());
    written_->model = rig_.model;
    for (int32_t i = 0; i < written_->NumNodes(); ++i) {
      written_->Node(i).length = 1.5 * i;
      written_->Node(i).rest_rotation.SetRotation(
          CRotation::FromAxisAngle(CVector3(0, 1, 0), 0.1 * i));
    }
    written_->Node(kMapAnkle).extraction = std::make_unique<ExtractionEntry>();
    written_->Node(kMapAnkle).extraction->object = rig_.ankle;
    written_->Node(kMapAnkle).extraction->transform.SetRotation(
        CRotation::FromAxisAngle(CVector3(1, 0, 0), 0.5));
    written_->hip_offset = 0.25;
    written_->leg_length = 7.5;
    WriteModelMap(*written_);
    EXPECT_TRUE(FindPropertyByName(rig_.model, kModelMapProperty, &property_));
  }

  std::unique_ptr<RetargetModel> ReadBack() {
    auto model = std::make_unique<RetargetModel>(structure_.get());
    model->model = rig_.model;
    KRX::rt::ClearLog();
    ReadModelMap(*model);
    return model;
  }
  KRX::GridData Nodes() { return property_.GetParameter(L"Nodes").GetGridData(); }

  std::unique_ptr<ModelStructure> structure_;
  rigtest::Rig rig_;
  std::unique_ptr<RetargetModel> written_;
  KRX::Property property_;
};

TEST_F(ModelMapTest, LayoutAndRoundTrip) {
  std::vector<std::wstring> names;
  for (const KRX::Parameter& p : property_.GetParameters()) {
    names.push_back(p.GetName().GetWideString());
    EXPECT_EQ(p.GetCapabilities(), 4) << names.back();
  }
  EXPECT_EQ(names, (std::vector<std::wstring>{L"Version", L"Source", L"Type", L"Nodes",
                                              L"HipOffset", L"LegLength"}));
  EXPECT_EQ(property_.GetParameterValue(L"Version").GetString(), KRX::CString(L"4"));
  EXPECT_EQ(property_.GetParameterValue(L"Source").GetString(), KRX::CString(L"TestRig"));
  EXPECT_EQ(Nodes().GetColumnCount(), 11);
  EXPECT_EQ(Nodes().GetRowCount(), 7);
  EXPECT_EQ(Nodes().GetColumnLabel(6), KRX::CString(L"eRotW"));
  EXPECT_EQ(Nodes().GetColumnLabel(10), KRX::CString(L"eName"));
  EXPECT_EQ(Nodes().GetCell(0, kMapKnee).GetString(), KRX::CString(L"lKnee"));
  EXPECT_EQ(Nodes().GetCell(10, kMapAnkle).GetString(), KRX::CString(L"LeftFoot"));
  WriteModelMap(*written_);  // replaced, not added
  int count = 0;
  for (const KRX::Property& p : rig_.model.GetProperties()) {
    count += p.GetName() == kModelMapProperty;
  }
  EXPECT_EQ(count, 1);

  const std::unique_ptr<RetargetModel> read = ReadBack();
  ASSERT_TRUE(read->valid);
  EXPECT_DOUBLE_EQ(read->Node(kMapAnkle).length, 4.5);
  const CQuaternion rest = CRotation::FromAxisAngle(CVector3(0, 1, 0), 0.3).GetQuaternion();
  EXPECT_TRUE(read->Node(kMapAnkle).rest_rotation.GetRotationQuaternion().SameRotation(rest, 1e-12));
  EXPECT_TRUE(read->Node(kMapAnkle).rest_rotation_inverse.GetRotationQuaternion().SameRotation(
      rest.Conjugate(), 1e-12));
  ASSERT_TRUE(read->Node(kMapAnkle).extraction);
  EXPECT_EQ(read->Node(kMapAnkle).extraction->object, rig_.ankle);  // found deep below the model
  EXPECT_TRUE(read->Node(kMapAnkle).extraction->transform.GetRotationQuaternion().SameRotation(
      CRotation::FromAxisAngle(CVector3(1, 0, 0), 0.5).GetQuaternion(), 1e-12));
  EXPECT_FALSE(read->Node(kMapKnee).extraction);
  EXPECT_DOUBLE_EQ(read->hip_offset, 0.25);
  EXPECT_DOUBLE_EQ(read->leg_length, 7.5);
}

TEST_F(ModelMapTest, ExtractionNeedsANormAboveOneHalf) {
  {  // Norm exactly 0.5: no new entry, and one the node had stays.
    Nodes().PutCell(6, kMapKnee, KRX::CValue(0.5));
    Nodes().PutCell(10, kMapKnee, KRX::CValue(L"LeftLeg"));
    EXPECT_FALSE(ReadBack()->Node(kMapKnee).extraction);
    auto model = std::make_unique<RetargetModel>(structure_.get());
    model->model = rig_.model;
    model->Node(kMapKnee).extraction = std::make_unique<ExtractionEntry>();
    const ExtractionEntry* before = model->Node(kMapKnee).extraction.get();
    ReadModelMap(*model);
    EXPECT_EQ(model->Node(kMapKnee).extraction.get(), before);
  }
  {  // Just above: an entry, with an invalid object when the name is not below the model.
    Nodes().PutCell(6, kMapKnee, KRX::CValue(0.51));
    Nodes().PutCell(10, kMapKnee, KRX::CValue(L"Nowhere"));
    const std::unique_ptr<RetargetModel> read = ReadBack();
    ASSERT_TRUE(read->Node(kMapKnee).extraction);
    EXPECT_FALSE(read->Node(kMapKnee).extraction->object.IsValid());
  }
}

TEST_F(ModelMapTest, ReaderChecksInOrder) {
  {  // A row named otherwise is logged and used all the same.
    Nodes().PutCell(0, kMapKnee, KRX::CValue(L"Knee"));
    const std::unique_ptr<RetargetModel> read = ReadBack();
    EXPECT_TRUE(read->valid);
    EXPECT_DOUBLE_EQ(read->Node(kMapKnee).length, 3.0);
    EXPECT_TRUE(rigtest::LoggedLine(8, "name mismatch: got Knee, was expecting lKnee"));
  }
  // Each damage adds to the ones before; only the first check that fails is logged, and no
  // row is read.
  const auto remove = [&](const wchar_t* name) {
    KRX::CustomProperty(property_).RemoveParameter(property_.GetParameter(name));
  };
  const std::pair<std::function<void()>, const char*> refusals[] = {
      {[&] { Nodes().PutRowCount(6); }, "ModelMap property has 6 node rows, was expecting 7"},
      {[&] { property_.PutParameterValue(L"Type", KRX::CValue(L"Quadruped")); },
       "ModelMap property has type Quadruped, was expecting TestBase"},
      {[&] { remove(L"Type"); }, "ModelMap property is missing Type parameter"},
      {[&] { property_.PutParameterValue(L"Version", KRX::CValue(5)); },
       "ModelMap property has version 5, was expecting 4 or lower"},
      {[&] { remove(L"Version"); }, "ModelMap property is missing Version parameter"},
      {[&] { DeleteByName(property_.GetFullName()); }, "ModelMap property not found"},
  };
  for (const auto& [damage, message] : refusals) {
    damage();
    const std::unique_ptr<RetargetModel> read = ReadBack();
    EXPECT_FALSE(read->valid) << message;
    EXPECT_EQ(read->Node(0).length, 0.0) << message;
    EXPECT_EQ(KRX::rt::LogLines().size(), 1u) << message;
    EXPECT_TRUE(rigtest::LoggedLine(8, message));
  }
}

TEST_F(ModelMapTest, HasNoFrictionOrFreeAncestor) {
  // Hips <- lHip <- lKnee <- lAnkle (a limb end) <- lToes; Hips <- Spine (free) <- Chest.
  EXPECT_TRUE(HasNoFrictionOrFreeAncestor(*written_, 0));
  EXPECT_TRUE(
      HasNoFrictionOrFreeAncestor(*written_, kMapAnkle));  // only the node itself is a limb end
  EXPECT_TRUE(HasNoFrictionOrFreeAncestor(*written_, FindNodeIndex(*structure_, "Spine")));
  EXPECT_FALSE(HasNoFrictionOrFreeAncestor(*written_, FindNodeIndex(*structure_, "lToes")));
  EXPECT_FALSE(HasNoFrictionOrFreeAncestor(*written_, FindNodeIndex(*structure_, "Chest")));
  structure_->nodes[static_cast<size_t>(FindNodeIndex(*structure_, "lToes"))].parent = kMapKnee;
  EXPECT_TRUE(HasNoFrictionOrFreeAncestor(*written_, FindNodeIndex(*structure_, "lToes")));
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
  EXPECT_TRUE(rigtest::LoggedLine(4, "cannot apply tag lAnkle, node not found: LeftFoot"));
}

}  // namespace
}  // namespace kavor

// A real capture skeleton as a rig: imported by the host, tagged from its structure's
// joint names, given rest data, map, structure and glue; the scene saved and reopened; all
// of it read back into a RetargetModel with the same rest data.
#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "kavor/motion/capture_rig_support.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tags.h"

namespace kavor {
namespace {

namespace ct = capturetest;
using KRX::MATH::CVector3;

// Structure node -> joint of the motion-capture library's skeleton.
// clang-format off
const std::map<std::string, std::string> kCaptureJointOfNode = {
    {"Hips", "Hips"}, {"Spine", "LowerBack"}, {"Spine1", "Spine"}, {"Spine2", "Spine1"},
    {"Neck", "Neck"}, {"Neck1", "Neck1"}, {"Head", "Head"}, {"lHip", "LeftUpLeg"},
    {"lKnee", "LeftLeg"}, {"lAnkle", "LeftFoot"}, {"lToes", "LeftToeBase"}, {"rHip", "RightUpLeg"},
    {"rKnee", "RightLeg"}, {"rAnkle", "RightFoot"}, {"rToes", "RightToeBase"},
    {"lClavicle", "LeftShoulder"}, {"lShoulder", "LeftArm"}, {"lElbow", "LeftForeArm"},
    {"lWrist", "LeftHand"}, {"lHand", "LeftFingerBase"}, {"rClavicle", "RightShoulder"},
    {"rShoulder", "RightArm"}, {"rElbow", "RightForeArm"}, {"rWrist", "RightHand"},
    {"rHand", "RightFingerBase"}};
// clang-format on

CVector3 GlobalPosition(const KRX::X3DObject& model, const std::string& name) {
  return model.FindChild(ToWide(name)).GetKinematics().GetGlobal().GetTransform().GetTranslation();
}

TEST(RigSetup, SurvivesSavingAndReopening) {
  const ct::fs::path bvh = ct::SharedCapture("cmu_01_01.bvh");
  if (bvh.empty()) GTEST_SKIP() << "the shared capture is not there";
  ct::NewSceneWithShippedData();
  const KRX::Model model = ct::ImportCapture(bvh, L"Walker");
  ASSERT_TRUE(model.IsValid());
  const KRX::CString name = model.GetName();
  KRX::Application()
      .GetActiveProject()
      .GetPlayControl()
      .GetParameter(L"Current")
      .PutValue(KRX::CValue(1));

  std::unique_ptr<ModelStructure> structure = ParseStructure(L"BvhCmu");
  ASSERT_TRUE(structure);
  std::vector<TemplateTag> tags;
  for (const auto& [node, joint] : kCaptureJointOfNode) {
    ASSERT_NE(FindGroupNode(*structure, node), nullptr) << node;
    TemplateTag tag;
    tag.tag_name = node;
    tag.node_name = joint;
    // The structure's directions in each joint's frame at this (T-pose) frame.
    ComputeTagAxes(node, *structure, model.FindChild(ToWide(joint)), model, tag.align, tag.roll);
    tags.push_back(tag);
  }
  ASSERT_TRUE(ApplyTemplateTags(tags, model));
  WriteRigSetup(model, *structure, nullptr);

  // Leg length: the longer leg, thigh plus shin, from the file's offsets.
  const std::map<std::string, CVector3> offsets = ct::JointOffsets(bvh);
  const double left = offsets.at("LeftLeg").GetLength() + offsets.at("LeftFoot").GetLength();
  const double right = offsets.at("RightLeg").GetLength() + offsets.at("RightFoot").GetLength();
  const double leg = std::max(left, right);
  // Hip offset: how far below the hips the hip joint of that leg sits at this frame.
  const char* hip_joint = left >= right ? "LeftUpLeg" : "RightUpLeg";
  const double hip_offset =
      GlobalPosition(model, "Hips").GetY() - GlobalPosition(model, hip_joint).GetY();

  const ct::fs::path scene = ct::fs::temp_directory_path() / "kavor_rig_setup_test.krxs";
  KRX::CValue ok;
  KRX::Application().ExecuteCommand(L"SaveScene", {KRX::CValue(ToWide(scene.string()))}, ok);
  ASSERT_TRUE(ok.GetBool());
  KRX::Application().ExecuteCommand(L"NewScene", {}, ok);
  KRX::Application().ExecuteCommand(L"OpenScene", {KRX::CValue(ToWide(scene.string()))}, ok);
  ASSERT_TRUE(ok.GetBool());
  ct::fs::remove(scene);

  KRX::Model reopened(KRX::Application().GetActiveSceneRoot().FindChild(name, L"", false));
  ASSERT_TRUE(reopened.IsValid());
  std::optional<ModelStructure> stored = ReadStructureProperty(reopened);
  ASSERT_TRUE(stored);
  ASSERT_EQ(stored->NumNodes(), structure->NumNodes());
  for (size_t i = 0; i < structure->nodes.size(); ++i) {
    EXPECT_TRUE(stored->nodes[i].name == structure->nodes[i].name &&
                stored->nodes[i].parent == structure->nodes[i].parent)
        << i;
  }
  RetargetModel retarget(reopened, &*stored);
  ReadModelMap(retarget);
  ASSERT_TRUE(retarget.valid);
  EXPECT_NEAR(retarget.leg_length, leg, 1e-6 * leg);
  EXPECT_NEAR(retarget.hip_offset, hip_offset, 1e-6 * leg);
  // Every tagged joint is back, with its directions turned onto +Z and +Y by its rest
  // rotation.
  for (int32_t i = 0; i < retarget.NumNodes(); ++i) {
    const NodeMapEntry& node = retarget.Node(i);
    const std::string& node_name = stored->nodes[static_cast<size_t>(i)].name;
    EXPECT_EQ(node.object.IsValid(), kCaptureJointOfNode.count(node_name) == 1) << node_name;
    if (!node.object.IsValid()) continue;
    EXPECT_TRUE(node.rest_rotation.GetRotationQuaternion()
                    .Rotate(node.align)
                    .Equals(CVector3(0, 0, 1), 1e-5))
        << node_name;
  }
  std::unique_ptr<GlueMap> glue = ReadGlueMap(reopened);
  ASSERT_TRUE(glue);
  EXPECT_FALSE(glue->mocaps.empty());
  for (const GlueMocapEntry& entry : glue->mocaps) {
    EXPECT_EQ(kCaptureJointOfNode.at(entry.tag_obj), entry.rig_node_name);
  }
  KRX::rt::ResetScene();
}

}  // namespace
}  // namespace kavor

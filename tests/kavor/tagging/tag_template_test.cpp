// A tagged real capture rig saved as a tag template; a capture of another person inherits
// it and ends with the setup that tagging it by hand gives. The shipped templates tag the
// captures they were made for.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <map>

#include "kavor/io/scene_helpers.h"
#include "kavor/motion/capture_rig_support.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tags.h"
#include "runtime/interaction.h"

namespace kavor {
namespace {

namespace ct = capturetest;

const std::map<std::string, std::string> kJointOfNode = {
    {"Hips", "Hips"},         {"Spine", "LowerBack"},
    {"Spine1", "Spine"},      {"Spine2", "Spine1"},
    {"Neck", "Neck"},         {"Head", "Head"},
    {"lHip", "LeftUpLeg"},    {"lKnee", "LeftLeg"},
    {"lAnkle", "LeftFoot"},   {"lToes", "LeftToeBase"},
    {"lShoulder", "LeftArm"}, {"lElbow", "LeftForeArm"},
    {"lWrist", "LeftHand"},   {"lClavicle", "LeftShoulder"}};

// Tagging by hand: the page filled node by node, the right side first so that each mirror
// fill is overwritten by the user's own choice right away, then applied.
void TagByHand(const KRX::Model& model, const ModelStructure& structure) {
  WriteStructureProperty(structure, model);
  ASSERT_TRUE(PrepareTagPage(model, structure));
  for (const auto& [node, joint] : kJointOfNode) {
    if (node[0] == 'l') {
      const std::string right = "Right" + joint.substr(4);
      ASSERT_TRUE(SetTagValue(model, "r" + node.substr(1), right, 1)) << node;
    }
    ASSERT_TRUE(SetTagValue(model, node, joint, 1)) << node;
  }
  GetOrAddTagPage(model).PutParameterValue(L"StructureFile", KRX::CValue(L"BvhCmu"));
  ASSERT_TRUE(ApplyTagsToRig(model));
}

// "tagname/override" of every tagged object below the model.
std::map<std::string, std::string> TagsOf(const KRX::Model& model) {
  std::map<std::string, std::string> tags;
  for (const KRX::X3DObject& object : model.FindChildren()) {
    KRX::Property tag;
    if (FindPropertyByName(object, kTagProperty, &tag)) {
      tags[ToNarrow(object.GetName())] = ToNarrow(tag.GetParameterValue(L"tagname").GetString()) +
                                         "/" +
                                         ToNarrow(tag.GetParameterValue(L"override").GetString());
    }
  }
  return tags;
}

TEST(TagTemplate, AnotherPersonInheritsTheSetup) {
  const ct::fs::path first = ct::SharedCapture("cmu_01_01.bvh");
  const ct::fs::path second = ct::SharedCapture("cmu_02_01.bvh");
  if (first.empty() || second.empty()) GTEST_SKIP() << "no shared captures";
  ct::NewSceneWithShippedData();
  KRX::rt::ResetInteraction();
  std::unique_ptr<ModelStructure> structure = ParseStructure(L"BvhCmu");
  ASSERT_TRUE(structure);

  const KRX::Model tagged = ct::ImportInBindPose(first, L"Subject1");
  TagByHand(tagged, *structure);
  const ct::fs::path file = ct::fs::temp_directory_path() / "kavor_test_cmu.tagt";
  ASSERT_TRUE(SaveTagTemplate(tagged, file.string()));

  const KRX::Model inheriting = ct::ImportInBindPose(second, L"Subject2");
  const KRX::Model by_hand = ct::ImportInBindPose(second, L"Subject2ByHand");
  ASSERT_TRUE(InheritTagTemplate(inheriting, file.string()));
  TagByHand(by_hand, *structure);

  EXPECT_EQ(TagsOf(inheriting), TagsOf(by_hand));
  const ct::TaggedModel inherited = ct::ReadTagged(inheriting);
  const ct::TaggedModel hand = ct::ReadTagged(by_hand);
  ASSERT_TRUE(inherited.retarget && hand.retarget && inherited.glue && hand.glue);
  EXPECT_NEAR(inherited.retarget->leg_length, hand.retarget->leg_length, 1e-9);
  EXPECT_NEAR(inherited.retarget->hip_offset, hand.retarget->hip_offset, 1e-9);
  for (int32_t i = 0; i < hand.retarget->NumNodes(); ++i) {
    EXPECT_NEAR(inherited.retarget->Node(i).length, hand.retarget->Node(i).length, 1e-9) << i;
    EXPECT_TRUE(inherited.retarget->Node(i).rest_rotation.GetRotationQuaternion().SameRotation(
        hand.retarget->Node(i).rest_rotation.GetRotationQuaternion(), 1e-6))
        << i;
  }
  ASSERT_EQ(inherited.glue->mocaps.size(), hand.glue->mocaps.size());
  for (size_t i = 0; i < hand.glue->mocaps.size(); ++i) {
    EXPECT_EQ(inherited.glue->mocaps[i].rig_node_name, hand.glue->mocaps[i].rig_node_name);
    EXPECT_EQ(inherited.glue->mocaps[i].type, hand.glue->mocaps[i].type);
  }
  // The two people differ: the template carried the tagging, not the first one's sizes.
  const ct::TaggedModel original = ct::ReadTagged(tagged);
  ASSERT_TRUE(original.retarget);
  EXPECT_GT(std::fabs(original.retarget->leg_length - hand.retarget->leg_length), 0.01);

  {  // An out-of-date template changes nothing and asks for the tags to be applied again.
    std::ifstream in(file);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t at = text.find("\n8 \nMapFile2.0");
    ASSERT_NE(at, std::string::npos);
    text.replace(at, 4, "\n6 \n");
    std::ofstream(file) << text;
    const std::map<std::string, std::string> before = TagsOf(inheriting);
    EXPECT_FALSE(InheritTagTemplate(inheriting, file.string()));
    ASSERT_FALSE(KRX::rt::MessageBoxes().empty());
    EXPECT_EQ(KRX::rt::MessageBoxes().back().text.GetAsciiString(),
              "Failed to inherit the template data. Template is out of date.");
    EXPECT_EQ(TagsOf(inheriting), before);
    EXPECT_TRUE(GetOrAddTagPage(inheriting).GetParameterValue(L"dirty").GetBool());
  }
  ct::fs::remove(file);
  KRX::rt::ResetScene();
}

TEST(ShippedTagTemplates, TagTheCapturesTheyWereMadeFor) {
  const struct {
    const char *file, *capture;
    size_t tags;
  } cases[] = {{"CmuJointNames.tagt", "cmu_02_01.bvh", 25},
               {"CmuClassicJointNames.tagt", "cmu_131_01_maxfriendly.bvh", 25},
               {"ClassicJointNames.tagt", "Boxing_Toes.bvh", 21},
               {"JointRootNames.tagt", "dataset-1_run_normal_001.bvh", 21},
               {"DogJointNames.tagt", "dog_D1_001_KAN01_001.bvh", 25}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    if (ct::SharedCapture(c.capture).empty()) continue;
    ct::NewSceneWithShippedData();
    const KRX::Model model = ct::ImportCapture(ct::SharedCapture(c.capture), L"Capture");
    ASSERT_TRUE(ct::TagInBindPose(model, ct::ShippedTemplate(c.file)));
    EXPECT_EQ(TagsOf(model).size(), c.tags);
    const ct::TaggedModel read = ct::ReadTagged(model);
    ASSERT_TRUE(read.retarget && read.glue);
    EXPECT_GT(read.retarget->leg_length, 1.0);
  }
  KRX::rt::ResetScene();
}

}  // namespace
}  // namespace kavor

// A tagged real capture rig saved as a tag template; a capture of another person inherits
// it and ends with the setup that tagging it by hand gives.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "app/app_settings.h"
#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/glue_map.h"
#include "kavor/maps/model_map.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tag_templates.h"
#include "kavor/tagging/tags.h"
#include "runtime/interaction.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor {
namespace {

namespace fs = std::filesystem;

const std::map<std::string, std::string> kJointOfNode = {
    {"Hips", "Hips"},         {"Spine", "LowerBack"},      {"Spine1", "Spine"},     {"Spine2", "Spine1"},
    {"Neck", "Neck"},         {"Head", "Head"},            {"lHip", "LeftUpLeg"},   {"lKnee", "LeftLeg"},
    {"lAnkle", "LeftFoot"},   {"lToes", "LeftToeBase"},    {"rHip", "RightUpLeg"},  {"rKnee", "RightLeg"},
    {"rAnkle", "RightFoot"},  {"rToes", "RightToeBase"},   {"lShoulder", "LeftArm"}, {"lElbow", "LeftForeArm"},
    {"lWrist", "LeftHand"},   {"rShoulder", "RightArm"},   {"rElbow", "RightForeArm"}, {"rWrist", "RightHand"},
    {"lClavicle", "LeftShoulder"}, {"rClavicle", "RightShoulder"}};

fs::path Shared() {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  return source ? fs::path(source) / ".." / "shared" / "data" / "bvh" : fs::path();
}

// A capture imported and put in its bind pose (offsets only): the structure's rest pose.
KRX::Model ImportInBindPose(const fs::path& file, const wchar_t* name) {
  KRX::CValue result;
  KRX::Application().ExecuteCommand(L"ImportBVH", {KRX::CValue(ToWide(file.string())), KRX::CValue(name)}, result);
  KRX::Model model(KRX::Application().GetActiveSceneRoot().FindChild(result.GetString(), L"", false));
  for (KRX::X3DObject joint : model.FindChildren()) {
    KRX::KinematicState local = joint.GetKinematics().GetLocal();
    for (const wchar_t* p : {L"rotx", L"roty", L"rotz"}) local.GetParameter(p).RemoveAnimation();
    for (const wchar_t* p : {L"rotx", L"roty", L"rotz"}) local.PutParameterValue(p, KRX::CValue(0.0));
  }
  return model;
}

// Tagging by hand: the page filled node by node, then applied.
void TagByHand(const KRX::Model& model, const ModelStructure& structure) {
  WriteStructureProperty(structure, model);
  ASSERT_TRUE(PrepareTagPage(model, structure));
  // Sided nodes in pairs, the right one first, so that each mirror fill is overwritten by
  // the user's own choice right away.
  for (const auto& [node, joint] : kJointOfNode) {
    if (node[0] == 'r') continue;
    if (node[0] == 'l') {
      const std::string right = "r" + node.substr(1);
      ASSERT_TRUE(SetTagValue(model, right, kJointOfNode.at(right), 1)) << right;
    }
    ASSERT_TRUE(SetTagValue(model, node, joint, 1)) << node;
  }
  KRX::CustomProperty page = GetOrAddTagPage(model);
  page.PutParameterValue(L"StructureFile", KRX::CValue(L"BvhCmu"));
  ASSERT_TRUE(ApplyTagsToRig(model));
}

std::map<std::string, std::string> TagsOf(const KRX::Model& model) {
  std::map<std::string, std::string> tags;
  for (const KRX::X3DObject& object : model.FindChildren()) {
    KRX::Property tag;
    if (FindPropertyByName(object, kTagProperty, &tag)) {
      tags[ToNarrow(object.GetName())] = ToNarrow(tag.GetParameterValue(L"tagname").GetString()) + "/" +
                                         ToNarrow(tag.GetParameterValue(L"override").GetString());
    }
  }
  return tags;
}

TEST(TagTemplate, AnotherPersonInheritsTheSetup) {
  const fs::path first = Shared() / "cmu_01_01.bvh";
  const fs::path second = Shared() / "cmu_02_01.bvh";
  if (Shared().empty() || !fs::exists(first) || !fs::exists(second)) GTEST_SKIP() << "no shared captures";
  KRX::rt::ResetScene();
  KRX::rt::ResetInteraction();
  KRX::rt::SetInstallationPath(3, (fs::path(std::getenv("KAVOR_SOURCE_DIR")) / "data").string());
  std::unique_ptr<ModelStructure> structure = ParseStructure(L"BvhCmu");
  ASSERT_TRUE(structure);

  const KRX::Model tagged = ImportInBindPose(first, L"Subject1");
  TagByHand(tagged, *structure);
  const fs::path file = fs::temp_directory_path() / "kavor_test_cmu.tagt";
  ASSERT_TRUE(SaveTagTemplate(tagged, file.string()));

  const KRX::Model inheriting = ImportInBindPose(second, L"Subject2");
  const KRX::Model by_hand = ImportInBindPose(second, L"Subject2ByHand");
  ASSERT_TRUE(InheritTagTemplate(inheriting, file.string()));
  TagByHand(by_hand, *structure);

  EXPECT_EQ(TagsOf(inheriting), TagsOf(by_hand));
  ModelStructure a = *ReadStructureProperty(inheriting);
  ModelStructure b = *ReadStructureProperty(by_hand);
  RetargetModel inherited(inheriting, &a);
  RetargetModel hand(by_hand, &b);
  ReadModelMap(inherited);
  ReadModelMap(hand);
  ASSERT_TRUE(inherited.valid && hand.valid);
  EXPECT_NEAR(inherited.leg_length, hand.leg_length, 1e-9);
  EXPECT_NEAR(inherited.hip_offset, hand.hip_offset, 1e-9);
  for (int32_t i = 0; i < hand.NumNodes(); ++i) {
    EXPECT_NEAR(inherited.Node(i).length, hand.Node(i).length, 1e-9) << i;
    EXPECT_TRUE(inherited.Node(i).rest_rotation.GetRotationQuaternion().SameRotation(
        hand.Node(i).rest_rotation.GetRotationQuaternion(), 1e-6)) << i;
  }
  const std::unique_ptr<GlueMap> glue_a = ReadGlueMap(inheriting);
  const std::unique_ptr<GlueMap> glue_b = ReadGlueMap(by_hand);
  ASSERT_TRUE(glue_a && glue_b);
  ASSERT_EQ(glue_a->mocaps.size(), glue_b->mocaps.size());
  for (size_t i = 0; i < glue_a->mocaps.size(); ++i) {
    EXPECT_EQ(glue_a->mocaps[i].rig_node_name, glue_b->mocaps[i].rig_node_name);
    EXPECT_EQ(glue_a->mocaps[i].type, glue_b->mocaps[i].type);
  }
  // The two people differ: the template carried the tagging, not the first one's sizes.
  RetargetModel original(tagged, structure.get());
  ReadModelMap(original);
  EXPECT_GT(std::fabs(original.leg_length - hand.leg_length), 0.01);

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
  fs::remove(file);
  KRX::rt::ResetScene();
}

// The shipped templates tag the captures of their naming when inherited.
TEST(ShippedTagTemplates, TagTheCapturesTheyWereMadeFor) {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  if (!source || Shared().empty()) GTEST_SKIP() << "no source or shared captures";
  const fs::path templates = fs::path(source) / "data" / "Addons" / "Trevalin" / "Data" / "TagTemplates";
  struct Case {
    const char* file;
    const char* capture;
    size_t tags;
  };
  const Case cases[] = {{"CmuJointNames.tagt", "cmu_02_01.bvh", 25},
                        {"CmuClassicJointNames.tagt", "cmu_131_01_maxfriendly.bvh", 25},
                        {"ClassicJointNames.tagt", "Boxing_Toes.bvh", 21},
                        {"JointRootNames.tagt", "dataset-1_run_normal_001.bvh", 21},
                        {"DogJointNames.tagt", "dog_D1_001_KAN01_001.bvh", 25}};
  for (const auto& [file, capture, tag_count] : cases) {
    SCOPED_TRACE(file);
    if (!fs::exists(Shared() / capture)) continue;
    KRX::rt::ResetScene();
    KRX::rt::SetInstallationPath(3, (fs::path(source) / "data").string());
    const KRX::Model model = ImportInBindPose(Shared() / capture, L"Capture");
    ASSERT_TRUE(InheritTagTemplate(model, (templates / file).string()));
    EXPECT_EQ(TagsOf(model).size(), tag_count);
    ASSERT_TRUE(ReadGlueMap(model));
    std::optional<ModelStructure> structure = ReadStructureProperty(model);
    ASSERT_TRUE(structure);
    RetargetModel retarget(model, &*structure);
    ReadModelMap(retarget);
    EXPECT_TRUE(retarget.valid);
    EXPECT_GT(retarget.leg_length, 1.0);
  }
  KRX::rt::ResetScene();
}

}  // namespace
}  // namespace kavor

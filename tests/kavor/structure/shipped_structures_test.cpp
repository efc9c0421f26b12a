// The structure files that ship in the data folder: each parses, holds the invariants the
// plug-in relies on, pairs its sides, agrees with the other structures of its type, and
// fits the real motion-capture skeletons it is written for.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "files/bvh_file.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_test_support.h"

namespace kavor {
namespace {

namespace fs = std::filesystem;
using KRX::MATH::CVector3;

struct Shipped {
  std::string name;
  std::string text;
  ModelStructure structure;
};

// Every .structure file below Structures/ and Structures/Mocap/, parsed with its base file.
std::vector<Shipped> LoadShipped() {
  std::vector<Shipped> all;
  const fs::path data = structuretest::ShippedDataFolder();
  for (const fs::path& folder : {data / "Structures", data / "Structures" / "Mocap"}) {
    if (!fs::is_directory(folder)) continue;
    for (const auto& item : fs::directory_iterator(folder)) {
      if (item.path().extension() != ".structure") continue;
      Shipped shipped;
      shipped.name = item.path().stem().string();
      shipped.text = structuretest::ReadTextFile(item.path()).value_or("");
      StructureParseResult result =
          ParseStructureText(shipped.text, shipped.name, structuretest::BasesFromFolder(data));
      EXPECT_NE(result.structure, nullptr) << shipped.name << ": " << result.message;
      if (result.structure) shipped.structure = *result.structure;
      all.push_back(std::move(shipped));
    }
  }
  return all;
}

// A node whose name starts with "l" or "r" and a capital letter is sided.
bool IsSided(const std::string& name) {
  return name.size() >= 2 && (name[0] == 'l' || name[0] == 'r') && name[1] >= 'A' && name[1] <= 'Z';
}

CVector3 MirrorX(const CVector3& v) { return {-v.GetX(), v.GetY(), v.GetZ()}; }

class ShippedStructures : public testing::Test {
 protected:
  void SetUp() override {
    if (structuretest::ShippedDataFolder().empty()) GTEST_SKIP() << "KAVOR_SOURCE_DIR is not set";
    shipped_ = LoadShipped();
    ASSERT_GE(shipped_.size(), 5u) << "the shipped structure files are missing";
  }
  const ModelStructure* Find(const std::string& name) const {
    for (const Shipped& s : shipped_) {
      if (s.name == name) return &s.structure;
    }
    return nullptr;
  }
  std::vector<Shipped> shipped_;
};

TEST_F(ShippedStructures, HoldTheInvariantsAndMirrorTheirSides) {
  for (const Shipped& shipped : shipped_) {
    SCOPED_TRACE(shipped.name);
    const ModelStructure& s = shipped.structure;
    EXPECT_EQ(CheckModelStructure(s), "");
    EXPECT_NE(shipped.text.find("REST POSE"), std::string::npos) << "says which pose it expects";
    ASSERT_GT(s.NumNodes(), 0);
    EXPECT_EQ(s.nodes[0].name, "Hips");
    EXPECT_EQ(s.nodes[0].type, StructureNodeType::kHip);
    int hips = 0, feet = 0;
    for (const StructureNode& node : s.nodes) {
      hips += node.type == StructureNodeType::kHip;
      feet += node.friction;
      // Align and roll define a frame: both non-zero and at right angles.
      const double a = node.align.GetLength(), r = node.roll.GetLength();
      EXPECT_GT(a, 0.5) << node.name;
      EXPECT_GT(r, 0.5) << node.name;
      EXPECT_NEAR(node.align.Dot(node.roll) / (a * r), 0.0, 1e-12) << node.name;
    }
    EXPECT_EQ(hips, 1);
    EXPECT_EQ(feet, s.type == "Quadruped" ? 4 : 2);
    // Every limb plane is a two-bone chain.
    for (const StructurePlane& plane : s.planes) EXPECT_EQ(plane.chain.size(), 3u) << plane.name;
    for (const StructureNode& node : s.nodes) {
      if (!IsSided(node.name)) {
        EXPECT_EQ(node.mirror_index, -1) << node.name;
        continue;
      }
      // The file's mirror rule and the tag page's first-letter swap name the same partner,
      // the node's mirror image through the YZ plane.
      ASSERT_GE(node.mirror_index, 0) << node.name;
      const StructureNode& partner = s.nodes[static_cast<size_t>(node.mirror_index)];
      EXPECT_EQ(partner.name,
                std::string(1, node.name[0] == 'l' ? 'r' : 'l') + node.name.substr(1));
      EXPECT_EQ(partner.offset, MirrorX(node.offset)) << node.name;
      EXPECT_EQ(partner.align, MirrorX(node.align)) << node.name;
      EXPECT_EQ(partner.roll, MirrorX(node.roll)) << node.name;
      EXPECT_EQ(partner.type, node.type) << node.name;
      // Rotations about Y and Z change their sign in a mirror.
      EXPECT_EQ(partner.min_limits.GetZ(), -node.max_limits.GetZ()) << node.name;
    }
  }
}

// A real capture standing in the rest pose when every rotation is zero: each bone of its
// skeleton points the way the align of the structure node tagged on its start says. (That
// the shipped tag templates fit the captures they are made for, hierarchy and bone chains,
// is checked by tagging those captures with them.)
TEST_F(ShippedStructures, AlignsFollowTheBonesOfARealCapture) {
  const fs::path bvh_folder = structuretest::SharedBvhFolder();
  if (bvh_folder.empty()) GTEST_SKIP() << "the shared capture files are not there";
  const std::optional<std::string> text =
      structuretest::ReadTextFile(bvh_folder / "Boxing_Toes.bvh");
  ASSERT_TRUE(text);
  std::string error;
  const std::optional<KRX::rt::files::BvhFile> bvh = KRX::rt::files::ParseBvh(*text, &error);
  ASSERT_TRUE(bvh) << error;
  const ModelStructure* s = Find("BvhClassic");
  ASSERT_NE(s, nullptr);
  // Left-side tags; the right side follows by swapping "Left" for "Right" in both names.
  std::map<std::string, std::string> tags = {{"Hips", "Hips"},
                                             {"Spine", "Ab"},
                                             {"Spine2", "Chest"},
                                             {"Neck", "Neck"},
                                             {"Head", "Head"},
                                             {"lClavicle", "LeftCollar"},
                                             {"lShoulder", "LeftShoulder"},
                                             {"lElbow", "LeftElbow"},
                                             {"lWrist", "LeftWrist"},
                                             {"lHip", "LeftHip"},
                                             {"lKnee", "LeftKnee"},
                                             {"lAnkle", "LeftAnkle"},
                                             {"lToes", "LeftToes"}};
  for (const auto& [node, joint] : std::map<std::string, std::string>(tags)) {
    if (node[0] == 'l') tags["r" + node.substr(1)] = "Right" + joint.substr(4);
  }
  const std::vector<KRX::rt::files::BvhJoint>& joints = bvh->joints;
  std::vector<CVector3> world(joints.size());
  for (size_t j = 0; j < joints.size(); ++j) {
    world[j] = joints[j].offset + (joints[j].parent >= 0 ? world[joints[j].parent] : CVector3());
  }
  std::vector<int> joint_of(s->NumNodes(), -1);
  for (const auto& [node, joint] : tags) {
    const int k = FindNodeIndex(*s, node);
    ASSERT_GE(k, 0) << node;
    for (size_t j = 0; j < joints.size(); ++j) {
      if (joints[j].name == joint) joint_of[k] = static_cast<int>(j);
    }
    ASSERT_GE(joint_of[k], 0) << joint;
  }
  for (int k = 1; k < s->NumNodes(); ++k) {
    const int p = s->nodes[k].offset_parent;
    if (p < 0 || joint_of[k] < 0 || joint_of[p] < 0) continue;
    if (s->nodes[p].type == StructureNodeType::kHip) continue;
    const CVector3 bone = world[joint_of[k]] - world[joint_of[p]];
    if (bone.GetLength() < 1e-6) continue;
    EXPECT_LT(s->nodes[p].align.GetAngle(bone), 35.0 * 3.141592653589793 / 180.0)
        << s->nodes[p].name << " towards " << s->nodes[k].name;
  }
}

}  // namespace
}  // namespace kavor

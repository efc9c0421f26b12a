// The structure files that ship in the data folder: each parses, holds the invariants the
// plug-in relies on, pairs its sides, agrees with the other structures of its type, and
// fits the real motion-capture skeletons it is written for.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_test_support.h"
#include "kavor/structure/tokenizer.h"

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
  return name.size() >= 2 && (name[0] == 'l' || name[0] == 'r') && name[1] >= 'A' &&
         name[1] <= 'Z';
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

TEST_F(ShippedStructures, HoldTheInvariants) {
  for (const Shipped& shipped : shipped_) {
    SCOPED_TRACE(shipped.name);
    const ModelStructure& s = shipped.structure;
    EXPECT_EQ(CheckModelStructure(s), "");
    EXPECT_NE(shipped.text.find("REST POSE"), std::string::npos) << "says which pose it expects";
    ASSERT_GT(s.NumNodes(), 0);
    EXPECT_EQ(s.nodes[0].name, "Hips");
    EXPECT_EQ(s.nodes[0].type, StructureNodeType::kHip);
    int hips = 0, ends = 0, feet = 0;
    for (const StructureNode& node : s.nodes) {
      hips += node.type == StructureNodeType::kHip;
      ends += node.type == StructureNodeType::kIk;
      feet += node.friction;
      // Align and roll define a frame: both non-zero and at right angles.
      const double a = node.align.GetLength(), r = node.roll.GetLength();
      EXPECT_GT(a, 0.5) << node.name;
      EXPECT_GT(r, 0.5) << node.name;
      EXPECT_NEAR(node.align.Dot(node.roll) / (a * r), 0.0, 1e-12) << node.name;
    }
    EXPECT_EQ(hips, 1);
    EXPECT_EQ(feet, s.type == "Quadruped" ? 4 : 2);
    // Every limb end has its plane, and every plane starts at an "anchor" entry.
    EXPECT_EQ(ends, s.NumPlanes());
    std::map<std::string, std::string> type_words;
    for (const auto* groups : {&s.base_groups, &s.groups}) {
      for (const StructureGroup& g : *groups) {
        for (const StructureGroupNode& entry : g.nodes) type_words[entry.name] = entry.type;
      }
    }
    for (const StructurePlane& plane : s.planes) {
      EXPECT_EQ(type_words[s.nodes[plane.anchor_index].name], "anchor") << plane.name;
      EXPECT_EQ(s.nodes[plane.span].type, StructureNodeType::kIk) << plane.name;
      EXPECT_EQ(plane.chain.size(), 3u) << plane.name;
    }
    // Limits, where given, are ranges that hold the rest pose.
    for (const StructureNode& node : s.nodes) {
      for (int axis = 0; axis < 3; ++axis) {
        if (node.min_limits[axis] > node.max_limits[axis]) continue;
        EXPECT_LE(node.min_limits[axis], 0.0) << node.name;
        EXPECT_GE(node.max_limits[axis], 0.0) << node.name;
      }
    }
  }
}

TEST_F(ShippedStructures, SidesMirrorEachOther) {
  for (const Shipped& shipped : shipped_) {
    SCOPED_TRACE(shipped.name);
    const ModelStructure& s = shipped.structure;
    for (int i = 0; i < s.NumNodes(); ++i) {
      const StructureNode& node = s.nodes[i];
      if (!IsSided(node.name)) {
        EXPECT_EQ(node.mirror_index, -1) << node.name;
        continue;
      }
      // The file's mirror rule and the tag page's first-letter swap name the same partner.
      ASSERT_GE(node.mirror_index, 0) << node.name;
      const StructureNode& partner = s.nodes[node.mirror_index];
      EXPECT_EQ(partner.name, std::string(1, node.name[0] == 'l' ? 'r' : 'l') + node.name.substr(1));
      // The partner is the node's mirror image through the YZ plane.
      EXPECT_EQ(partner.offset, MirrorX(node.offset)) << node.name;
      EXPECT_EQ(partner.align, MirrorX(node.align)) << node.name;
      EXPECT_EQ(partner.roll, MirrorX(node.roll)) << node.name;
      EXPECT_EQ(partner.type, node.type) << node.name;
      EXPECT_EQ(partner.friction, node.friction) << node.name;
      // Rotations about X keep their sign in a mirror, those about Y and Z change it.
      EXPECT_EQ(partner.min_limits.GetX(), node.min_limits.GetX()) << node.name;
      EXPECT_EQ(partner.max_limits.GetX(), node.max_limits.GetX()) << node.name;
      EXPECT_EQ(partner.min_limits.GetY(), -node.max_limits.GetY()) << node.name;
      EXPECT_EQ(partner.min_limits.GetZ(), -node.max_limits.GetZ()) << node.name;
      const int p = node.parent, q = partner.parent;
      EXPECT_TRUE(p == q || (p >= 0 && s.nodes[p].mirror_index == q)) << node.name;
    }
  }
}

TEST_F(ShippedStructures, SameTypeSameNodeZeroAndLimbs) {
  // Motion moves between structures of one type by node name and by plane index.
  std::map<std::string, std::vector<std::string>> limbs_by_type;
  for (const Shipped& shipped : shipped_) {
    const ModelStructure& s = shipped.structure;
    std::vector<std::string> limbs;
    for (const StructurePlane& p : s.planes) {
      limbs.push_back(s.nodes[p.anchor_index].name + "-" + p.name + "-" + s.nodes[p.span].name);
    }
    auto [it, first] = limbs_by_type.emplace(s.type, limbs);
    if (!first) {
      EXPECT_EQ(limbs, it->second) << shipped.name << " of type " << s.type;
    }
  }
  EXPECT_EQ(limbs_by_type.count("Humanoid"), 1u);
  EXPECT_EQ(limbs_by_type.count("Quadruped"), 1u);

  const ModelStructure* humanoid = Find("Humanoid");
  ASSERT_NE(humanoid, nullptr);
  ASSERT_FALSE(humanoid->decomps.empty());
  for (const StructureDecomp& d : humanoid->decomps) EXPECT_GE(FindNodeIndex(*humanoid, d.src_name), 0);
  int spine = 0;
  for (const StructureNode& node : humanoid->nodes) spine += node.type == StructureNodeType::kFree;
  EXPECT_GE(spine, 2);
  for (const char* name : {"Neck", "Head", "lHand", "rToes"}) {
    EXPECT_GE(FindNodeIndex(*humanoid, name), 0) << name;
  }
}

// The joints of a BVH hierarchy: names, parents and offsets.
struct BvhJoint {
  std::string name;
  int parent = -1;
  CVector3 offset;
};

std::vector<BvhJoint> ReadBvhHierarchy(const std::string& text) {
  std::vector<BvhJoint> joints;
  std::vector<int> open;  // the joint of each open brace; -1 for an end site
  int pending = -1;
  Tokenizer t(text, Tokenizer::Comments::kNone);
  for (std::string_view word = t.ReadWord(); !word.empty() && word != "MOTION"; word = t.ReadWord()) {
    if (word == "ROOT" || word == "JOINT") {
      joints.push_back({std::string(t.ReadWord()), open.empty() ? -1 : open.back(), {}});
      pending = static_cast<int>(joints.size()) - 1;
    } else if (word == "End") {
      (void)t.ReadWord();
      pending = -1;
    } else if (word == "{") {
      open.push_back(pending);
    } else if (word == "}") {
      if (!open.empty()) open.pop_back();
    } else if (word == "OFFSET") {
      CVector3 offset;
      EXPECT_EQ(t.ReadVector(offset), TokenStatus::kOk);
      if (!open.empty() && open.back() >= 0) joints[open.back()].offset = offset;
    } else if (word == "CHANNELS") {
      int32_t count = 0;
      EXPECT_EQ(t.ReadInteger(count), TokenStatus::kOk);
      for (int i = 0; i < count; ++i) (void)t.ReadWord();
    }
  }
  return joints;
}

int FindJoint(const std::vector<BvhJoint>& joints, const std::string& name) {
  for (size_t i = 0; i < joints.size(); ++i) {
    if (joints[i].name == name) return static_cast<int>(i);
  }
  return -1;
}

// Left-side tags; the right side follows by swapping the side in both names.
using Tags = std::map<std::string, std::string>;
Tags WithRightSide(const Tags& left) {
  Tags all = left;
  for (const auto& [node, joint] : left) {
    if (node[0] != 'l') continue;
    std::string right = joint;
    if (right.rfind("Left", 0) == 0) right = "Right" + right.substr(4);
    else if (right.size() > 2 && right.substr(right.size() - 2) == "_L") right.back() = 'R';
    else if (right[0] == 'l') right[0] = 'r';
    all["r" + node.substr(1)] = right;
  }
  return all;
}

struct SkeletonCase {
  const char* file;
  const char* structure;
  Tags tags;
  bool zero_pose_is_rest;  // every rotation zero gives the structure's rest pose
};

std::vector<SkeletonCase> SkeletonCases() {
  const Tags cmu = {{"Hips", "Hips"},          {"Spine", "LowerBack"},  {"Spine1", "Spine"},
                    {"Spine2", "Spine1"},      {"Neck", "Neck"},        {"Neck1", "Neck1"},
                    {"Head", "Head"},          {"lClavicle", "LeftShoulder"}, {"lShoulder", "LeftArm"},
                    {"lElbow", "LeftForeArm"}, {"lWrist", "LeftHand"},  {"lHand", "LeftFingerBase"},
                    {"lHip", "LeftUpLeg"},     {"lKnee", "LeftLeg"},    {"lAnkle", "LeftFoot"},
                    {"lToes", "LeftToeBase"}};
  const Tags cmu_max = {{"Hips", "Hips"},        {"Spine", "lowerback"},  {"Spine1", "Chest"},
                        {"Spine2", "Chest2"},    {"Neck", "lowerneck"},   {"Neck1", "Neck"},
                        {"Head", "Head"},        {"lClavicle", "LeftCollar"}, {"lShoulder", "LeftShoulder"},
                        {"lElbow", "LeftElbow"}, {"lWrist", "LeftWrist"}, {"lHand", "lhand"},
                        {"lHip", "LeftHip"},     {"lKnee", "LeftKnee"},   {"lAnkle", "LeftAnkle"},
                        {"lToes", "LeftToe"}};
  const Tags boxing = {{"Hips", "Hips"},           {"Spine", "Ab"},           {"Spine2", "Chest"},
                       {"Neck", "Neck"},           {"Head", "Head"},          {"lClavicle", "LeftCollar"},
                       {"lShoulder", "LeftShoulder"}, {"lElbow", "LeftElbow"}, {"lWrist", "LeftWrist"},
                       {"lHip", "LeftHip"},        {"lKnee", "LeftKnee"},     {"lAnkle", "LeftAnkle"},
                       {"lToes", "LeftToes"}};
  const Tags bandai = {{"Hips", "Hips"},          {"Spine", "Spine"},         {"Spine2", "Chest"},
                       {"Neck", "Neck"},          {"Head", "Head"},           {"lClavicle", "Shoulder_L"},
                       {"lShoulder", "UpperArm_L"}, {"lElbow", "LowerArm_L"}, {"lWrist", "Hand_L"},
                       {"lHip", "UpperLeg_L"},    {"lKnee", "LowerLeg_L"},    {"lAnkle", "Foot_L"},
                       {"lToes", "Toes_L"}};
  const Tags dog = {{"Hips", "Hips"},         {"Spine", "Spine"},       {"Spine1", "Spine1"},
                    {"Neck", "Neck"},         {"Head", "Head"},         {"Tail", "Tail"},
                    {"Tail1", "Tail1"},       {"lScapula", "LeftShoulder"}, {"lShoulder", "LeftArm"},
                    {"lElbow", "LeftForeArm"}, {"lCarpus", "LeftHand"}, {"lHip", "LeftUpLeg"},
                    {"lStifle", "LeftLeg"},   {"lHock", "LeftFoot"}};
  return {{"cmu_01_01.bvh", "BvhCmu", WithRightSide(cmu), false},
          {"cmu_02_01.bvh", "BvhCmu", WithRightSide(cmu), false},
          {"cmu_131_01_maxfriendly.bvh", "BvhCmu", WithRightSide(cmu_max), false},
          {"Boxing_Toes.bvh", "BvhClassic", WithRightSide(boxing), true},
          {"dataset-1_walk_normal_001.bvh", "BvhClassic", WithRightSide(bandai), false},
          {"dog_D1_001_KAN01_001.bvh", "Quadruped", WithRightSide(dog), false}};
}

TEST_F(ShippedStructures, FitRealCaptureSkeletons) {
  const fs::path bvh_folder = structuretest::SharedBvhFolder();
  if (bvh_folder.empty()) GTEST_SKIP() << "the shared capture files are not there";
  for (const SkeletonCase& c : SkeletonCases()) {
    SCOPED_TRACE(c.file);
    const std::optional<std::string> text = structuretest::ReadTextFile(bvh_folder / c.file);
    if (!text) continue;
    const std::vector<BvhJoint> joints = ReadBvhHierarchy(*text);
    const ModelStructure* s = Find(c.structure);
    ASSERT_NE(s, nullptr) << c.structure;
    std::vector<int> joint_of(s->NumNodes(), -1);
    for (const auto& [node, joint] : c.tags) {
      const int k = FindNodeIndex(*s, node), j = FindJoint(joints, joint);
      ASSERT_GE(k, 0) << node;
      ASSERT_GE(j, 0) << joint;
      joint_of[k] = j;
    }
    // The tag page's hierarchy rule: walking up from a tagged node, an untagged ancestor is
    // tolerated only when it is a child-type node right above a tagged one. And the tagged
    // ancestor's joint must be an ancestor of the node's joint in the capture.
    for (int k = 0; k < s->NumNodes(); ++k) {
      if (joint_of[k] < 0) continue;
      int previous = k;
      for (int a = s->nodes[k].parent; a >= 0; previous = a, a = s->nodes[a].parent) {
        if (joint_of[a] < 0) {
          EXPECT_TRUE(s->nodes[a].type == StructureNodeType::kChild && joint_of[previous] >= 0)
              << s->nodes[k].name << " below untagged " << s->nodes[a].name;
          continue;
        }
        int j = joints[joint_of[k]].parent;
        while (j >= 0 && j != joint_of[a]) j = joints[j].parent;
        EXPECT_EQ(j, joint_of[a]) << s->nodes[k].name << " is not below " << s->nodes[a].name;
        break;
      }
    }
    // Bone chains are tagged whole.
    for (const StructurePlane& plane : s->planes) {
      int tagged = 0;
      for (int k : plane.chain) tagged += joint_of[k] >= 0;
      EXPECT_TRUE(tagged == 0 || tagged == static_cast<int>(plane.chain.size())) << plane.name;
    }
    if (!c.zero_pose_is_rest) continue;
    // With every rotation zero this skeleton stands in the rest pose: each tagged bone
    // points the way its node's align says.
    std::vector<CVector3> world(joints.size());
    for (size_t j = 0; j < joints.size(); ++j) {
      world[j] = joints[j].offset + (joints[j].parent >= 0 ? world[joints[j].parent] : CVector3());
    }
    for (int k = 1; k < s->NumNodes(); ++k) {
      const int p = s->nodes[k].offset_parent;
      if (p < 0 || joint_of[k] < 0 || joint_of[p] < 0 || s->nodes[p].type == StructureNodeType::kHip) {
        continue;
      }
      const CVector3 bone = world[joint_of[k]] - world[joint_of[p]];
      if (bone.GetLength() < 1e-6) continue;
      EXPECT_LT(s->nodes[p].align.GetAngle(bone), 35.0 * 3.141592653589793 / 180.0)
          << s->nodes[p].name << " towards " << s->nodes[k].name;
    }
  }
}

}  // namespace
}  // namespace kavor

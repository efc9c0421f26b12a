#include "kavor/structure/model_structure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace kavor {
namespace {

// Hips, a three-node limb from node 1 to node 3 and its mirror image 4..6.
ModelStructure SmallStructure() {
  ModelStructure s;
  const char* names[] = {"Hips", "lA", "lB", "lC", "rA", "rB", "rC"};
  const int parents[] = {-1, 0, 1, 1, 0, 4, 4};
  const int offset_parents[] = {-1, 0, 1, 2, 0, 4, 5};
  const KRX::MATH::CVector3 offsets[] = {{0, 10, 0}, {1, -1, 0},  {0, -4, 0}, {0, -4, 0},
                                         {-1, -1, 0}, {0, -4, 0}, {0, -4, 0}};
  for (int i = 0; i < 7; ++i) {
    StructureNode node;
    node.name = names[i];
    node.parent = parents[i];
    node.offset_parent = offset_parents[i];
    node.offset = offsets[i];
    s.nodes.push_back(node);
  }
  s.nodes[0].type = StructureNodeType::kHip;
  for (int end : {3, 6}) {
    s.nodes[end].type = StructureNodeType::kIk;
    s.nodes[end].friction = true;
    StructurePlane plane;
    plane.anchor_index = end - 2;
    plane.mid = end - 1;
    plane.span = end;
    plane.name = s.nodes[end - 1].name;
    plane.chain = {end, end - 1, end - 2};
    s.planes.push_back(plane);
  }
  AssignMirrors(s);
  ComputeRestPositions(s);
  return s;
}

bool Mentions(const std::string& problem, const std::string& part) {
  return problem.find(part) != std::string::npos;
}

TEST(ModelStructure, RestPositionsAndMirrors) {
  const ModelStructure s = SmallStructure();
  EXPECT_EQ(CheckModelStructure(s), "");
  // Offsets accumulate along the offset parents, not the parents.
  EXPECT_EQ(s.nodes[3].rest_position, KRX::MATH::CVector3(1, 1, 0));
  EXPECT_EQ(s.nodes[6].rest_position, KRX::MATH::CVector3(-1, 1, 0));
  for (int i = 1; i <= 3; ++i) {
    EXPECT_EQ(s.nodes[i].mirror_index, i + 3);
    EXPECT_EQ(s.nodes[i + 3].mirror_index, i);
  }
  EXPECT_EQ(s.nodes[0].mirror_index, -1);
  EXPECT_EQ(NodeTypeFromWord("anchor"), StructureNodeType::kChild);
  EXPECT_EQ(NodeTypeFromWord("friction"), StructureNodeType::kIk);
  EXPECT_EQ(NodeTypeFromWord("Free"), std::nullopt);
}

TEST(ModelStructure, CheckFindsEachBrokenRule) {
  {  // A parent that is not an earlier node (a loop or a forward link).
    ModelStructure s = SmallStructure();
    s.nodes[2].parent = 2;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "has the parent 2")) << CheckModelStructure(s);
    s.nodes[2].parent = 5;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "not an earlier node"));
    s.nodes[2].parent = -2;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "not an earlier node"));
  }
  {  // The same for the offset parent.
    ModelStructure s = SmallStructure();
    s.nodes[4].offset_parent = 6;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "offset parent 6"));
  }
  {  // Names: empty, twice.
    ModelStructure s = SmallStructure();
    s.nodes[5].name.clear();
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "has no name"));
    s.nodes[5].name = "lB";
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "lB is used twice"));
  }
  {  // Mirrors: out of range, itself, one-sided.
    ModelStructure s = SmallStructure();
    s.nodes[1].mirror_index = 7;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "mirror 7"));
    s.nodes[1].mirror_index = 1;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "mirror 1"));
    s.nodes[1].mirror_index = 5;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "does not mirror it back"));
  }
  {  // Type out of range, and a foot that is no limb end.
    ModelStructure s = SmallStructure();
    s.nodes[2].type = static_cast<StructureNodeType>(7);
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "unknown type 7"));
    s.nodes[2].type = StructureNodeType::kChild;
    s.nodes[2].friction = true;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "is a foot"));
  }
  {  // Vectors must be finite.
    ModelStructure s = SmallStructure();
    s.nodes[3].roll.PutY(std::numeric_limits<double>::quiet_NaN());
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "not finite"));
  }
  {  // Planes: anchor < span < node count, mid right after the anchor, the whole chain.
    ModelStructure s = SmallStructure();
    s.planes[1].span = 7;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "< node count 7"));
    s.planes[1].span = 4;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "anchor 4 < end 4"));
    s = SmallStructure();
    s.planes[0].mid = 3;
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "middle node 3"));
    s = SmallStructure();
    s.planes[0].chain = {3, 1};
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "chain"));
  }
  {  // Depth and count bounds.
    ModelStructure s;
    for (int i = 0; i <= kMaxStructureDepth + 1; ++i) {
      StructureNode node;
      node.name = "n" + std::to_string(i);
      node.parent = i - 1;
      s.nodes.push_back(node);
    }
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "levels deep"));
    for (auto& node : s.nodes) node.parent = -1;
    EXPECT_EQ(CheckModelStructure(s), "");
    s.nodes.resize(kMaxStructureNodes + 1);
    EXPECT_TRUE(Mentions(CheckModelStructure(s), "more than 512"));
  }
}

}  // namespace
}  // namespace kavor

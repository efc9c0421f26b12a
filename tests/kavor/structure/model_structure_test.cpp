#include "kavor/structure/model_structure.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>

#include "kavor/structure/structure_parser.h"
#include "kavor/structure/structure_test_support.h"

namespace kavor {
namespace {

// Every rule of the check, each broken alone in the "mini" structure: nodes 0 Hips,
// 1..4 lUp lLow lFoot lToe, 5..8 their mirrors, 9..11 lCla lSho lArm; planes lLow (1, 2, 3),
// rLow (5, 6, 7) and lArm (10, 11, 11).
TEST(ModelStructure, CheckFindsEachBrokenRule) {
  const StructureParseResult parsed =
      ParseStructureText(structuretest::kMiniStructure, "mini",
                         structuretest::BasesFromMap({{"mini", structuretest::kMiniBase}}));
  ASSERT_NE(parsed.structure, nullptr) << parsed.message;
  ASSERT_EQ(CheckModelStructure(*parsed.structure), "");
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const struct {
    std::function<void(ModelStructure&)> damage;
    const char* problem;
  } cases[] = {
      // A parent or offset parent that is not an earlier node (a loop or a forward link).
      {[](ModelStructure& s) { s.nodes[2].parent = 2; }, "has the parent 2"},
      {[](ModelStructure& s) { s.nodes[2].parent = 5; }, "not an earlier node"},
      {[](ModelStructure& s) { s.nodes[2].parent = -2; }, "not an earlier node"},
      {[](ModelStructure& s) { s.nodes[4].offset_parent = 6; }, "offset parent 6"},
      {[](ModelStructure& s) { s.nodes[5].name.clear(); }, "has no name"},
      // Mirrors: out of range, itself, one-sided.
      {[](ModelStructure& s) { s.nodes[1].mirror_index = 12; }, "mirror 12"},
      {[](ModelStructure& s) { s.nodes[1].mirror_index = 1; }, "mirror 1"},
      {[](ModelStructure& s) { s.nodes[1].mirror_index = 6; }, "does not mirror it back"},
      {[](ModelStructure& s) { s.nodes[2].type = static_cast<StructureNodeType>(7); },
       "unknown type 7"},
      {[](ModelStructure& s) { s.nodes[2].friction = true; }, "is a foot"},
      {[nan](ModelStructure& s) { s.nodes[3].roll.PutY(nan); }, "not finite"},
      // Planes: anchor < span < node count, mid right after the anchor, the whole chain.
      {[](ModelStructure& s) { s.planes[1].span = 12; }, "< node count 12"},
      {[](ModelStructure& s) { s.planes[1].span = 5; }, "anchor 5 < end 5"},
      {[](ModelStructure& s) { s.planes[0].mid = 3; }, "middle node 3"},
      {[](ModelStructure& s) {
         s.planes[0].chain = {3, 1};
       },
       "chain"},
  };
  for (const auto& c : cases) {
    ModelStructure s = *parsed.structure;
    c.damage(s);
    const std::string problem = CheckModelStructure(s);
    EXPECT_NE(problem.find(c.problem), std::string::npos) << c.problem << ": " << problem;
  }
  {  // Depth and count bounds.
    ModelStructure s;
    for (int i = 0; i <= kMaxStructureDepth + 1; ++i) {
      StructureNode node;
      node.name = "n" + std::to_string(i);
      node.parent = i - 1;
      s.nodes.push_back(node);
    }
    EXPECT_NE(CheckModelStructure(s).find("levels deep"), std::string::npos);
    for (auto& node : s.nodes) node.parent = -1;
    EXPECT_EQ(CheckModelStructure(s), "");
    s.nodes.resize(kMaxStructureNodes + 1);
    EXPECT_NE(CheckModelStructure(s).find("more than 512"), std::string::npos);
  }
}

}  // namespace
}  // namespace kavor

#include "kavor/operators/adjust_events.h"

#include <gtest/gtest.h>

namespace kavor {
namespace {

// Node names that begin alike (Spine, Spine1) must not take each other's adjustments.
TEST(AdjustEventsTest, AdjustmentNamesMatchNodeAndSuffixExactly) {
  std::string_view suffix;
  EXPECT_TRUE(SplitAdjustmentName("Spine1X", "Spine1", AdjustmentOwner::kSemiFree, &suffix));
  EXPECT_EQ(suffix, "X");
  EXPECT_FALSE(SplitAdjustmentName("Spine1X", "Spine", AdjustmentOwner::kSemiFree, &suffix));
  EXPECT_FALSE(SplitAdjustmentName("Spine1AnchorTangentLength", "Spine",
                                   AdjustmentOwner::kSemiFree, &suffix));
  EXPECT_TRUE(
      SplitAdjustmentName("lAnkleBlendBack", "lAnkle", AdjustmentOwner::kPlaneEnd, &suffix));
  EXPECT_EQ(suffix, "BlendBack");
  // A suffix of the other kind, the bare name, and a name that only contains the node.
  EXPECT_FALSE(SplitAdjustmentName("lAnkleRX", "lAnkle", AdjustmentOwner::kPlaneEnd, &suffix));
  EXPECT_FALSE(SplitAdjustmentName("lAnkle", "lAnkle", AdjustmentOwner::kPlaneEnd, &suffix));
  EXPECT_FALSE(SplitAdjustmentName("xlAnkleX", "lAnkle", AdjustmentOwner::kPlaneEnd, &suffix));
}

}  // namespace
}  // namespace kavor

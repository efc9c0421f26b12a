// IK chains: a two-bone limb and longer chains bend to reach their effector, on the side
// their up-vector reference or roll gives, keep their bone lengths and survive saving and
// reopening.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <vector>

#include "files/scene_file.h"
#include "krx/scene/scene_test_support.h"
#include "scene/chains.h"

namespace KRX::rt::testing {
namespace {

using MATH::CVector3;

class ChainTest : public SceneTest {
 protected:
  // Bones of 3 and 4 along X then Y, so the chain first bends with the joint at (3, 0, 0).
  void Build() {
    root_chain_ = ChainRoot(
        root_.Add2DChain(CVector3(0, 0, 0), CVector3(3, 0, 0), CVector3(0, 0, 1), L"arm"));
    ASSERT_TRUE(root_chain_.IsValid());
    ASSERT_TRUE(root_chain_.AddBone(CVector3(3, 4, 0), L"forearm").IsValid());
    bones_ = root_chain_.GetBones();
    ASSERT_EQ(bones_.size(), 2u);
    effector_ = root_chain_.GetEffector();
  }
  void MoveEffector(const CVector3& to) {
    MATH::CTransformation t;
    t.SetTranslation(to);
    ASSERT_TRUE(Succeeded(Global(effector_).PutTransform(t)));
  }
  CVector3 BoneEnd(size_t i, double length) const {
    return Global(bones_[i]).GetTransform().MapPoint(CVector3(length, 0, 0));
  }

  ChainRoot root_chain_;
  std::vector<X3DObject> bones_;
  X3DObject effector_;
};

TEST_F(ChainTest, TwoBonesReachTheEffector) {
  Build();
  // At rest the chain keeps the pose it was built in.
  EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(3, 0, 0), 1e-9));
  EXPECT_TRUE(GlobalPosition(effector_).Equals(CVector3(3, 4, 0), 1e-9));
  EXPECT_EQ(ChainBone(bones_[1]).GetRoot(), root_chain_);
  // Target 5 away from the root: a right angle at the joint, on the side the chain bent.
  MoveEffector(CVector3(0, 5, 0));
  EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(2.4, 1.8, 0), 1e-9));
  EXPECT_TRUE(BoneEnd(1, 4.0).Equals(CVector3(0, 5, 0), 1e-9));
  // Out of reach: straight towards the target.
  MoveEffector(CVector3(0, 10, 0));
  EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(0, 3, 0), 1e-9));
  EXPECT_TRUE(BoneEnd(1, 4.0).Equals(CVector3(0, 7, 0), 1e-9));
}

TEST_F(ChainTest, LongerChainsBendAsAWhole) {
  // Three unit bones built as three sides of a square: every joint turns by 90 degrees.
  root_chain_ = ChainRoot(
      root_.Add2DChain(CVector3(0, 0, 0), CVector3(1, 0, 0), CVector3(0, 0, 1), L"spine"));
  ASSERT_TRUE(root_chain_.AddBone(CVector3(1, 1, 0)).IsValid());
  ASSERT_TRUE(root_chain_.AddBone(CVector3(0, 1, 0)).IsValid());
  bones_ = root_chain_.GetBones();
  ASSERT_EQ(bones_.size(), 3u);
  effector_ = root_chain_.GetEffector();
  const auto expect_joints = [&](const CVector3& j1, const CVector3& j2, const CVector3& end) {
    EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(j1, 1e-6));
    EXPECT_TRUE(GlobalPosition(bones_[2]).Equals(j2, 1e-6));
    EXPECT_TRUE(BoneEnd(2, 1.0).Equals(end, 1e-6));
  };
  expect_joints(CVector3(1, 0, 0), CVector3(1, 1, 0), CVector3(0, 1, 0));  // at rest
  const double h = std::sqrt(3.0) / 2.0;
  {  // Target 2 away: equal 60 degree turns, the joints on the side the chain bent.
    SCOPED_TRACE("reachable");
    MoveEffector(CVector3(0, 2, 0));
    expect_joints(CVector3(h, 0.5, 0), CVector3(h, 1.5, 0), CVector3(0, 2, 0));
  }
  {  // Out of reach: straight towards the target.
    SCOPED_TRACE("out of reach");
    MoveEffector(CVector3(0, 5, 0));
    expect_joints(CVector3(0, 1, 0), CVector3(0, 2, 0), CVector3(0, 3, 0));
  }
  {  // Closer than equal turns reach: still reached, lengths kept, bent to the same side.
    SCOPED_TRACE("folded");
    MoveEffector(CVector3(0, 0.5, 0));
    EXPECT_TRUE(BoneEnd(2, 1.0).Equals(CVector3(0, 0.5, 0), 1e-6));
    EXPECT_NEAR((GlobalPosition(bones_[1]) - GlobalPosition(bones_[0])).GetLength(), 1.0, 1e-9);
    EXPECT_NEAR((GlobalPosition(bones_[2]) - GlobalPosition(bones_[1])).GetLength(), 1.0, 1e-9);
    EXPECT_GT(GlobalPosition(bones_[1]).GetX(), 0.0);
  }
  {  // A target along the bend normal leaves no bend side: any side, still reached.
    SCOPED_TRACE("along the normal");
    MoveEffector(CVector3(0, 0, 2));
    EXPECT_TRUE(BoneEnd(2, 1.0).Equals(CVector3(0, 0, 2), 1e-6));
    EXPECT_NEAR((GlobalPosition(bones_[2]) - GlobalPosition(bones_[1])).GetLength(), 1.0, 1e-9);
  }
  {  // An up-vector reference on the other side flips the whole bend.
    SCOPED_TRACE("up-vector");
    MoveEffector(CVector3(0, 2, 0));
    X3DObject up = root_.AddNull(L"up");
    MATH::CTransformation t;
    t.SetTranslationFromValues(-5, 1, 0);
    Global(up).PutTransform(t);
    ASSERT_TRUE(Succeeded(ChainBone(bones_[0]).PutUpVectorReference(up)));
    expect_joints(CVector3(-h, 0.5, 0), CVector3(-h, 1.5, 0), CVector3(0, 2, 0));
  }
  {  // A deleted bone leaves the chain: the two left reach straight up.
    SCOPED_TRACE("deleted bone");
    CValue ignored;
    ASSERT_EQ(Application().ExecuteCommand(L"DeleteObj", {CValue(bones_[2].GetRef())}, ignored),
              CStatus::OK);
    EXPECT_EQ(root_chain_.GetBones().size(), 2u);
    EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(0, 1, 0), 1e-9));
  }
}

TEST(PlanarChain, ReachesEveryTargetWithinReachKeepingLengths) {
  // Uneven bones: equal turns reach down to about 1.3, closer targets need more. With a long
  // last bone the chain cannot come closer than 1, and folds nearly flat near that edge.
  const std::vector<std::vector<double>> chains = {{1.0, 2.0, 1.5, 0.5}, {1.0, 1.0, 3.0}};
  const double closest[] = {0.0, 1.0};
  {  // Uneven chains with targets a hair beyond their closest reach: the slowest to settle.
    const std::vector<std::pair<double, std::vector<double>>> edges = {
        {0.025820284963353292,
         {0.61737689567913434, 0.10873289586484397, 1.6502651110375295, 2.3942712415462304}},
        {0.026623253741460295, {2.2490309197212723, 2.8770531404014936, 0.60559491323099901}}};
    for (const auto& [distance, lengths] : edges) {
      std::vector<PlanarChainPoint> joints(lengths.size() + 1);
      SolvePlanarChain(lengths.data(), static_cast<int>(lengths.size()), distance, joints.data());
      EXPECT_NEAR(std::hypot(joints.back().u - distance, joints.back().v), 0.0, 5e-6);
    }
  }
  for (size_t c = 0; c < chains.size(); ++c) {
    const std::vector<double>& lengths = chains[c];
    const int count = static_cast<int>(lengths.size());
    std::vector<PlanarChainPoint> joints(lengths.size() + 1);
    for (double distance = closest[c] + 0.001; distance < 5.0; distance += 0.01) {
      SCOPED_TRACE(::testing::Message() << "chain " << c << " distance " << distance);
      SolvePlanarChain(lengths.data(), count, distance, joints.data());
      EXPECT_EQ(joints[0].u, 0.0);
      EXPECT_EQ(joints[0].v, 0.0);
      ASSERT_NEAR(std::hypot(joints[count].u - distance, joints[count].v), 0.0, 5e-6);
      for (int k = 0; k < count; ++k) {
        ASSERT_NEAR(std::hypot(joints[k + 1].u - joints[k].u, joints[k + 1].v - joints[k].v),
                    lengths[k], 1e-12);
      }
    }
    // Beyond reach: straight along +u.
    SolvePlanarChain(lengths.data(), count, 7.0, joints.data());
    EXPECT_NEAR(joints[1].u, lengths[0], 1e-12);
    EXPECT_NEAR(joints[count].u, 5.0, 1e-12);
    EXPECT_NEAR(joints[count].v, 0.0, 1e-12);
  }
}

TEST_F(ChainTest, UpVectorAndRollChooseTheSide) {
  Build();
  MoveEffector(CVector3(0, 5, 0));
  {  // An up-vector reference on the other side flips the bend.
    X3DObject up = root_.AddNull(L"up");
    MATH::CTransformation t;
    t.SetTranslationFromValues(-5, 2.5, 0);
    Global(up).PutTransform(t);
    ASSERT_TRUE(Succeeded(ChainBone(bones_[0]).PutUpVectorReference(up)));
    EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(-2.4, 1.8, 0), 1e-9));
    ChainBone(bones_[0]).PutUpVectorReference(X3DObject());
  }
  {  // The roll turns the plane about the root-effector line, read and set by name.
    CValue ignored;
    const CString roll = bones_[0].GetFullName() + CString(L".joint.roll");
    ASSERT_EQ(Application().ExecuteCommand(L"SetValue", {CValue(roll), CValue(90.0)}, ignored),
              CStatus::OK);
    const CVector3 joint = GlobalPosition(bones_[1]);
    EXPECT_NEAR(joint.GetX(), 0.0, 1e-9);
    EXPECT_NEAR(joint.GetY(), 1.8, 1e-9);
    EXPECT_NEAR(joint.GetZ(), 2.4, 1e-9);  // +x turned clockwise looking along +y
  }
  {  // A driven joint does not solve.
    Property(ChainBone(bones_[0]).GetJoint()).PutParameterValue(L"chntype", CValue(2));
    EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(3, 0, 0), 1e-9));
  }
}

TEST_F(ChainTest, SavedChainsSolveAfterReopening) {
  Build();
  MoveEffector(CVector3(0, 5, 0));
  const std::string path =
      (std::filesystem::temp_directory_path() / "krx_chain_test.krxs").string();
  ASSERT_TRUE(SaveSceneFile(path));
  ResetScene();
  ASSERT_TRUE(OpenSceneFile(path));
  std::filesystem::remove(path);
  X3DObject forearm = Application().GetActiveSceneRoot().FindChild(L"forearm");
  ASSERT_TRUE(forearm.IsA(ClassID::ChainBone));
  EXPECT_TRUE(forearm.IsA(ClassID::ChainBoneCode));  // the host's class code 77
  EXPECT_TRUE(GlobalPosition(forearm).Equals(CVector3(2.4, 1.8, 0), 1e-9));
  EXPECT_TRUE(ChainBone(forearm).GetEffector().IsValid());
}

}  // namespace
}  // namespace KRX::rt::testing

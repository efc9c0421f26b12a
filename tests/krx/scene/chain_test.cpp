// IK chains: a two-bone limb bends to reach its effector, on the side its up-vector
// reference or roll gives, keeps its bone lengths and survives saving and reopening.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "files/scene_file.h"
#include "krx/scene/scene_test_support.h"

namespace KRX::rt::testing {
namespace {

using MATH::CVector3;

class ChainTest : public SceneTest {
 protected:
  // Bones of 3 and 4 along X then Y, so the chain first bends with the joint at (3, 0, 0).
  void Build() {
    root_chain_ = ChainRoot(root_.Add2DChain(CVector3(0, 0, 0), CVector3(3, 0, 0), CVector3(0, 0, 1), L"arm"));
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
  EXPECT_TRUE(ChainBone(bones_[0]).IsA(ClassID::ChainBone));
  EXPECT_EQ(ChainBone(bones_[1]).GetRoot(), root_chain_);
  // Target 5 away from the root: a right angle at the joint, on the side the chain bent.
  MoveEffector(CVector3(0, 5, 0));
  EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(2.4, 1.8, 0), 1e-9));
  EXPECT_TRUE(BoneEnd(1, 4.0).Equals(CVector3(0, 5, 0), 1e-9));
  EXPECT_NEAR(ChainBone(bones_[0]).GetLength(), 3.0, 1e-12);
  // Out of reach: straight towards the target.
  MoveEffector(CVector3(0, 10, 0));
  EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(0, 3, 0), 1e-9));
  EXPECT_TRUE(BoneEnd(1, 4.0).Equals(CVector3(0, 7, 0), 1e-9));
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
    EXPECT_EQ(ChainBone(bones_[0]).GetUpVectorReference(), up);
    EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(-2.4, 1.8, 0), 1e-9));
    ChainBone(bones_[0]).PutUpVectorReference(X3DObject());
  }
  {  // The roll turns the plane about the root-effector line, read and set by name.
    CValue ignored;
    const CString roll = bones_[0].GetFullName() + CString(L".joint.roll");
    ASSERT_EQ(Application().ExecuteCommand(L"SetValue", {CValue(roll), CValue(90.0)}, ignored), CStatus::OK);
    CValue read;
    Application().ExecuteCommand(L"GetValue", {CValue(roll)}, read);
    EXPECT_DOUBLE_EQ(read.GetDouble(), 90.0);
    const CVector3 joint = GlobalPosition(bones_[1]);
    EXPECT_NEAR(joint.GetX(), 0.0, 1e-9);
    EXPECT_NEAR(joint.GetY(), 1.8, 1e-9);
    EXPECT_NEAR(std::fabs(joint.GetZ()), 2.4, 1e-9);
  }
  {  // A driven joint does not solve.
    Property(ChainBone(bones_[0]).GetJoint()).PutParameterValue(L"chntype", CValue(2));
    EXPECT_TRUE(GlobalPosition(bones_[1]).Equals(CVector3(3, 0, 0), 1e-9));
  }
}

TEST_F(ChainTest, SavedChainsSolveAfterReopening) {
  Build();
  MoveEffector(CVector3(0, 5, 0));
  const std::string path = (std::filesystem::temp_directory_path() / "krx_chain_test.krxs").string();
  ASSERT_TRUE(SaveSceneFile(path));
  ResetScene();
  ASSERT_TRUE(OpenSceneFile(path));
  std::filesystem::remove(path);
  X3DObject forearm = Application().GetActiveSceneRoot().FindChild(L"forearm");
  ASSERT_TRUE(forearm.IsA(ClassID::ChainBone));
  EXPECT_TRUE(GlobalPosition(forearm).Equals(CVector3(2.4, 1.8, 0), 1e-9));
  EXPECT_TRUE(ChainBone(forearm).GetEffector().IsValid());
}

}  // namespace
}  // namespace KRX::rt::testing

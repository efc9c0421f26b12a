// The pose of one frame: a rig object's rotation rebuilt as a proper rotation from its axes,
// and a capture skeleton's joints posed from their samples; local poses against the
// structure parents.
#include "kavor/motion/pose.h"

#include <gtest/gtest.h>

#include <cmath>

#include "kavor/host/host.h"
#include "kavor/maps/mocap_skeleton.h"
#include "kavor/maps/rig_test_support.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;
using rigtest::RigTest;

constexpr double kHalf = 0.70710678118654752;

bool SameRotation(const CTransformation& t, const CQuaternion& q) {
  return t.GetRotationQuaternion().SameRotation(q, 1e-9);
}

TEST_F(RigTest, RigPoseRebuildsAProperRotationFromTheTaggedAxes) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  const int32_t hip = FindNodeIndex(*structure, "lHip");
  ASSERT_EQ(structure->nodes[static_cast<size_t>(hip)].parent, 0);
  RetargetModel model(structure.get());
  model.model = KRX::Model(KRX::Application().GetActiveSceneRoot().AddModel(L"Walker"));
  model.Node(0).object = rigtest::AddNullAt(model.model, "Hips", 0, 10, 0);
  // Mirrored and unevenly scaled: axis images (0,-2,0), (-3,0,0), (0,0,0.5).
  KRX::X3DObject mirrored = model.model.AddNull(L"Mirrored");
  CTransformation placed;
  placed.SetScalingFromValues(-2, 3, 0.5);
  placed.SetRotation(CRotation::FromAxisAngle(CVector3(0, 0, 1), KRX::MATH::kPi / 2));
  placed.SetTranslationFromValues(1, 2, 3);
  mirrored.GetKinematics().GetGlobal().PutTransform(placed);
  model.Node(hip).object = mirrored;

  struct Variant {
    CVector3 align, roll;
    CQuaternion expected;
  };
  // Two axes kept, the third their cross product: X and Y kept give Z = (0,0,-1), a half turn
  // about (1,-1,0); Y and Z kept give X = (0,1,0), the quarter turn about +Z the object
  // carries; X and Z kept give Y = (1,0,0), a quarter turn the other way. Components compare
  // signed: (0,0,-1) marks X (ties go to X), as in the first case.
  const Variant variants[] = {{{1, 0, 0}, {0, 1, 0}, {0, kHalf, -kHalf, 0}},
                              {{0, 1, 0}, {0, 0, 1}, {kHalf, 0, 0, kHalf}},
                              {{1, 0, 0}, {0, 0, 1}, {kHalf, 0, 0, -kHalf}},
                              {{0, 0, -1}, {0, 1, 0}, {0, kHalf, -kHalf, 0}}};
  for (const Variant& v : variants) {
    model.Node(hip).align = v.align;
    model.Node(hip).roll = v.roll;
    ComputePose(model, kCurrentTime, false);
    const NodeMapEntry& node = model.Node(hip);
    EXPECT_TRUE(SameRotation(node.global_pose, v.expected))
        << v.align.GetX() << v.align.GetY() << v.align.GetZ();
    EXPECT_TRUE(node.global_pose.GetScaling().Equals(CVector3(1, 1, 1)));
    EXPECT_TRUE(node.global_pose.GetTranslation().Equals(CVector3(1, 2, 3), 1e-12));
    // Against the unturned hips the local pose differs only by the hips' height.
    EXPECT_TRUE(node.local_pose.GetTranslation().Equals(CVector3(1, -8, 3), 1e-12));
    EXPECT_TRUE(SameRotation(node.local_pose, v.expected));
  }
  {  // With extraction objects the extraction object and its own directions are read.
    auto extraction = std::make_unique<ExtractionEntry>();
    extraction->object = rigtest::AddNullAt(model.model, "Reader", 5, 0, 0);
    extraction->align = CVector3(0, 1, 0);
    extraction->roll = CVector3(0, 0, 1);
    model.Node(hip).extraction = std::move(extraction);
    ComputePose(model, kCurrentTime, true);
    EXPECT_TRUE(model.Node(hip).global_pose.GetTranslation().Equals(CVector3(5, 0, 0)));
    EXPECT_TRUE(SameRotation(model.Node(hip).global_pose, CQuaternion()));
    ComputePose(model, kCurrentTime, false);  // without: the control object again
    EXPECT_TRUE(model.Node(hip).global_pose.GetTranslation().Equals(CVector3(1, 2, 3), 1e-12));
  }
  {  // An untagged node stands at the identity.
    const int32_t knee = FindNodeIndex(*structure, "lKnee");
    model.Node(knee).global_pose.SetTranslationFromValues(4, 4, 4);
    ComputePose(model, kCurrentTime, false);
    EXPECT_TRUE(model.Node(knee).global_pose.GetTranslation().Equals(CVector3()));
  }
}

TEST(CapturePose, JointsPoseFromTheTruncatedFrame) {
  std::unique_ptr<ModelStructure> structure = rigtest::MakeStructure();
  MocapSkeleton skeleton;
  skeleton.joints.resize(3);
  MocapJoint &root = skeleton.joints[0], &spine = skeleton.joints[1];
  root.name = root.node_name = "Hips";
  spine.name = "Back";
  spine.node_name = "Spine";
  spine.parent = 0;
  skeleton.joints[2].node_name = "NoSuchNode";  // tagged as no node: ignored
  // Frame 1: the root at (1,0,0) a quarter turn about +Z (stored at twice unit length);
  // frames 0 and 2 elsewhere, so that rounding or an off-by-one shows.
  const CQuaternion quarter(2 * kHalf, 0, 0, 2 * kHalf);
  root.translations = {{9, 9, 9}, {1, 0, 0}, {-9, -9, -9}};
  root.rotations = {CQuaternion(), quarter, CQuaternion()};
  spine.translations = {{0, 5, 0}, {1, 0, 0}, {0, 5, 0}};
  spine.rotations = {CQuaternion(), CQuaternion(), CQuaternion()};
  skeleton.frame_count = 3;

  RetargetModel model(&skeleton, structure.get());
  const int32_t spine_node = FindNodeIndex(*structure, "Spine");
  ASSERT_EQ(model.Node(0).joint, &root);
  ASSERT_EQ(model.Node(spine_node).joint, &spine);
  ASSERT_EQ(structure->nodes[static_cast<size_t>(spine_node)].parent, 0);
  ComputePose(model, 1.7, false);
  // The child of a turned root: world (1,1,0), yet (1,0,0) in its parent's frame.
  EXPECT_TRUE(model.Node(spine_node).global_pose.GetTranslation().Equals(CVector3(1, 1, 0), 1e-12));
  EXPECT_TRUE(model.Node(spine_node).local_pose.GetTranslation().Equals(CVector3(1, 0, 0), 1e-12));
  EXPECT_TRUE(SameRotation(model.Node(spine_node).local_pose, CQuaternion()));
  EXPECT_TRUE(SameRotation(model.Node(0).global_pose, CQuaternion(kHalf, 0, 0, kHalf)));
  EXPECT_TRUE(model.Node(0).global_pose.GetScaling().Equals(CVector3(1, 1, 1)));
  for (const double time : {7.0, -1.0, kCurrentTime}) {  // no sample: the last pose stays
    ComputePose(model, time, false);
    EXPECT_TRUE(
        model.Node(spine_node).global_pose.GetTranslation().Equals(CVector3(1, 1, 0), 1e-12))
        << time;
  }
}

}  // namespace
}  // namespace kavor

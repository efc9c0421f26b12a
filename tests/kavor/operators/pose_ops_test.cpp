// The solve's pose operations: Euler angles both ways, Hamilton composition and the blend.
#include "kavor/operators/pose_ops.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

constexpr double kDegree = 0.017453292519943295;

CQuaternion AboutZ(double deg) {
  return {std::cos(deg * kDegree / 2), 0, 0, std::sin(deg * kDegree / 2)};
}

TEST(PoseOps, EulerAnglesBothWays) {
  EXPECT_TRUE(QuatFromEulerXYZ(10 * kDegree, 20 * kDegree, 30 * kDegree)
                  .Equals(CQuaternion(0.951549, 0.038135, 0.189308, 0.239298), 1e-6));
  EXPECT_NEAR(EulerXYZFromQuat(QuatFromEulerXYZ(-10 * kDegree, 0, 0)).GetX(), 6.108652, 1e-6);
  // Locked and turning backwards: X keeps its turn, with its sign following Y's.
  EXPECT_TRUE(EulerXYZFromQuat(QuatFromEulerXYZ(30 * kDegree, -90 * kDegree, 0))
                  .Equals(CVector3(30 * kDegree, 270 * kDegree, 0), 1e-6));
  // Angles in [0, 2 pi] that rebuild the rotation, at and near the lock too; the host's XYZ
  // rotation is the same rotation.
  for (double x = -180; x <= 180; x += 45) {
    for (double y : {-90.0, -89.9, -60.0, 0.0, 30.0, 88.0, 90.0}) {
      for (double z = -135; z <= 180; z += 45) {
        const CQuaternion q = QuatFromEulerXYZ(x * kDegree, y * kDegree, z * kDegree);
        const CVector3 back = EulerXYZFromQuat(q);
        EXPECT_TRUE(q.SameRotation(
            KRX::MATH::CRotation::FromXYZAngles(CVector3(x, y, z) * kDegree).GetQuaternion()));
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(back[i] >= 0 && back[i] <= 6.28318531);
        EXPECT_TRUE(QuatFromEulerXYZ(back.GetX(), back.GetY(), back.GetZ()).SameRotation(q, 1e-6))
            << x << " " << y << " " << z;
      }
    }
  }
}

TEST(PoseOps, ComposeExpressesBInTheFrameOfA) {
  const double h = std::sqrt(0.5);
  const Pose c = ComposePose({1, 0, 0, 0, 0, h, h}, {1, 0, 0, h, 0, 0, h});  // Rz90, Rx90
  EXPECT_TRUE(CQuaternion(c.qw, c.qx, c.qy, c.qz).Equals(CQuaternion(0.5, 0.5, 0.5, 0.5), 1e-12));
  EXPECT_TRUE(CVector3(c.px, c.py, c.pz).Equals(CVector3(1, 1, 0), 1e-12));
  // Through host transformations (quaternions stored the other way round): b under a.
  CTransformation a, b;
  a.SetRotationFromQuaternion(QuatFromEulerXYZ(0.3, -1.1, 2.0));
  a.SetTranslationFromValues(1, -2, 3);
  b.SetRotationFromQuaternion(QuatFromEulerXYZ(-0.7, 0.4, 0.2));
  b.SetTranslationFromValues(-4, 5, 0.5);
  const CTransformation host = CTransformation::Mul(b, a);
  const CTransformation ours = PoseToTransform(ComposePose(TransformToPose(a), TransformToPose(b)));
  EXPECT_TRUE(ours.GetTranslation().Equals(host.GetTranslation(), 1e-12));
  EXPECT_TRUE(ours.GetRotationQuaternion().SameRotation(host.GetRotationQuaternion(), 1e-12));
}

TEST(PoseOps, SlerpTakesTheShorterArcAndBlendsSmallArcsLinearly) {
  const CQuaternion linear = QuatSlerp(CQuaternion(), AboutZ(20), 0.5);  // not renormalised
  EXPECT_NEAR(std::sqrt(linear.Dot(linear)), 0.99619, 1e-5);
  EXPECT_TRUE(QuatSlerp(CQuaternion(), AboutZ(37), 0.5).Equals(AboutZ(18.5), 1e-12));
  EXPECT_TRUE(QuatSlerp(AboutZ(10), AboutZ(130), 0.25).Equals(AboutZ(40), 1e-12));
  // -q is the same rotation: the blend turns 45 degrees, not 225.
  const CQuaternion negated(-AboutZ(90).GetW(), 0, 0, -AboutZ(90).GetZ());
  EXPECT_TRUE(QuatSlerp(CQuaternion(), negated, 0.5).SameRotation(AboutZ(45), 1e-12));
}

}  // namespace
}  // namespace kavor

// The solve's pose operations: Euler angles both ways, Hamilton composition and the blend.
#include "kavor/operators/pose_ops.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

constexpr double kDeg = 0.017453292519943295;

double Norm(const CQuaternion& q) { return std::sqrt(q.Dot(q)); }

TEST(PoseOps, EulerAnglesBothWays) {
  EXPECT_TRUE(QuatFromEulerXYZ(10 * kDeg, 20 * kDeg, 30 * kDeg)
                  .Equals(CQuaternion(0.951549, 0.038135, 0.189308, 0.239298), 1e-6));
  EXPECT_TRUE(EulerXYZFromQuat(QuatFromEulerXYZ(10 * kDeg, 20 * kDeg, 30 * kDeg))
                  .Equals(CVector3(10 * kDeg, 20 * kDeg, 30 * kDeg), 1e-12));
  EXPECT_NEAR(EulerXYZFromQuat(QuatFromEulerXYZ(0, 0, 30 * kDeg)).GetZ(), 0.5236, 1e-4);
  EXPECT_NEAR(EulerXYZFromQuat(QuatFromEulerXYZ(-10 * kDeg, 0, 0)).GetX(), 6.108652, 1e-6);
  EXPECT_TRUE(QuatFromEulerXYZ(90 * kDeg, 90 * kDeg, 0)
                  .Rotate(CVector3(0, 1, 0))
                  .Equals(CVector3(1, 0, 0), 1e-12));
  {  // Gimbal lock backwards: X keeps its turn, with the sign following Y's.
    const CQuaternion q = QuatFromEulerXYZ(30 * kDeg, -90 * kDeg, 0);
    EXPECT_TRUE(q.Equals(CQuaternion(0.68301, 0.18301, -0.68301, 0.18301), 1e-5));
    EXPECT_TRUE(EulerXYZFromQuat(q).Equals(CVector3(30 * kDeg, 270 * kDeg, 0), 1e-6));
  }
  // Every angle lands in [0, 2 pi] and rebuilds the rotation, locked or not; the host's own
  // XYZ rotation is the same rotation.
  for (double x = -180; x <= 180; x += 45) {
    for (double y : {-90.0, -89.9, -60.0, 0.0, 30.0, 88.0, 90.0}) {
      for (double z = -135; z <= 180; z += 45) {
        const CQuaternion q = QuatFromEulerXYZ(x * kDeg, y * kDeg, z * kDeg);
        const CVector3 back = EulerXYZFromQuat(q);
        EXPECT_TRUE(
            q.SameRotation(CRotation::FromXYZAngles(CVector3(x, y, z) * kDeg).GetQuaternion()));
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(back[i] >= 0 && back[i] <= 6.28318531);
        EXPECT_TRUE(QuatFromEulerXYZ(back.GetX(), back.GetY(), back.GetZ()).SameRotation(q, 1e-6))
            << x << " " << y << " " << z;
      }
    }
  }
}

TEST(PoseOps, ComposeIsAHamiltonProductAndMatchesTheHostTheOtherWayRound) {
  Pose rz;
  rz.qz = rz.qw = std::sqrt(0.5);
  rz.px = 1;
  Pose rx;
  rx.qx = rx.qw = std::sqrt(0.5);
  rx.px = 1;
  const Pose c = ComposePose(rz, rx);
  EXPECT_TRUE(CQuaternion(c.qw, c.qx, c.qy, c.qz).Equals(CQuaternion(0.5, 0.5, 0.5, 0.5), 1e-12));
  EXPECT_TRUE(CVector3(c.px, c.py, c.pz).Equals(CVector3(1, 1, 0), 1e-12));
  // A non-symmetric transformation through a pose (stored x, y, z, w) and back; its scaling
  // is dropped. b in a's frame is the host's b under a.
  CTransformation a, b;
  a.SetRotationFromQuaternion(QuatFromEulerXYZ(0.3, -1.1, 2.0));
  a.SetTranslationFromValues(1, -2, 3);
  a.SetScalingFromValues(2, 2, 2);
  b.SetRotationFromQuaternion(QuatFromEulerXYZ(-0.7, 0.4, 0.2));
  b.SetTranslationFromValues(-4, 5, 0.5);
  const Pose pa = TransformToPose(a);
  const CQuaternion qa = a.GetRotationQuaternion();
  EXPECT_TRUE(pa.qw == qa.GetW() && pa.qx == qa.GetX() && pa.qy == qa.GetY() && pa.qz == qa.GetZ());
  a.SetScalingFromValues(1, 1, 1);
  const CTransformation host = CTransformation::Mul(b, a);
  const CTransformation ours = PoseToTransform(ComposePose(pa, TransformToPose(b)));
  EXPECT_TRUE(ours.GetTranslation().Equals(host.GetTranslation(), 1e-12));
  EXPECT_TRUE(ours.GetRotationQuaternion().SameRotation(host.GetRotationQuaternion(), 1e-12));
  EXPECT_TRUE(ours.GetScaling().Equals(CVector3(1, 1, 1)));
}

TEST(PoseOps, SlerpTakesTheShorterArcAndBlendsSmallArcsLinearly) {
  const CQuaternion identity;
  auto about_z = [](double deg) {
    return CQuaternion(std::cos(deg * kDeg / 2), 0, 0, std::sin(deg * kDeg / 2));
  };
  // Under about 36.4 degrees the blend is linear and keeps its shortened length.
  EXPECT_NEAR(Norm(QuatSlerp(identity, about_z(20), 0.5)), 0.99619, 1e-5);
  EXPECT_NEAR(Norm(QuatSlerp(identity, about_z(36.3), 0.5)), 0.98748, 1e-5);
  EXPECT_TRUE(QuatSlerp(identity, about_z(37), 0.5).Equals(about_z(18.5), 1e-12));
  EXPECT_TRUE(QuatSlerp(identity, about_z(120), 0.25).Equals(about_z(30), 1e-12));
  // -q is the same rotation: the blend turns 45 degrees, not 225.
  const CQuaternion flipped = about_z(90);
  const CQuaternion negated(-flipped.GetW(), 0, 0, -flipped.GetZ());
  EXPECT_TRUE(QuatSlerp(identity, negated, 0.5).SameRotation(about_z(45), 1e-12));
  EXPECT_TRUE(QuatSlerp(about_z(10), about_z(170), 0).Equals(about_z(10), 1e-12));
}

}  // namespace
}  // namespace kavor

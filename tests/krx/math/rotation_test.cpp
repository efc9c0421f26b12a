// Vectors, quaternions and rotations: known answers, round trips and degenerate input.
#include <gtest/gtest.h>

#include <cmath>

#include "krx/math.h"
#include "krx/math/math_expect.h"

namespace KRX::MATH {
namespace {

using TEST::ExpectSameRotation;
using TEST::ExpectVectorNear;

constexpr RotationOrder kOrders[] = {RotationOrder::XYZ, RotationOrder::XZY, RotationOrder::YXZ,
                                     RotationOrder::YZX, RotationOrder::ZXY, RotationOrder::ZYX};
// Axes of each order, first to last.
constexpr int kAxes[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};

CVector3 Degrees(double x, double y, double z) {
  return {DegreesToRadians(x), DegreesToRadians(y), DegreesToRadians(z)};
}

CRotation AboutAxis(int axis, double angle) {
  return CRotation::FromAxisAngle(
      {axis == 0 ? 1.0 : 0.0, axis == 1 ? 1.0 : 0.0, axis == 2 ? 1.0 : 0.0}, angle);
}

// Angles -> rotation -> angles -> rotation gives the same rotation, every angle in [-pi, pi].
void ExpectRoundTrip(const CVector3& angles, RotationOrder order) {
  SCOPED_TRACE(testing::Message() << "order " << static_cast<int>(order) << " angles "
                                  << angles.GetX() << ", " << angles.GetY() << ", "
                                  << angles.GetZ());
  const CQuaternion q = CRotation::FromXYZAngles(angles, order).GetQuaternion();
  const CVector3 back = CRotation(q).GetXYZAngles(order);
  for (int i = 0; i < 3; ++i) EXPECT_LE(std::fabs(back[i]), kPi);  // false for NaN too
  ExpectSameRotation(CRotation::FromXYZAngles(back, order).GetQuaternion(), q);
}

TEST(EulerAngles, KnownAnswers) {
  {  // X first, then Y: Y goes to Z, then Z goes to X. Y first instead: Y stays, then to Z.
    const CVector3 angles = Degrees(90, 90, 0);
    ExpectVectorNear(
        CRotation::FromXYZAngles(angles, RotationOrder::XYZ).GetQuaternion().Rotate({0, 1, 0}),
        {1, 0, 0});
    ExpectVectorNear(
        CRotation::FromXYZAngles(angles, RotationOrder::ZYX).GetQuaternion().Rotate({0, 1, 0}),
        {0, 0, 1});
  }
  {  // A 30 degree turn about Z reads back as +30 degrees, not 330.
    ExpectVectorNear(AboutAxis(2, DegreesToRadians(30)).GetXYZAngles(), {0, 0, 0.5235987755982988});
  }
  {  // Every order equals its three axis turns composed first to last.
    const CVector3 angles(0.3, -1.1, 2.5);
    for (int o = 0; o < 6; ++o) {
      const int* a = kAxes[o];
      const CRotation expected = CRotation::Mul(
          CRotation::Mul(AboutAxis(a[0], angles[a[0]]), AboutAxis(a[1], angles[a[1]])),
          AboutAxis(a[2], angles[a[2]]));
      ExpectSameRotation(CRotation::FromXYZAngles(angles, kOrders[o]).GetQuaternion(),
                         expected.GetQuaternion());
    }
  }
}

TEST(EulerAngles, RoundTripEveryOrder) {
  {  // A grid of angles, every 30 degrees over the full circle.
    for (RotationOrder order : kOrders) {
      for (int x = -180; x <= 180; x += 30) {
        for (int y = -180; y <= 180; y += 30) {
          for (int z = -180; z <= 180; z += 30) ExpectRoundTrip(Degrees(x, y, z), order);
        }
      }
    }
  }
  {  // Angles in range come back unchanged when the middle axis turns less than 90.
    for (int o = 0; o < 6; ++o) {
      double a[3] = {2.9, 2.9, -2.5};
      a[kAxes[o][1]] = -0.7;
      const CVector3 angles(a[0], a[1], a[2]);
      ExpectVectorNear(CRotation::FromXYZAngles(angles, kOrders[o]).GetXYZAngles(kOrders[o]),
                       angles);
    }
  }
}

TEST(EulerAngles, GimbalLock) {
  {  // The middle axis at +-90 degrees, exactly and within a hair, for every order.
    for (int o = 0; o < 6; ++o) {
      for (double offset : {0.0, 1e-7, -1e-7, 1e-10, 1e-13}) {
        for (double sign : {1.0, -1.0}) {
          double a[3] = {0.7, -0.4, 1.9};
          a[kAxes[o][1]] = sign * (kPi / 2 + offset);
          ExpectRoundTrip({a[0], a[1], a[2]}, kOrders[o]);
        }
      }
    }
  }
  {  // At exact lock the last axis is zeroed and the first takes the whole turn.
    const CVector3 angles = CRotation::FromXYZAngles(Degrees(20, 90, 30)).GetXYZAngles();
    EXPECT_NEAR(angles.GetY(), kPi / 2, 1e-9);
    EXPECT_NEAR(angles.GetZ(), 0.0, 1e-9);
  }
}

TEST(Rotation, MatrixAndQuaternion) {
  {  // Row i of the matrix is the image of axis i.
    const CMatrix3 m = AboutAxis(2, kPi / 2).GetMatrix();
    ExpectVectorNear({m.Get(0, 0), m.Get(0, 1), m.Get(0, 2)}, {0, 1, 0});
    ExpectVectorNear({m.Get(1, 0), m.Get(1, 1), m.Get(1, 2)}, {-1, 0, 0});
  }
  {  // A frame given by its axis rows: rows Y, Z, X send X to Y and Y to Z.
    const CQuaternion q = RotationFromAxisRows({0, 1, 0}, {0, 0, 1}, {1, 0, 0}).GetQuaternion();
    ExpectVectorNear(q.Rotate({1, 0, 0}), {0, 1, 0});
    ExpectVectorNear(q.Rotate({0, 1, 0}), {0, 0, 1});
  }
  {  // Round trips, including half turns (matrix trace -1) about several axes; the matrix
     // is orthonormal.
    const CVector3 axes[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 0}, {1, 2, 3}, {-3, 0.5, 0.1}};
    for (const CVector3& axis : axes) {
      for (double angle : {0.0, 0.5, -2.0, kPi, -kPi + 1e-9}) {
        const CRotation r = CRotation::FromAxisAngle(axis, angle);
        const CMatrix3 m = r.GetMatrix();
        const CMatrix3 product = CMatrix3::Mul(m, m.Transpose());
        for (int i = 0; i < 3; ++i) {
          for (int j = 0; j < 3; ++j) EXPECT_NEAR(product.Get(i, j), i == j ? 1.0 : 0.0, 1e-12);
        }
        CRotation back;
        back.SetFromMatrix(m);
        ExpectSameRotation(back.GetQuaternion(), r.GetQuaternion());
      }
    }
  }
  {  // The axis need not be unit length; zero axes and matrices give valid rotations.
    ExpectSameRotation(CRotation::FromAxisAngle({0, 0, 5}, 1.0).GetQuaternion(),
                       {std::cos(0.5), 0, 0, std::sin(0.5)});
    ExpectSameRotation(CRotation::FromAxisAngle({0, 0, 0}, 1.0).GetQuaternion(), {});
    CMatrix3 zero;
    for (int i = 0; i < 3; ++i) zero.Set(i, i, 0.0);
    CRotation r;
    r.SetFromMatrix(zero);
    EXPECT_TRUE(TEST::IsUnit(r.GetQuaternion()));
  }
}

TEST(EulerAngles, StoredRotationOrder) {
  // A quaternion to angles in ZYX and back through the order the rotation holds.
  const CQuaternion q =
      CRotation::FromXYZAngles(Degrees(20, -50, 130), RotationOrder::YXZ).GetQuaternion();
  CRotation r;
  r.PutRotationOrder(RotationOrder::ZYX);
  r.SetFromQuaternion(q);
  const CVector3 angles = r.GetXYZAngles();
  ExpectVectorNear(angles, r.GetXYZAngles(RotationOrder::ZYX));
  CRotation back = r.Inverse();  // the order travels with the inverse and copies
  back.SetFromXYZAngles(angles);
  ExpectSameRotation(back.GetQuaternion(), q);
  back.SetFromXYZAngles(angles, RotationOrder::XYZ);  // converts once, keeps the stored order
  EXPECT_EQ(back.GetRotationOrder(), RotationOrder::ZYX);
  EXPECT_EQ(CRotation::Mul(r, CRotation()).GetRotationOrder(), RotationOrder::ZYX);
  EXPECT_EQ(CRotation::Mul(CRotation(), r).GetRotationOrder(), RotationOrder::XYZ);
}

TEST(Vector3, NormalizeAndAngle) {
  {  // A vector shorter than the epsilon has no direction: left unchanged.
    CVector3 tiny(1e-6, 0, 0), v(3, 0, -4);
    EXPECT_FALSE(tiny.NormalizeInPlace(1e-3));
    EXPECT_EQ(tiny, CVector3(1e-6, 0, 0));
    EXPECT_TRUE(v.NormalizeInPlace());
    ExpectVectorNear(v, {0.6, 0, -0.8}, 1e-15);
  }
  {  // Opposite and perpendicular; zero vectors give 0, never NaN.
    EXPECT_NEAR(CVector3(1, 2, 3).GetAngle({-2, -4, -6}), kPi, 1e-15);
    EXPECT_NEAR(CVector3(0, 0, 5).GetAngle({0.1, 0, 0}), kPi / 2, 1e-15);
    EXPECT_EQ(CVector3().GetAngle({1, 0, 0}), 0.0);
  }
  {  // Tiny angles keep their precision (acos of the dot product gives 0 here).
    EXPECT_NEAR(CVector3(1, 0, 0).GetAngle({1, 1e-9, 0}), 1e-9, 1e-20);
    EXPECT_NEAR(CVector3(1, 0, 0).GetAngle({-1, 1e-9, 0}), kPi - 1e-9, 1e-15);
  }
}

const double kHalf = std::sqrt(0.5);  // cos 45 = sin 45

TEST(Quaternion, RotateAndMulOrder) {
  const CQuaternion about_x(kHalf, kHalf, 0, 0);  // +90 degrees about X
  const CQuaternion about_y(kHalf, 0, kHalf, 0);  // +90 degrees about Y
  // Right-handed turns; Mul(a, b) turns by a first: Y goes to Z about X, then Z goes to X
  // about Y.
  ExpectVectorNear(about_y.Rotate({0, 0, 1}), {1, 0, 0});
  ExpectVectorNear(CQuaternion::Mul(about_x, about_y).Rotate({0, 1, 0}), {1, 0, 0});
  ExpectVectorNear(CQuaternion::Mul(about_y, about_x).Rotate({0, 1, 0}), {0, 0, 1});
  {  // A zero quaternion normalises to the identity.
    CQuaternion q(0, 0, 0, 0);
    q.NormalizeInPlace();
    EXPECT_TRUE(q.Equals(CQuaternion()));
  }
}

TEST(Quaternion, Slerp) {
  const CQuaternion identity;
  const CQuaternion quarter_z(kHalf, 0, 0, kHalf);  // +90 about Z
  const CQuaternion eighth_z(std::cos(kPi / 8), 0, 0, std::sin(kPi / 8));
  {  // Endpoints, midpoint, and constant speed (a quarter of the way is 22.5 degrees).
    ExpectSameRotation(CQuaternion::Slerp(identity, quarter_z, 1.0), quarter_z);
    ExpectSameRotation(CQuaternion::Slerp(identity, quarter_z, 0.5), eighth_z);
    ExpectSameRotation(CQuaternion::Slerp(identity, quarter_z, 0.25),
                       {std::cos(kPi / 16), 0, 0, std::sin(kPi / 16)});
  }
  {  // Shorter arc: -q is the same +90 turn, so halfway is still +45; +270 is -90.
    ExpectSameRotation(CQuaternion::Slerp(identity, {-kHalf, 0, 0, -kHalf}, 0.5), eighth_z);
    const CQuaternion three_quarters(std::cos(0.75 * kPi), 0, 0, std::sin(0.75 * kPi));
    ExpectSameRotation(CQuaternion::Slerp(identity, three_quarters, 0.5),
                       {std::cos(kPi / 8), 0, 0, -std::sin(kPi / 8)});
  }
  {  // Half a turn apart (dot product 0): halfway is a quarter turn.
    ExpectSameRotation(CQuaternion::Slerp(identity, {0, 1, 0, 0}, 0.5), {kHalf, kHalf, 0, 0});
  }
  {  // Nearly equal and zero inputs stay finite and unit.
    const CQuaternion mid =
        CQuaternion::Slerp(identity, {std::cos(1e-13), std::sin(1e-13), 0, 0}, 0.5);
    EXPECT_TRUE(TEST::IsUnit(mid));
    EXPECT_NEAR(mid.GetX(), 5e-14, 1e-20);
    EXPECT_TRUE(TEST::IsUnit(CQuaternion::Slerp({0, 0, 0, 0}, {0, 0, 0, 0}, 0.5)));
  }
}

}  // namespace
}  // namespace KRX::MATH

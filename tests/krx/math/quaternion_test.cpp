#include <gtest/gtest.h>

#include <cmath>

#include "krx/math.h"
#include "krx/math/math_expect.h"

namespace KRX::MATH {
namespace {

using TEST::ExpectSameRotation;
using TEST::ExpectVectorNear;

const double kHalf = std::sqrt(0.5);  // cos 45 = sin 45

TEST(Quaternion, RotateAndMulOrder) {
  const CQuaternion about_x(kHalf, kHalf, 0, 0);  // +90 degrees about X
  const CQuaternion about_y(kHalf, 0, kHalf, 0);  // +90 degrees about Y
  {                                               // Right-handed turns.
    ExpectVectorNear(CQuaternion(kHalf, 0, 0, kHalf).Rotate({1, 0, 0}), {0, 1, 0});
    ExpectVectorNear(about_y.Rotate({0, 0, 1}), {1, 0, 0});
  }
  {  // Mul(a, b) turns by a first: Y goes to Z about X, then Z goes to X about Y.
    ExpectVectorNear(CQuaternion::Mul(about_x, about_y).Rotate({0, 1, 0}), {1, 0, 0});
    ExpectVectorNear(CQuaternion::Mul(about_y, about_x).Rotate({0, 1, 0}), {0, 0, 1});
  }
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
    ExpectSameRotation(CQuaternion::Slerp(identity, quarter_z, 0.0), identity);
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
    ExpectSameRotation(CQuaternion::Slerp(quarter_z, quarter_z, 0.3), quarter_z);
    EXPECT_TRUE(TEST::IsUnit(CQuaternion::Slerp({0, 0, 0, 0}, {0, 0, 0, 0}, 0.5)));
  }
}

}  // namespace
}  // namespace KRX::MATH

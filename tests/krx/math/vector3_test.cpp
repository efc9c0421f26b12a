#include <gtest/gtest.h>

#include "krx/math.h"
#include "krx/math/math_expect.h"

namespace KRX::MATH {
namespace {

TEST(Vector3, NormalizeInPlace) {
  {  // A zero vector, or one shorter than the epsilon, has no direction: left unchanged.
    CVector3 zero, tiny(1e-6, 0, 0);
    EXPECT_FALSE(zero.NormalizeInPlace());
    EXPECT_FALSE(tiny.NormalizeInPlace(1e-3));
    EXPECT_EQ(zero, CVector3(0, 0, 0));
    EXPECT_EQ(tiny, CVector3(1e-6, 0, 0));
  }
  {  // 3-4-5 triangle.
    CVector3 v(3, 0, -4);
    EXPECT_TRUE(v.NormalizeInPlace());
    TEST::ExpectVectorNear(v, {0.6, 0, -0.8}, 1e-15);
  }
}

TEST(Vector3, GetAngle) {
  {  // Parallel, opposite, perpendicular.
    EXPECT_DOUBLE_EQ(CVector3(1, 2, 3).GetAngle({2, 4, 6}), 0.0);
    EXPECT_NEAR(CVector3(1, 2, 3).GetAngle({-2, -4, -6}), kPi, 1e-15);
    EXPECT_NEAR(CVector3(0, 0, 5).GetAngle({0.1, 0, 0}), kPi / 2, 1e-15);
  }
  {  // Zero vectors give 0, never NaN.
    EXPECT_EQ(CVector3().GetAngle({1, 0, 0}), 0.0);
    EXPECT_EQ(CVector3().GetAngle({}), 0.0);
  }
  {  // Tiny angles keep their precision (acos of the dot product gives 0 here).
    EXPECT_NEAR(CVector3(1, 0, 0).GetAngle({1, 1e-9, 0}), 1e-9, 1e-20);
    EXPECT_NEAR(CVector3(1, 0, 0).GetAngle({-1, 1e-9, 0}), kPi - 1e-9, 1e-15);
  }
}

}  // namespace
}  // namespace KRX::MATH

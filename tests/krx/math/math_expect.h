// Comparison helpers for the math tests: component-wise, with readable failures.
#pragma once

#include <gtest/gtest.h>

#include <cmath>

#include "krx/math.h"

namespace KRX::MATH::TEST {

inline void ExpectVectorNear(const CVector3& actual, const CVector3& expected,
                             double tolerance = 1e-9) {
  EXPECT_NEAR(actual.GetX(), expected.GetX(), tolerance);
  EXPECT_NEAR(actual.GetY(), expected.GetY(), tolerance);
  EXPECT_NEAR(actual.GetZ(), expected.GetZ(), tolerance);
}

// q and -q are the same rotation.
inline void ExpectSameRotation(const CQuaternion& actual, const CQuaternion& expected,
                               double tolerance = 1e-9) {
  const double sign = actual.Dot(expected) < 0.0 ? -1.0 : 1.0;
  EXPECT_NEAR(sign * actual.GetW(), expected.GetW(), tolerance);
  EXPECT_NEAR(sign * actual.GetX(), expected.GetX(), tolerance);
  EXPECT_NEAR(sign * actual.GetY(), expected.GetY(), tolerance);
  EXPECT_NEAR(sign * actual.GetZ(), expected.GetZ(), tolerance);
}

inline bool IsFinite(const CVector3& v) {
  return std::isfinite(v.GetX()) && std::isfinite(v.GetY()) && std::isfinite(v.GetZ());
}

inline bool IsUnit(const CQuaternion& q) {
  return std::isfinite(q.Dot(q)) && std::fabs(q.Dot(q) - 1.0) < 1e-12;
}

}  // namespace KRX::MATH::TEST

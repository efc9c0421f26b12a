// Rotations stored as unit quaternions: conversion to and from row-vector matrices,
// axis-angle construction, frames given by their axis rows, and composition.
#include <cmath>

#include "krx/math.h"

namespace KRX::MATH {

void CRotation::SetFromQuaternion(const CQuaternion& q) {
  q_ = q;
  q_.NormalizeInPlace();
}

CMatrix3 CRotation::GetMatrix() const {
  const double w = q_.GetW(), x = q_.GetX(), y = q_.GetY(), z = q_.GetZ();
  // Row i is the image of axis i (row vectors), the transpose of the usual column form.
  CMatrix3 m;
  m.Set(0, 0, 1.0 - 2.0 * (y * y + z * z));
  m.Set(0, 1, 2.0 * (x * y + w * z));
  m.Set(0, 2, 2.0 * (x * z - w * y));
  m.Set(1, 0, 2.0 * (x * y - w * z));
  m.Set(1, 1, 1.0 - 2.0 * (x * x + z * z));
  m.Set(1, 2, 2.0 * (y * z + w * x));
  m.Set(2, 0, 2.0 * (x * z + w * y));
  m.Set(2, 1, 2.0 * (y * z - w * x));
  m.Set(2, 2, 1.0 - 2.0 * (x * x + y * y));
  return m;
}

void CRotation::SetFromMatrix(const CMatrix3& m) {
  // Extract the largest of |w|, |x|, |y|, |z| from the diagonal first and the others from
  // the off-diagonal sums and differences divided by it: the divisor is then never small,
  // and for any finite matrix the square root argument is positive.
  const double m00 = m.Get(0, 0), m11 = m.Get(1, 1), m22 = m.Get(2, 2);
  const double trace = m00 + m11 + m22;
  CQuaternion q;
  if (trace > 0.0) {
    const double s = 2.0 * std::sqrt(1.0 + trace);
    q.Set(0.25 * s, (m.Get(1, 2) - m.Get(2, 1)) / s, (m.Get(2, 0) - m.Get(0, 2)) / s,
          (m.Get(0, 1) - m.Get(1, 0)) / s);
  } else if (m00 >= m11 && m00 >= m22) {
    const double s = 2.0 * std::sqrt(1.0 + m00 - m11 - m22);
    q.Set((m.Get(1, 2) - m.Get(2, 1)) / s, 0.25 * s, (m.Get(0, 1) + m.Get(1, 0)) / s,
          (m.Get(0, 2) + m.Get(2, 0)) / s);
  } else if (m11 >= m22) {
    const double s = 2.0 * std::sqrt(1.0 + m11 - m00 - m22);
    q.Set((m.Get(2, 0) - m.Get(0, 2)) / s, (m.Get(0, 1) + m.Get(1, 0)) / s, 0.25 * s,
          (m.Get(1, 2) + m.Get(2, 1)) / s);
  } else {
    const double s = 2.0 * std::sqrt(1.0 + m22 - m00 - m11);
    q.Set((m.Get(0, 1) - m.Get(1, 0)) / s, (m.Get(0, 2) + m.Get(2, 0)) / s,
          (m.Get(1, 2) + m.Get(2, 1)) / s, 0.25 * s);
  }
  SetFromQuaternion(q);
}

CRotation CRotation::FromAxisAngle(const CVector3& axis, double angle) {
  CVector3 n = axis;
  if (!n.NormalizeInPlace()) return CRotation();
  const double s = std::sin(0.5 * angle);
  return CRotation(CQuaternion(std::cos(0.5 * angle), n.GetX() * s, n.GetY() * s, n.GetZ() * s));
}

CRotation RotationFromAxisRows(const CVector3& x, const CVector3& y, const CVector3& z) {
  CMatrix3 m;
  const CVector3 rows[3] = {x, y, z};
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) m.Set(r, c, rows[r][c]);
  }
  CRotation rotation;
  rotation.SetFromMatrix(m);
  return rotation;
}

CRotation CRotation::Mul(const CRotation& a, const CRotation& b) {
  // Renormalising here keeps long chains of products from drifting off unit length.
  CRotation r(CQuaternion::Mul(a.q_, b.q_));
  r.order_ = a.order_;
  return r;
}

}  // namespace KRX::MATH

// Vector operations that need more than one expression: length, normalisation and the
// angle between two directions, all safe for zero vectors.
#include <cmath>

#include "krx/math.h"

namespace KRX::MATH {

bool CVector3::NormalizeInPlace(double epsilon) {
  const double length = GetLength();
  // Written so that a NaN length also fails the test.
  if (!(length >= epsilon) || length == 0.0) return false;
  const double inv = 1.0 / length;
  x_ *= inv;
  y_ *= inv;
  z_ *= inv;
  return true;
}

double CVector3::GetAngle(const CVector3& o) const {
  // atan2 of |u x v| and u . v keeps full precision near 0 and pi, where acos of the
  // normalised dot product loses half the digits, and needs no normalisation: for a zero
  // vector both arguments are 0 and atan2(0, 0) is 0.
  return std::atan2(Cross(o).GetLength(), Dot(o));
}

bool CVector3::Equals(const CVector3& o, double epsilon) const {
  return std::fabs(x_ - o.x_) <= epsilon && std::fabs(y_ - o.y_) <= epsilon &&
         std::fabs(z_ - o.z_) <= epsilon;
}

}  // namespace KRX::MATH

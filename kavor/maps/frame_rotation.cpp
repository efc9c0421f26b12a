#include "kavor/maps/frame_rotation.h"

#include <cmath>

namespace kavor {

using KRX::MATH::CRotation;
using KRX::MATH::CVector3;

namespace {

constexpr double kHalfTurn = 3.14159265359;

// Any unit vector across the unit vector `v`.
CVector3 Across(const CVector3& v) {
  CVector3 axis = std::fabs(v.GetX()) < 0.9 ? CVector3(1, 0, 0).Cross(v) : CVector3(0, 1, 0).Cross(v);
  axis.NormalizeInPlace();
  return axis;
}

// The turn about `axis` by `angle`; an axis that is zero (parallel directions) gives no
// turn, except half a turn, which then goes about `fallback`.
CRotation Turn(CVector3 axis, double angle, const CVector3& fallback) {
  if (std::fabs(std::fabs(angle) - kHalfTurn) < 1e-5) return CRotation::FromAxisAngle(fallback, angle);
  if (!axis.NormalizeInPlace()) return CRotation();
  return CRotation::FromAxisAngle(axis, angle);
}

}  // namespace

CRotation FrameRotation(const CVector3& a1, const CVector3& r1, const CVector3& a2,
                        const CVector3& r2) {
  CVector3 from = a1;
  CVector3 to = a2;
  if (!from.NormalizeInPlace() || !to.NormalizeInPlace()) return CRotation();
  const CRotation swing = Turn(from.Cross(to), from.GetAngle(to), Across(from));
  const CVector3 swung_roll = swing.GetQuaternion().Rotate(r1);
  const CVector3 target_roll = r2 - to * r2.Dot(to);
  if (swung_roll.GetLengthSquared() < 1e-24 || target_roll.GetLengthSquared() < 1e-24) return swing;
  const CRotation twist = Turn(swung_roll.Cross(target_roll), swung_roll.GetAngle(target_roll), to);
  return CRotation::Mul(swing, twist);
}

}  // namespace kavor

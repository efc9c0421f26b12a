// Quaternion algebra. Rotations are applied as v' = q v q*, which for row vectors gives
// the same point as p M with M the rotation's matrix; composing "a then b" is therefore
// the Hamilton product b a.
#include <cmath>

#include "krx/math.h"

namespace KRX::MATH {
namespace {

// Below this angle between the two quaternions Slerp falls back to a normalised linear
// blend: the sine ratios are 0 / 0 at zero and the two results agree to rounding there.
constexpr double kSlerpLinearAngle = 1e-9;

CQuaternion Hamilton(const CQuaternion& p, const CQuaternion& q) {
  const double pw = p.GetW(), px = p.GetX(), py = p.GetY(), pz = p.GetZ();
  const double qw = q.GetW(), qx = q.GetX(), qy = q.GetY(), qz = q.GetZ();
  return {pw * qw - px * qx - py * qy - pz * qz, pw * qx + px * qw + py * qz - pz * qy,
          pw * qy - px * qz + py * qw + pz * qx, pw * qz + px * qy - py * qx + pz * qw};
}

double Length(double w, double x, double y, double z) {
  return std::sqrt(w * w + x * x + y * y + z * z);
}

}  // namespace

CQuaternion CQuaternion::Mul(const CQuaternion& a, const CQuaternion& b) { return Hamilton(b, a); }

CQuaternion CQuaternion::Slerp(const CQuaternion& a, const CQuaternion& b, double t) {
  // q and -q are the same rotation: flip b into a's hemisphere to take the shorter arc.
  const double sign = a.Dot(b) < 0.0 ? -1.0 : 1.0;
  const double bw = sign * b.w_, bx = sign * b.x_, by = sign * b.y_, bz = sign * b.z_;
  // The angle between the two 4D directions from the chord lengths |a - b| and |a + b|:
  // accurate at every angle, unlike acos of the dot product near 1.
  const double chord_minus = Length(a.w_ - bw, a.x_ - bx, a.y_ - by, a.z_ - bz);
  const double chord_plus = Length(a.w_ + bw, a.x_ + bx, a.y_ + by, a.z_ + bz);
  const double angle = 2.0 * std::atan2(chord_minus, chord_plus);
  double wa = 1.0 - t, wb = t;
  if (angle > kSlerpLinearAngle) {
    const double inv_sin = 1.0 / std::sin(angle);
    wa = std::sin((1.0 - t) * angle) * inv_sin;
    wb = std::sin(t * angle) * inv_sin;
  }
  CQuaternion r(wa * a.w_ + wb * bw, wa * a.x_ + wb * bx, wa * a.y_ + wb * by, wa * a.z_ + wb * bz);
  r.NormalizeInPlace();
  return r;
}

bool CQuaternion::Equals(const CQuaternion& o, double epsilon) const {
  return std::fabs(w_ - o.w_) <= epsilon && std::fabs(x_ - o.x_) <= epsilon &&
         std::fabs(y_ - o.y_) <= epsilon && std::fabs(z_ - o.z_) <= epsilon;
}

bool CQuaternion::SameRotation(const CQuaternion& o, double epsilon) const {
  return Equals(o, epsilon) || Equals(CQuaternion(-o.w_, -o.x_, -o.y_, -o.z_), epsilon);
}

}  // namespace KRX::MATH

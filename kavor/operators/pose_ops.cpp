#include "kavor/operators/pose_ops.h"

#include <cmath>

namespace kavor {

using KRX::MATH::CMatrix3;
using KRX::MATH::CQuaternion;
using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

namespace {

// Negative angles get this added; stored motion and presets were made with it, so it stays
// as it is rather than the exact 2 pi.
constexpr double kAngleWrap = 6.28318531;

// Below this |cos ay| the X and Z axes line up and only their sum of turns is defined.
constexpr double kGimbalCosine = 0.001;

// Arcs whose cosine is this close to 1 blend linearly: sin theta is too small to divide by.
constexpr double kLinearBlendMargin = 0.05;

}  // namespace

Pose TransformToPose(const CTransformation& transform) {
  const CVector3 t = transform.GetTranslation();
  const CQuaternion q = transform.GetRotationQuaternion();
  Pose pose;
  pose.px = t.GetX();
  pose.py = t.GetY();
  pose.pz = t.GetZ();
  pose.qx = q.GetX();
  pose.qy = q.GetY();
  pose.qz = q.GetZ();
  pose.qw = q.GetW();
  return pose;
}

CTransformation PoseToTransform(const Pose& pose) {
  CTransformation transform;
  transform.SetTranslationFromValues(pose.px, pose.py, pose.pz);
  transform.SetRotationFromQuaternion(CQuaternion(pose.qw, pose.qx, pose.qy, pose.qz));
  return transform;
}

Pose ComposePose(const Pose& a, const Pose& b) {
  Pose r;
  // Hamilton product a.q (x) b.q.
  r.qw = a.qw * b.qw - a.qx * b.qx - a.qy * b.qy - a.qz * b.qz;
  r.qx = a.qw * b.qx + a.qx * b.qw + a.qy * b.qz - a.qz * b.qy;
  r.qy = a.qw * b.qy - a.qx * b.qz + a.qy * b.qw + a.qz * b.qx;
  r.qz = a.qw * b.qz + a.qx * b.qy - a.qy * b.qx + a.qz * b.qw;
  // b.p turned by a.q as q p q*: (w^2 - u.u) p + 2 (u.p) u + 2 w (u x p). For a quaternion
  // that is not unit this scales p by |q|^2, which is why callers normalise first.
  const double ux = a.qx, uy = a.qy, uz = a.qz, w = a.qw;
  const double dot = ux * b.px + uy * b.py + uz * b.pz;
  const double k = w * w - (ux * ux + uy * uy + uz * uz);
  const double cx = uy * b.pz - uz * b.py;
  const double cy = uz * b.px - ux * b.pz;
  const double cz = ux * b.py - uy * b.px;
  r.px = a.px + k * b.px + 2.0 * dot * ux + 2.0 * w * cx;
  r.py = a.py + k * b.py + 2.0 * dot * uy + 2.0 * w * cy;
  r.pz = a.pz + k * b.pz + 2.0 * dot * uz + 2.0 * w * cz;
  return r;
}

CQuaternion QuatFromEulerXYZ(double ax, double ay, double az) {
  const double cx = std::cos(0.5 * ax), sx = std::sin(0.5 * ax);
  const double cy = std::cos(0.5 * ay), sy = std::sin(0.5 * ay);
  const double cz = std::cos(0.5 * az), sz = std::sin(0.5 * az);
  // qz (x) qy (x) qx written out: X is applied first.
  return CQuaternion(cz * cy * cx + sz * sy * sx, cz * cy * sx - sz * sy * cx,
                     cz * sy * cx + cy * sz * sx, cy * sz * cx - cz * sy * sx);
}

CVector3 EulerXYZFromQuat(const CQuaternion& q) {
  const CMatrix3 m = CRotation(q).GetMatrix();  // row i: the image of axis i
  const double m00 = m.Get(0, 0), m01 = m.Get(0, 1), m02 = m.Get(0, 2);
  double ay = std::atan2(-m02, std::sqrt(m00 * m00 + m01 * m01));
  double ax = 0.0, az = 0.0;
  const double cos_y = std::cos(ay);
  if (std::fabs(cos_y) > kGimbalCosine) {
    az = std::atan2(m01 / cos_y, m00 / cos_y);
    ax = std::atan2(m.Get(1, 2) / cos_y, m.Get(2, 2) / cos_y);
  } else {
    // Y near +-90 degrees: the image of Y is (sin ax, cos ax, 0) when Y turns forwards and
    // (-sin ax, cos ax, 0) when it turns backwards, so X takes the whole turn with its sign
    // following Y's.
    ax = std::atan2(m.Get(1, 0), m.Get(1, 1));
    if (ay < 0.0) ax = -ax;
  }
  if (ax < 0.0) ax += kAngleWrap;
  if (ay < 0.0) ay += kAngleWrap;
  if (az < 0.0) az += kAngleWrap;
  return CVector3(ax, ay, az);
}

CQuaternion QuatSlerp(const CQuaternion& a, const CQuaternion& b, double t) {
  double aw = a.GetW(), ax = a.GetX(), ay = a.GetY(), az = a.GetZ();
  double cosine = a.Dot(b);
  if (cosine < 0.0) {  // q and -q are one rotation: take the shorter arc
    aw = -aw;
    ax = -ax;
    ay = -ay;
    az = -az;
    cosine = -cosine;
  }
  // With the cosine made non-negative the two quaternions are never near opposite, so no
  // perpendicular helper quaternion is needed for that case.
  double wa = 1.0 - t, wb = t;
  if (1.0 - cosine >= kLinearBlendMargin) {
    const double theta = std::acos(cosine);
    const double sin_theta = std::sin(theta);
    wa = std::sin(theta - t * theta) / sin_theta;
    wb = std::sin(t * theta) / sin_theta;
  }
  return CQuaternion(wa * aw + wb * b.GetW(), wa * ax + wb * b.GetX(), wa * ay + wb * b.GetY(),
                     wa * az + wb * b.GetZ());
}

}  // namespace kavor

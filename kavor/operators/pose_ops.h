// The retarget solve's own rigid transforms and the rotation helpers it works with.
//
// A Pose is a position and a unit rotation quaternion, no scaling. Its products are
// Hamilton products: ComposePose(a, b) expresses b in a's frame, so a's rotation is applied
// after b's. (Host transformations compose the other way round: Mul(a, b) applies a first.)
#pragma once

#include "krx/math.h"

namespace kavor {

struct Pose {
  double px = 0.0, py = 0.0, pz = 0.0;
  double qx = 0.0, qy = 0.0, qz = 0.0, qw = 1.0;  // stored x, y, z, w
};

// Translation and rotation of a host transformation (its scaling is dropped), and back
// with unit scaling.
Pose TransformToPose(const KRX::MATH::CTransformation& transform);
KRX::MATH::CTransformation PoseToTransform(const Pose& pose);

// b expressed in a's frame: rotation a.q (x) b.q, position a.p + a.q applied to b.p.
Pose ComposePose(const Pose& a, const Pose& b);

// The rotation about X, then Y, then Z (radians), as a quaternion (w, x, y, z).
KRX::MATH::CQuaternion QuatFromEulerXYZ(double ax, double ay, double az);

// The X, Y, Z angles (radians) of a rotation, such that QuatFromEulerXYZ gives the same
// rotation back. A negative angle gets 6.28318531 added, so each lies in [0, 2 pi] (an angle
// just below 0 reads as a whole turn). Near gimbal lock (|cos ay| <= 0.001) the Z
// angle is 0 and the X angle carries the turn, with its sign following the Y angle's.
KRX::MATH::CVector3 EulerXYZFromQuat(const KRX::MATH::CQuaternion& q);

// Spherical blend from a (t = 0) to b (t = 1) along the shorter arc. Arcs whose cosine is
// within 0.05 of 1 blend linearly; the result is not renormalised (callers normalise
// before using it as a rotation).
KRX::MATH::CQuaternion QuatSlerp(const KRX::MATH::CQuaternion& a, const KRX::MATH::CQuaternion& b,
                                 double t);

}  // namespace kavor

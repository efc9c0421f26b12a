// Scaling-rotation-translation transformations: composition, inversion, point mapping and
// pose mapping between spaces. The exact paths (uniform scaling) run without matrices;
// the general case goes through 4x4 matrices and decomposes the result once.
#include <cmath>

#include "krx/math.h"

namespace KRX::MATH {
namespace {

// A scaling component below this size makes the transformation singular.
constexpr double kMinScale = 1e-12;

bool IsUniform(const CVector3& s) { return s.GetX() == s.GetY() && s.GetX() == s.GetZ(); }

bool IsSingular(const CVector3& s) {
  return !(std::fabs(s.GetX()) >= kMinScale && std::fabs(s.GetY()) >= kMinScale &&
           std::fabs(s.GetZ()) >= kMinScale);
}

// The exact inverse matrix of a transformation whose scaling is not singular: the linear
// part (S R)^-1 = R^T S^-1, the translation -T (S R)^-1.
CMatrix4 InverseMatrix(const CTransformation& t) {
  const CMatrix3 r = t.GetRotation().GetMatrix();
  const CVector3 s = t.GetScaling();
  const CVector3 p = t.GetTranslation();
  CMatrix4 m;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) m.Set(i, j, r.Get(j, i) / s[j]);
  }
  for (int j = 0; j < 3; ++j) {
    m.Set(3, j, -(p[0] * m.Get(0, j) + p[1] * m.Get(1, j) + p[2] * m.Get(2, j)));
  }
  return m;
}

// Inverse of a transformation with uniform, non-singular scaling s: scale by 1 / s,
// turn back, and translate by -T R^-1 / s (a uniform scaling commutes with the rotation).
CTransformation UniformInverse(const CTransformation& t) {
  const double inv_scale = 1.0 / t.GetScaling().GetX();
  const CRotation inv_rotation = t.GetRotation().Inverse();
  CTransformation r;
  r.SetScalingFromValues(inv_scale, inv_scale, inv_scale);
  r.SetRotation(inv_rotation);
  r.SetTranslation(inv_rotation.GetQuaternion().Rotate(-t.GetTranslation()) * inv_scale);
  return r;
}

}  // namespace

CMatrix4 CTransformation::GetMatrix4() const {
  const CMatrix3 r = rotation_.GetMatrix();
  CMatrix4 m;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) m.Set(i, j, scaling_[i] * r.Get(i, j));
    m.Set(3, i, translation_[i]);
  }
  return m;
}

CTransformation CTransformation::Mul(const CTransformation& a, const CTransformation& b) {
  CTransformation r;
  const CQuaternion qa = a.rotation_.GetQuaternion();
  const CVector3& sa = a.scaling_;
  const CVector3& sb = b.scaling_;
  if (IsUniform(sb)) {
    // S_a R_a (s I) R_b = (s S_a) (R_a R_b): exact without matrices.
    const double s = sb.GetX();
    r.scaling_ = sa * s;
    r.rotation_ = CRotation::Mul(a.rotation_, b.rotation_);
    r.translation_ = b.rotation_.GetQuaternion().Rotate(a.translation_ * s) + b.translation_;
  } else if (qa.GetX() == 0.0 && qa.GetY() == 0.0 && qa.GetZ() == 0.0) {
    // Without a rotation in `a` the two scalings line up: S_a S_b R_b.
    r.scaling_.Set(sa.GetX() * sb.GetX(), sa.GetY() * sb.GetY(), sa.GetZ() * sb.GetZ());
    r.rotation_ = b.rotation_;
    r.translation_ = b.MapPoint(a.translation_);
  } else {
    // A non-uniform scaling after a rotation shears; the decomposition drops the shear.
    r.SetMatrix4(CMatrix4::Mul(a.GetMatrix4(), b.GetMatrix4()));
  }
  return r;
}

bool CTransformation::InvertInPlace() {
  if (IsSingular(scaling_)) return false;
  if (IsUniform(scaling_)) {
    *this = UniformInverse(*this);
  } else {
    SetMatrix4(InverseMatrix(*this));
  }
  return true;
}

CVector3 CTransformation::MapPoint(const CVector3& p) const {
  const CVector3 scaled(p.GetX() * scaling_.GetX(), p.GetY() * scaling_.GetY(),
                        p.GetZ() * scaling_.GetZ());
  return rotation_.GetQuaternion().Rotate(scaled) + translation_;
}

CTransformation MapWorldPoseToObjectSpace(const CTransformation& reference,
                                          const CTransformation& pose) {
  const CVector3 s = reference.GetScaling();
  if (IsSingular(s)) {
    // A reference scaled to nothing (an object animated to vanish) has no inverse; its
    // rigid part still gives the pose a meaningful, finite placement.
    CTransformation rigid = reference;
    rigid.SetScalingFromValues(1.0, 1.0, 1.0);
    return CTransformation::Mul(pose, UniformInverse(rigid));
  }
  if (IsUniform(s)) return CTransformation::Mul(pose, UniformInverse(reference));
  CTransformation r;
  r.SetMatrix4(CMatrix4::Mul(pose.GetMatrix4(), InverseMatrix(reference)));
  return r;
}

CTransformation MapObjectPoseToWorldSpace(const CTransformation& reference,
                                          const CTransformation& pose) {
  return CTransformation::Mul(pose, reference);
}

CVector3 MapWorldPositionToObjectSpace(const CTransformation& reference, const CVector3& p) {
  const CVector3 local =
      reference.GetRotation().Inverse().GetQuaternion().Rotate(p - reference.GetTranslation());
  // Axes scaled to nothing are left unscaled, as MapWorldPoseToObjectSpace does.
  const CVector3 s = reference.GetScaling();
  double out[3];
  for (int i = 0; i < 3; ++i) out[i] = std::fabs(s[i]) >= kMinScale ? local[i] / s[i] : local[i];
  return {out[0], out[1], out[2]};
}

}  // namespace KRX::MATH

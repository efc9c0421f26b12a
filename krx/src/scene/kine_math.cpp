#include "scene/kine_math.h"

#include <cmath>

namespace KRX::rt {

MATH::RotationOrder RotationOrderFrom(double value) {
  const long order = std::isfinite(value) ? std::lround(value) : 0;
  return static_cast<MATH::RotationOrder>(order < 0 || order > 5 ? 0 : order);
}

MATH::CTransformation ComposeSrt(const double* v, MATH::RotationOrder order) {
  MATH::CTransformation t;
  t.SetTranslationFromValues(v[0], v[1], v[2]);
  t.SetRotationFromXYZAngles(MATH::CVector3(MATH::DegreesToRadians(v[3]), MATH::DegreesToRadians(v[4]),
                                            MATH::DegreesToRadians(v[5])),
                             order);
  t.SetScalingFromValues(v[6], v[7], v[8]);
  return t;
}

SrtValues DecomposeSrt(const MATH::CTransformation& t, MATH::RotationOrder order) {
  const MATH::CVector3 p = t.GetTranslation();
  const MATH::CVector3 r = t.GetRotation().GetXYZAngles(order);
  const MATH::CVector3 s = t.GetScaling();
  return {p.GetX(),
          p.GetY(),
          p.GetZ(),
          MATH::RadiansToDegrees(r.GetX()),
          MATH::RadiansToDegrees(r.GetY()),
          MATH::RadiansToDegrees(r.GetZ()),
          s.GetX(),
          s.GetY(),
          s.GetZ()};
}

bool IsIdentitySrt(const double* v) {
  return v[0] == 0.0 && v[1] == 0.0 && v[2] == 0.0 && v[3] == 0.0 && v[4] == 0.0 && v[5] == 0.0 &&
         v[6] == 1.0 && v[7] == 1.0 && v[8] == 1.0;
}

}  // namespace KRX::rt

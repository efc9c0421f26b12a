// Kinematic parameter values and transformations: nine values (position, rotation in
// degrees, scaling) with a rotation order make a transformation, and back.
#pragma once

#include <array>

#include "krx/math.h"

namespace KRX::rt {

using SrtValues = std::array<double, 9>;  // posx..posz, rotx..rotz (degrees), sclx..sclz

MATH::RotationOrder RotationOrderFrom(double value);
MATH::CTransformation ComposeSrt(const double* values, MATH::RotationOrder order);
SrtValues DecomposeSrt(const MATH::CTransformation& t, MATH::RotationOrder order);
// True for the identity values (no translation, no rotation, unit scaling).
bool IsIdentitySrt(const double* values);

}  // namespace KRX::rt

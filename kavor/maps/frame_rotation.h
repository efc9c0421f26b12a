// The rotation between two aim/roll frames.
#pragma once

#include "krx/math.h"

namespace kavor {

// The rotation taking the frame of aim `a1` and roll `r1` to the frame of aim `a2` and roll
// `r2`: a swing turning a1 onto a2 about their common normal, followed by a twist about a2
// that brings the swung roll onto r2's part across a2. Opposite aims swing half a turn about
// any axis across them; undefined directions contribute no turn.
KRX::MATH::CRotation FrameRotation(const KRX::MATH::CVector3& a1, const KRX::MATH::CVector3& r1,
                                   const KRX::MATH::CVector3& a2, const KRX::MATH::CVector3& r2);

}  // namespace kavor

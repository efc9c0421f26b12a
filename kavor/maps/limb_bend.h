// Making a limb show which way it bends.
#pragma once

#include "krx/krx.h"

namespace kavor {

// Where a limb's joints stand when its end object is pulled 1% of the way towards the
// anchor object, which makes even a straight IK limb bend: the anchor, the pulled end and
// the middle object's position then (global positions). The end object is put back.
struct BentLimb {
  KRX::MATH::CVector3 anchor;
  KRX::MATH::CVector3 end;
  KRX::MATH::CVector3 middle;
};
BentLimb BendLimb(const KRX::X3DObject& anchor, const KRX::X3DObject& middle,
                  const KRX::X3DObject& end);

}  // namespace kavor

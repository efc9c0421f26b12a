// Mirroring one object's movement onto its partner across the YZ plane of a reference
// object. Pure math over host transforms (global poses at one time), free of the scene.
#pragma once

#include "krx/math.h"

namespace kavor {

// The world point `world` reflected across the reference's YZ plane: taken into the
// reference's space, its x negated, taken back to world space.
KRX::MATH::CVector3 MirrorAcrossReference(const KRX::MATH::CTransformation& reference,
                                          const KRX::MATH::CVector3& world);

// The world poses one mirroring step reads.
struct MirrorFrames {
  KRX::MATH::CTransformation source_parent;   // the source's parent's global (Ps)
  KRX::MATH::CTransformation partner_parent;  // the partner's parent's global (Pt)
  KRX::MATH::CTransformation reference;       // the mirror reference's global (R)
};

// The partner's new local translation (under Pt) after the source moved from the local
// translation `previous_source_local` (under Ps) to the world position `source_world`,
// the partner being at the local translation `partner_local`. The partner keeps its own
// offset from the source's mirror image and takes the mirrored increment of the source's
// movement: world = mirror(source now) + (partner now - mirror(source before)).
KRX::MATH::CVector3 MirroredPartnerLocal(const MirrorFrames& frames,
                                         const KRX::MATH::CVector3& previous_source_local,
                                         const KRX::MATH::CVector3& source_world,
                                         const KRX::MATH::CVector3& partner_local);

// The world point expressed in the space of `frame` (its local translation there); the
// point itself when the frame is singular.
KRX::MATH::CVector3 PointInFrame(const KRX::MATH::CTransformation& frame,
                                 const KRX::MATH::CVector3& world);

}  // namespace kavor

#include "kavor/symmetry/symmetry_mirror.h"

namespace kavor {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

CVector3 PointInFrame(const CTransformation& frame, const CVector3& world) {
  CTransformation inverse = frame;
  if (!inverse.InvertInPlace()) return world;
  return inverse.MapPoint(world);
}

CVector3 MirrorAcrossReference(const CTransformation& reference, const CVector3& world) {
  CVector3 local = PointInFrame(reference, world);
  local.PutX(-local.GetX());
  return reference.MapPoint(local);
}

CVector3 MirroredPartnerLocal(const MirrorFrames& frames, const CVector3& previous_source_local,
                              const CVector3& source_world, const CVector3& partner_local) {
  const CVector3 mirrored_before =
      MirrorAcrossReference(frames.reference, frames.source_parent.MapPoint(previous_source_local));
  const CVector3 offset = frames.partner_parent.MapPoint(partner_local) - mirrored_before;
  const CVector3 mirrored_now = MirrorAcrossReference(frames.reference, source_world);
  return PointInFrame(frames.partner_parent, mirrored_now + offset);
}

}  // namespace kavor

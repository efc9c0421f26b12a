#include "kavor/maps/limb_bend.h"

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"

namespace kavor {

namespace {

// The end of a limb is pulled this far towards its anchor so that the chain bends.
constexpr double kBendFraction = 0.99;

}  // namespace

BentLimb BendLimb(const KRX::X3DObject& anchor, const KRX::X3DObject& middle,
                  const KRX::X3DObject& end) {
  BentLimb bent;
  bent.anchor = GlobalPosition(anchor);
  KRX::KinematicState end_state = end.GetKinematics().GetGlobal();
  const KRX::MATH::CTransformation rest = end_state.GetTransform(kCurrentTime);
  KRX::MATH::CTransformation pulled = rest;
  bent.end = bent.anchor + (rest.GetTranslation() - bent.anchor) * kBendFraction;
  pulled.SetTranslation(bent.end);
  end_state.PutTransform(pulled, kCurrentTime);
  bent.middle = GlobalPosition(middle);
  end_state.PutTransform(rest, kCurrentTime);
  return bent;
}

}  // namespace kavor

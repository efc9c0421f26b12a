#include "kavor/maps/mocap_skeleton.h"

namespace kavor {

void PoseSkeleton(MocapSkeleton& skeleton, int32_t frame) {
  for (size_t i = 0; i < skeleton.joints.size(); ++i) {
    MocapJoint& joint = skeleton.joints[i];
    const size_t f = static_cast<size_t>(frame);
    if (frame >= 0 && f < joint.translations.size() && f < joint.rotations.size()) {
      KRX::MATH::CQuaternion q = joint.rotations[f];
      q.NormalizeInPlace();
      joint.local.SetIdentity();
      joint.local.SetRotationFromQuaternion(q);
      joint.local.SetTranslation(joint.translations[f]);
    }
    const int32_t parent = joint.parent;
    if (parent >= 0 && static_cast<size_t>(parent) < i) {
      joint.global = KRX::MATH::CTransformation::Mul(joint.local, skeleton.joints[static_cast<size_t>(parent)].global);
    } else {
      joint.global = joint.local;
    }
  }
}

}  // namespace kavor

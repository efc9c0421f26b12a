// The rest data of a character: bone lengths, rest rotations, leg length and hip offset,
// measured from the pose it stands in (the rest pose when tagging).
#pragma once

#include "kavor/maps/retarget_model.h"

namespace kavor {

// Moves each limb's end effector object onto the IK effector of the chain its middle node
// belongs to, so that a rig whose effector sits off the chain end is measured as posed.
// Changes the rig's pose in the scene; rigs only (nothing for a capture skeleton).
void SnapChainEffectors(RetargetModel& model);

// The rest length of every node's bone. A limb end ("ik"/"friction" node) measures the
// path from itself back to its parent through the bound nodes between them in structure
// order, so an unbound node on the way is bridged by one straight segment.
void ComputeLengths(RetargetModel& model);

// The rotation that takes direction `a` onto `t` and then turns `r` as close to `u` as it
// can about `t`. Rotation only.
KRX::MATH::CTransformation AlignPair(const KRX::MATH::CVector3& a, const KRX::MATH::CVector3& r,
                                     const KRX::MATH::CVector3& t, const KRX::MATH::CVector3& u);

// rest_rotation = AlignPair(align, roll, +Z, +Y) and its inverse for every node; an
// extraction entry's transform is the inverse of the same from the extraction tag.
void ComputeRestRotations(RetargetModel& model);

// The longest bone among the feet ("friction" nodes); 0 without feet.
void ComputeLegLength(RetargetModel& model);

// How far the hip joint of the longest leg lies from the base node along the base node's
// align direction, sign reversed. Nothing for a model that holds motion.
void ComputeHipOffset(RetargetModel& model);

// All of the above in order, after the pose at the current time without extraction
// objects.
void ComputeRestData(RetargetModel& model);

}  // namespace kavor

// The per-frame steps between a character's own rotations and the normalized form in which
// motion travels from one character to another, and the limb-plane measures that go with
// them.
//
// A node's normalized rotation is its global rotation with the tag's rest rotation taken
// out (align to +Z, roll towards +Y), so the same normalized rotation points a limb the same
// way on any character.
#pragma once

#include "kavor/maps/retarget_model.h"

namespace kavor {

// Every node's global rotation followed by the inverse rest rotation: the extraction
// object's (`use_extraction` and the node has one) or the node's. Translations stay.
void NormalizeRotations(RetargetModel& model, bool use_extraction);

// The inverse of NormalizeRotations without extraction objects: the rest rotation followed
// by the normalized rotation.
void DenormalizeRotations(RetargetModel& model);

// The angle (radians) between a limb's anchor-to-end and anchor-to-middle directions below
// which the limb counts as straight and spans no plane.
inline constexpr double kStraightLimbAngle = 0.1;

// Each plane's up_vector: the unit normal of the anchor-to-end and anchor-to-middle
// directions of the current global poses, or zero when the limb is straighter than
// `straight_angle` (the finishing stage fills those frames in from their neighbours).
void ComputeUpVectors(RetargetModel& model, double straight_angle = kStraightLimbAngle);

// Each plane's bend_sign: +1 for a three-node chain; for longer chains -1 when bending the
// chain's first pair of bones and its last pair (by pulling the end object towards the
// anchor) gives opposite plane normals. Needs the scene objects; objects are put back.
void ComputeBendSigns(RetargetModel& model);

// The two-bone solve of every limb plane on the current poses: the bone below the anchor
// and the one below it are turned so that the limb reaches the end effector's position,
// bending in the plane given by up_vector x bend_sign. Chains shorter than three nodes and
// targets out of reach are left as they are, without producing a non-finite value.
void SolveLimbs(RetargetModel& model);

// Makes the host evaluate every object below `model` at the current frame.
void RefreshModel(const KRX::Model& model);

// Puts back the model global transforms saved when the source was bound.
void RestoreModelTransforms(RetargetModel& target, RetargetModel& source);

}  // namespace kavor

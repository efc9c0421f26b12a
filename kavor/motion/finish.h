// The finishing stage of a retargeted motion: run once on a filled NormalizedMotion, after
// the last frame was stored and before the operators take the motion over.
//
// The transfer of each frame gives the target the source's pose, but the target's own
// proportions make its feet slide, sink into the floor or float where the source's stood
// still. Finishing fits the target's limb ends (its feet) to the source's contacts and
// heights, and fills in the limb up-vectors that straight limbs left undefined. A character
// with at most two feet and one with more take different paths.
//
// Every stage works in place on the motion's arrays (only translations of `global_poses`,
// `up_vectors`, `effector_positions` and `limb_heights` change) and never touches the scene.
// A motion whose arrays do not match its target's structure (CanFinish) is left unchanged.
//
// Leg-length ratios: when either character's leg length is at most 0.0001 (or not finite)
// the two are taken as equal, ratio 1, so that heights and steps pass through unscaled, as
// the hips do in the transfer from such a source; no stage divides by a smaller length.
#pragma once

#include <cstdint>
#include <vector>

#include "kavor/motion/normalized_motion.h"

namespace kavor {

// How a limb end goes back to its own path after a contact (ProcessContacts).
enum class ContactBlendRule {
  // A straight line, per axis, from the value the contact left to the limb end's own value
  // a few frames on: the frames in between lose their own motion, even where the contact
  // left no drift at all (a source retargeted onto a copy of itself moves its hands and
  // feet by up to 0.5 % of the leg length).
  kStraightLine,
  // Only the drift that the contact left is blended out over those frames, on top of the
  // limb end's own motion: without drift the path stays exactly as transferred.
  kDriftOnly,
};

// The whole stage: with more than two feet FitLimbEndPaths then AlignOtherFeet, otherwise
// SetFootHeights then ProcessContacts; FillUpVectors last on both paths.
void Finish(NormalizedMotion& motion, ContactBlendRule blend = ContactBlendRule::kStraightLine);

// Feet standing on the ground (a foot node with no ik, friction or free node above it, and
// a source) take the source foot's height scaled by the leg-length ratio, in every frame.
void SetFootHeights(NormalizedMotion& motion);

// Keeps the source's foot contacts. Turns the source end-effector paths into per-frame
// steps (frame 0 a zero step), then, per axis, wherever the source limb end moved by less
// than 0.5 % of its bone length per frame, the target's limb end moves exactly by the
// source's step times the leg-length ratio: a planted source foot stays planted. Where the
// source moves again the target blends back onto its own path over up to four frames,
// pulled back within reach of the limb's anchor; a contact lasting to the last frame is
// re-integrated without a blend. `blend` says how the blend back goes.
void ProcessContacts(NormalizedMotion& motion,
                     ContactBlendRule blend = ContactBlendRule::kStraightLine);

// For characters with many feet: records each plane's limb height (`limb_heights`, the
// largest vertical extent of the limb end below or above its anchor, measured on the
// target's poses for every plane) and refits every limb end that has a source to the
// source's path, piece by piece between the extremes of each axis, so that the target
// never moves against the source and never further than the source on short moves (both
// measured in leg lengths). Frame 0 keeps its value.
void FitLimbEndPaths(NormalizedMotion& motion);

// For characters with many feet: moves every foot that hangs below an ik, friction or free
// node up or down so that its lowest point sits, relative to the first grounded foot's, as
// the source's does (scaled by the grounded foot's bone-length ratio); raises the node that
// carries such a foot's spine by as much as the foot's limb now falls short of its recorded
// height (the smallest such amount over its feet); then moves every node up or down so that
// the grounded foot's lowest point matches the source's, scaled by the leg-length ratio.
// Nothing changes when no foot is grounded.
void AlignOtherFeet(NormalizedMotion& motion);

// Fills the up-vectors of frames where a limb was straight (entries shorter than 0.5):
// between two defined frames by a normalised blend of the two (a blend of opposite vectors
// keeps the previous frame's value); before the first defined frame by that frame's
// up-vector carried along with the limb's anchor; after the last one by the last value.
// A plane with no defined frame keeps its zero vectors.
void FillUpVectors(NormalizedMotion& motion);

// ---- Shared by the stages ----

// True when the motion has frames, a target with a structure and a source, and every array
// holds one entry per node or plane of that structure and per frame; the target's node and
// plane maps cover the structure and every parent link is -1 or a node of it.
bool CanFinish(const NormalizedMotion& motion);

// Number of nodes flagged as feet.
int32_t CountFeet(const ModelStructure& structure);

// The two leg lengths as the stages divide by them (see the file comment).
struct LegLengths {
  double source = 1.0;
  double target = 1.0;
  double Ratio() const { return target / source; }
};
LegLengths FinishLegLengths(const NormalizedMotion& motion);

// The source node that drives the target node, or -1 when it has none (or an index outside
// the source). Needs CanFinish.
int32_t SourceOf(const NormalizedMotion& motion, int32_t target_node);

// One axis (0 x, 1 y, 2 z) of the translation of a frame's pose, read and written.
double AxisAt(const std::vector<KRX::MATH::CTransformation>& poses, int32_t frame, int axis);
void SetAxisAt(std::vector<KRX::MATH::CTransformation>& poses, int32_t frame, int axis, double value);

// A foot on the ground: the node has the friction flag and no ik, friction or free node
// above it. Needs CanFinish.
bool IsGroundedFoot(const NormalizedMotion& motion, int32_t node);

}  // namespace kavor

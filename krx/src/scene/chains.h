// IK chain structure inside the runtime: a chain root ("root") with a property "chain"
// holding the bend normal (normalx..normalz, in the root's frame), its bones ("bone", each
// below the previous one) with a property "joint" (roll in degrees, chntype 0 IK / 1 FK /
// 2 driven, length, and upvector: the full name of the up-vector reference), and its
// effector ("eff") directly below the root.
#pragma once

#include <vector>

#include "runtime/item.h"

namespace KRX::rt {

inline constexpr const wchar_t* kChainProperty = L"chain";
inline constexpr const wchar_t* kJointProperty = L"joint";

// Walks along a chain stop after this many bones.
inline constexpr int kMaxChainBones = 10000;

Item* FindChainProperty(ObjectItem& object, const wchar_t* name);
// The chain bone directly below `object` (a chain root or a bone), or null.
ObjectItem* NextChainBone(ObjectItem& object);
ObjectItem* ChainRootOf(ObjectItem& object);
std::vector<ObjectItem*> ChainBonesOf(ObjectItem& root);
ObjectItem* ChainEffectorOf(ObjectItem& root);
double ChainBoneLength(ObjectItem& bone, double time);
// The bone's up-vector reference, or null.
ObjectItem* UpVectorReferenceOf(ObjectItem& bone);

// The parameter `name` of a chain property (null when missing or deleted).
ParamItem* FindChainParam(Item& owner, const wchar_t* name);

// The rotation of a bone pointing along `x` whose Y axis lies towards `side` (both in world
// space; `side` need not be square to `x`). False when `x` has no direction.
bool BoneFrame(MATH::CVector3 x, const MATH::CVector3& side, MATH::CRotation& out);

// A point of a chain's bend plane: u along the line from the chain's start towards its
// target, v towards the side the joints bend to.
struct PlanarChainPoint {
  double u = 0.0;
  double v = 0.0;
};

// The planar solve stops when the chain's end is this close to the target, relative to the
// chain's length, or after this many reaching passes and then this many least-squares steps;
// the equal-turn search takes this many bisection steps.
inline constexpr double kPlanarChainTolerance = 1e-10;
inline constexpr int kPlanarChainPasses = 32;
inline constexpr int kPlanarChainSteps = 200;
inline constexpr int kPlanarChainBisections = 64;

// The end of a chain of `count` bones starting at the origin along +u, each joint turning by
// `turn` radians towards -v.
PlanarChainPoint UniformBendEnd(const double* lengths, int count, double turn);

// Bends a chain of `count` bones (`lengths`, not negative) from the origin towards the target
// (distance, 0) and writes its count + 1 joints, start first, into `joints`. The chain bends
// with equal turns at every joint, its joints on the +v side; a target closer than such a
// bend reaches is approached from the most bent one by reaching passes, then damped
// least-squares steps on the bones' angles; a target out of reach gives the straight chain
// along +u. Deterministic; allocates nothing (the caller owns both arrays).
void SolvePlanarChain(const double* lengths, int count, double distance, PlanarChainPoint* joints);

// Bends a bone of an IK chain towards its effector (called while the bone is evaluated,
// after its own transform was composed).
void ApplyChainSolve(ObjectItem& bone, double time);

}  // namespace KRX::rt

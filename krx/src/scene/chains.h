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

Item* FindChainProperty(ObjectItem& object, const wchar_t* name);
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

// Bends a bone of an IK chain towards its effector (called while the bone is evaluated,
// after its own transform was composed).
void ApplyChainSolve(ObjectItem& bone, double time);

}  // namespace KRX::rt

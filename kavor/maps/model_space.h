// Transforms of a character's objects measured in the character's own space: the object's
// global transform with the model's global transform taken out. Rest data, tags and poses
// are all measured this way, so a character moved, turned or scaled as a whole tags and
// retargets exactly like one standing at the origin.
#pragma once

#include "krx/krx.h"

namespace kavor {

// The inverse of the model's global transform at `time`; the identity for an invalid
// model or a singular transform.
KRX::MATH::CTransformation ModelSpaceInverse(const KRX::X3DObject& model, double time);

// The object's global transform at `time` in the space whose inverse is given.
KRX::MATH::CTransformation ModelSpaceTransform(const KRX::X3DObject& object,
                                               const KRX::MATH::CTransformation& model_inverse,
                                               double time);

// Puts the object's global transform from a transform in the model's space.
void PutModelSpaceTransform(const KRX::X3DObject& object, const KRX::X3DObject& model,
                            const KRX::MATH::CTransformation& transform, double time);

// The rigid inverse: rotation and translation inverted, scaling dropped.
KRX::MATH::CTransformation RigidInverse(const KRX::MATH::CTransformation& transform);

}  // namespace kavor

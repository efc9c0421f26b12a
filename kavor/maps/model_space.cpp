#include "kavor/maps/model_space.h"

namespace kavor {

using KRX::MATH::CTransformation;

CTransformation ModelSpaceInverse(const KRX::X3DObject& model, double time) {
  CTransformation inverse;
  if (!model.IsValid()) return inverse;
  CTransformation global = model.GetKinematics().GetGlobal().GetTransform(time);
  if (global.InvertInPlace()) inverse = global;
  return inverse;
}

CTransformation ModelSpaceTransform(const KRX::X3DObject& object,
                                    const CTransformation& model_inverse, double time) {
  return CTransformation::Mul(object.GetKinematics().GetGlobal().GetTransform(time), model_inverse);
}

void PutModelSpaceTransform(const KRX::X3DObject& object, const KRX::X3DObject& model,
                            const CTransformation& transform, double time) {
  CTransformation global = transform;
  if (model.IsValid()) {
    global = CTransformation::Mul(transform, model.GetKinematics().GetGlobal().GetTransform(time));
  }
  object.GetKinematics().GetGlobal().PutTransform(global, time);
}

CTransformation RigidInverse(const CTransformation& transform) {
  const KRX::MATH::CRotation inverse_rotation = transform.GetRotation().Inverse();
  CTransformation out;
  out.SetRotation(inverse_rotation);
  out.SetTranslation(-inverse_rotation.GetQuaternion().Rotate(transform.GetTranslation()));
  return out;
}

}  // namespace kavor

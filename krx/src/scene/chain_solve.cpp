// IK chains at evaluation time. A chain root holds its bones (each below the previous one,
// pointing along its local +X) and its effector. When a bone whose joint is in IK mode
// ("chntype" 0) is evaluated, the chain bends towards the effector's position: the last
// two bones solve as a two-bone limb in the plane through the segment's start, the
// effector and the up-vector reference (or, without one, the chain's bend normal), turned
// about the start-effector line by the first bone's "roll"; earlier bones keep their own
// rotations; a one-bone chain aims at the effector. Bones keep their lengths; a target out
// of reach straightens the limb towards it.
#include <cmath>

#include "scene/chains.h"
#include "scene/evaluation.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

namespace {

using MATH::CRotation;
using MATH::CTransformation;
using MATH::CVector3;

double NumberAt(Item* owner, const wchar_t* name, double time, double fallback) {
  ParamItem* param = owner ? FindChainParam(*owner, name) : nullptr;
  return param ? EvaluateParamDouble(*param, time) : fallback;
}

// The side the limb from `start` towards `target` bends to.
CVector3 BendSide(ObjectItem& root, ObjectItem& first_bone, const CVector3& start, const CVector3& target,
                  double time) {
  CVector3 dir = target - start;
  if (!dir.NormalizeInPlace()) return {};
  Item* joint = FindChainProperty(first_bone, kJointProperty);
  CVector3 side;
  if (ObjectItem* up = UpVectorReferenceOf(first_bone)) {
    const CVector3 to_up = EvaluateObject(*up, time).global.GetTranslation() - start;
    side = to_up - dir * to_up.Dot(dir);
  }
  if (!side.NormalizeInPlace()) {
    Item* chain = FindChainProperty(root, kChainProperty);
    const CVector3 normal_local(NumberAt(chain, L"normalx", time, 0.0), NumberAt(chain, L"normaly", time, 0.0),
                                NumberAt(chain, L"normalz", time, 1.0));
    const CVector3 normal = EvaluateObject(root, time).global.GetRotation().GetQuaternion().Rotate(normal_local);
    side = normal.Cross(dir);
    if (!side.NormalizeInPlace()) return {};
  }
  // A positive roll turns the bend plane clockwise looking down the start-effector line.
  const double roll = MATH::DegreesToRadians(NumberAt(joint, L"roll", time, 0.0));
  if (roll != 0.0) side = CRotation::FromAxisAngle(dir, -roll).GetQuaternion().Rotate(side);
  return side;
}

}  // namespace

ParamItem* FindChainParam(Item& owner, const wchar_t* name) {
  for (const auto& param : owner.params) {
    if (!param->deleted && param->name.GetWideString() == name) return dynamic_cast<ParamItem*>(param.get());
  }
  return nullptr;
}

bool BoneFrame(CVector3 x, const CVector3& side, CRotation& out) {
  if (!x.NormalizeInPlace()) return false;
  CVector3 y = side - x * side.Dot(x);
  if (!y.NormalizeInPlace()) {
    // No usable side: any direction across the bone.
    y = std::fabs(x.GetY()) < 0.9 ? CVector3(0, 1, 0) : CVector3(1, 0, 0);
    y = y - x * y.Dot(x);
    if (!y.NormalizeInPlace()) return false;
  }
  const CVector3 z = x.Cross(y);
  MATH::CMatrix3 m;
  const CVector3 rows[3] = {x, y, z};
  for (int r = 0; r < 3; ++r) {
    m.Set(r, 0, rows[r].GetX());
    m.Set(r, 1, rows[r].GetY());
    m.Set(r, 2, rows[r].GetZ());
  }
  out.SetFromMatrix(m);
  return true;
}

void ApplyChainSolve(ObjectItem& bone, double time) {
  if (NumberAt(FindChainProperty(bone, kJointProperty), L"chntype", time, 0.0) != 0.0) return;
  ObjectItem* root = ChainRootOf(bone);
  if (!root) return;
  const std::vector<ObjectItem*> bones = ChainBonesOf(*root);
  ObjectItem* effector = ChainEffectorOf(*root);
  const int count = static_cast<int>(bones.size());
  int index = -1;
  for (int i = 0; i < count; ++i) {
    if (bones[static_cast<size_t>(i)] == &bone) index = i;
  }
  if (!effector || index < 0 || index < count - 2) return;
  EvalCache& cache = bone.cache;
  const CVector3 target = EvaluateObject(*effector, time).global.GetTranslation();
  const CVector3 here = cache.global.GetTranslation();
  CRotation rotation;
  bool solved = false;
  if (count == 1 || index == count - 1) {
    // The last bone (or the only one) aims at the effector.
    const CVector3 segment_start =
        count == 1 ? here : cache.parent_global.GetTranslation();
    const CVector3 side = BendSide(*root, *bones[0], segment_start, target, time);
    solved = BoneFrame(target - here, side, rotation);
  } else {
    // The upper bone of the two-bone limb: its end goes where both bones reach the target.
    const double upper = ChainBoneLength(*bones[static_cast<size_t>(index)], time);
    const double lower = ChainBoneLength(*bones[static_cast<size_t>(index + 1)], time);
    CVector3 dir = target - here;
    const double distance = dir.GetLength();
    if (distance > 1e-12 && upper > 1e-12 && dir.NormalizeInPlace()) {
      const CVector3 side = BendSide(*root, *bones[0], here, target, time);
      double c = (distance * distance + upper * upper - lower * lower) / (2.0 * distance * upper);
      c = c < -1.0 ? -1.0 : (c > 1.0 ? 1.0 : c);
      const CVector3 middle = here + dir * (upper * c) + side * (upper * std::sqrt(1.0 - c * c));
      solved = BoneFrame(middle - here, side, rotation);
    }
  }
  if (!solved) return;
  cache.global.SetRotation(rotation);
  cache.local = MATH::MapWorldPoseToObjectSpace(cache.parent_global, cache.global);
}

}  // namespace KRX::rt

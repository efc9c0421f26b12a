#include "kavor/motion/normalize.h"

#include <algorithm>
#include <cmath>

#include "kavor/host/host.h"
#include "kavor/maps/limb_bend.h"
#include "kavor/maps/model_space.h"

namespace kavor {

namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

bool IsNodeIndex(const RetargetModel& model, int32_t node) {
  return node >= 0 && node < model.NumNodes();
}

// The rotation turning direction `from` onto direction `to` about their common normal;
// the identity when either is zero or they are parallel.
CRotation TurnOnto(const CVector3& from, const CVector3& to) {
  CVector3 axis = from.Cross(to);
  if (!axis.NormalizeInPlace()) return CRotation();
  return CRotation::FromAxisAngle(axis, from.GetAngle(to));
}

bool IsFinite(const CVector3& v) {
  return std::isfinite(v.GetX()) && std::isfinite(v.GetY()) && std::isfinite(v.GetZ());
}

// Global pose of `child` from its local pose under `parent`'s global pose.
void ReplaceUnder(RetargetModel& model, int32_t child, int32_t parent) {
  model.Node(child).global_pose =
      CTransformation::Mul(model.Node(child).local_pose, model.Node(parent).global_pose);
}

// The normal of the limb plane once the end object is pulled in and the limb bends.
CVector3 BentNormal(const KRX::X3DObject& e, const KRX::X3DObject& m, const KRX::X3DObject& a) {
  const BentLimb bent = BendLimb(a, m, e);
  return (bent.end - bent.anchor).Cross(bent.middle - bent.anchor);
}

void SolveLimb(RetargetModel& model, int32_t plane_index) {
  const StructurePlane& plane = model.structure->planes[static_cast<size_t>(plane_index)];
  if (plane.chain.size() < 3) return;
  const int32_t end = plane.span;
  const int32_t a = plane.chain[1];
  const int32_t b = plane.chain[2];
  if (!IsNodeIndex(model, end) || !IsNodeIndex(model, a) || !IsNodeIndex(model, b)) return;

  const double upper = model.Node(a).length;
  double lower = model.Node(end).length;
  for (size_t k = 1; k + 1 < plane.chain.size(); ++k) {
    if (IsNodeIndex(model, plane.chain[k])) lower -= model.Node(plane.chain[k]).length;
  }
  const PlaneMapEntry& limb = model.Plane(plane_index);
  const CVector3 normal = limb.up_vector * static_cast<double>(limb.bend_sign);

  ReplaceUnder(model, a, b);
  const CTransformation base = model.Node(b).global_pose;
  const CVector3 v = model.NodePosition(a) - base.GetTranslation();
  const CTransformation base_inverse = RigidInverse(base);
  const CVector3 target = base_inverse.MapPoint(model.NodePosition(end));
  CVector3 normal_in_base = base_inverse.GetRotation().GetQuaternion().Rotate(normal);

  const double reach = target.GetLength();
  // The bend turns the upper bone about the limb plane's normal. The up-vector comes from the
  // motion and need not stand square to this limb's reach line (other proportions, a blended
  // or filled up-vector); turning about a tilted axis would swing the knee by less than the
  // bend angle and the end would miss the lower bone's length. So the normal's component
  // along the reach line is dropped first.
  if (reach > 1e-9) {
    const CVector3 along = target * (1.0 / reach);
    CVector3 square = normal_in_base - along * normal_in_base.Dot(along);
    if (square.NormalizeInPlace()) normal_in_base = square * normal_in_base.GetLength();
  }
  if (!(reach > 1e-9) || !(upper > 1e-9)) return;
  const double cosine = std::clamp(
      (reach * reach + upper * upper - lower * lower) / (2.0 * reach * upper), -1.0, 1.0);
  const double bend = std::acos(cosine);
  const CVector3 toward = target * (upper / reach);
  const CVector3 turned =
      CRotation::FromAxisAngle(normal_in_base, bend).GetQuaternion().Rotate(toward);
  const CVector3 knee = base.MapPoint(turned);
  if (!IsFinite(knee)) return;

  const CVector3 w = knee - base.GetTranslation();
  CTransformation& base_pose = model.Node(b).global_pose;
  base_pose.SetRotation(CRotation::Mul(base_pose.GetRotation(), TurnOnto(v, w)));
  ReplaceUnder(model, a, b);

  CTransformation& upper_pose = model.Node(a).global_pose;
  const CVector3 rest_end =
      upper_pose.GetRotation().GetQuaternion().Rotate(limb.rest_end_direction);
  const CVector3 w2 = model.NodePosition(end) - upper_pose.GetTranslation();
  upper_pose.SetRotation(CRotation::Mul(upper_pose.GetRotation(), TurnOnto(rest_end, w2)));
}

}  // namespace

void NormalizeRotations(RetargetModel& model, bool use_extraction) {
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    NodeMapEntry& node = model.Node(i);
    const CTransformation& rest_inverse =
        use_extraction && node.extraction ? node.extraction->transform : node.rest_rotation_inverse;
    // q . e in Hamilton order: the rest inverse applied first, then the global rotation.
    node.global_pose.SetRotation(
        CRotation::Mul(rest_inverse.GetRotation(), node.global_pose.GetRotation()));
  }
}

void DenormalizeRotations(RetargetModel& model) {
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    NodeMapEntry& node = model.Node(i);
    node.global_pose.SetRotation(
        CRotation::Mul(node.rest_rotation.GetRotation(), node.global_pose.GetRotation()));
  }
}

void ComputeUpVectors(RetargetModel& model, double straight_angle) {
  if (!model.structure) return;
  for (int32_t p = 0; p < model.NumPlanes(); ++p) {
    const StructurePlane& plane = model.structure->planes[static_cast<size_t>(p)];
    PlaneMapEntry& limb = model.Plane(p);
    limb.up_vector = CVector3();
    if (!IsNodeIndex(model, plane.anchor_index) || !IsNodeIndex(model, plane.mid) ||
        !IsNodeIndex(model, plane.span)) {
      continue;
    }
    const CVector3 anchor = model.NodePosition(plane.anchor_index);
    CVector3 e = model.NodePosition(plane.span) - anchor;
    CVector3 m = model.NodePosition(plane.mid) - anchor;
    if (!e.NormalizeInPlace() || !m.NormalizeInPlace()) continue;
    if (e.GetAngle(m) < straight_angle) continue;
    CVector3 up = e.Cross(m);
    if (up.NormalizeInPlace()) limb.up_vector = up;
  }
}

void ComputeBendSigns(RetargetModel& model) {
  if (!model.structure || model.skeleton) return;
  for (int32_t p = 0; p < model.NumPlanes(); ++p) {
    const StructurePlane& plane = model.structure->planes[static_cast<size_t>(p)];
    PlaneMapEntry& limb = model.Plane(p);
    if (plane.chain.size() == 3) {
      limb.bend_sign = 1;
      continue;
    }
    if (plane.chain.size() < 3) continue;
    const KRX::X3DObject& end = model.Node(plane.span).object;
    const KRX::X3DObject& mid = model.Node(plane.mid).object;
    const KRX::X3DObject& anchor = model.Node(plane.anchor_index).object;
    const KRX::X3DObject& first = model.Node(plane.chain[1]).object;
    const KRX::X3DObject& second = model.Node(plane.chain[2]).object;
    if (!end.IsValid() || !mid.IsValid() || !anchor.IsValid() || !first.IsValid() ||
        !second.IsValid()) {
      continue;
    }
    const CVector3 whole = BentNormal(end, mid, anchor);
    const CVector3 last_pair = BentNormal(end, first, second);
    if (last_pair.Dot(whole) < 0.0) limb.bend_sign = -1;
  }
}

void SolveLimbs(RetargetModel& model) {
  if (!model.structure) return;
  const int32_t planes = std::min(model.NumPlanes(), model.structure->NumPlanes());
  for (int32_t p = 0; p < planes; ++p) SolveLimb(model, p);
}

void RefreshModel(const KRX::Model& model) {
  if (!model.IsValid()) return;
  for (const KRX::X3DObject& object : model.FindChildren()) {
    (void)object.GetKinematics().GetGlobal().GetTransform(kCurrentTime);
  }
  KRX::KinematicState global = model.GetKinematics().GetGlobal();
  global.PutTransform(global.GetTransform(kCurrentTime), kCurrentTime);
}

void RestoreModelTransforms(RetargetModel& target, RetargetModel& source) {
  if (target.model.IsValid()) {
    target.model.GetKinematics().GetGlobal().PutTransform(target.model_global, kCurrentTime);
  }
  if (source.model.IsValid()) {
    source.model.GetKinematics().GetGlobal().PutTransform(source.model_global, kCurrentTime);
  }
}

}  // namespace kavor

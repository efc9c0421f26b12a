#include "kavor/maps/rest_data.h"

#include <cmath>

#include "kavor/host/host.h"
#include "kavor/maps/mocap_skeleton.h"
#include "kavor/maps/model_space.h"
#include "kavor/motion/pose.h"

namespace kavor {

namespace {

using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

constexpr double kPi = 3.14159265359;

const StructureNode& NodeInfo(const RetargetModel& model, int32_t i) {
  return model.structure->nodes[static_cast<size_t>(i)];
}

// Where a bound node stands now: its object in the model's space, or its joint.
CVector3 BoundPosition(const RetargetModel& model, int32_t i,
                       const CTransformation& model_inverse) {
  const NodeMapEntry& node = model.Node(i);
  if (model.skeleton) return node.joint ? node.joint->global.GetTranslation() : CVector3();
  return ModelSpaceTransform(node.object, model_inverse, kCurrentTime).GetTranslation();
}

double Distance(const CVector3& a, const CVector3& b) { return (a - b).GetLength(); }

// Any unit vector perpendicular to `v` (a unit vector).
CVector3 Perpendicular(const CVector3& v) {
  CVector3 axis =
      std::fabs(v.GetX()) < 0.9 ? CVector3(1, 0, 0).Cross(v) : CVector3(0, 1, 0).Cross(v);
  axis.NormalizeInPlace();
  return axis;
}

}  // namespace

void SnapChainEffectors(RetargetModel& model) {
  if (model.skeleton || !model.structure) return;
  for (int32_t p = 0; p < model.NumPlanes(); ++p) {
    const StructurePlane& plane = model.structure->planes[static_cast<size_t>(p)];
    const KRX::X3DObject& middle = model.Node(plane.mid).object;
    if (!middle.IsValid() || !middle.IsA(KRX::ClassID::ChainBone)) continue;
    const KRX::X3DObject effector = KRX::ChainBone(middle).GetEffector();
    const KRX::X3DObject& end = model.Node(plane.span).object;
    if (!effector.IsValid() || !end.IsValid() || end == effector) continue;
    KRX::KinematicState end_global = end.GetKinematics().GetGlobal();
    const CVector3 target = effector.GetKinematics().GetGlobal().GetTransform().GetTranslation();
    CTransformation moved = end_global.GetTransform();
    moved.SetTranslation(target);
    end_global.PutTransform(moved);
    // The effector may follow the end object with an offset: correct by what it missed.
    const CVector3 reached = effector.GetKinematics().GetGlobal().GetTransform().GetTranslation();
    moved.SetTranslation(target + (target - reached));
    end_global.PutTransform(moved);
  }
}

void ComputeLengths(RetargetModel& model) {
  const CTransformation model_inverse =
      model.skeleton ? CTransformation() : ModelSpaceInverse(model.model, kCurrentTime);
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    const StructureNode& info = NodeInfo(model, i);
    const int32_t parent = info.parent;
    NodeMapEntry& node = model.Node(i);
    if (info.type != StructureNodeType::kIk) {
      node.length = parent < 0 ? node.local_pose.GetTranslation().GetLength()
                               : Distance(model.NodePosition(parent), model.NodePosition(i));
      continue;
    }
    node.length = 0.0;
    if (parent < 0 || !model.IsBound(i)) continue;
    // From the limb end back to its parent through the bound nodes in between.
    CVector3 last = BoundPosition(model, i, model_inverse);
    for (int32_t k = i - 1; k >= parent; --k) {
      if (!model.IsBound(k)) continue;
      const CVector3 here = BoundPosition(model, k, model_inverse);
      node.length += Distance(here, last);
      last = here;
    }
  }
}

CTransformation AlignPair(const CVector3& a_in, const CVector3& r, const CVector3& t_in,
                          const CVector3& u) {
  CVector3 a = a_in;
  CVector3 t = t_in;
  CTransformation out;
  if (!a.NormalizeInPlace() || !t.NormalizeInPlace()) return out;
  // R1: a onto t.
  CRotation r1;
  const double angle = a.GetAngle(t);
  CVector3 axis = a.Cross(t);
  if (axis.NormalizeInPlace()) {
    r1 = CRotation::FromAxisAngle(axis, angle);
  } else if (a.Dot(t) < 0.0) {
    r1 = CRotation::FromAxisAngle(Perpendicular(a), kPi);
  }
  // R2: r turned towards u about t.
  const CVector3 r1_applied = r1.GetQuaternion().Rotate(r);
  const CVector3 u_flat = u - t * u.Dot(t);
  CRotation r2;
  const CVector3 r_flat = r1_applied - t * r1_applied.Dot(t);
  if (r_flat.GetLengthSquared() > 1e-24 && u_flat.GetLengthSquared() > 1e-24) {
    const double phi = r1_applied.GetAngle(u_flat);
    CVector3 turn_axis = r1_applied.Cross(u_flat);
    if (std::fabs(std::fabs(phi) - kPi) < 1e-5 || !turn_axis.NormalizeInPlace()) turn_axis = t;
    r2 = CRotation::FromAxisAngle(turn_axis, phi);
  }
  out.SetRotation(CRotation::Mul(r1, r2));
  return out;
}

void ComputeRestRotations(RetargetModel& model) {
  const CVector3 z(0.0, 0.0, 1.0);
  const CVector3 y(0.0, 1.0, 0.0);
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    NodeMapEntry& node = model.Node(i);
    node.rest_rotation = AlignPair(node.align, node.roll, z, y);
    node.rest_rotation_inverse = RigidInverse(node.rest_rotation);
    if (node.extraction) {
      node.extraction->transform =
          RigidInverse(AlignPair(node.extraction->align, node.extraction->roll, z, y));
    }
  }
}

void ComputeLegLength(RetargetModel& model) {
  model.leg_length = 0.0;
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    if (NodeInfo(model, i).friction && model.Node(i).length > model.leg_length) {
      model.leg_length = model.Node(i).length;
    }
  }
}

void ComputeHipOffset(RetargetModel& model) {
  if (!model.poses.empty() || model.NumNodes() == 0) return;
  CVector3 d = model.Node(0).global_pose.GetRotation().GetQuaternion().Rotate(model.Node(0).align);
  d.NormalizeInPlace();
  model.hip_offset = 0.0;
  double longest = 0.0;
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    if (!NodeInfo(model, i).friction || model.Node(i).length <= longest) continue;
    longest = model.Node(i).length;
    const int32_t parent = NodeInfo(model, i).parent;
    if (parent >= 0)
      model.hip_offset = -((model.NodePosition(parent) - model.NodePosition(0)).Dot(d));
  }
}

void ComputeRestData(RetargetModel& model) {
  SnapChainEffectors(model);
  ComputePose(model, kCurrentTime, false);
  ComputeLengths(model);
  ComputeRestRotations(model);
  ComputeLegLength(model);
  ComputeHipOffset(model);
}

}  // namespace kavor

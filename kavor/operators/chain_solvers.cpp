#include "kavor/operators/chain_solvers.h"

#include <array>
#include <cmath>

#include "kavor/host/host.h"

namespace kavor {

namespace {

using KRX::MATH::CMatrix3;
using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

CTransformation World(const RetargetOpContext& context, const CTransformation& model_space) {
  return CTransformation::Mul(model_space, context.model_global);
}

CVector3 Row(const CMatrix3& m, int row) { return {m.Get(row, 0), m.Get(row, 1), m.Get(row, 2)}; }

// The axis (0 X, 1 Y, 2 Z) along which `direction` points most; ties prefer X, then Y.
int MarkedAxis(const CVector3& direction) {
  const double x = std::abs(direction.GetX()), y = std::abs(direction.GetY()),
               z = std::abs(direction.GetZ());
  if (x >= y && x >= z) return 0;
  return y >= z ? 1 : 2;
}

// The axis that `direction` points along most after `excluded`.
int SecondAxis(const CVector3& direction, int excluded) {
  int best = -1;
  for (int axis = 0; axis < 3; ++axis) {
    if (axis == excluded) continue;
    if (best < 0 || std::abs(direction[axis]) > std::abs(direction[best])) best = axis;
  }
  return best;
}

// A mirrored object (negative x scaling) takes the rotation with the two axes that its tag
// directions mark turned round: the frame stays a rotation and the mirror stays in the
// scaling. Align and roll marking the same axis would negate all three axes, which is a
// reflection; the align direction then marks its next axis instead.
CRotation MirroredRotation(const CRotation& rotation, const NodeMapEntry& node) {
  const int roll_axis = MarkedAxis(node.roll);
  int align_axis = MarkedAxis(node.align);
  if (align_axis == roll_axis) align_axis = SecondAxis(node.align, roll_axis);
  const CMatrix3 m = rotation.GetMatrix();
  std::array<CVector3, 3> axes = {-Row(m, 0), -Row(m, 1), -Row(m, 2)};
  const int free_axis = 3 - roll_axis - align_axis;
  axes[free_axis] = axes[(free_axis + 1) % 3].Cross(axes[(free_axis + 2) % 3]);
  return KRX::MATH::RotationFromAxisRows(axes[0], axes[1], axes[2]);
}

bool Solved(const RetargetOpContext& context) {
  return context.bound && !context.skip_solve && context.model && context.glue;
}

}  // namespace

void SolveGlobalOp(RetargetOpContext& context, KRX::OperatorContext& op, int32_t mocap_index) {
  if (!Solved(context) || mocap_index < 0 ||
      mocap_index >= static_cast<int32_t>(context.glue->mocaps.size())) {
    return;
  }
  const GlueMocapEntry& entry = context.glue->mocaps[mocap_index];
  RetargetModel& model = *context.model;
  if (entry.node_index < 0 || entry.node_index >= model.NumNodes()) return;
  const NodeMapEntry& node = model.Node(entry.node_index);
  if (node.source_index < 0) return;
  const CTransformation world = World(context, node.global_pose);
  CTransformation t = op.GetOutputTransform();
  if (entry.type != GlueMocapType::kRotationOnly) t.SetTranslation(world.GetTranslation());
  if (entry.type != GlueMocapType::kPositionOnly) {
    CRotation rotation = CRotation::Mul(entry.fixed_rotation, world.GetRotation());
    if (t.GetScaling().GetX() < 0.0 && entry.structure_node >= 0 &&
        entry.structure_node < model.NumNodes()) {
      rotation = MirroredRotation(rotation, model.Node(entry.structure_node));
    }
    t.SetRotation(rotation);
  }
  op.PutOutputTransform(t);
}

void SolveUpVectorOp(RetargetOpContext& context, KRX::OperatorContext& op, int32_t plane_index) {
  if (!Solved(context) || plane_index < 0 ||
      plane_index >= static_cast<int32_t>(context.glue->planes.size())) {
    return;
  }
  const GluePlaneEntry& entry = context.glue->planes[plane_index];
  const ModelStructure& structure = *context.structure;
  if (entry.plane_index < 0 || entry.plane_index >= structure.NumPlanes()) return;
  const StructurePlane& plane = structure.planes[entry.plane_index];
  RetargetModel& model = *context.model;
  const CVector3 b = model.NodePosition(plane.anchor_index);
  const CVector3 mid = model.NodePosition(plane.mid);
  const CVector3 e = model.NodePosition(plane.span);
  CVector3 up = model.Plane(entry.plane_index).up_vector;
  CTransformation t = op.GetOutputTransform();
  if (up.GetLength() < 0.5) {
    // No bend to follow: the up-vector object keeps its rest place beside the limb base.
    const CTransformation base_world = World(context, model.Node(plane.anchor_index).global_pose);
    t.SetTranslation(CTransformation::Mul(entry.rest_transform, base_world).GetTranslation());
    op.PutOutputTransform(t);
    return;
  }
  CVector3 a = e - b;
  CVector3 n = up.Cross(a);
  if (!a.NormalizeInPlace() || !n.NormalizeInPlace() || !up.NormalizeInPlace()) return;
  if (entry.sign != 0) n = n * static_cast<double>(entry.sign);
  CVector3 d = b - mid;
  if (d.NormalizeInPlace() && d.Dot(a) > 0.0) {
    const double along = d.Dot(up);
    n = d - up * along;
    up = up * -along;
    if (!n.NormalizeInPlace() || !up.NormalizeInPlace()) return;
  } else {
    up = -up;
  }
  const double roll =
      model.Plane(entry.plane_index).plane_roll * kDegreesToRadians + entry.roll_angle;
  const CRotation turn = CRotation::FromAxisAngle(a, roll);
  n = turn.GetQuaternion().Rotate(n) * entry.up_length;
  const CVector3 pole = (plane.chain.size() < 4 ? b : mid) + n;
  t.SetTranslation(context.model_global.MapPoint(pole));
  op.PutOutputTransform(t);
}

void SolveDecompOp(RetargetOpContext& context, KRX::OperatorContext& op,
                   const CTransformation& parent_global, int32_t node_index,
                   int32_t channel_index) {
  if (!Solved(context)) return;
  RetargetModel& model = *context.model;
  if (node_index < 0 || node_index >= model.NumNodes()) return;
  const NodeMapEntry& node = model.Node(node_index);
  if (node.source_index < 0 || channel_index < 0 ||
      channel_index >= static_cast<int32_t>(node.sub_controls.size())) {
    return;
  }
  const uint32_t bits = node.sub_controls[channel_index].channels;
  const CTransformation world = World(context, node.global_pose);
  const CTransformation local = KRX::MATH::MapWorldPoseToObjectSpace(parent_global, world);
  const CVector3 t = local.GetTranslation();
  const CVector3 r = local.GetRotation().GetXYZAngles();
  CVector3 translation((bits & 1u) ? t.GetX() : 0.0, (bits & 2u) ? t.GetY() : 0.0,
                       (bits & 4u) ? t.GetZ() : 0.0);
  CTransformation out = op.GetOutputTransform();
  const bool rx = bits & 8u, ry = bits & 16u, rz = bits & 32u;
  if (rx && rz && !ry) {
    // The channel follows the node's Y axis without turning about it.
    const CTransformation current = CTransformation::Mul(out, parent_global);
    const CVector3 from = current.GetRotation().GetQuaternion().Rotate(CVector3(0, 1, 0));
    const CVector3 to = world.GetRotation().GetQuaternion().Rotate(CVector3(0, 1, 0));
    CVector3 axis = from.Cross(to);
    CRotation rotation = current.GetRotation();
    if (std::abs(axis.GetX()) > 0.0001 || std::abs(axis.GetY()) > 0.0001 ||
        std::abs(axis.GetZ()) > 0.0001) {
      const double angle = std::atan2(axis.GetLength(), from.Dot(to));
      axis.NormalizeInPlace();
      rotation = CRotation::Mul(rotation, CRotation::FromAxisAngle(axis, angle));
    }
    CTransformation global = current;
    global.SetRotation(rotation);
    CTransformation swung = KRX::MATH::MapWorldPoseToObjectSpace(parent_global, global);
    swung.SetTranslation(translation);
    swung.SetScaling(out.GetScaling());
    op.PutOutputTransform(swung);
    return;
  }
  CVector3 angles;
  if (rx && ry && rz) {
    angles = r;
  } else if (ry) {
    angles = CVector3(0, r.GetY(), 0);
  } else if (rx) {
    angles = CVector3(r.GetX(), 0, 0);
  } else if (rz) {
    angles = CVector3(0, 0, r.GetZ());
  }
  const int aim_axis = (bits & 64u) ? 0 : (bits & 128u) ? 1 : (bits & 256u) ? 2 : -1;
  if (aim_axis >= 0) {
    CVector3 unit;
    unit.Set(aim_axis == 0, aim_axis == 1, aim_axis == 2);
    translation = KRX::MATH::MapWorldPositionToObjectSpace(parent_global, world.MapPoint(unit));
  }
  out.SetTranslation(translation);
  out.SetRotation(CRotation::FromXYZAngles(angles));
  op.PutOutputTransform(out);
}

}  // namespace kavor

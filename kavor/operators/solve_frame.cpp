#include <algorithm>
#include <cmath>

#include "kavor/host/host.h"
#include "kavor/motion/normalize.h"
#include "kavor/operators/pose_ops.h"
#include "kavor/operators/retarget_solve.h"

namespace kavor {

namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

double Read(const KRX::Parameter& parameter, double time, double fallback) {
  return parameter.IsValid() ? parameter.GetValue(time).GetDouble() : fallback;
}

CVector3 Lerp(const CVector3& a, const CVector3& b, double u) { return a + (b - a) * u; }

// The path sample at frame f blended towards f + 1 (never read past the last frame).
CVector3 PathAt(const std::vector<CVector3>& path, int32_t f, double u) {
  if (path.empty()) return CVector3();
  const size_t i = std::min<size_t>(static_cast<size_t>(std::max(f, 0)), path.size() - 1);
  if (u == 0.0 || i + 1 >= path.size()) return path[i];
  return Lerp(path[i], path[i + 1], u);
}

// `offset` shortened to `length` when it is longer.
CVector3 Reach(const CVector3& offset, double length) {
  const double size = offset.GetLength();
  if (size > length && size > 0.0) return offset * (length / size);
  return offset;
}

CTransformation Under(const CTransformation& local, const CTransformation& parent_global) {
  return KRX::MATH::MapObjectPoseToWorldSpace(parent_global, local);
}
CTransformation Against(const CTransformation& global, const CTransformation& parent_global) {
  return KRX::MATH::MapWorldPoseToObjectSpace(parent_global, global);
}

void SetPosition(NodeMapEntry& node, const CVector3& position) {
  node.global_pose.SetTranslation(position);
}

// The turn of ComposePose(pose, turn) taken back through XYZ angles, as the offsets set it.
CRotation TurnedRotation(const CTransformation& global, double rx, double ry, double rz) {
  Pose turn;
  const CQuaternion q =
      QuatFromEulerXYZ(rx * kDegreesToRadians, ry * kDegreesToRadians, rz * kDegreesToRadians);
  turn.qw = q.GetW(), turn.qx = q.GetX(), turn.qy = q.GetY(), turn.qz = q.GetZ();
  const Pose turned = ComposePose(TransformToPose(global), turn);
  const CVector3 angles = EulerXYZFromQuat(CQuaternion(turned.qw, turned.qx, turned.qy, turned.qz));
  return CRotation::FromXYZAngles(angles);
}

struct Solver {
  RetargetOpContext& c;
  RetargetModel& m;
  const ModelStructure& s;
  double time;
  int32_t f;
  double u;

  int32_t Parent(int32_t i) const { return c.node_parent[i]; }
  NodeMapEntry& N(int32_t i) { return m.Node(i); }
  // End nodes hold their local against their limb's base node while the body is placed, so
  // that they follow the hips; every other node against its structure parent.
  int32_t Frame(int32_t i) const {
    const int32_t p = c.plane_of_end_node[i];
    if (p >= 0) {
      const int32_t base = s.planes[p].anchor_index;
      if (base >= 0 && base < i) return base;
    }
    return Parent(i);
  }
  void Follow(int32_t i) {
    const int32_t frame = Frame(i);
    if (frame >= 0) N(i).global_pose = Under(N(i).local_pose, N(frame).global_pose);
  }
  void Hold(int32_t i) {
    const int32_t frame = Frame(i);
    if (frame >= 0) N(i).local_pose = Against(N(i).global_pose, N(frame).global_pose);
  }

  void Sample() {
    const MotionBlobLayout& layout = c.layout;
    for (int32_t i = 0; i < m.NumNodes(); ++i) {
      const NodeSample a = ReadNodeSample(c.bytes, layout, i, f);
      CVector3 position = a.position;
      CQuaternion rotation = a.rotation;
      if (u != 0.0 && f + 1 < c.frame_count) {
        const NodeSample b = ReadNodeSample(c.bytes, layout, i, f + 1);
        position = Lerp(a.position, b.position, u);
        rotation = QuatSlerp(a.rotation, b.rotation, u);
      }
      rotation.NormalizeInPlace();
      CTransformation global;
      global.SetTranslation(position);
      global.SetRotationFromQuaternion(rotation);
      N(i).global_pose = global;
    }
    for (int32_t i = 0; i < m.NumNodes(); ++i) {
      if (Parent(i) < 0) continue;
      N(i).local_pose = Against(N(i).global_pose, N(Parent(i)).global_pose);
      if (static_cast<size_t>(i) < c.is_rigid.size() && c.is_rigid[i]) {
        N(i).local_pose.SetTranslation(c.rigid_offset[i]);
      }
    }
    for (int32_t p = 0; p < m.NumPlanes(); ++p) {
      CVector3 up = ReadPlaneSample(c.bytes, layout, p, f);
      if (u != 0.0 && f + 1 < c.frame_count) {
        up = Lerp(up, ReadPlaneSample(c.bytes, layout, p, f + 1), u);
      }
      m.Plane(p).up_vector = up;
    }
  }

  void Place() {
    SetPosition(N(0), PathAt(c.root_path, f, u));
    for (int32_t i = 1; i < m.NumNodes(); ++i) {
      const int32_t p = c.plane_of_end_node[i];
      if (p >= 0 && p < static_cast<int32_t>(c.effector_paths.size())) {
        const int32_t base = s.planes[p].anchor_index;
        const CVector3 from = m.NodePosition(base);
        const CVector3 offset = Reach(PathAt(c.effector_paths[p], f, u) - from, c.plane_reach[p]);
        SetPosition(N(i), from + offset);
      } else if (Parent(i) >= 0) {
        N(i).global_pose = Under(N(i).local_pose, N(Parent(i)).global_pose);
      }
    }
  }

  void Stretch() {
    for (int32_t p = 0; p < s.NumPlanes(); ++p) {
      const StructurePlane& plane = s.planes[p];
      const double stretch = Read(c.plane_adjustments[p].stretch, time, 1.0);
      m.Plane(p).stretch = stretch;
      const CVector3 from = m.NodePosition(plane.anchor_index);
      const CVector3 offset =
          Reach((m.NodePosition(plane.span) - from) * stretch, c.plane_reach[p]);
      SetPosition(N(plane.span), from + offset);
      Hold(plane.span);
    }
  }

  // The inner nodes of a limb follow its base rigidly.
  void FollowChain(const StructurePlane& plane) {
    for (size_t k = plane.chain.size() >= 2 ? plane.chain.size() - 2 : 0; k >= 1; --k) {
      const int32_t node = plane.chain[k];
      const int32_t before = plane.chain[k + 1];
      N(node).global_pose = Under(N(node).local_pose, N(before).global_pose);
    }
  }

  bool HasOffset(int32_t glue_index) const {
    return glue_index >= 0 && glue_index < static_cast<int32_t>(c.glue->mocaps.size()) &&
           glue_index < static_cast<int32_t>(c.rotation_offsets.size()) &&
           c.glue->mocaps[glue_index].has_rotation_offset;
  }
  CVector3 OffsetAngles(int32_t glue_index) const {
    const RotationOffsetParameters& offset = c.rotation_offsets[glue_index];
    return {Read(offset.x, time, 0.0), Read(offset.y, time, 0.0), Read(offset.z, time, 0.0)};
  }

  void Offsets() {
    // A turn of the whole body about the world origin.
    if (!c.glue->mocaps.empty() && HasOffset(0)) {
      const CVector3 a = OffsetAngles(0) * kDegreesToRadians;
      Pose turn;
      const CQuaternion q = QuatFromEulerXYZ(a.GetX(), a.GetY(), a.GetZ());
      turn.qw = q.GetW(), turn.qx = q.GetX(), turn.qy = q.GetY(), turn.qz = q.GetZ();
      N(0).global_pose = PoseToTransform(ComposePose(turn, TransformToPose(N(0).global_pose)));
      const CRotation up_turn = CRotation::FromXYZAngles(EulerXYZFromQuat(q));
      for (int32_t p = 0; p < m.NumPlanes(); ++p) {
        m.Plane(p).up_vector = up_turn.GetQuaternion().Rotate(m.Plane(p).up_vector);
      }
    }
    SetPosition(N(0),
                m.NodePosition(0) + CVector3(Read(c.hip_x, time, 0.0), Read(c.hip_y, time, 0.0),
                                             Read(c.hip_z, time, 0.0)));
    const bool offset_feet = !c.offset_feet.IsValid() || c.offset_feet.GetValue(time).GetBool();
    for (int32_t i = 1; i < m.NumNodes(); ++i) {
      const bool planted_foot = c.plane_of_end_node[i] >= 0 && s.nodes[i].friction;
      if (!offset_feet && planted_foot) continue;
      Follow(i);
    }
    for (const StructurePlane& plane : s.planes) {
      if (plane.anchor_index >= 0) FollowChain(plane);
    }
    for (size_t e = 0; e < c.semi_free.size(); ++e) OffsetSemiFree(e);
    for (int32_t p = 0; p < s.NumPlanes(); ++p) {
      const PlaneAdjustments& adjust = c.plane_adjustments[p];
      const int32_t span = s.planes[p].span;
      SetPosition(N(span), m.NodePosition(span) + CVector3(Read(adjust.x, time, 0.0),
                                                           Read(adjust.y, time, 0.0),
                                                           Read(adjust.z, time, 0.0)));
    }
    for (int32_t i = 1; i < m.NumNodes(); ++i) {
      if (Parent(i) < 0) continue;
      if (c.plane_of_end_node[i] >= 0) {
        N(i).local_pose = Against(N(i).global_pose, N(Parent(i)).global_pose);
      }
      N(i).global_pose = Under(N(i).local_pose, N(Parent(i)).global_pose);
      const int32_t glue_index = N(i).rotation_list_index;
      if (glue_index > 0 && HasOffset(glue_index)) {
        const CVector3 a = OffsetAngles(glue_index);
        N(i).global_pose.SetRotation(
            TurnedRotation(N(i).global_pose, a.GetX(), a.GetY(), a.GetZ()));
      }
    }
  }

  void OffsetSemiFree(size_t e) {
    SemiFreeEntry& entry = c.semi_free[e];
    const SemiFreeAdjustments& adjust = c.semi_free_adjustments[e];
    entry.x = Read(adjust.x, time, 0.0);
    entry.y = Read(adjust.y, time, 0.0);
    entry.z = Read(adjust.z, time, 0.0);
    const int32_t node = entry.node;
    CTransformation& global = N(node).global_pose;
    global.SetTranslation(global.GetTranslation() + CVector3(entry.x, entry.y, entry.z));
    global.SetRotation(TurnedRotation(global, Read(adjust.rx, time, 0.0),
                                      Read(adjust.ry, time, 0.0), Read(adjust.rz, time, 0.0)));
    if (Parent(node) >= 0) Hold(node);
    for (int32_t i : c.semi_free_branches[e]) {
      if (i == node) continue;
      if (!entry.offset_children && c.plane_of_end_node[i] >= 0) continue;
      Follow(i);
    }
    for (int32_t p : c.semi_free_planes[e]) FollowChain(s.planes[p]);
  }

  void Reduce() {
    for (int32_t i = 0; i < m.NumNodes(); ++i) {
      const int32_t glue_index = N(i).rotation_list_index;
      if (glue_index < 0 || !HasOffset(glue_index)) continue;
      const double r = Read(c.rotation_offsets[glue_index].reduce, time, 0.0);
      if (r == 0.0) continue;
      // Descendants keep their locals (in a list kept with the context: no allocation per
      // frame once it has grown).
      std::vector<std::pair<int32_t, CTransformation>>& kept = c.reduce_kept;
      kept.clear();
      for (int32_t d = i + 1; d < m.NumNodes(); ++d) {
        for (int32_t walk = Parent(d); walk >= 0; walk = Parent(walk)) {
          if (walk == i) {
            kept.emplace_back(d, Against(N(d).global_pose, N(Parent(d)).global_pose));
            break;
          }
        }
      }
      const int32_t parent = Parent(i);
      CTransformation local =
          parent < 0 ? N(i).global_pose : Against(N(i).global_pose, N(parent).global_pose);
      CQuaternion blended = QuatSlerp(local.GetRotationQuaternion(), c.rest_local_rotations[i], r);
      blended.NormalizeInPlace();
      local.SetRotationFromQuaternion(blended);
      N(i).global_pose = parent < 0 ? local : Under(local, N(parent).global_pose);
      for (const auto& [d, l] : kept) N(d).global_pose = Under(l, N(Parent(d)).global_pose);
    }
  }

  // The planted place of a record in the solve's space: a place kept in a target node's
  // space follows that node's current global.
  CVector3 Planted(const ClampRecord& record) {
    if (record.target_index > 0 && record.target_node >= 0 && record.target_node < m.NumNodes()) {
      CTransformation place;
      place.SetTranslation(record.position);
      return Under(place, N(record.target_node).global_pose).GetTranslation();
    }
    return record.position;
  }

  void Clamp() {
    for (int32_t p = 0; p < s.NumPlanes(); ++p) {
      const StructurePlane& plane = s.planes[p];
      const std::vector<ClampRecord>& records = c.plane_clamps[p];
      for (size_t r = 0; r < records.size(); ++r) {
        const ClampRecord& record = records[r];
        if (record.start > f) break;
        if (record.clamp) {
          if (r + 1 == records.size() || f < records[r + 1].start) {
            SetPosition(N(plane.span), Planted(record));
          }
          continue;
        }
        if (f >= record.start + record.blend_back) continue;
        // A release blends from the place of the plant before it back to the motion.
        for (size_t back = r; back-- > 0;) {
          if (!records[back].clamp) continue;
          const double t = (f + u - record.start) / record.blend_back;
          SetPosition(N(plane.span), Lerp(Planted(records[back]), m.NodePosition(plane.span), t));
          break;
        }
      }
      const CVector3 from = m.NodePosition(plane.anchor_index);
      SetPosition(N(plane.span), from + Reach(m.NodePosition(plane.span) - from, c.plane_reach[p]));
    }
  }

  void Roll() {
    for (int32_t p = 0; p < s.NumPlanes(); ++p) {
      const StructurePlane& plane = s.planes[p];
      const double roll = Read(c.plane_adjustments[p].roll, time, 0.0);
      m.Plane(p).plane_roll = roll;
      if (roll == 0.0 || N(plane.span).rotation_list_index <= 0) continue;
      CVector3 axis = m.NodePosition(plane.span) - m.NodePosition(plane.anchor_index);
      if (!axis.NormalizeInPlace()) continue;
      NodeMapEntry& base = N(plane.anchor_index);
      NodeMapEntry& mid = N(plane.mid);
      const CTransformation mid_local = Against(mid.global_pose, base.global_pose);
      const CRotation turn = CRotation::FromAxisAngle(axis, roll * kDegreesToRadians);
      base.global_pose.SetRotation(CRotation::Mul(base.global_pose.GetRotation(), turn));
      mid.global_pose = Under(mid_local, base.global_pose);
    }
  }

  void Locals() {
    for (int32_t i = 0; i < m.NumNodes(); ++i) {
      if (Parent(i) >= 0) N(i).local_pose = Against(N(i).global_pose, N(Parent(i)).global_pose);
    }
  }
};

}  // namespace

void MapTime(RetargetOpContext& context, double time) {
  context.time = time;
  context.skip_solve = false;
  double t = time - context.insertion_frame;
  if (!(t > 0.0)) t = 0.0;
  const double speed = context.speed_parameter.IsValid()
                           ? context.speed_parameter.GetValue(time).GetDouble()
                           : context.speed;
  const double last = std::max(context.frame_count - 1, 0);
  // Clamped before the conversion: a speed from a curve may be 0 or below, and a huge or
  // undefined time must not reach the integer.
  double s = t * speed;
  if (!(s > 0.0)) s = 0.0;
  if (s > last) s = last;
  const double whole = std::floor(s);
  context.frame_index = static_cast<int32_t>(whole);
  context.frame_fraction = s - whole;
  if (context.frame_index >= context.frame_count - 1) {
    context.frame_index = std::max(context.frame_count - 1, 0);
    context.frame_fraction = 0.0;
  }
}

namespace {

// The motion frame at which scene time `time` plays, as a whole frame, as keys are read.
int32_t KeyFrame(const RetargetOpContext& context, double time, double speed) {
  const double s = (time - context.insertion_frame) * speed + 0.1;
  if (!(s > -2e9)) return -2000000000;
  if (!(s < 2e9)) return 2000000000;
  return static_cast<int32_t>(s);
}

// A "Stride" keyed only up to some time before `time`, and changed since without a key, is
// carried on from its last key in a straight line to the current value.
struct StrideExtrapolation {
  bool applies = false;
  int32_t key_frame = 0;
  double key_value = 0.0;
  double slope = 0.0;
};

StrideExtrapolation PrepareStrideCurve(const RetargetOpContext& context, KRX::Parameter& stride,
                                       double time, double speed) {
  StrideExtrapolation extrapolation;
  KRX::FCurve curve = stride.GetFCurve();
  if (!curve.IsValid() || curve.GetNumKeys() == 0) return extrapolation;
  const double current = stride.GetValue(time).GetDouble();
  if (curve.GetNumKeys() == 1 && curve.GetKey(0).interpolation != KRX::Interpolation::Linear) {
    KRX::FCurveKeyData key = curve.GetKey(0);
    key.interpolation = KRX::Interpolation::Linear;
    curve.SetKey(0, key);
    stride.PutValue(KRX::CValue(current), time);
  }
  const int32_t last = curve.GetNumKeys() - 1;
  const KRX::FCurveKeyData key = curve.GetKey(last);
  if (key.interpolation != KRX::Interpolation::Linear || !(key.time < time)) return extrapolation;
  extrapolation.key_frame = KeyFrame(context, key.time, speed);
  extrapolation.key_value = key.value;
  const int32_t now = KeyFrame(context, time, speed);
  // Within the key's own frame there is no slope to take.
  if (now == extrapolation.key_frame) return extrapolation;
  extrapolation.slope =
      (stride.GetValue(time).GetDouble() - key.value) / (now - extrapolation.key_frame);
  extrapolation.applies = true;
  return extrapolation;
}

}  // namespace

void BuildStrideData(RetargetOpContext& context, double time) {
  LogInfo(L"Constructing Stride Data");
  const int32_t frames = context.frame_count;
  const int32_t planes = context.structure->NumPlanes();
  const MotionBlobLayout& layout = context.layout;
  context.root_path.assign(std::max(frames, 0), CVector3());
  context.effector_paths.assign(planes, std::vector<CVector3>(std::max(frames, 0)));
  if (frames < 1 || context.bytes == nullptr) return;
  auto root = [&](int32_t f) { return ReadNodeSample(context.bytes, layout, 0, f).position; };
  // The travel direction, level unless the motion is mostly vertical. A take that ends
  // where it starts has none: all its motion is kept as it is.
  CVector3 d = root(frames - 1) - root(0);
  const double ax = std::abs(d.GetX()), ay = std::abs(d.GetY()), az = std::abs(d.GetZ());
  if (!(ay > ax && ay > az)) d.PutY(0.0);
  const bool has_direction = d.NormalizeInPlace();
  const KRX::Parameter scale_parameter = context.adjust_property.IsValid()
                                             ? context.adjust_property.GetParameter(L"Scale")
                                             : KRX::Parameter();
  const double k = scale_parameter.IsValid() && context.scale != 0.0
                       ? scale_parameter.GetValue(time).GetDouble() / context.scale
                       : 1.0;
  KRX::Parameter stride_parameter = context.adjust_property.IsValid()
                                        ? context.adjust_property.GetParameter(L"Stride")
                                        : KRX::Parameter();
  const double speed = context.speed > 0.0 ? context.speed : 1.0;
  const StrideExtrapolation extrapolation =
      stride_parameter.IsValid() ? PrepareStrideCurve(context, stride_parameter, time, speed)
                                 : StrideExtrapolation();
  auto split = [&](const CVector3& v, CVector3* along, CVector3* rest) {
    *along = has_direction ? d * v.Dot(d) : CVector3();
    *rest = v - *along;
  };
  for (int32_t i = 0; i < frames; ++i) {
    // The stride at the scene time at which motion frame i plays.
    double s = 1.0;
    if (extrapolation.applies && i > extrapolation.key_frame) {
      s = extrapolation.key_value + (i - extrapolation.key_frame) * extrapolation.slope;
    } else if (stride_parameter.IsValid()) {
      s = stride_parameter.GetValue(context.insertion_frame + i / speed).GetDouble();
    }
    if (i == 0) {
      context.root_path[0] = root(0) * k;
    } else {
      CVector3 along, rest;
      split((root(i) - root(i - 1)) * k, &along, &rest);
      context.root_path[i] = context.root_path[i - 1] + along * s + rest;
    }
    for (int32_t p = 0; p < planes; ++p) {
      const int32_t span = context.structure->planes[p].span;
      CVector3 along, rest;
      split((ReadNodeSample(context.bytes, layout, span, i).position - root(i)) * k, &along, &rest);
      if (context.structure->nodes[span].friction) along = along * s;
      context.effector_paths[p][i] = context.root_path[i] + along + rest;
    }
  }
}

void SolveBeforeClamps(RetargetOpContext& context, int32_t frame, double time) {
  if (context.bytes == nullptr || context.frame_count < 1) return;
  frame = std::clamp(frame, 0, context.frame_count - 1);
  Solver solver{context, *context.model, *context.structure, time, frame, 0.0};
  solver.Sample();
  solver.Place();
  solver.Stretch();
  solver.Offsets();
  solver.Reduce();
}

void SolveFrame(RetargetOpContext& context) {
  if (context.skip_solve || context.bytes == nullptr || context.frame_count < 1) return;
  Solver solver{context,      *context.model,      *context.structure,
                context.time, context.frame_index, context.frame_fraction};
  solver.Sample();
  solver.Place();
  solver.Stretch();
  solver.Offsets();
  solver.Reduce();
  solver.Clamp();
  SolveLimbs(*context.model);
  solver.Roll();
  solver.Locals();
}

}  // namespace kavor

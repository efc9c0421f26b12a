// The spine operators: the spine's objects follow a curve from the anchor's base to the
// spine node's solved place, their twist spread evenly along it.
#include <cmath>
#include <vector>

#include "kavor/operators/chain_solvers.h"
#include "kavor/operators/spine_curve.h"

namespace kavor {

namespace {

using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

CVector3 Turn(const CRotation& rotation, const CVector3& v) {
  return rotation.GetQuaternion().Rotate(v);
}

// The smallest rotation taking direction `from` onto `to`; none where either is undefined.
CRotation Swing(CVector3 from, CVector3 to) {
  if (!from.NormalizeInPlace() || !to.NormalizeInPlace()) return CRotation();
  CVector3 axis = from.Cross(to);
  const double angle = std::atan2(axis.GetLength(), from.Dot(to));
  if (!axis.NormalizeInPlace()) {
    if (from.Dot(to) > 0.0) return CRotation();
    // Opposite directions: half a turn about any axis across them.
    axis = from.Cross(std::abs(from.GetX()) < 0.9 ? CVector3(1, 0, 0) : CVector3(0, 1, 0));
    axis.NormalizeInPlace();
  }
  return CRotation::FromAxisAngle(axis, angle);
}

// The signed angle from `a` to `b` about `axis`.
double SignedAngle(const CVector3& a, const CVector3& b, const CVector3& axis) {
  const CVector3 cross = a.Cross(b);
  const double angle = std::atan2(cross.GetLength(), a.Dot(b));
  return cross.Dot(axis) < 0.0 ? -angle : angle;
}

void SolveSpine(RetargetOpContext& context, int32_t s, const CTransformation& anchor_global,
                const CTransformation& base_global) {
  const GlueSpineEntry& spine = context.glue->spines[s];
  const SemiFreeEntry& semi = context.semi_free[context.spine_semi_free[s]];
  SpineSolve& state = context.spines[s];
  // A time solved last is not solved again, so evaluating one frame twice keeps its twist.
  if (state.solved && state.solved_time == context.time) return;
  const double previous = state.twist;

  const CTransformation goal =
      CTransformation::Mul(context.model->Node(spine.goal_node).global_pose, context.model_global);
  const CRotation anchor_rotation = anchor_global.GetRotation();
  const CRotation goal_rotation = goal.GetRotation();
  const CVector3 p0 = base_global.GetTranslation();
  const CVector3 p3 = goal.GetTranslation();
  const CVector3 p1 = p0 + Turn(anchor_rotation, spine.anchor_tangent * semi.anchor_tangent_length);
  const CVector3 p2 = p3 + Turn(goal_rotation, spine.goal_tangent * semi.goal_tangent_length);
  const SpineCurveSamples samples = SampleSpineCurve(p0, p1, p2, p3);

  const int32_t count = spine.Count();
  std::vector<double> lengths(count > 1 ? count - 1 : 0);
  for (size_t i = 0; i < lengths.size(); ++i) {
    lengths[i] = spine.nodes[i + 1].neutral_pose.GetTranslation().GetLength();
  }
  std::vector<CVector3> points(lengths.size());
  PlaceSpinePoints(samples, p2, p3, lengths, points);

  // Twist: the anchor's tag frame swung onto the goal's align axis, against the goal's roll.
  const CVector3 anchor_align = Turn(anchor_rotation, spine.anchor_axis);
  const CVector3 anchor_roll = Turn(anchor_rotation, spine.anchor_roll);
  const CVector3 goal_align = Turn(goal_rotation, spine.axis);
  const CVector3 goal_roll = Turn(goal_rotation, spine.roll_axis);
  const CVector3 swung_roll = Turn(Swing(anchor_align, goal_align), anchor_roll);
  const double measured = SignedAngle(swung_roll, goal_roll, goal_align);
  state.twist = std::isfinite(measured) ? ContinuousTwist(previous, measured) : previous;

  // Node frames carried along the points from the anchor's, each with its rest turn
  // relative to the anchor.
  state.node_globals.assign(count, CTransformation());
  CRotation frame = anchor_rotation;
  CTransformation rest;  // node i's neutral pose relative to the anchor
  CVector3 from = p0;
  for (int32_t i = 0; i + 1 < count; ++i) {
    rest = CTransformation::Mul(spine.nodes[i].neutral_pose, rest);
    CVector3 segment = points[i] - from;
    const CRotation swing = Swing(Turn(frame, spine.anchor_axis), segment);
    frame = CRotation::Mul(frame, swing);
    CRotation turned = frame;
    if (segment.NormalizeInPlace()) {
      turned = CRotation::Mul(frame, CRotation::FromAxisAngle(segment, i * state.twist / count));
    }
    CTransformation global;
    global.SetTranslation(from);
    global.SetRotation(CRotation::Mul(rest.GetRotation(), turned));
    state.node_globals[i] = global;
    from = points[i];
  }
  state.solved = true;
  state.solved_time = context.time;
}

}  // namespace

void SolveSpineOp(RetargetOpContext& context, KRX::OperatorContext& op,
                  const CTransformation& parent_global, int32_t spine_index, int32_t node_index) {
  if (!context.bound || context.skip_solve || !context.glue || spine_index < 0 ||
      spine_index >= static_cast<int32_t>(context.glue->spines.size()) ||
      spine_index >= static_cast<int32_t>(context.spine_semi_free.size()) ||
      context.spine_semi_free[spine_index] < 0) {
    return;
  }
  const GlueSpineEntry& spine = context.glue->spines[spine_index];
  const int32_t count = spine.Count();
  if (node_index < 0 || node_index >= count || spine.goal_node < 0 ||
      spine.goal_node >= context.model->NumNodes() || !spine.anchor_object.IsValid()) {
    return;
  }
  SpineSolve& state = context.spines[spine_index];
  if (!state.solved || state.solved_time != context.time) {
    // Whichever of the spine's operators runs first at this time solves the spine.
    const CTransformation anchor_global =
        node_index == 0
            ? parent_global
            : spine.anchor_object.GetKinematics().GetGlobal().GetTransform(context.time);
    const CTransformation base_local =
        node_index == 0
            ? op.GetOutputTransform()
            : spine.nodes[0].object.GetKinematics().GetLocal().GetTransform(context.time);
    SolveSpine(context, spine_index, anchor_global,
               CTransformation::Mul(base_local, anchor_global));
  }
  CTransformation global =
      node_index + 1 < count
          ? state.node_globals[node_index]
          : CTransformation::Mul(context.model->Node(spine.goal_node).global_pose,
                                 context.model_global);
  const CTransformation local = KRX::MATH::MapWorldPoseToObjectSpace(parent_global, global);
  CTransformation out = op.GetOutputTransform();
  out.SetRotation(CRotation::FromXYZAngles(local.GetRotation().GetXYZAngles()));
  op.PutOutputTransform(out);
}

}  // namespace kavor

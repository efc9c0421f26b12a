// IK chains at evaluation time. A chain root holds its bones (each below the previous one,
// pointing along its local +X) and its effector. When a bone whose joint is in IK mode
// ("chntype" 0) is evaluated, the chain bends towards the effector's position in the plane
// through the chain's start, the effector and the up-vector reference (or, without one, the
// chain's bend normal), turned about the start-effector line by the first bone's "roll";
// the joints bend towards that side. A two-bone chain solves as a limb in closed form; a
// longer chain bends as a whole (see SolvePlanarChain); a one-bone chain aims at the
// effector. Bones keep their lengths; a target out of reach straightens the chain towards it.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

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
CVector3 BendSide(ObjectItem& root, ObjectItem& first_bone, const CVector3& start,
                  const CVector3& target, double time) {
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
    const CVector3 normal_local(NumberAt(chain, L"normalx", time, 0.0),
                                NumberAt(chain, L"normaly", time, 0.0),
                                NumberAt(chain, L"normalz", time, 1.0));
    const CVector3 normal =
        EvaluateObject(root, time).global.GetRotation().GetQuaternion().Rotate(normal_local);
    side = normal.Cross(dir);
    if (!side.NormalizeInPlace()) return {};
  }
  // A positive roll turns the bend plane clockwise looking down the start-effector line.
  const double roll = MATH::DegreesToRadians(NumberAt(joint, L"roll", time, 0.0));
  if (roll != 0.0) side = CRotation::FromAxisAngle(dir, -roll).GetQuaternion().Rotate(side);
  return side;
}

// Any unit direction square to the unit vector `x`.
CVector3 AnyPerpendicular(const CVector3& x) {
  CVector3 y = std::fabs(x.GetY()) < 0.9 ? CVector3(0, 1, 0) : CVector3(1, 0, 0);
  y = y - x * y.Dot(x);
  y.NormalizeInPlace();
  return y;
}

// Chains up to this many bones solve in buffers on the stack; longer ones use the heap.
constexpr int kStackBones = 32;

}  // namespace

PlanarChainPoint UniformBendEnd(const double* lengths, int count, double turn) {
  double u = 0.0, v = 0.0;
  for (int k = 0; k < count; ++k) {
    u += lengths[k] * std::cos(k * turn);
    v -= lengths[k] * std::sin(k * turn);
  }
  return {u, v};
}

void SolvePlanarChain(const double* lengths, int count, double distance, PlanarChainPoint* joints) {
  joints[0] = {0.0, 0.0};
  if (count <= 0) return;
  double total = 0.0;
  for (int k = 0; k < count; ++k) total += lengths[k];
  // Equal turns: the end's distance from the start falls steadily as the turn grows from 0
  // to pi / (count - 1) (every pair of bones then opens by at most pi), so one bisection
  // finds the turn that reaches `distance` when the distance lies in that range.
  const double max_turn = count > 1 ? MATH::kPi / (count - 1) : 0.0;
  double turn = 0.0;
  if (distance < total) {
    const auto reach = [&](double t) {
      const PlanarChainPoint end = UniformBendEnd(lengths, count, t);
      return std::hypot(end.u, end.v);
    };
    if (count > 1 && reach(max_turn) <= distance) {
      double low = 0.0, high = max_turn;
      for (int i = 0; i < kPlanarChainBisections; ++i) {
        const double mid = 0.5 * (low + high);
        (reach(mid) > distance ? low : high) = mid;
      }
      turn = 0.5 * (low + high);
    } else {
      turn = max_turn;
    }
  }
  // Turn the bent chain about its start so that its end lies on +u; the joints then lie on
  // the +v side of the start-end line.
  const PlanarChainPoint end = UniformBendEnd(lengths, count, turn);
  const double lean = std::atan2(-end.v, end.u);
  for (int k = 0; k < count; ++k) {
    const double angle = lean - k * turn;
    joints[k + 1] = {joints[k].u + lengths[k] * std::cos(angle),
                     joints[k].v + lengths[k] * std::sin(angle)};
  }
  const double end_error = std::hypot(joints[count].u - distance, joints[count].v);
  if (distance >= total || end_error <= kPlanarChainTolerance * total) return;
  // Closer than equal turns reach: forward and backward reaching passes from that shape,
  // each pass keeping every bone's length and every joint in the plane.
  const auto place = [&](const PlanarChainPoint& from, const PlanarChainPoint& towards,
                         double length) {
    double du = towards.u - from.u, dv = towards.v - from.v;
    const double d = std::hypot(du, dv);
    if (d > 1e-300) {
      du /= d;
      dv /= d;
    } else {
      du = 1.0;
      dv = 0.0;
    }
    return PlanarChainPoint{from.u + du * length, from.v + dv * length};
  };
  const PlanarChainPoint target{distance, 0.0};
  const double tolerance = kPlanarChainTolerance * total;
  const auto end_miss = [&] { return std::hypot(joints[count].u - distance, joints[count].v); };
  for (int pass = 0; pass < kPlanarChainPasses && end_miss() > tolerance; ++pass) {
    joints[count] = target;
    for (int k = count - 1; k >= 0; --k) joints[k] = place(joints[k + 1], joints[k], lengths[k]);
    joints[0] = {0.0, 0.0};
    for (int k = 0; k < count; ++k) joints[k + 1] = place(joints[k], joints[k + 1], lengths[k]);
  }
  // Reaching passes slow down where the chain nearly folds flat; damped least-squares steps
  // on the bones' angles finish from there. Each step solves a 2x2 system in closed form and
  // is taken only when it brings the end closer; otherwise the damping grows.
  double damping = 1e-6 * total * total;
  for (int step = 0; step < kPlanarChainSteps; ++step) {
    const double miss = end_miss();
    if (miss <= tolerance) break;
    const double eu = distance - joints[count].u, ev = -joints[count].v;
    // J J^T + damping, with column k of J the end's motion per radian of bone k: (-dv, du).
    double a = damping, b = 0.0, c = damping;
    for (int k = 0; k < count; ++k) {
      const double du = joints[k + 1].u - joints[k].u, dv = joints[k + 1].v - joints[k].v;
      a += dv * dv;
      b -= dv * du;
      c += du * du;
    }
    const double det = a * c - b * b;
    if (!(det > 0.0)) break;
    const double xu = (c * eu - b * ev) / det, xv = (a * ev - b * eu) / det;
    // A bone's angle after the step, from its ends before it.
    const auto turned = [&](const PlanarChainPoint& from, const PlanarChainPoint& to) {
      const double du = to.u - from.u, dv = to.v - from.v;
      return std::atan2(dv, du) + (-dv * xu + du * xv);
    };
    double end_u = 0.0, end_v = 0.0;
    for (int k = 0; k < count; ++k) {
      const double angle = turned(joints[k], joints[k + 1]);
      end_u += lengths[k] * std::cos(angle);
      end_v += lengths[k] * std::sin(angle);
    }
    if (std::hypot(end_u - distance, end_v) >= miss) {
      damping *= 10.0;
      continue;
    }
    damping = std::max(damping * 0.1, 1e-12 * total * total);
    PlanarChainPoint before = joints[0];
    for (int k = 0; k < count; ++k) {
      const PlanarChainPoint next_before = joints[k + 1];
      const double angle = turned(before, next_before);
      joints[k + 1] = {joints[k].u + lengths[k] * std::cos(angle),
                       joints[k].v + lengths[k] * std::sin(angle)};
      before = next_before;
    }
  }
}

ParamItem* FindChainParam(Item& owner, const wchar_t* name) {
  for (const auto& param : owner.params) {
    if (!param->deleted && param->name.GetWideString() == name)
      return dynamic_cast<ParamItem*>(param.get());
  }
  return nullptr;
}

bool BoneFrame(CVector3 x, const CVector3& side, CRotation& out) {
  if (!x.NormalizeInPlace()) return false;
  CVector3 y = side - x * side.Dot(x);
  if (!y.NormalizeInPlace()) {
    // No usable side: any direction across the bone.
    y = AnyPerpendicular(x);
  }
  out = MATH::RotationFromAxisRows(x, y, x.Cross(y));
  return true;
}

namespace {

// A chain of three or more bones: the bones bend together in the bend plane through the
// chain's start, and the evaluated bone aims at where its end goes.
bool SolveWholeChain(ObjectItem& root, ObjectItem& first_bone, ObjectItem& bone, int index,
                     int count, const CVector3& target, double time, CRotation& rotation) {
  EvalCache& cache = *CacheAt(bone, time);
  const CVector3 here = cache.global.GetTranslation();
  const CVector3 start =
      index == 0 ? here : EvaluateObject(first_bone, time).global.GetTranslation();
  CVector3 dir = target - start;
  const double distance = dir.GetLength();
  if (!(distance > 1e-12) || !dir.NormalizeInPlace()) return false;
  CVector3 side = BendSide(root, first_bone, start, target, time);
  if (!side.NormalizeInPlace()) side = AnyPerpendicular(dir);
  // Buffers on the stack for chains of common length: no allocation on the per-frame path.
  std::array<double, kStackBones> stack_lengths{};
  std::array<PlanarChainPoint, kStackBones + 1> stack_joints{};
  std::vector<double> heap_lengths;
  std::vector<PlanarChainPoint> heap_joints;
  double* lengths = stack_lengths.data();
  PlanarChainPoint* joints = stack_joints.data();
  if (count > kStackBones) {
    heap_lengths.resize(static_cast<size_t>(count));
    heap_joints.resize(static_cast<size_t>(count) + 1);
    lengths = heap_lengths.data();
    joints = heap_joints.data();
  }
  int k = 0;
  for (ObjectItem* at = NextChainBone(root); at && k < count; at = NextChainBone(*at)) {
    lengths[k++] = std::max(0.0, ChainBoneLength(*at, time));
  }
  if (k != count) return false;
  SolvePlanarChain(lengths, count, distance, joints);
  const PlanarChainPoint& end = joints[index + 1];
  const CVector3 bone_end = start + dir * end.u + side * end.v;
  return BoneFrame(bone_end - here, side, rotation);
}

}  // namespace

void ApplyChainSolve(ObjectItem& bone, double time) {
  if (NumberAt(FindChainProperty(bone, kJointProperty), L"chntype", time, 0.0) != 0.0) return;
  ObjectItem* root = ChainRootOf(bone);
  if (!root) return;
  ObjectItem* effector = ChainEffectorOf(*root);
  ObjectItem* first_bone = NextChainBone(*root);
  int count = 0;
  int index = -1;
  for (ObjectItem* at = first_bone; at && count < kMaxChainBones; at = NextChainBone(*at)) {
    if (at == &bone) index = count;
    ++count;
  }
  if (!effector || !first_bone || index < 0) return;
  EvalCache& cache = *CacheAt(bone, time);
  const CVector3 target = EvaluateObject(*effector, time).global.GetTranslation();
  const CVector3 here = cache.global.GetTranslation();
  CRotation rotation;
  bool solved = false;
  if (count >= 3) {
    solved = SolveWholeChain(*root, *first_bone, bone, index, count, target, time, rotation);
  } else if (count == 1 || index == 1) {
    // The last bone (or the only one) aims at the effector.
    const CVector3 segment_start = count == 1 ? here : cache.parent_global.GetTranslation();
    const CVector3 side = BendSide(*root, *first_bone, segment_start, target, time);
    solved = BoneFrame(target - here, side, rotation);
  } else {
    // The upper bone of a two-bone limb: its end goes where both bones reach the target.
    const double upper = ChainBoneLength(bone, time);
    const double lower = ChainBoneLength(*NextChainBone(bone), time);
    CVector3 dir = target - here;
    const double distance = dir.GetLength();
    if (distance > 1e-12 && upper > 1e-12 && dir.NormalizeInPlace()) {
      const CVector3 side = BendSide(*root, *first_bone, here, target, time);
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

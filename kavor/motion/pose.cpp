#include "kavor/motion/pose.h"

#include <cmath>
#include <limits>

#include "kavor/maps/mocap_skeleton.h"
#include "kavor/maps/model_space.h"

namespace kavor {

namespace {

using KRX::MATH::CMatrix4;
using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

// The axis (0 x, 1 y, 2 z) along which `v` points most; ties go to x, then y.
int DominantAxis(const CVector3& v) {
  int best = 0;
  for (int axis = 1; axis < 3; ++axis) {
    if (v[axis] > v[best]) best = axis;
  }
  return best;
}

CVector3 Row(const CMatrix4& m, int row) { return {m.Get(row, 0), m.Get(row, 1), m.Get(row, 2)}; }

// A proper rotation from the images of the three axes under an affine transform. The two
// axes that `align` and `roll` point along most are kept and the third is their cross
// product (X = Y x Z, Y = Z x X, Z = X x Y), which undoes a mirroring and any uneven
// scaling. When both mark the same axis, the next axis in x, y, z order stands in for the
// roll's. The frame is made orthonormal with the align axis exact.
CRotation RotationFromAxes(const CMatrix4& m, const CVector3& align, const CVector3& roll) {
  const int primary = DominantAxis(align);
  int secondary = DominantAxis(roll);
  if (secondary == primary) secondary = (primary + 1) % 3;
  const int third = 3 - primary - secondary;
  CVector3 p = Row(m, primary);
  CVector3 s = Row(m, secondary);
  if (!p.NormalizeInPlace()) return CRotation();
  // In cyclic order (x, y, z) the third axis is p x s, otherwise s x p.
  const bool cyclic = (secondary - primary + 3) % 3 == 1;
  CVector3 t = cyclic ? p.Cross(s) : s.Cross(p);
  if (!t.NormalizeInPlace()) return CRotation();
  s = cyclic ? t.Cross(p) : p.Cross(t);
  CVector3 frame[3];
  frame[primary] = p;
  frame[secondary] = s;
  frame[third] = t;
  return KRX::MATH::RotationFromAxisRows(frame[0], frame[1], frame[2]);
}

void ComputeRigPose(RetargetModel& model, double time, bool use_extraction) {
  const CTransformation model_inverse = ModelSpaceInverse(model.model, time);
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    NodeMapEntry& node = model.Node(i);
    if (!node.object.IsValid()) {
      node.global_pose.SetIdentity();
      continue;
    }
    const KRX::X3DObject* source = &node.object;
    const CVector3* align = &node.align;
    const CVector3* roll = &node.roll;
    if (use_extraction && node.extraction && node.extraction->object.IsValid()) {
      source = &node.extraction->object;
      align = &node.extraction->align;
      roll = &node.extraction->roll;
    }
    const CTransformation global = ModelSpaceTransform(*source, model_inverse, time);
    CTransformation pose;
    pose.SetTranslation(global.GetTranslation());
    pose.SetRotation(RotationFromAxes(global.GetMatrix4(), *align, *roll));
    node.global_pose = pose;
  }
}

void ComputeCapturePose(RetargetModel& model, double time) {
  // A time that names no sample (the current-time marker among them) leaves the joints
  // in the pose last computed.
  const double frame = std::trunc(time);
  const bool sampled =
      frame >= 0.0 && frame <= static_cast<double>(std::numeric_limits<int32_t>::max());
  PoseSkeleton(*model.skeleton, sampled ? static_cast<int32_t>(frame) : -1);
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    NodeMapEntry& node = model.Node(i);
    if (!node.joint) continue;
    node.global_pose = node.joint->global;
    node.global_pose.SetScalingFromValues(1.0, 1.0, 1.0);
  }
}

}  // namespace

void ComputeLocalPoses(RetargetModel& model) {
  if (!model.structure || model.NumNodes() == 0) return;
  model.Node(0).local_pose = model.Node(0).global_pose;
  for (int32_t i = 1; i < model.NumNodes(); ++i) {
    const int32_t parent = model.structure->nodes[static_cast<size_t>(i)].parent;
    if (parent < 0 || parent >= model.NumNodes()) continue;
    model.Node(i).local_pose = KRX::MATH::MapWorldPoseToObjectSpace(model.Node(parent).global_pose,
                                                                    model.Node(i).global_pose);
  }
}

void ComputePose(RetargetModel& model, double time, bool use_extraction) {
  if (!model.structure) return;
  if (model.skeleton) {
    ComputeCapturePose(model, time);
  } else {
    ComputeRigPose(model, time, use_extraction);
  }
  ComputeLocalPoses(model);
}

}  // namespace kavor

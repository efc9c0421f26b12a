// What every motion that a motion file reader accepts must hold, whatever the file was:
// the shape the rest of the plug-in indexes by, and only finite numbers. A broken promise
// stops the fuzzer.
#pragma once

#include <cmath>
#include <cstdint>

#include "kavor/motion/kavor_file.h"

namespace kavor::fuzzcheck {

inline bool Finite(const KRX::MATH::CVector3& v) {
  return std::isfinite(v.GetX()) && std::isfinite(v.GetY()) && std::isfinite(v.GetZ());
}

inline bool IndexOk(int32_t index, int32_t nodes) { return index >= -1 && index < nodes; }

inline void CheckMotion(const KavorMotion& motion) {
  if (!motion.structure || !motion.model || motion.model->structure != motion.structure.get()) {
    __builtin_trap();
  }
  const ModelStructure& structure = *motion.structure;
  const RetargetModel& model = *motion.model;
  const int32_t nodes = structure.NumNodes();
  if (nodes < 1 || nodes > kMaxStructureNodes || structure.NumPlanes() > kMaxStructureNodes ||
      model.NumNodes() != nodes || model.NumPlanes() != structure.NumPlanes()) {
    __builtin_trap();
  }
  for (const StructurePlane& plane : structure.planes) {
    if (!IndexOk(plane.span, nodes) || !IndexOk(plane.mid, nodes) ||
        !IndexOk(plane.anchor_index, nodes) || plane.chain.size() > static_cast<size_t>(nodes)) {
      __builtin_trap();
    }
    for (const int32_t bone : plane.chain) {
      if (!IndexOk(bone, nodes)) __builtin_trap();
    }
  }
  if (model.frame_count < 0 || model.frame_count > kMaxMotionFrames ||
      model.poses.size() != static_cast<size_t>(model.frame_count) * static_cast<size_t>(nodes) ||
      static_cast<int64_t>(model.poses.size()) > kMaxMotionPoses) {
    __builtin_trap();
  }
  for (const KRX::MATH::CTransformation& pose : model.poses) {
    const KRX::MATH::CQuaternion q = pose.GetRotationQuaternion();
    if (!Finite(pose.GetTranslation()) ||
        !std::isfinite(q.GetW() + q.GetX() + q.GetY() + q.GetZ())) {
      __builtin_trap();
    }
  }
  if (!std::isfinite(model.leg_length) || !std::isfinite(model.hip_offset)) __builtin_trap();
  for (int32_t i = 0; i < nodes; ++i) {
    if (!std::isfinite(model.Node(i).length)) __builtin_trap();
  }
  if (model.curves.size() > static_cast<size_t>(nodes + structure.NumPlanes())) __builtin_trap();
  int64_t keys = 0;
  for (const CurveKeyRecord& record : model.curves) {
    for (const std::vector<double>& channel : record.channels) {
      keys += static_cast<int64_t>(channel.size());
      for (const double time : channel) {
        if (!std::isfinite(time)) __builtin_trap();
      }
    }
  }
  if (keys > kMaxCurveKeys) __builtin_trap();
}

}  // namespace kavor::fuzzcheck

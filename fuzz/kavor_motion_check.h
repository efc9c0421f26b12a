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

inline bool SameTransform(const KRX::MATH::CTransformation& a,
                          const KRX::MATH::CTransformation& b) {
  const KRX::MATH::CQuaternion p = a.GetRotationQuaternion(), q = b.GetRotationQuaternion();
  return a.GetTranslation() == b.GetTranslation() && p.GetW() == q.GetW() && p.GetX() == q.GetX() &&
         p.GetY() == q.GetY() && p.GetZ() == q.GetZ();
}

// True when two motions read from the same bytes hold the same values.
inline bool SameMotion(const KavorMotion& a, const KavorMotion& b) {
  const ModelStructure &s = *a.structure, &t = *b.structure;
  const RetargetModel &m = *a.model, &n = *b.model;
  if (s.type != t.type || s.NumNodes() != t.NumNodes() || s.NumPlanes() != t.NumPlanes() ||
      m.frame_count != n.frame_count || m.leg_length != n.leg_length ||
      m.hip_offset != n.hip_offset || m.poses.size() != n.poses.size() ||
      m.curves.size() != n.curves.size()) {
    return false;
  }
  for (int32_t i = 0; i < s.NumNodes(); ++i) {
    const StructureNode &u = s.nodes[static_cast<size_t>(i)], &v = t.nodes[static_cast<size_t>(i)];
    if (u.name != v.name || u.obj_is_valid != v.obj_is_valid ||
        m.Node(i).length != n.Node(i).length) {
      return false;
    }
  }
  for (size_t p = 0; p < s.planes.size(); ++p) {
    const StructurePlane &u = s.planes[p], &v = t.planes[p];
    if (u.name != v.name || u.span != v.span || u.mid != v.mid ||
        u.anchor_index != v.anchor_index || u.chain != v.chain) {
      return false;
    }
  }
  for (size_t i = 0; i < m.poses.size(); ++i) {
    if (!SameTransform(m.poses[i], n.poses[i])) return false;
  }
  for (size_t r = 0; r < m.curves.size(); ++r) {
    if (m.curves[r].node_name != n.curves[r].node_name ||
        m.curves[r].channels != n.curves[r].channels) {
      return false;
    }
  }
  return true;
}

}  // namespace kavor::fuzzcheck

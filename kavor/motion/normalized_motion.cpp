#include "kavor/motion/normalized_motion.h"

#include <algorithm>

namespace kavor {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

NormalizedMotion::NormalizedMotion(int32_t frames, RetargetModel* target_model,
                                   RetargetModel* source_model)
    : frame_count(std::max(frames, 0)), target(target_model), source(source_model) {
  const auto count = static_cast<size_t>(frame_count);
  const size_t nodes = target && target->structure ? target->structure->nodes.size() : 0;
  const size_t planes = target && target->structure ? target->structure->planes.size() : 0;
  global_poses.assign(nodes, std::vector<CTransformation>(count));
  local_poses.assign(nodes, std::vector<CTransformation>(count));
  up_vectors.assign(planes, std::vector<CVector3>(count));
  effector_positions.assign(planes, std::vector<CVector3>(count));
  limb_heights.assign(planes, 0.0);
}

void NormalizedMotion::StoreFrame(int32_t frame) {
  if (frame < 0 || frame >= frame_count || !target) return;
  const auto f = static_cast<size_t>(frame);
  const int32_t nodes = std::min(NumNodes(), target->NumNodes());
  for (int32_t i = 0; i < nodes; ++i) {
    global_poses[static_cast<size_t>(i)][f] = target->Node(i).global_pose;
    local_poses[static_cast<size_t>(i)][f] = target->Node(i).local_pose;
  }
  const int32_t planes = std::min(NumPlanes(), target->NumPlanes());
  for (int32_t j = 0; j < planes; ++j) {
    up_vectors[static_cast<size_t>(j)][f] = target->Plane(j).up_vector;
    const int32_t span = target->structure->planes[static_cast<size_t>(j)].span;
    if (span < 0 || span >= target->NumNodes() || !source) continue;
    const int32_t s = target->Node(span).source_index;
    if (s >= 0 && s < source->NumNodes()) {
      effector_positions[static_cast<size_t>(j)][f] = source->Node(s).global_pose.GetTranslation();
    }
  }
}

}  // namespace kavor

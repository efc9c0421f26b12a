#include "kavor/motion/finish.h"

#include <cmath>

#include "kavor/host/host.h"
#include "kavor/maps/model_map.h"

namespace kavor {

namespace {

// Below this a leg length has no meaningful ratio; the transfer uses the same bound.
constexpr double kMinLegLength = 0.0001;

bool IsUsableLegLength(double length) { return std::isfinite(length) && length > kMinLegLength; }

}  // namespace

bool CanFinish(const NormalizedMotion& motion) {
  if (motion.frame_count < 1 || !motion.target || !motion.source || !motion.target->structure) {
    return false;
  }
  const ModelStructure& structure = *motion.target->structure;
  const int32_t nodes = structure.NumNodes();
  const int32_t planes = structure.NumPlanes();
  if (motion.NumNodes() != nodes || motion.NumPlanes() != planes ||
      motion.effector_positions.size() != motion.up_vectors.size() ||
      motion.limb_heights.size() != motion.up_vectors.size() ||
      motion.target->NumNodes() != nodes || motion.target->NumPlanes() != planes) {
    return false;
  }
  const auto frames = static_cast<size_t>(motion.frame_count);
  for (int32_t i = 0; i < nodes; ++i) {
    const int32_t parent = structure.nodes[static_cast<size_t>(i)].parent;
    if (parent < -1 || parent >= nodes) return false;
    if (motion.global_poses[static_cast<size_t>(i)].size() != frames) return false;
  }
  for (int32_t j = 0; j < planes; ++j) {
    const StructurePlane& plane = structure.planes[static_cast<size_t>(j)];
    if (plane.span < 0 || plane.span >= nodes || plane.anchor_index < 0 ||
        plane.anchor_index >= nodes) {
      return false;
    }
    if (motion.up_vectors[static_cast<size_t>(j)].size() != frames ||
        motion.effector_positions[static_cast<size_t>(j)].size() != frames) {
      return false;
    }
  }
  return true;
}

int32_t CountFeet(const ModelStructure& structure) {
  int32_t feet = 0;
  for (const StructureNode& node : structure.nodes) feet += node.friction ? 1 : 0;
  return feet;
}

LegLengths FinishLegLengths(const NormalizedMotion& motion) {
  // With either length unusable the characters are taken as the same size: a ratio of 1
  // keeps the source's heights and steps as they are, which is also what the transfer
  // did with the hips in that case.
  if (!motion.source || !motion.target || !IsUsableLegLength(motion.source->leg_length) ||
      !IsUsableLegLength(motion.target->leg_length)) {
    return {};
  }
  return {motion.source->leg_length, motion.target->leg_length};
}

int32_t SourceOf(const NormalizedMotion& motion, int32_t target_node) {
  const int32_t source = motion.target->Node(target_node).source_index;
  return source >= 0 && source < motion.source->NumNodes() ? source : -1;
}

bool IsGroundedFoot(const NormalizedMotion& motion, int32_t node) {
  return motion.target->structure->nodes[static_cast<size_t>(node)].friction &&
         HasNoFrictionOrFreeAncestor(*motion.target, node);
}

void Finish(NormalizedMotion& motion, ContactBlendRule blend) {
  if (!CanFinish(motion)) {
    if (motion.frame_count > 0) {
      LogWarning(ToWide("The motion was not finished: it does not match the target's structure."));
    }
    return;
  }
  if (CountFeet(*motion.target->structure) > 2) {
    FitLimbEndPaths(motion);
    AlignOtherFeet(motion);
  } else {
    SetFootHeights(motion);
    ProcessContacts(motion, blend);
  }
  FillUpVectors(motion);
}

double AxisAt(const std::vector<KRX::MATH::CTransformation>& poses, int32_t frame, int axis) {
  return poses[static_cast<size_t>(frame)].GetTranslation()[axis];
}

void SetAxisAt(std::vector<KRX::MATH::CTransformation>& poses, int32_t frame, int axis, double value) {
  KRX::MATH::CTransformation& pose = poses[static_cast<size_t>(frame)];
  KRX::MATH::CVector3 t = pose.GetTranslation();
  if (axis == 0) t.PutX(value);
  if (axis == 1) t.PutY(value);
  if (axis == 2) t.PutZ(value);
  pose.SetTranslation(t);
}

}  // namespace kavor

#include "kavor/motion/extraction.h"

#include <algorithm>
#include <cmath>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/rest_data.h"
#include "kavor/motion/normalize.h"
#include "kavor/motion/pose.h"

namespace kavor {

namespace {

using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

constexpr double kTinyLength = 0.0001;
constexpr double kSharedPlace = 1e-5;

enum class SourceKind { kFile, kCapture, kRig };

SourceKind KindOf(const RetargetModel& source) {
  if (!source.poses.empty()) return SourceKind::kFile;
  if (source.skeleton) return SourceKind::kCapture;
  return SourceKind::kRig;
}

StructureNode& NodeInfo(RetargetModel& model, int32_t i) {
  return model.structure->nodes[static_cast<size_t>(i)];
}

bool MayBind(SourceKind kind, const RetargetModel& source, int32_t j, const RetargetModel& target,
             int32_t k) {
  if (!target.Node(k).object.IsValid()) return false;
  switch (kind) {
    case SourceKind::kFile:
      return source.structure->nodes[static_cast<size_t>(j)].obj_is_valid;
    case SourceKind::kCapture:
      return source.Node(j).joint != nullptr;
    case SourceKind::kRig:
      return source.Node(j).object.IsValid();
  }
  return false;
}

void PairNodes(RetargetModel& target, const RetargetModel& source) {
  const SourceKind kind = KindOf(source);
  for (int32_t k = 0; k < target.NumNodes(); ++k) {
    target.Node(k).source_index = -1;
    target.Node(k).override_source_index = -1;
  }
  const int32_t source_nodes = std::min(source.NumNodes(), source.structure->NumNodes());
  const int32_t target_nodes = std::min(target.NumNodes(), target.structure->NumNodes());
  for (int32_t j = 0; j < source_nodes; ++j) {
    const std::string& name = source.structure->nodes[static_cast<size_t>(j)].name;
    for (int32_t k = 0; k < target_nodes; ++k) {
      if (!MayBind(kind, source, j, target, k)) continue;
      NodeMapEntry& node = target.Node(k);
      if (name == target.structure->nodes[static_cast<size_t>(k)].name) node.source_index = j;
      if (!node.override.empty() && name == node.override) node.override_source_index = j;
    }
  }
}

// A node that stands on the end of its parent's limb (a foot control at the ankle's IK
// effector) stays where it is in the hierarchy even without a source.
bool StandsOnParentLimbEnd(const RetargetModel& target, int32_t node, int32_t parent) {
  const KRX::X3DObject& object = target.Node(node).object;
  for (const StructurePlane& plane : target.structure->planes) {
    if (plane.span != parent || plane.span < 0 || plane.span >= target.NumNodes()) continue;
    const KRX::X3DObject& end = target.Node(plane.span).object;
    if (!object.IsValid() || !end.IsValid()) continue;
    if ((GlobalPosition(object) - GlobalPosition(end)).GetLength() < kSharedPlace) return true;
  }
  return false;
}

// Target nodes that nothing drives leave the hierarchy: their children move up to their
// parent and they hang from the root, so that they no longer carry anything along.
void DetachUnboundNodes(RetargetModel& target) {
  ModelStructure& structure = *target.structure;
  const int32_t count = std::min(target.NumNodes(), structure.NumNodes());
  for (int32_t i = 1; i < count; ++i) {
    const NodeMapEntry& node = target.Node(i);
    if (node.source_index >= 0 || node.override_source_index >= 0) continue;
    const int32_t parent = structure.nodes[static_cast<size_t>(i)].parent;
    if (StandsOnParentLimbEnd(target, i, parent)) continue;
    for (int32_t later = i + 1; later < count; ++later) {
      if (structure.nodes[static_cast<size_t>(later)].parent == i) {
        structure.nodes[static_cast<size_t>(later)].parent = parent;
      }
    }
    structure.nodes[static_cast<size_t>(i)].parent = 0;
  }
}

void PruneChains(RetargetModel& target) {
  for (StructurePlane& plane : target.structure->planes) {
    std::erase_if(plane.chain, [&](int32_t node) {
      return node < 0 || node >= target.NumNodes() || !target.Node(node).object.IsValid();
    });
  }
}

void PutModelAtOrigin(RetargetModel& model) {
  if (!model.model.IsValid()) return;
  KRX::KinematicState global = model.model.GetKinematics().GetGlobal();
  model.model_global = global.GetTransform(kCurrentTime);
  global.PutTransform(CTransformation(), kCurrentTime);
}

int32_t ParentOf(const RetargetModel& model, int32_t i) {
  const int32_t parent = model.structure->nodes[static_cast<size_t>(i)].parent;
  return parent >= 0 && parent < i ? parent : -1;
}

void RememberBindRotations(RetargetModel& target) {
  for (int32_t i = 0; i < target.NumNodes(); ++i) {
    target.Node(i).bind_local_rotation =
        (i == 0 ? target.Node(i).global_pose : target.Node(i).local_pose).GetRotation();
  }
}

// The source node driving target node `k`'s rotation: its override's, else its own; -1.
int32_t RotationSource(const NodeMapEntry& node, const RetargetModel& source) {
  const int32_t s =
      node.override_source_index >= 0 ? node.override_source_index : node.source_index;
  return s < source.NumNodes() ? s : -1;
}

void LoadSourcePose(RetargetModel& source, double time) {
  if (source.poses.empty()) {
    ComputePose(source, time, true);
    NormalizeRotations(source, true);
    return;
  }
  const int32_t nodes = source.NumNodes();
  if (nodes == 0 || source.frame_count <= 0) return;
  const double whole = std::trunc(time);
  const int32_t frame =
      whole <= 0.0
          ? 0
          : static_cast<int32_t>(std::min(whole, static_cast<double>(source.frame_count - 1)));
  const size_t first = static_cast<size_t>(frame) * static_cast<size_t>(nodes);
  if (first + static_cast<size_t>(nodes) > source.poses.size()) return;
  for (int32_t i = 0; i < nodes; ++i) {
    source.Node(i).global_pose = source.poses[first + static_cast<size_t>(i)];
  }
}

// Global rotations from the normalized ones: a driven node takes its rest rotation back; a
// node without a source does too, or keeps its bind rotation relative to its parent when
// the options ask for that. Local rotations follow; local translations stay.
void DenormalizeIntoHierarchy(RetargetModel& target, const RetargetModel& source,
                              const ExtractOptions& options) {
  const bool keep_bind = options.unsourced_nodes == UnsourcedNodeRule::kKeepBindRotation;
  for (int32_t i = 0; i < target.NumNodes(); ++i) {
    NodeMapEntry& node = target.Node(i);
    const int32_t parent = i == 0 ? -1 : ParentOf(target, i);
    const CRotation parent_rotation =
        parent >= 0 ? target.Node(parent).global_pose.GetRotation() : CRotation();
    if (RotationSource(node, source) >= 0 || !keep_bind) {
      node.global_pose.SetRotation(
          CRotation::Mul(node.rest_rotation.GetRotation(), node.global_pose.GetRotation()));
    } else {
      node.global_pose.SetRotation(CRotation::Mul(node.bind_local_rotation, parent_rotation));
    }
    if (i == 0) continue;
    node.local_pose.SetRotation(
        CRotation::Mul(node.global_pose.GetRotation(), parent_rotation.Inverse()));
  }
}

// The source's rest length of the bone that plays target node `i`: the path from source
// node `s` up the source's structure to the source node playing i's target parent. When
// both structures have the same nodes this is the source node's own length; when the source
// has extra nodes in between (a three-joint spine driving a two-joint one), the bone-length
// ratio must compare the whole source segment with the target bone, or the target bone
// grows by the skipped segments. Falls back to the source node's own length when the
// target parent's source does not lie above `s`.
double SourceSegmentLength(const RetargetModel& target, const RetargetModel& source, int32_t i,
                           int32_t s) {
  const int32_t p = ParentOf(target, i);
  const int32_t parent_source = p >= 0 ? target.Node(p).source_index : -1;
  double length = 0.0;
  int32_t j = s;
  for (int32_t steps = 0; parent_source >= 0 && j >= 0 && steps < source.NumNodes(); ++steps) {
    if (j == parent_source) return length;
    length += source.Node(j).length;
    const int32_t up = source.structure->nodes[static_cast<size_t>(j)].parent;
    j = up >= 0 && up < j ? up : -1;
  }
  return source.Node(s).length;
}

bool IsLimbEndOrFree(StructureNodeType type) {
  return type == StructureNodeType::kIk || type == StructureNodeType::kFree;
}

}  // namespace

bool BindSource(RetargetModel& target, RetargetModel& source, GlueMap& glue) {
  if (!target.structure || !source.structure) return false;
  SnapChainEffectors(target);
  if (target.structure->type != source.structure->type) {
    LogWarning(L"The normalized motion must have the same type as the model structure.");
    return false;
  }
  if (target.structure->nodes.empty() || source.structure->nodes.empty() ||
      target.structure->nodes[0].name != source.structure->nodes[0].name) {
    return false;
  }
  PairNodes(target, source);
  DetachUnboundNodes(target);
  PruneChains(target);
  RepointOrphanMocapEntries(glue, target);
  PutModelAtOrigin(target);
  PutModelAtOrigin(source);
  ComputeBendSigns(target);
  if (source.leg_length > kTinyLength) target.scale = target.leg_length / source.leg_length;
  ComputePose(target, kCurrentTime, false);
  RememberBindRotations(target);
  return true;
}

void ExtractFrame(RetargetModel& target, RetargetModel& source, double time,
                  const ExtractOptions& options) {
  if (!target.structure || !source.structure || target.NumNodes() == 0) return;
  LoadSourcePose(source, time);

  for (int32_t k = 0; k < target.NumNodes(); ++k) {
    NodeMapEntry& node = target.Node(k);
    const int32_t s = RotationSource(node, source);
    if (s >= 0) node.global_pose.SetRotation(source.Node(s).global_pose.GetRotation());
  }

  ComputeUpVectors(source, options.straight_limb_angle);
  const int32_t planes = std::min(target.NumPlanes(), source.NumPlanes());
  for (int32_t p = 0; p < planes; ++p) target.Plane(p).up_vector = source.Plane(p).up_vector;

  DenormalizeIntoHierarchy(target, source, options);

  NodeMapEntry& root = target.Node(0);
  root.global_pose.SetTranslation(source.Node(0).global_pose.GetTranslation());
  root.local_pose = root.global_pose;

  for (int32_t i = 1; i < target.NumNodes(); ++i) {
    const int32_t p = ParentOf(target, i);
    if (p < 0) continue;
    NodeMapEntry& node = target.Node(i);
    const int32_t s = node.source_index;
    const CTransformation& parent_pose = target.Node(p).global_pose;
    if (s <= 0 || s >= source.NumNodes()) {
      node.global_pose.SetTranslation(parent_pose.MapPoint(node.local_pose.GetTranslation()));
      continue;
    }
    const CVector3 source_position = source.Node(s).global_pose.GetTranslation();
    StructureNode& info = NodeInfo(target, i);
    if (info.type == StructureNodeType::kFree) {
      // A free node whose source lies behind its parent's aim would bend backwards: from
      // now on it keeps the target's own offset like a child node.
      const CVector3 aim = parent_pose.GetRotation().GetQuaternion().Rotate(target.Node(p).align);
      if (aim.Dot(source_position - parent_pose.GetTranslation()) <= 0.0) {
        info.type = StructureNodeType::kChild;
      }
    }
    node.global_pose.SetTranslation(source_position);
  }

  for (int32_t i = 1; i < target.NumNodes(); ++i) {
    NodeMapEntry& node = target.Node(i);
    const int32_t s = node.source_index;
    if (s <= 0 || s >= source.NumNodes() || !IsLimbEndOrFree(NodeInfo(target, i).type)) continue;
    const double source_length = SourceSegmentLength(target, source, i, s);
    if (!(source_length > kTinyLength)) continue;
    const int32_t p = ParentOf(target, i);
    if (p >= 0) {
      node.local_pose =
          KRX::MATH::MapWorldPoseToObjectSpace(target.Node(p).global_pose, node.global_pose);
    }
    node.local_pose.SetTranslation(node.local_pose.GetTranslation() *
                                   (node.length / source_length));
  }

  if (source.leg_length > kTinyLength) {
    CVector3 aim = root.global_pose.GetRotation().GetQuaternion().Rotate(root.align);
    aim.NormalizeInPlace();
    const double ratio = target.leg_length / source.leg_length;
    const CVector3 hips = (root.local_pose.GetTranslation() - aim * source.hip_offset) * ratio +
                          aim * target.hip_offset;
    root.local_pose.SetTranslation(hips);
    root.global_pose.SetTranslation(hips);
  }

  for (int32_t i = 1; i < target.NumNodes(); ++i) {
    NodeMapEntry& node = target.Node(i);
    const int32_t p = ParentOf(target, i);
    node.global_pose =
        p < 0 ? node.local_pose : CTransformation::Mul(node.local_pose, target.Node(p).global_pose);
  }
}

}  // namespace kavor

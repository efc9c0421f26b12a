#include "kavor/maps/retarget_model.h"

#include <string>

#include "kavor/host/host.h"
#include "kavor/maps/mocap_skeleton.h"
#include "kavor/motion/pose.h"
#include "kavor/tagging/tags.h"

namespace kavor {

namespace {

void AllocateMaps(const ModelStructure* structure, std::vector<NodeMapEntry>& nodes,
                  std::vector<PlaneMapEntry>& planes) {
  if (!structure) return;
  nodes.resize(static_cast<size_t>(structure->NumNodes()));
  planes.resize(static_cast<size_t>(structure->NumPlanes()));
}

// Each joint that a tag assigned to a structure node plays the first node of that name.
void BindSkeletonJoints(RetargetModel& model) {
  if (!model.skeleton || !model.structure) return;
  for (MocapJoint& joint : model.skeleton->joints) {
    const int32_t node = FindNodeIndex(*model.structure, joint.node_name);
    if (node < 0 || joint.node_name.empty()) continue;
    NodeMapEntry& entry = model.Node(node);
    entry.joint = &joint;
    entry.align = joint.align;
    entry.roll = joint.roll;
  }
}

}  // namespace

RetargetModel::RetargetModel(const KRX::Model& rig, ModelStructure* structure_in)
    : model(rig), structure(structure_in) {
  AllocateMaps(structure, node_map_, plane_map_);
  if (!structure) return;
  ReadTags(*this);
  ComputePose(*this, kCurrentTime, false);
}

RetargetModel::RetargetModel(MocapSkeleton* skeleton_in, ModelStructure* structure_in)
    : structure(structure_in), skeleton(skeleton_in) {
  AllocateMaps(structure, node_map_, plane_map_);
  BindSkeletonJoints(*this);
}

RetargetModel::RetargetModel(ModelStructure* structure_in) : structure(structure_in) {
  AllocateMaps(structure, node_map_, plane_map_);
}

RetargetModel::~RetargetModel() = default;

NodeMapEntry& RetargetModel::Node(int32_t index) {
  if (index >= 0 && index < NumNodes()) return node_map_[static_cast<size_t>(index)];
  LogWarning(ToWide("invalid nodeMap index! " + std::to_string(index)));
  scratch_node_ = NodeMapEntry();
  return scratch_node_;
}

const NodeMapEntry& RetargetModel::Node(int32_t index) const {
  return const_cast<RetargetModel*>(this)->Node(index);
}

PlaneMapEntry& RetargetModel::Plane(int32_t index) {
  if (index >= 0 && index < NumPlanes()) return plane_map_[static_cast<size_t>(index)];
  LogWarning(ToWide("invalid planeMap index! " + std::to_string(index)));
  scratch_plane_ = PlaneMapEntry();
  return scratch_plane_;
}

const PlaneMapEntry& RetargetModel::Plane(int32_t index) const {
  return const_cast<RetargetModel*>(this)->Plane(index);
}

bool RetargetModel::IsBound(int32_t index) const {
  if (index < 0 || index >= NumNodes()) return false;
  const NodeMapEntry& entry = node_map_[static_cast<size_t>(index)];
  return skeleton ? entry.joint != nullptr : entry.object.IsValid();
}

}  // namespace kavor

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/frame_rotation.h"
#include "kavor/maps/glue_map.h"

namespace kavor {

namespace {

bool EndsLimbPlane(const ModelStructure& structure, int32_t node) {
  for (const StructurePlane& plane : structure.planes) {
    if (plane.span == node) return true;
  }
  return false;
}

}  // namespace

void RepointOrphanMocapEntries(GlueMap& glue, const RetargetModel& target) {
  if (!target.structure) return;
  const ModelStructure& structure = *target.structure;
  for (GlueMocapEntry& entry : glue.mocaps) {
    const int32_t node = entry.node_index;
    if (node < 0 || node >= target.NumNodes() || target.Node(node).source_index >= 0) continue;
    const int32_t parent = structure.nodes[static_cast<size_t>(node)].parent;
    if (parent < 0 || parent >= target.NumNodes() || target.Node(parent).source_index < 0) continue;
    if (!EndsLimbPlane(structure, parent)) continue;
    const KRX::X3DObject& parent_object = target.Node(parent).object;
    if (!entry.object.IsValid() || !parent_object.IsValid()) continue;
    const double apart = (GlobalPosition(entry.object) - GlobalPosition(parent_object)).GetLength();
    if (!(apart < 0.0001 * target.leg_length)) continue;
    const NodeMapEntry& own = target.Node(node);
    const NodeMapEntry& driver = target.Node(parent);
    entry.node_index = parent;
    entry.fixed_rotation = FrameRotation(own.align, own.roll, driver.align, driver.roll);
  }
}

}  // namespace kavor

// BuildGlueMap: the glue of a freshly tagged rig, from its tags and its own set-up.

#include <unordered_set>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/glue_map.h"

namespace kavor {

namespace {

using KRX::MATH::CVector3;

// The curve tangents at both ends of a spine are this fraction of the spine node's length.
constexpr double kSpineTangentFactor = 0.35;

const StructureNode& NodeInfo(const RetargetModel& retarget, int32_t index) {
  return retarget.structure->nodes[static_cast<size_t>(index)];
}

// Every limb whose anchor object is an IK chain bone: a plane entry when the chain has an
// up-vector reference, and in any case the chain's nodes above the end node are left to
// the chain (no mocap entry of their own).
void AddPlanes(GlueMap& glue, const RetargetModel& retarget, std::unordered_set<int32_t>& skip) {
  for (const StructurePlane& plane : retarget.structure->planes) {
    const KRX::X3DObject& anchor = retarget.Node(plane.anchor_index).object;
    if (!anchor.IsValid() || !anchor.IsA(KRX::ClassID::ChainBone)) continue;
    const KRX::X3DObject up = KRX::ChainBone(anchor).GetUpVectorReference();
    if (up.IsValid()) {
      GluePlaneEntry entry;
      entry.rig_node_name = ToNarrow(up.GetName());
      entry.plane_name = plane.name;
      glue.planes.push_back(std::move(entry));
    }
    for (size_t i = 1; i < plane.chain.size(); ++i) skip.insert(plane.chain[i]);
  }
}

// How a free node's object hangs below its structure parent's object.
struct SpineWalk {
  bool reached = false;  // the parent's object lies above the node's object
  int32_t steps = 0;     // parent links followed to get there
  KRX::X3DObject base;   // the last object before the parent's object
};

// Climbs from `start` towards `target` one parent at a time, not beyond the model.
SpineWalk WalkToParent(const KRX::X3DObject& start, const KRX::X3DObject& target,
                       const KRX::Model& model) {
  SpineWalk walk;
  KRX::X3DObject current = start;
  while (current.IsValid() && !(current == target)) {
    // The model itself and anything above it do not belong to the rig.
    if (current == model || !KRX::X3DObject(current.GetParent()).IsValid()) return walk;
    walk.base = current;
    current = KRX::X3DObject(current.GetParent());
    ++walk.steps;
  }
  walk.reached = current.IsValid();
  return walk;
}

// Free nodes whose object sits two or more levels below their parent's object are driven
// as spine curves; those whose object is not below it at all are not glued.
void AddSpines(GlueMap& glue, const KRX::Model& model, const RetargetModel& retarget,
               std::unordered_set<int32_t>& skip) {
  for (int32_t s = 0; s < retarget.NumNodes(); ++s) {
    const StructureNode& info = NodeInfo(retarget, s);
    const NodeMapEntry& node = retarget.Node(s);
    if (info.type != StructureNodeType::kFree || !node.object.IsValid()) continue;
    if (node.override_source_index >= 0 || info.parent <= 0) continue;
    const NodeMapEntry& parent = retarget.Node(info.parent);
    const SpineWalk walk = WalkToParent(node.object, parent.object, model);
    if (!walk.reached) {
      skip.insert(s);
      continue;
    }
    if (walk.steps < 2) continue;  // a direct child glues like any other node

    GlueSpineEntry entry;
    entry.anchor_name = ToNarrow(parent.object.GetName());
    entry.base_name = ToNarrow(walk.base.GetName());
    entry.end_name = ToNarrow(node.object.GetName());
    entry.goal_name = info.name;
    entry.anchor_axis = parent.align;
    entry.anchor_roll = parent.roll;
    entry.axis = node.align;
    entry.roll_axis = node.roll;
    entry.anchor_tangent = parent.align * (kSpineTangentFactor * node.length);
    entry.goal_tangent = node.align * (-kSpineTangentFactor * node.length);
    glue.spines.push_back(std::move(entry));
    skip.insert(s);
  }
}

bool RotxIsExpression(const KRX::X3DObject& object) {
  const KRX::Parameter rotx = object.GetKinematics().GetLocal().GetParameter(L"rotx");
  return rotx.IsValid() && rotx.GetSourceKind() == KRX::AnimationSource::Expression;
}

// The channels a node's object can take without fighting what already drives it.
GlueMocapType MocapType(const RetargetModel& retarget, int32_t k) {
  const StructureNode& info = NodeInfo(retarget, k);
  const KRX::X3DObject& object = retarget.Node(k).object;
  if (info.type == StructureNodeType::kChild) return GlueMocapType::kRotationOnly;
  if (RotxIsExpression(object)) return GlueMocapType::kPositionOnly;
  // Parented as in the structure: the object follows its parent and only turns.
  if (info.parent >= 0) {
    const KRX::X3DObject& parent = retarget.Node(info.parent).object;
    if (parent.IsValid() && parent == KRX::X3DObject(object.GetParent())) {
      return GlueMocapType::kRotationOnly;
    }
  }
  const KRX::Constraint constraint = FindPositionOrientationConstraint(object);
  if (!constraint.IsValid()) return GlueMocapType::kPositionAndRotation;
  return constraint.GetType() == L"Position Cns" ? GlueMocapType::kRotationOnly
                                                 : GlueMocapType::kPositionOnly;
}

void AddMocaps(GlueMap& glue, const RetargetModel& retarget,
               const std::unordered_set<int32_t>& skip) {
  for (int32_t k = 0; k < retarget.NumNodes(); ++k) {
    const KRX::X3DObject& object = retarget.Node(k).object;
    if (skip.contains(k) || !object.IsValid()) continue;
    GlueMocapEntry entry;
    entry.rig_node_name = ToNarrow(object.GetName());
    entry.tag_obj = NodeInfo(retarget, k).name;
    entry.type = MocapType(retarget, k);
    glue.mocaps.push_back(std::move(entry));
  }
}

}  // namespace

std::unique_ptr<GlueMap> BuildGlueMap(const KRX::Model& model, RetargetModel& retarget) {
  auto glue = std::make_unique<GlueMap>();
  glue->retarget_model = &retarget;
  if (!retarget.structure) return glue;
  std::unordered_set<int32_t> skip;
  AddPlanes(*glue, retarget, skip);
  AddSpines(*glue, model, retarget, skip);
  AddMocaps(*glue, retarget, skip);
  FinishGlueMap(*glue, model, retarget);
  return glue;
}

}  // namespace kavor

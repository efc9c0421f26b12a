// ResolveGlueMap and FinishGlueMap: binding a glue map to the scene and measuring the
// side of each limb that its up-vector object lies on.

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/glue_map.h"
#include "kavor/maps/limb_bend.h"

namespace kavor {

namespace {

using KRX::MATH::CRotation;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

// The chain's roll is read with this factor, shorter than a full-precision degree. Stored
// signs were measured with it, so keep it as it is.
constexpr double kRollDegreesToRadians = 0.017453293;

// The object of that name anywhere below the model; an empty name names nothing (the
// host's search would take an empty name for "any object").
KRX::X3DObject FindRigObject(const KRX::Model& model, const std::string& name) {
  if (name.empty() || !model.IsValid()) return KRX::X3DObject();
  return model.FindChild(ToWide(name));
}

KRX::MATH::CTransformation GlobalOf(const KRX::X3DObject& object) {
  return object.GetKinematics().GetGlobal().GetTransform(kCurrentTime);
}

int32_t FindPlaneIndex(const ModelStructure& structure, const std::string& name) {
  for (int32_t i = 0; i < structure.NumPlanes(); ++i) {
    if (structure.planes[static_cast<size_t>(i)].name == name) return i;
  }
  return -1;
}

// The objects from `base` down to `end`, collected by climbing from `end`. Empty, with a
// note, when `base` is not above `end`.
std::vector<KRX::X3DObject> CollectSpineObjects(const KRX::X3DObject& base,
                                                const KRX::X3DObject& end) {
  std::vector<KRX::X3DObject> objects;
  KRX::X3DObject current = end;
  while (base.IsValid() && current.IsValid()) {
    objects.push_back(current);
    if (current == base) return std::vector<KRX::X3DObject>(objects.rbegin(), objects.rend());
    current = KRX::X3DObject(current.GetParent());
  }
  LogInfo(L"Bad nodes for the spine constraint.");
  return {};
}

void ResolveMocaps(GlueMap& glue, const KRX::Model& model, const ModelStructure& structure) {
  for (GlueMocapEntry& entry : glue.mocaps) {
    entry.object = FindRigObject(model, entry.rig_node_name);
    if (entry.object.IsValid()) entry.neutral_pose = NeutralPose(entry.object);
    entry.node_index = FindNodeIndex(structure, entry.tag_obj);
    if (entry.node_index >= 0) entry.structure_node = entry.node_index;
  }
}

void ResolvePlanes(GlueMap& glue, const KRX::Model& model, const RetargetModel& retarget) {
  for (GluePlaneEntry& entry : glue.planes) {
    entry.plane_index = FindPlaneIndex(*retarget.structure, entry.plane_name);
    entry.object = FindRigObject(model, entry.rig_node_name);
    if (entry.plane_index < 0) continue;
    const StructurePlane& plane =
        retarget.structure->planes[static_cast<size_t>(entry.plane_index)];
    entry.up_length = retarget.Node(plane.span).length;
    entry.roll_angle = 0.0;
    const KRX::X3DObject& anchor = retarget.Node(plane.anchor_index).object;
    // Only a chain bone has a joint to read the roll from.
    if (!anchor.IsValid() || !anchor.IsA(KRX::ClassID::ChainBone)) continue;
    const double roll_deg =
        RunCommand(L"GetValue", {anchor.GetFullName() + L".joint.roll"}).GetDouble();
    const bool mirrored = GlobalOf(anchor).GetScaling().GetX() < 0.0;
    entry.roll_angle = roll_deg * (mirrored ? kRollDegreesToRadians : -kRollDegreesToRadians);
  }
}

void ResolveSpines(GlueMap& glue, const KRX::Model& model, const ModelStructure& structure) {
  for (GlueSpineEntry& entry : glue.spines) {
    entry.anchor_object = FindRigObject(model, entry.anchor_name);
    entry.base_object = FindRigObject(model, entry.base_name);
    entry.end_object = FindRigObject(model, entry.end_name);
    entry.goal_node = FindNodeIndex(structure, entry.goal_name);

    auto solver = std::make_unique<SpineSolverState>();
    solver->objects = CollectSpineObjects(entry.base_object, entry.end_object);
    solver->anchor_axis = entry.anchor_axis;
    solver->anchor_roll = entry.anchor_roll;
    solver->axis = entry.axis;
    solver->roll_axis = entry.roll_axis;
    entry.solver = std::move(solver);

    entry.nodes.clear();
    for (const KRX::X3DObject& object : entry.solver->objects) {
      entry.nodes.push_back({object, NeutralPose(object)});
      // A bone inside a spine is placed by the spine, not by its chain's solver.
      if (object.IsA(KRX::ClassID::ChainBone)) {
        RunCommand(L"SetValue", {object.GetFullName() + L".joint.chntype", 2});
      }
    }
  }
}

// +1 when the up-vector object lies on the side of the limb that its knee or elbow bends
// towards (turned by the chain's roll), -1 on the other side.
int32_t MeasurePlaneSign(const GluePlaneEntry& entry, const KRX::X3DObject& anchor,
                         const KRX::X3DObject& middle, const KRX::X3DObject& end) {
  const CTransformation anchor_global = GlobalOf(anchor);
  // Pull the end in a little so that even a straight limb bends, and see where the
  // middle joint goes.
  const BentLimb bent = BendLimb(anchor, middle, end);
  const CVector3 a_pos = bent.anchor;
  const CVector3 a = bent.end - a_pos;
  const CVector3 b = bent.middle - a_pos;
  // In the limb's plane, across the anchor-to-end line, towards the middle joint.
  CVector3 w = a.Cross(b).Cross(a);
  // The chain turns its bend side by its roll, clockwise looking down the anchor-to-end
  // line; for a chain that is not mirrored roll_angle is that turn. Turning the measured
  // side back by it gives the side in the chain's own plane, so rolling a chain keeps its
  // sign.
  double theta = entry.roll_angle;
  if (anchor_global.GetScaling().GetX() >= 0.0) theta = -theta;
  w = CRotation::FromAxisAngle(a, theta).GetQuaternion().Rotate(w);
  // A limb that stays straight has no bend side: keep the default.
  if (!w.NormalizeInPlace()) return 1;
  const CVector3 up = GlobalOf(entry.object).GetTranslation() - a_pos;
  return up.Dot(w) >= 0.0 ? 1 : -1;
}

}  // namespace

void ResolveGlueMap(GlueMap& glue, const KRX::Model& model, RetargetModel& retarget) {
  glue.retarget_model = &retarget;
  if (!retarget.structure) return;
  ResolveMocaps(glue, model, *retarget.structure);
  ResolvePlanes(glue, model, retarget);
  ResolveSpines(glue, model, *retarget.structure);
}

void FinishGlueMap(GlueMap& glue, const KRX::Model& model, RetargetModel& retarget) {
  ResolveGlueMap(glue, model, retarget);
  if (!retarget.structure) return;
  for (GluePlaneEntry& entry : glue.planes) {
    if (entry.plane_index < 0 || !entry.object.IsValid()) continue;
    const StructurePlane& plane =
        retarget.structure->planes[static_cast<size_t>(entry.plane_index)];
    const KRX::X3DObject& anchor = retarget.Node(plane.anchor_index).object;
    const KRX::X3DObject& middle = retarget.Node(plane.mid).object;
    const KRX::X3DObject& end = retarget.Node(plane.span).object;
    if (!anchor.IsValid() || !middle.IsValid() || !end.IsValid()) continue;
    entry.sign = MeasurePlaneSign(entry, anchor, middle, end);
    entry.rest_transform =
        KRX::MATH::MapWorldPoseToObjectSpace(GlobalOf(anchor), GlobalOf(entry.object));
  }
}

}  // namespace kavor

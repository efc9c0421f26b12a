#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/frame_rotation.h"
#include "kavor/maps/glue_map.h"
#include "kavor/maps/model_map.h"
#include "kavor/operators/adjust_property.h"
#include "kavor/operators/retarget_solve.h"
#include "kavor/operators/rotation_offset.h"
#include "kavor/structure/structure_property.h"

namespace kavor {

namespace {

using KRX::MATH::CRotation;
using KRX::MATH::CVector3;

// The model below the scene root that carries `blob` under the blob's own name.
KRX::Model FindOwnerModel(const KRX::UserDataBlob& blob) {
  const KRX::CString name = blob.GetName();
  const KRX::Model root = KRX::Application().GetActiveSceneRoot();
  for (const KRX::X3DObject& object : root.FindChildren(L"", L"", true)) {
    if (!object.IsA(KRX::ClassID::Model)) continue;
    KRX::Property property;
    if (FindPropertyByName(object, name, &property) && property.GetRef() == blob.GetRef()) {
      return KRX::Model(object.GetRef());
    }
  }
  return KRX::Model();
}

void WriteSlot(KRX::UserDataBlob blob, uint64_t value) {
  uint8_t bytes[8];
  std::memcpy(bytes, &value, sizeof bytes);
  blob.PutRange(kLiveSlotOffset, bytes, sizeof bytes);
}

bool InChainAboveEnd(const ModelStructure& structure, int32_t node) {
  for (const StructurePlane& plane : structure.planes) {
    for (size_t k = 1; k < plane.chain.size(); ++k) {
      if (plane.chain[k] == node) return true;
    }
  }
  return false;
}

double ReadDouble(const KRX::Parameter& parameter, double time, double fallback) {
  return parameter.IsValid() ? parameter.GetValue(time).GetDouble() : fallback;
}

void ResolveAdjustments(RetargetOpContext& context) {
  const ModelStructure& structure = *context.structure;
  context.speed_parameter = AdjustmentParameter(context, "Speed");
  context.offset_feet = AdjustmentParameter(context, "offsetFeet");
  context.hip_x = AdjustmentParameter(context, "hipX");
  context.hip_y = AdjustmentParameter(context, "hipY");
  context.hip_z = AdjustmentParameter(context, "hipZ");
  context.plane_adjustments.assign(structure.planes.size(), {});
  for (size_t p = 0; p < structure.planes.size(); ++p) {
    const int32_t span = structure.planes[p].span;
    if (span < 0 || span >= structure.NumNodes()) continue;
    const std::string& end = structure.nodes[span].name;
    context.plane_adjustments[p] = {AdjustmentParameter(context, end + "Stretch"),
                                    AdjustmentParameter(context, end + "Roll"),
                                    AdjustmentParameter(context, end + "X"), AdjustmentParameter(context, end + "Y"),
                                    AdjustmentParameter(context, end + "Z")};
  }
}

// Structure parents (tag reading may have detached untagged nodes), the plane ending at
// each node, and per semi-free entry its branch and the limbs hanging from it.
void PrecomputeTopology(RetargetOpContext& context) {
  const ModelStructure& structure = *context.structure;
  const int32_t n = structure.NumNodes();
  context.node_parent.assign(n, -1);
  for (int32_t i = 0; i < n; ++i) {
    const int32_t parent = structure.nodes[i].parent;
    context.node_parent[i] = (parent >= 0 && parent < i) ? parent : -1;
  }
  // A free node whose rig object the glue only turns cannot move away from its parent: the
  // solve keeps the offset the rig has (read from the pose the model is bound in), or the
  // nodes the glue does place (limb ends) would land where the rig's chain cannot follow.
  context.is_rigid.assign(n, false);
  context.rigid_offset.assign(n, CVector3());
  if (context.glue && context.model) {
    RetargetModel& model = *context.model;
    for (const GlueMocapEntry& entry : context.glue->mocaps) {
      const int32_t k = entry.node_index;
      const int32_t parent = k > 0 && k < n ? context.node_parent[k] : -1;
      if (parent < 0 || k >= model.NumNodes() ||
          structure.nodes[k].type != StructureNodeType::kFree ||
          entry.type != GlueMocapType::kRotationOnly) {
        continue;
      }
      context.is_rigid[k] = true;
      context.rigid_offset[k] = KRX::MATH::MapWorldPoseToObjectSpace(model.Node(parent).global_pose,
                                                                     model.Node(k).global_pose)
                                    .GetTranslation();
    }
  }
  context.plane_of_end_node.assign(n, -1);
  for (int32_t p = structure.NumPlanes() - 1; p >= 0; --p) {
    const int32_t span = structure.planes[p].span;
    if (span >= 0 && span < n) context.plane_of_end_node[span] = p;
  }
  context.semi_free_branches.clear();
  context.semi_free_planes.clear();
  for (const SemiFreeEntry& entry : context.semi_free) {
    std::vector<bool> in_branch(n, false);
    std::vector<int32_t> branch;
    for (int32_t i = 0; i < n; ++i) {
      in_branch[i] =
          i == entry.node || (context.node_parent[i] >= 0 && in_branch[context.node_parent[i]]);
      if (in_branch[i]) branch.push_back(i);
    }
    std::vector<int32_t> planes;
    for (int32_t p = 0; p < structure.NumPlanes(); ++p) {
      const int32_t base = structure.planes[p].anchor_index;
      if (base >= 0 && base < n && in_branch[base]) planes.push_back(p);
    }
    context.semi_free_branches.push_back(std::move(branch));
    context.semi_free_planes.push_back(std::move(planes));
  }
}

// The rest rotation of every node (its tag frame turned onto the structure's), expressed in
// its parent's rest rotation: what "Reduce" blends a node's local rotation towards.
void ComputeRestLocalRotations(RetargetOpContext& context) {
  const ModelStructure& structure = *context.structure;
  RetargetModel& model = *context.model;
  const int32_t n = structure.NumNodes();
  std::vector<CRotation> rest(n);
  context.rest_local_rotations.assign(n, KRX::MATH::CQuaternion());
  for (int32_t i = 0; i < n; ++i) {
    const NodeMapEntry& node = model.Node(i);
    rest[i] =
        FrameRotation(node.align, node.roll, structure.nodes[i].align, structure.nodes[i].roll);
    const int32_t parent = context.node_parent[i];
    const CRotation local = parent < 0 ? rest[i] : CRotation::Mul(rest[i], rest[parent].Inverse());
    context.rest_local_rotations[i] = local.GetQuaternion();
  }
}

// The limb's joints are rigid, so the chain's length in the pose it is bound in is its
// reach. (The end node's map length is measured back to its structure parent, which for
// some structures lies above the limb's base and would let the end go out of reach.)
void ComputePlaneReach(RetargetOpContext& context) {
  const ModelStructure& structure = *context.structure;
  RetargetModel& model = *context.model;
  context.plane_reach.assign(structure.planes.size(), 0.0);
  for (size_t p = 0; p < structure.planes.size(); ++p) {
    const StructurePlane& plane = structure.planes[p];
    double reach = 0.0;
    for (size_t k = 0; k + 1 < plane.chain.size(); ++k) {
      reach +=
          (model.NodePosition(plane.chain[k]) - model.NodePosition(plane.chain[k + 1])).GetLength();
    }
    const double map_length = model.Node(plane.span).length;
    context.plane_reach[p] =
        reach > 0.0 && (map_length <= 0.0 || reach < map_length) ? reach : map_length;
  }
}

void BuildComboItems(RetargetOpContext& context) {
  GlueMap& glue = *context.glue;
  RetargetModel& model = *context.model;
  const ModelStructure& structure = *context.structure;
  context.global_frame_items = {{"Global Frame", 0}};
  context.rotation_node_items.clear();
  for (size_t m = 0; m < glue.mocaps.size(); ++m) {
    const GlueMocapEntry& entry = glue.mocaps[m];
    if (!entry.object.IsValid()) continue;
    const std::string name = ToNarrow(entry.object.GetName());
    context.global_frame_items.push_back(
        {name, static_cast<int32_t>(context.global_frame_items.size())});
    const int32_t node = entry.node_index;
    if (node < 0 || node >= model.NumNodes() || model.Node(node).source_index < 0) continue;
    if (entry.type == GlueMocapType::kPositionOnly || InChainAboveEnd(structure, node)) continue;
    context.rotation_node_items.push_back(
        {name, static_cast<int32_t>(context.rotation_node_items.size())});
    model.Node(node).rotation_list_index = static_cast<int32_t>(m);
  }
  context.rotation_offsets.assign(glue.mocaps.size(), {});
  for (size_t m = 0; m < glue.mocaps.size(); ++m) {
    GlueMocapEntry& entry = glue.mocaps[m];
    KRX::Property offsets;
    entry.has_rotation_offset = entry.object.IsValid() &&
                                entry.type != GlueMocapType::kPositionOnly &&
                                FindPropertyByName(entry.object, kRotationOffsetProperty, &offsets);
    entry.rotation_offset_page =
        entry.has_rotation_offset ? KRX::CustomProperty(offsets.GetRef()) : KRX::CustomProperty();
    if (entry.has_rotation_offset) {
      context.rotation_offsets[m] = ResolveRotationOffset(entry.rotation_offset_page);
    }
  }
}

// Every structure plane's end node takes its foot flag from its plane's adjustment; planes
// without a rig object have no adjustment and keep the structure's flag.
void ReadFootFlags(RetargetOpContext& context, double time) {
  ModelStructure& structure = *context.structure;
  for (int32_t k = 0; k < structure.NumPlanes(); ++k) {
    const KRX::Parameter name = AdjustmentParameter(context, "name" + std::to_string(k));
    if (!name.IsValid()) continue;
    const KRX::Parameter foot =
        AdjustmentParameter(context, ToNarrow(name.GetValue(time).GetString()) + "Foot");
    const int32_t span = structure.planes[k].span;
    if (foot.IsValid() && span >= 0 && span < structure.NumNodes()) {
      structure.nodes[span].friction = foot.GetValue(time).GetBool();
    }
  }
}

void ReadSemiFree(RetargetOpContext& context, double time) {
  const ModelStructure& structure = *context.structure;
  context.semi_free.clear();
  context.semi_free_adjustments.clear();
  const KRX::Parameter count = AdjustmentParameter(context, "NumSemiFree");
  const int32_t n = count.IsValid() ? count.GetValue(time).GetInt() : 0;
  for (int32_t i = 0; i < n && i < structure.NumNodes(); ++i) {
    const KRX::Parameter name_parameter = AdjustmentParameter(context, "semiName" + std::to_string(i));
    if (!name_parameter.IsValid()) continue;
    const std::string name = ToNarrow(name_parameter.GetValue(time).GetString());
    const int32_t node = FindNodeIndex(structure, name);
    if (node < 0) continue;
    SemiFreeEntry entry;
    entry.name = name;
    entry.node = node;
    entry.x = ReadDouble(AdjustmentParameter(context, name + "X"), time, 0.0);
    entry.y = ReadDouble(AdjustmentParameter(context, name + "Y"), time, 0.0);
    entry.z = ReadDouble(AdjustmentParameter(context, name + "Z"), time, 0.0);
    const KRX::Parameter children = AdjustmentParameter(context, name + "offsetChildren");
    entry.offset_children = !children.IsValid() || children.GetValue(time).GetBool();
    entry.anchor_tangent_length =
        ReadDouble(AdjustmentParameter(context, name + "AnchorTangentLength"), time, 1.0);
    entry.goal_tangent_length =
        ReadDouble(AdjustmentParameter(context, name + "GoalTangentLength"), time, 1.0);
    context.semi_free.push_back(entry);
    context.semi_free_adjustments.push_back(
        {AdjustmentParameter(context, name + "X"), AdjustmentParameter(context, name + "Y"),
         AdjustmentParameter(context, name + "Z"), AdjustmentParameter(context, name + "RX"),
         AdjustmentParameter(context, name + "RY"), AdjustmentParameter(context, name + "RZ")});
  }
  // Spines find their semi-free entry by the spine node's name: the two lists need not
  // line up.
  context.spines.assign(context.glue->spines.size(), {});
  context.spine_semi_free.assign(context.glue->spines.size(), -1);
  for (size_t s = 0; s < context.glue->spines.size(); ++s) {
    for (size_t e = 0; e < context.semi_free.size(); ++e) {
      if (context.semi_free[e].node == context.glue->spines[s].goal_node) {
        context.spine_semi_free[s] = static_cast<int32_t>(e);
      }
    }
  }
}

}  // namespace

bool RefreshBlobView(RetargetOpContext& context) {
  const std::vector<uint8_t>* bytes = context.blob.GetBytes();
  if (bytes == nullptr) return false;
  if (bytes->data() == context.bytes && bytes->size() == context.byte_count) return true;
  std::optional<MotionBlobLayout> layout =
      DecodeMotionBlob(*bytes, context.structure->NumNodes(), context.structure->NumPlanes());
  if (!layout || layout->frame_count != context.frame_count) return false;
  context.layout = std::move(*layout);
  context.bytes = bytes->data();
  context.byte_count = bytes->size();
  return true;
}

bool BindRetargetOp(RetargetOpContext& context, KRX::UserDataBlob blob, double time) {
  const std::vector<uint8_t>* bytes = blob.GetBytes();
  if (bytes == nullptr) return false;
  if (IsOldMotionBlobLayout(*bytes)) {
    std::optional<std::vector<uint8_t>> upgraded = UpgradeOldMotionBlob(*bytes);
    if (!upgraded) return false;
    blob.PutValue(upgraded->data(), upgraded->size());
    bytes = blob.GetBytes();
    if (bytes == nullptr) return false;
  }
  if (ReadLiveSlot(*bytes) != 0) WriteSlot(blob, 0);

  const KRX::Model owner = FindOwnerModel(blob);
  if (!owner.IsValid()) return false;
  std::optional<ModelStructure> structure = ReadStructureProperty(owner);
  if (!structure) return false;
  auto kept_structure = std::make_unique<ModelStructure>(std::move(*structure));
  auto model = std::make_unique<RetargetModel>(owner, kept_structure.get());
  ReadModelMap(*model);
  if (!model->valid) return false;
  std::unique_ptr<GlueMap> glue = ReadGlueMap(owner);
  if (!glue) return false;
  ResolveGlueMap(*glue, owner, *model);

  std::optional<MotionBlobLayout> layout =
      DecodeMotionBlob(*bytes, kept_structure->NumNodes(), kept_structure->NumPlanes());
  if (!layout) {
    LogWarning(L"The retargeted motion on " + owner.GetFullName() +
               L" does not fit its rig (re-tagged since, or damaged): it is not played.");
    return false;
  }
  context.blob = blob;
  context.structure = std::move(kept_structure);
  context.model = std::move(model);
  context.glue = std::move(glue);
  context.glue->retarget_model = context.model.get();
  context.layout = std::move(*layout);
  context.frame_count = context.layout.frame_count;
  context.insertion_frame = context.layout.insertion_frame;
  context.scale = context.layout.scale;
  KRX::Property adjust;
  if (FindPropertyByName(owner, kAdjustProperty, &adjust)) {
    context.adjust_property = KRX::CustomProperty(adjust.GetRef());
  }
  // The slot is written in place: the byte view stays where it is.
  WriteSlot(blob, reinterpret_cast<uintptr_t>(&context));
  bytes = blob.GetBytes();
  context.bytes = bytes->data();
  context.byte_count = bytes->size();
  AddLiveContext(&context);
  context.bound = true;
  InitialiseBinding(context, time);
  return true;
}

namespace {

// The structure node of the k-th glue mocap entry with a rig object (k from 1); -1 when
// there is none.
int32_t ClampTargetNode(const RetargetOpContext& context, int32_t k) {
  if (k < 1 || !context.glue) return -1;
  int32_t seen = 0;
  for (const GlueMocapEntry& entry : context.glue->mocaps) {
    if (!entry.object.IsValid() || ++seen < k) continue;
    const int32_t node = entry.node_index;
    return node >= 0 && node < context.structure->NumNodes() ? node : -1;
  }
  return -1;
}

// The motion frame that plays at scene time `time`, whole, as keys are turned into frames.
int32_t MotionFrameAt(const RetargetOpContext& context, double time) {
  const double speed = context.speed > 0.0 ? context.speed : 1.0;
  const double s = (time - context.insertion_frame) * speed + 0.1;
  const double last = std::max(context.frame_count - 1, 0);
  if (!(s > 0.0)) return 0;
  return static_cast<int32_t>(std::min(s, last));
}

// The start frame of a key at `key_time`: keys before the insertion frame start at motion
// frame 0, keys past the motion's end never start.
int32_t KeyStart(const RetargetOpContext& context, double key_time) {
  const double speed = context.speed > 0.0 ? context.speed : 1.0;
  const double s = (key_time - context.insertion_frame) * speed + 0.1;
  if (!(s > 0.0)) return 0;
  if (!(s < context.frame_count)) return context.frame_count;
  return static_cast<int32_t>(s);
}

}  // namespace

void BuildClampRecords(RetargetOpContext& context, int32_t plane, double time) {
  if (!context.structure || plane < 0 || plane >= context.structure->NumPlanes()) return;
  context.plane_clamps.resize(context.structure->planes.size());
  std::vector<ClampRecord>& records = context.plane_clamps[plane];
  records.clear();
  const int32_t span = context.structure->planes[plane].span;
  if (span < 0 || span >= context.structure->NumNodes() || !context.adjust_property.IsValid()) {
    return;
  }
  const std::string& end = context.structure->nodes[span].name;
  const KRX::Parameter clamp = AdjustmentParameter(context, end + "Clamp");
  if (!clamp.IsValid()) return;
  const KRX::Parameter target = AdjustmentParameter(context, end + "Frame");
  const KRX::Parameter blend_back = AdjustmentParameter(context, end + "BlendBack");
  // (key time, plant) pairs: the keys of an animated "Clamp", or one plant from the
  // motion's first frame when it is on and not animated.
  std::vector<std::pair<double, bool>> keys;
  const KRX::FCurve curve = clamp.GetFCurve();
  const bool animated = curve.IsValid() && curve.GetNumKeys() > 0;
  if (animated) {
    for (const KRX::FCurveKeyData& key : curve.GetKeys())
      keys.emplace_back(key.time, key.value > 0.5);
  } else if (clamp.GetValue(time).GetBool()) {
    keys.emplace_back(context.insertion_frame, true);
  }
  for (const auto& [key_time, plant] : keys) {
    ClampRecord record;
    record.start = KeyStart(context, key_time);
    record.clamp = plant;
    if (!plant) {
      record.blend_back =
          blend_back.IsValid() ? std::max(blend_back.GetValue(key_time).GetInt(), 0) : 0;
      records.push_back(record);
      continue;
    }
    // A keyed plant holds the end where the motion puts it on the key's frame; an
    // unanimated one where it is at `time`, the frame the user sees when switching it on.
    if (animated) {
      SolveBeforeClamps(context, record.start, key_time);
    } else {
      SolveBeforeClamps(context, MotionFrameAt(context, time), time);
    }
    const CVector3 world = context.model->NodePosition(span);
    record.target_index =
        target.IsValid() ? target.GetValue(animated ? key_time : time).GetInt() : 0;
    record.target_node = ClampTargetNode(context, record.target_index);
    if (record.target_node >= 0) {
      record.position = KRX::MATH::MapWorldPositionToObjectSpace(
          context.model->Node(record.target_node).global_pose, world);
    } else {
      record.target_index = 0;
      record.position = world;
    }
    records.push_back(record);
  }
}

void InitialiseBinding(RetargetOpContext& context, double time) {
  RetargetModel& model = *context.model;
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    model.Node(i).source_index = ReadSourceIndex(context.bytes, context.layout, i);
    model.Node(i).rotation_list_index = -1;
  }
  RepointOrphanMocapEntries(*context.glue, model);
  ResolveAdjustments(context);
  context.speed = ReadDouble(context.speed_parameter, time, 1.0);
  context.previous_speed = context.speed;
  BuildComboItems(context);
  ReadFootFlags(context, time);
  ReadSemiFree(context, time);
  PrecomputeTopology(context);
  ComputeRestLocalRotations(context);
  ComputePlaneReach(context);
  BuildStrideData(context, time);
  context.plane_clamps.assign(context.structure->planes.size(), {});
  for (int32_t p = 0; p < context.structure->NumPlanes(); ++p) BuildClampRecords(context, p, time);
}

KRX::Parameter AdjustmentParameter(const RetargetOpContext& context, const std::string& name) {
  return context.adjust_property.GetParameter(ToWide(name));
}

}  // namespace kavor

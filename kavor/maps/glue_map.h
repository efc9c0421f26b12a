// GlueMap: how the retarget operators attach to one tagged rig.
//
// Three lists: the rig objects that take motion directly and which channels they take (the
// mocap entries), the up-vector objects that steer the rig's IK limb planes (the plane
// entries), and the runs of objects between two tagged nodes that are bent along a curve
// (the spine entries). The map is derived from the rig's RetargetModel and its own set-up
// (IK chains, up-vector references, constraints, expressions) when the tags are applied,
// kept on the model in the custom property "ZRKGlue", and read back and resolved against
// the scene whenever operators are bound.
//
// Names are 8-bit text (one byte per character of the host name). Everything found in the
// scene (objects, indices, neutral poses, spine nodes) is filled by ResolveGlueMap; a
// map read from a model holds only what the property stores until it is resolved.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kavor/maps/retarget_model.h"
#include "krx/krx.h"

namespace kavor {

inline constexpr const wchar_t* kGlueProperty = L"ZRKGlue";
// The layout version of "ZRKGlue"; any other version is refused on reading.
inline constexpr int32_t kGlueMapVersion = 4;

// Which channels a mocap entry takes. Stored in the "Type" column: be careful when
// changing values here as they are serialized.
enum class GlueMocapType : int32_t {
  kPositionAndRotation = 0,
  kPositionOnly = 1,
  kRotationOnly = 2,
};

// A rig object that receives motion directly.
struct GlueMocapEntry {
  std::string rig_node_name;  // stored
  KRX::X3DObject object;
  KRX::MATH::CTransformation neutral_pose;
  std::string tag_obj;          // the structure node the object plays; stored
  int32_t node_index = -1;      // index of the node named tag_obj; -1 when none
  int32_t structure_node = -1;  // the same index when found
  GlueMocapType type = GlueMocapType::kPositionAndRotation;  // stored
  KRX::MATH::CRotation fixed_rotation;       // identity unless the operator binding re-points it
  bool has_rotation_offset = false;          // set at operator binding
  KRX::CustomProperty rotation_offset_page;  // found at operator binding
};

// The up-vector object of a limb plane.
struct GluePlaneEntry {
  std::string rig_node_name;  // the up-vector object; stored
  std::string plane_name;     // the structure plane's name (its middle node); stored
  int32_t plane_index = -1;
  KRX::X3DObject object;
  double roll_angle = 0.0;  // the IK chain's roll, radians, sign as the plane sign uses it
  double up_length = 0.0;   // rest length of the plane's end node; stored
  int32_t sign = 1;         // +1 or -1: the side of the chain the up-vector lies on; stored
  // The up-vector object's global transform in the IK anchor object's global frame. Only
  // the translation is stored; a map read back has the identity rotation.
  KRX::MATH::CTransformation rest_transform;
};

// One object of a spine with its neutral pose.
struct GlueSpineNode {
  KRX::X3DObject object;
  KRX::MATH::CTransformation neutral_pose;
};

// What the spine solve starts from: the objects from the base to the end object and the
// anchor's and goal's tag directions. `objects` is empty when the base object is not an
// ancestor of the end object.
struct SpineSolverState {
  std::vector<KRX::X3DObject> objects;  // base first, end last
  KRX::MATH::CVector3 anchor_axis;
  KRX::MATH::CVector3 anchor_roll;
  KRX::MATH::CVector3 axis;
  KRX::MATH::CVector3 roll_axis;
};

// A run of objects from below the anchor node's object to the spine node's object.
struct GlueSpineEntry {
  std::string anchor_name;  // object of the spine node's structure parent; stored
  std::string base_name;    // first object below the anchor towards the end; stored
  std::string end_name;     // object of the spine node; stored
  std::string goal_name;    // structure name of the spine node; stored
  int32_t goal_node = -1;
  KRX::X3DObject anchor_object;
  KRX::X3DObject base_object;
  KRX::X3DObject end_object;
  std::vector<GlueSpineNode> nodes;  // base to end
  // Tag directions in the objects' local frames and the curve's end tangents; stored.
  KRX::MATH::CVector3 anchor_axis;
  KRX::MATH::CVector3 anchor_roll;
  KRX::MATH::CVector3 axis;
  KRX::MATH::CVector3 roll_axis;
  KRX::MATH::CVector3 anchor_tangent;        // 0.35 x spine node length x anchor_axis
  KRX::MATH::CVector3 goal_tangent;          // -0.35 x spine node length x axis
  std::unique_ptr<SpineSolverState> solver;  // built by ResolveGlueMap

  int32_t Count() const { return static_cast<int32_t>(nodes.size()); }
};

struct GlueMap {
  std::vector<GlueMocapEntry> mocaps;
  std::vector<GluePlaneEntry> planes;
  std::vector<GlueSpineEntry> spines;
  RetargetModel* retarget_model = nullptr;  // not owned; set by building and resolving
};

// Builds the map of a rig whose RetargetModel holds its rest data, then resolves and
// finishes it. Bends each limb with an up-vector slightly while measuring and puts it back.
std::unique_ptr<GlueMap> BuildGlueMap(const KRX::Model& model, RetargetModel& retarget);

// Replaces the model's "ZRKGlue" with the map.
void WriteGlueMap(const GlueMap& glue, const KRX::Model& model);

// The map stored on the model, not resolved yet. Null, with a note in the log, when the
// model has no "ZRKGlue", when it has another version, or when its tables do not hold what
// its counts announce.
std::unique_ptr<GlueMap> ReadGlueMap(const KRX::Model& model);

// Finds the entries' objects below the model and their structure indices, reads the
// chains' roll angles and the limbs' up lengths, and collects every spine's objects.
// Spine objects that are chain bones are switched to driven chains.
void ResolveGlueMap(GlueMap& glue, const KRX::Model& model, RetargetModel& retarget);

// ResolveGlueMap, then each plane's sign and rest transform from the scene.
void FinishGlueMap(GlueMap& glue, const KRX::Model& model, RetargetModel& retarget);

// Deletes the model's "ZRKGlue" when it has one.
void DeleteGlueMap(const KRX::Model& model);

// Hands the motion of a limb's end node to an untagged-on-the-source node standing at the
// same place: each mocap entry whose node has no source is re-pointed to its structure
// parent when that parent has a source, ends a limb plane and its object lies within
// 0.0001 leg lengths of the entry's object; the entry keeps its own orientation through
// `fixed_rotation`, the turn from the node's tag frame to the parent's.
void RepointOrphanMocapEntries(GlueMap& glue, const RetargetModel& target);

}  // namespace kavor

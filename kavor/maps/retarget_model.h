// RetargetModel: one character bound to its structure. For every structure node it holds
// the rig object (or capture joint) that plays it with the tag data, the rest data and the
// pose of the current frame; for every structure plane the data of the limb plane.
//
// It is the working object of every retarget step: tagging builds one to compute the rest
// data it stores on the model, a retarget builds one for the source and one for the
// target, a motion file is read into one, the retarget operators rebuild one for their
// target. The structure it points to is not owned and must outlive it; reading the tags
// may change the structure's parent links (untagged nodes leave the hierarchy).
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kavor/structure/model_structure.h"
#include "krx/krx.h"

namespace kavor {

struct MocapSkeleton;  // a capture skeleton (BVH or C3D); defined by the capture readers
struct MocapJoint;

// The extraction object of a node: the object its motion is read from when that differs
// from the control object.
struct ExtractionEntry {
  KRX::MATH::CVector3 align;  // in the extraction object's local frame
  KRX::MATH::CVector3 roll;
  KRX::X3DObject object;
  // Rotation only: the inverse of the extraction object's rest rotation.
  KRX::MATH::CTransformation transform;
};

// Channel bits of a sub-control: bit k for decompose slot k (DecompSlot).
struct SubControlEntry {
  KRX::X3DObject object;
  uint32_t channels = 0;
  std::string name;         // the sub-control name
  int32_t node_index = -1;  // the decomposed structure node
};

struct NodeMapEntry {
  KRX::X3DObject object;                   // invalid when the node is untagged
  MocapJoint* joint = nullptr;             // for a capture source; not owned
  double length = 0.0;                     // rest length of the node's bone
  KRX::MATH::CTransformation global_pose;  // rest pose when read, later the current frame
  KRX::MATH::CTransformation local_pose;   // relative to the structure parent's global_pose
  KRX::MATH::CTransformation tpose;        // rest transform from the tag
  KRX::MATH::CVector3 align;               // tag directions, in the object's local frame
  KRX::MATH::CVector3 roll;
  KRX::MATH::CTransformation rest_rotation;  // takes align to +Z and roll towards +Y
  KRX::MATH::CTransformation rest_rotation_inverse;
  int32_t source_index = -1;           // source node driving this node; -1 none
  int32_t override_source_index = -1;  // source node named by `override`
  // Rotation relative to the structure parent when a source was bound: with the
  // kKeepBindRotation extraction option a node that the source does not drive keeps it.
  KRX::MATH::CRotation bind_local_rotation;
  std::string override;
  std::unique_ptr<ExtractionEntry> extraction;
  int32_t rotation_list_index = -1;
  std::vector<SubControlEntry> sub_controls;
};

struct PlaneMapEntry {
  int32_t bend_sign = 1;
  KRX::MATH::CVector3 up_vector;           // limb plane normal of the current frame
  KRX::MATH::CVector3 rest_end_direction;  // unit, in the rest frame of the chain's node
                                           // next to the end effector
  double stretch = 1.0;
  double plane_roll = 0.0;  // degrees
};

// The key times of one rig object's function curves, relative to the first frame of the
// motion, per local transform channel in the order "posx", "posy", "posz", "rotx", "roty",
// "rotz". Plotting uses them to keep the source's keys.
struct CurveKeyRecord {
  std::string node_name;
  std::array<std::vector<double>, 6> channels;
};

class RetargetModel {
 public:
  // A rig: reads the tags (which may edit `structure`'s parent links) and the pose at the
  // current time without extraction objects.
  RetargetModel(const KRX::Model& model, ModelStructure* structure);
  // A capture source: binds the skeleton's joints to the structure nodes they were tagged
  // as.
  RetargetModel(MocapSkeleton* skeleton, ModelStructure* structure);
  // An empty model for a motion read from a file: no model, arrays sized by `structure`.
  explicit RetargetModel(ModelStructure* structure);
  ~RetargetModel();
  RetargetModel(const RetargetModel&) = delete;
  RetargetModel& operator=(const RetargetModel&) = delete;

  // Checked access: an index outside the table logs "invalid nodeMap index! N" (or
  // "invalid planeMap index! N") as a warning and yields a scratch entry that is reset on
  // every such access, never memory outside the table.
  NodeMapEntry& Node(int32_t index);
  const NodeMapEntry& Node(int32_t index) const;
  // The node's position in its current global pose.
  KRX::MATH::CVector3 NodePosition(int32_t index) const {
    return Node(index).global_pose.GetTranslation();
  }
  PlaneMapEntry& Plane(int32_t index);
  const PlaneMapEntry& Plane(int32_t index) const;
  int32_t NumNodes() const { return static_cast<int32_t>(node_map_.size()); }
  int32_t NumPlanes() const { return static_cast<int32_t>(plane_map_.size()); }

  // The node is played by something: a valid object for a rig, a joint for a capture.
  bool IsBound(int32_t index) const;

  KRX::Model model;                     // invalid for a file motion or a capture skeleton
  ModelStructure* structure = nullptr;  // not owned
  MocapSkeleton* skeleton = nullptr;    // not owned
  // Motion read from a file: frame_count x node count global transforms, frame-major.
  std::vector<KRX::MATH::CTransformation> poses;
  int32_t frame_count = 0;
  std::vector<CurveKeyRecord> curves;  // a rig's function-curve key times
  double leg_length = 0.0;
  double hip_offset = 0.0;
  double scale = 1.0;  // size ratio of a target to its source
  bool valid = true;   // false after a failed map read
  KRX::MATH::CTransformation model_global;

 private:
  std::vector<NodeMapEntry> node_map_;
  std::vector<PlaneMapEntry> plane_map_;
  mutable NodeMapEntry scratch_node_;
  mutable PlaneMapEntry scratch_plane_;
};

}  // namespace kavor

// The running state of one live retarget: what the main retarget operator of a model binds
// once (its rig, maps and the motion blob) and solves every evaluation, and what its chain
// operators read to drive the rig objects.
//
// The motion blob stores the address of its running context in its live slot so that
// pages and chain operators can reach it. A blob comes from a scene file and may hold any
// bytes there: an address is only followed when it is one of the contexts alive in this
// process and bound to that very blob (LiveContextOf).
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kavor/maps/glue_map.h"
#include "kavor/maps/retarget_model.h"
#include "kavor/operators/motion_blob.h"
#include "kavor/structure/model_structure.h"
#include "krx/krx.h"

namespace kavor {

// A spine node that the user can move and turn, with the shape of its spine's curve.
struct SemiFreeEntry {
  std::string name;
  double x = 0.0, y = 0.0, z = 0.0;
  bool offset_children = true;
  double anchor_tangent_length = 1.0;
  double goal_tangent_length = 1.0;
  int32_t node = -1;
};

// A foot plant or release of one limb plane, from the plane's clamp keys.
struct ClampRecord {
  int32_t start = 0;
  bool clamp = false;  // true: plant, false: release
  int32_t blend_back = 0;
  int32_t target_index = 0;  // 0: world; k: the k-th glue entry with a rig object
  int32_t target_node = -1;
  KRX::MATH::CVector3 position;  // world, or the target node's space
};

struct ComboItem {
  std::string label;
  int32_t value = 0;
};

// Adjustment parameters resolved once at binding, so that evaluations build no names.
struct PlaneAdjustments {
  KRX::Parameter stretch, roll, x, y, z;
};
struct SemiFreeAdjustments {
  KRX::Parameter x, y, z, rx, ry, rz;
};

// The parameters of a rig object's rotation offset, resolved when the offset is found.
struct RotationOffsetParameters {
  KRX::Parameter x, y, z, reduce;
};

// The spine solve of one glue spine entry, kept between evaluations.
struct SpineSolve {
  double solved_time = 0.0;
  bool solved = false;
  double twist = 0.0;                                    // continuous across turns
  std::vector<KRX::MATH::CTransformation> node_globals;  // world
};

struct RetargetOpContext {
  bool bound = false;
  bool skip_solve = true;
  // The blob this operator reads (its input 1) and the view of its bytes taken at binding.
  KRX::UserDataBlob blob;
  const uint8_t* bytes = nullptr;
  size_t byte_count = 0;
  MotionBlobLayout layout;
  int32_t frame_count = 0;
  double speed = 1.0;
  double previous_speed = 1.0;
  double scale = 1.0;
  std::vector<KRX::MATH::CVector3> root_path;                    // [frame]
  std::vector<std::vector<KRX::MATH::CVector3>> effector_paths;  // [plane][frame]
  std::vector<std::vector<ClampRecord>> plane_clamps;            // [plane]
  std::unique_ptr<ModelStructure> structure;
  std::unique_ptr<RetargetModel> model;
  std::unique_ptr<GlueMap> glue;
  KRX::CustomProperty adjust_property;
  double time = 0.0;
  // The model's global transform at `time`: the solve works in the model's space.
  KRX::MATH::CTransformation model_global;
  int32_t frame_index = 0;
  double frame_fraction = 0.0;
  std::vector<ComboItem> global_frame_items;
  std::vector<ComboItem> rotation_node_items;
  int32_t insertion_frame = 0;
  std::vector<SemiFreeEntry> semi_free;

  // Resolved at binding.
  KRX::Parameter speed_parameter, offset_feet, hip_x, hip_y, hip_z;
  std::vector<PlaneAdjustments> plane_adjustments;         // [structure plane]
  std::vector<SemiFreeAdjustments> semi_free_adjustments;  // [semi-free entry]
  // [glue mocap entry]: its rotation offset's parameters (invalid without one).
  std::vector<RotationOffsetParameters> rotation_offsets;
  // [structure plane]: how far the end may go from the base: the rig's joint chain of the
  // limb stretched out.
  std::vector<double> plane_reach;
  std::vector<int32_t> plane_of_end_node;  // [node]: the first plane ending there, or -1
  std::vector<int32_t> node_parent;        // [node]: structure parent, -1 for the root
  // [node]: a free node whose rig object the glue only turns keeps the offset from its
  // parent that it was bound with (its place follows from its parent's turn); the others
  // take their offset from the motion.
  std::vector<bool> is_rigid;
  // Scratch list of the solve's "Reduce" stage: descendants and their locals.
  std::vector<std::pair<int32_t, KRX::MATH::CTransformation>> reduce_kept;
  std::vector<KRX::MATH::CVector3> rigid_offset;
  // [semi-free entry]: the entry's node and its descendants, in node order.
  std::vector<std::vector<int32_t>> semi_free_branches;
  // [semi-free entry]: the planes whose base node lies in the entry's branch.
  std::vector<std::vector<int32_t>> semi_free_planes;
  // [node]: the rest local rotation that "Reduce" blends towards.
  std::vector<KRX::MATH::CQuaternion> rest_local_rotations;
  // [glue spine entry]: the spine's solve state.
  std::vector<SpineSolve> spines;
  // [glue spine entry]: index into semi_free matched by the spine node's name, or -1.
  std::vector<int32_t> spine_semi_free;
};

// The process-wide table of running contexts. The main operator adds its context when it
// binds and removes it in its _Term.
void AddLiveContext(RetargetOpContext* context);
void RemoveLiveContext(RetargetOpContext* context);
// The context stored in `blob`'s live slot when it is alive and bound to `blob`; null
// otherwise (no blob, slot 0, a stale or foreign address).
RetargetOpContext* LiveContextOf(const KRX::UserDataBlob& blob);

// The live context of the model's "ZRKRetargetOp" blob; null when the model has no blob or
// its operator has not bound yet.
RetargetOpContext* FindLiveContext(const KRX::Model& model);

// The model's "ZRKRetargetOp" blob; invalid when it has none.
KRX::UserDataBlob FindMotionBlob(const KRX::Model& model);

// Increments the adjustment property's "Ping", so that the host re-evaluates the main
// operator, whose input it is.
void PingRetarget(RetargetOpContext& context);

}  // namespace kavor

// Carrying one frame of a source's motion over to a target character.
//
// A source (another tagged rig, a capture skeleton or a motion read from a file) is first
// bound to the target: nodes are paired by structure name (or the target's override name),
// target nodes without a partner leave the target's hierarchy, and the bend signs and the
// size ratio are measured. Then each frame the source pose is normalized and given to the
// target: every driven node takes the source's normalized rotation, limb ends and free
// nodes take the source's offsets scaled by the bone-length ratio, and the root moves with
// the source's, scaled about the hips by the leg-length ratio.
#pragma once

#include "kavor/maps/glue_map.h"
#include "kavor/maps/retarget_model.h"
#include "kavor/motion/finish.h"
#include "kavor/motion/normalize.h"

namespace kavor {

// Binds `source` to `target` and puts both models at the identity global transform
// (their transforms are kept in model_global). Edits the target's structure: parent links
// of nodes without a source, and limb chains are shortened to the nodes that have objects.
// False when the structures are of different types (logged) or name different root nodes.
bool BindSource(RetargetModel& target, RetargetModel& source, GlueMap& glue);

// How ExtractFrame turns a target node that no source node drives (neither by name nor by
// its override).
enum class UnsourcedNodeRule {
  // The node's global rotation stays as the previous frame left it, and its rest rotation is
  // put back on it as on every driven node. A node whose rest rotation is not the identity
  // turns by that rest rotation once more in every frame.
  kKeepGlobalRotation,
  // The node keeps the rotation relative to its structure parent that it had when the
  // source was bound: it is carried along by its parent and does not drift.
  kKeepBindRotation,
};

struct ExtractOptions {
  UnsourcedNodeRule unsourced_nodes = UnsourcedNodeRule::kKeepGlobalRotation;
  // How the finishing stage blends limb ends back after contacts (finish.h).
  ContactBlendRule contact_blend = ContactBlendRule::kStraightLine;
  // Below this bend (radians) a source limb counts as straight: its bend plane is not
  // measured but filled in from the neighbouring frames. At 0.1 rad an arm bent by less than
  // 5.7 degrees takes a plane from other frames and its elbow moves off the source's by up
  // to 0.2 % of the leg length; a tiny angle keeps every measurable bend.
  double straight_limb_angle = kStraightLimbAngle;
};

// The options the user chose in the plug-in's preferences (KAVOR.ini, section "RETARGET",
// integers, 0 for off, written as 0 the first time they are read):
//   KEEP_BIND_ROTATION  1: nodes without a source keep their bind rotation (kKeepBindRotation)
//   BLEND_DRIFT_ONLY    1: contacts blend out only their drift (ContactBlendRule::kDriftOnly)
//   STRAIGHT_LIMB_MICRORADIANS  the straight-limb angle in millionths of a radian (100000)
// Without a preferences file every option is off.
ExtractOptions PreferredExtractOptions();

// The target's pose for the source's frame `time` into the target's global and local
// poses and plane up-vectors.
void ExtractFrame(RetargetModel& target, RetargetModel& source, double time,
                  const ExtractOptions& options = {});

}  // namespace kavor

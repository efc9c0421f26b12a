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
};

// The target's pose for the source's frame `time` into the target's global and local
// poses and plane up-vectors.
void ExtractFrame(RetargetModel& target, RetargetModel& source, double time,
                  const ExtractOptions& options = {});

}  // namespace kavor

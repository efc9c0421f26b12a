// The active scene and project. One per process, as in a host application.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "runtime/item.h"

namespace KRX::rt {

// What the evaluation keeps per scene besides the items' own caches (krx/src/scene).
struct SceneEvalState {
  // Connected operators by the item each output port targets (a kinematic state, a
  // parameter, a curve object, a blob), in connection order. Rebuilt when `topology`
  // differs from the process topology stamp.
  std::unordered_map<const Item*, std::vector<OperatorItem*>> writers;
  uint64_t topology = 0;
  // The "Play Control" "Current" parameter, resolved once per structure stamp.
  ParamItem* current = nullptr;
  uint64_t current_stamp = 0;
  // The current frame last seen; a change ends every transient put.
  double known_current = 0.0;
  bool known_current_set = false;
  // Parameters holding a transient put (all at `transient_time`).
  std::vector<std::weak_ptr<ParamItem>> transients;
  double transient_time = 0.0;
  // The structure stamp the items' dependents lists were built at (0 = never).
  uint64_t dependents_stamp = 0;
  // Something was evaluated since the revision last moved: a change must then invalidate
  // what depends on it (before, nothing is cached and moving the revision is enough).
  bool evaluated = false;
  // Invalidations held back while a read is in progress: the item changed and the
  // operator left out.
  std::vector<std::pair<std::weak_ptr<Item>, std::weak_ptr<Item>>> pending_invalidations;
};

struct Scene {
  std::shared_ptr<ObjectItem> root;  // the scene root model ("Scene_Root")
  // The project item; its property "Play Control" has Current, In, Out and Rate.
  std::shared_ptr<Item> project;
  // Incremented on every change that can alter an evaluated value (a put, a key edit, a
  // new connection, a deletion, a new current frame); evaluation caches compare with it.
  // Revisions are drawn from one process-wide counter, so no two scenes share one.
  uint64_t revision = 1;
  // Selected items in selection order.
  std::vector<std::weak_ptr<Item>> selection;
  // Operators created and not connected yet (they join their first output's owner on
  // Connect).
  std::vector<std::shared_ptr<OperatorItem>> pending_operators;
  SceneEvalState eval;
};

Scene& ActiveScene();
// Replaces the active scene by a new, empty one. Operators of the old scene get their
// _Term first.
void ResetScene();
// Swaps in a fully built scene (scene files are read into a separate Scene first so a bad
// file leaves the open scene untouched). Operators of the old scene get their _Term.
void ReplaceScene(Scene&& scene);
// Marks every evaluated value out of date. While an evaluation runs (an operator putting
// a value), the bump is held back until the outermost read ends, so that the evaluation in
// progress stays consistent.
void BumpRevision();
// Builds an empty scene (root model and project with "Play Control") without touching
// the active one.
Scene MakeEmptyScene();

// Process-wide stamps that the evaluation's bindings compare with (both also bump the
// revision):
//  - the structure stamp moves whenever something an item's binding resolved may differ:
//    items added, renamed or deleted, animation sources added or removed, connections;
//  - the topology stamp moves when operators are connected or removed, constraints are
//    added, items are deleted or objects change parent (it moves the structure stamp too).
void BumpStructure();
void BumpTopology();
uint64_t StructureStamp();
uint64_t TopologyStamp();

}  // namespace KRX::rt

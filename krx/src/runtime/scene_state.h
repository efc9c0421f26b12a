// The active scene and project. One per process, as in a host application.
#pragma once

#include <cstdint>
#include <memory>

#include "runtime/item.h"

namespace KRX::rt {

struct Scene {
  std::shared_ptr<ObjectItem> root;  // the scene root model ("Scene_Root")
  // The project item; its property "Play Control" has Current, In, Out and Rate.
  std::shared_ptr<Item> project;
  // Incremented on every change that can alter an evaluated value (a put, a key edit, a
  // new connection, a deletion, a new current frame); evaluation caches compare with it.
  uint64_t revision = 1;
  // Selected items in selection order.
  std::vector<std::weak_ptr<Item>> selection;
};

Scene& ActiveScene();
// Replaces the active scene by a new, empty one. Operators of the old scene get their
// _Term first.
void ResetScene();
// Swaps in a fully built scene (scene files are read into a separate Scene first so a bad
// file leaves the open scene untouched). Operators of the old scene get their _Term.
void ReplaceScene(Scene&& scene);
void BumpRevision();
// Builds an empty scene (root model and project with "Play Control") without touching
// the active one.
Scene MakeEmptyScene();

}  // namespace KRX::rt

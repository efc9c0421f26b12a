// Reads a scene file document into a new scene that is not the active one (see
// scene_format.h). Everything in the document is checked: classes, counts, names,
// numbers, parent indices, hierarchy depth and every reference by full name.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "files/json_reader.h"
#include "runtime/scene_state.h"

namespace KRX::rt::files {

struct LoadedScene {
  Scene scene;
  // The scene's operators, in the order they are to be connected, with their ports set
  // and not connected: connecting runs an operator's _Init, which must wait until the
  // scene is the active one.
  std::vector<std::shared_ptr<OperatorItem>> operators;
};

// On failure `error` says what is wrong and where in the document; `out` is then left
// half-built and must be discarded.
[[nodiscard]] bool ReadSceneDocument(const Json& doc, LoadedScene* out, std::string* error);

}  // namespace KRX::rt::files

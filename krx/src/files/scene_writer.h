// Writes a scene as a scene file document (see scene_format.h).
#pragma once

#include <string>

#include "files/json_reader.h"
#include "runtime/scene_state.h"

namespace KRX::rt::files {

// The whole scene: objects, properties, parameters, curves, operators and selection. Fails
// (with `error` naming the item) when a number is not finite, or when an item that
// something refers to shares its full name with another item (the file could not be
// read back unambiguously).
[[nodiscard]] bool WriteSceneDocument(const Scene& scene, OutJson* out, std::string* error);

}  // namespace KRX::rt::files

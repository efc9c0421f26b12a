// Scene files: the whole scene saved to one file and opened again.
//
// Saving writes objects (class, type, name, hierarchy, kinematic parameters), every
// parameter of every property (value type, capabilities, value, default, limits,
// suggested range, label, description, function curve, expression, grid), user-data blob
// bytes, curve points, constraints, custom properties as they are (a property a plug-in
// defined is not defined again on open: its parameters come back as they were saved),
// the project's properties ("Play Control"), the selection and the operators with their
// ports. Operators' user data is not saved: opening connects every operator again, which
// runs its _Init, and it binds again on its first evaluation, as in a real host.
//
// These functions do not log; the host commands built on them do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace KRX::rt {

struct [[nodiscard]] FileResult {
  bool ok = false;
  std::string message;  // what went wrong and where; empty on success

  explicit operator bool() const { return ok; }
  static FileResult Success() { return {true, {}}; }
  static FileResult Failure(std::string message) { return {false, std::move(message)}; }
};

// Writes the active scene to `path` atomically: a failed save leaves any file already
// there as it was.
FileResult SaveSceneFile(const std::string& path);

// Reads `path` into a new scene and, only when the whole file was read and checked, makes
// it the active scene (the old scene's operators get their _Term), connects its operators
// (each _Init runs) and fires the scene-opened event. A file that cannot be read leaves
// the active scene untouched.
FileResult OpenSceneFile(const std::string& path);

// Reads scene file bytes into a separate scene and discards it; the active scene is never
// touched. For checks and fuzzing.
FileResult ReadSceneFromBytes(const uint8_t* data, size_t size);

}  // namespace KRX::rt

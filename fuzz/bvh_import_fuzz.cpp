// Fuzzes the host's BVH reader and, for small results, building the rig from it.
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "files/bvh_file.h"
#include "files/bvh_import.h"
#include "runtime/scene_state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // An exact-size copy, so that a read past the end of the text is caught.
  const std::vector<char> bytes(data, data + size);
  std::string error;
  std::optional<KRX::rt::files::BvhFile> file =
      KRX::rt::files::ParseBvh(std::string_view(bytes.data(), bytes.size()), &error);
  if (!file) {
    if (error.empty()) __builtin_trap();  // a refusal always says why
    return 0;
  }
  if (file->columns.size() != file->channel_count) __builtin_trap();
  for (const std::vector<double>& column : file->columns) {
    if (column.size() != file->frame_count) __builtin_trap();
  }
  if (!(file->frame_time > 0.0 && file->frame_time <= KRX::rt::files::kMaxBvhFrameTime))
    __builtin_trap();
  if (file->joints.size() <= 64 && file->frame_count * file->channel_count <= 4096) {
    KRX::rt::ResetScene();
    KRX::rt::files::BuildBvhRig(std::move(*file), L"Fuzz");
  }
  return 0;
}

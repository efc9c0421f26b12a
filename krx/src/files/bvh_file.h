// Reading BVH motion capture files: the joint hierarchy with offsets and channels, and the
// motion as one row of channel values per frame.
//
// The reader takes the file whole from memory and bounds everything it builds (joints,
// channels, frames), so a damaged or hostile file gives an error message naming the line,
// never a crash or an endless read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "krx/math.h"

namespace KRX::rt::files {

enum class BvhChannel : uint8_t { kXposition, kYposition, kZposition, kXrotation, kYrotation, kZrotation };

struct BvhJoint {
  std::string name;  // the words after ROOT/JOINT, joined with "_"
  int parent = -1;   // earlier joint; -1 for a root
  MATH::CVector3 offset;
  std::vector<BvhChannel> channels;  // in file order
  size_t first_channel = 0;          // column of its first channel in a frame row
  bool has_end_site = false;
  MATH::CVector3 end_offset;
};

struct BvhFile {
  std::vector<BvhJoint> joints;  // parents first
  size_t channel_count = 0;      // values per frame
  size_t frame_count = 0;        // complete frames present (the header's count may differ)
  size_t announced_frames = 0;   // the "Frames:" count
  double frame_time = 0.0;       // seconds
  std::vector<double> values;    // frame_count x channel_count, frame-major

  double Value(size_t frame, size_t column) const { return values[frame * channel_count + column]; }
};

inline constexpr size_t kMaxBvhJoints = 4096;
inline constexpr size_t kMaxBvhValues = size_t{64} << 20;  // 64 Mi numbers (512 MiB)

// Parses the text of a BVH file. On failure `error` reads "line N: what is wrong".
std::optional<BvhFile> ParseBvh(std::string_view text, std::string* error);

}  // namespace KRX::rt::files

// Reading BVH motion capture files: the joint hierarchy with offsets and channels, and the
// motion as one column of values per channel.
//
// The reader takes the file whole from memory and bounds everything it builds (joints,
// channels, frames), so a damaged or hostile file gives an error message naming the line,
// never a crash or an endless read. The motion is read straight into its columns, which a
// function curve can take over as they are: the values exist once, never as rows and then
// columns.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "krx/math.h"

namespace KRX::rt::files {

enum class BvhChannel : uint8_t {
  kXposition,
  kYposition,
  kZposition,
  kXrotation,
  kYrotation,
  kZrotation
};

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
  double frame_time = 0.0;       // seconds; in (0, 1]
  // One column per channel (column c holds the channel at first_channel + i of its joint),
  // frame_count values each.
  std::vector<std::vector<double>> columns;

  double Value(size_t frame, size_t column) const { return columns[column][frame]; }
};

inline constexpr size_t kMaxBvhJoints = 4096;
inline constexpr size_t kMaxBvhNameLength = 255;           // bytes, after joining words
inline constexpr size_t kMaxBvhValues = size_t{64} << 20;  // 64 Mi numbers (512 MiB)
// The longest frame time taken, in seconds: a rate of at least one frame per second.
inline constexpr double kMaxBvhFrameTime = 1.0;

// Parses the text of a BVH file. On failure `error` reads "line N: what is wrong". Refused
// besides malformed text: a joint listing a channel twice, a joint name longer than
// kMaxBvhNameLength, a frame time that is not above 0 and at most kMaxBvhFrameTime, and
// more than kMaxBvhJoints joints or kMaxBvhValues numbers. A last frame cut short is
// dropped; frames beyond the announced count are kept (frame_count says what was read).
std::optional<BvhFile> ParseBvh(std::string_view text, std::string* error);

}  // namespace KRX::rt::files

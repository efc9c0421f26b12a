// The motion blob: a retargeted motion stored on its target model, in the user-data blob
// "ZRKRetargetOp", as one little-endian, packed byte buffer.
//
//   0    magic 0x38DEF311 (uint32)
//   4    live context slot (8 bytes): the running operator's context, 0 when stored
//   12   reserved, zero
//   256  F frames, N nodes, P planes (int32 each)
//   268  node samples, node-major: F x N x (px, py, pz, qw, qx, qy, qz) doubles
//        plane samples, plane-major: F x P x (x, y, z) doubles: each plane's up-vector
//        per node the source index (int32; negative: the node takes no motion)
//        format version (double, 1.4), insertion frame (int32), curve count C (int32)
//        C curves: name length L with its terminating zero (uint32), L UTF-16 units, then
//        six lists of key times, each a count K (uint32) and K doubles
//        the target's size ratio to its source (double)
//
// Doubles in the buffer are not aligned: every read goes through memcpy. Nothing here
// trusts the counts in a buffer: a blob comes from a scene file and may hold any bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "kavor/maps/retarget_model.h"
#include "krx/math.h"

namespace kavor {

class NormalizedMotion;

inline constexpr const wchar_t* kMotionBlobProperty = L"ZRKRetargetOp";
inline constexpr uint32_t kMotionBlobMagic = 0x38DEF311u;
inline constexpr size_t kLiveSlotOffset = 4;
inline constexpr size_t kMotionBlobCountsOffset = 256;
inline constexpr size_t kMotionBlobSamplesOffset = 268;
inline constexpr double kMotionBlobVersion = 1.4;
// Blobs of the old layout start their counts at byte 8; upgrading moves them to 256.
inline constexpr size_t kOldLayoutDataOffset = 8;
inline constexpr size_t kOldLayoutGrowth = kMotionBlobCountsOffset - kOldLayoutDataOffset;
// The smallest blob that the upgrade accepts.
inline constexpr size_t kOldLayoutMinimumSize = 20;

// Everything a motion blob holds, for writing.
struct MotionBlobContent {
  const NormalizedMotion* motion = nullptr;  // global poses and up-vectors
  std::vector<int32_t> source_indices;       // per structure node
  int32_t insertion_frame = 0;
  std::vector<CurveKeyRecord> curves;
  double scale = 1.0;
};

// The byte buffer of a new blob (live slot 0). The size is exactly what the layout gives.
std::vector<uint8_t> EncodeMotionBlob(const MotionBlobContent& content);

// Where a checked blob keeps its parts, and its small fields decoded.
struct MotionBlobLayout {
  int32_t frame_count = 0;
  int32_t node_count = 0;
  int32_t plane_count = 0;
  size_t node_samples = 0;  // byte offsets into the buffer
  size_t plane_samples = 0;
  size_t source_indices = 0;
  double version = 0.0;
  // Version 1.3 and later; older blobs play from frame 0 without curves.
  int32_t insertion_frame = 0;
  std::vector<CurveKeyRecord> curves;  // names: one byte per UTF-16 unit, '?' above 255
  double scale = 1.0;                  // version 1.4 and later
};

// Checks and decodes a blob of the current layout (magic first). Nothing when the magic is
// wrong, when F < 1, N < 1 or P < 0, when N or P differ from the expected counts (pass a
// negative count to accept any), or when any count (F, N, P, C, L, K) announces more than
// the bytes left, or when the scale is no finite number. A version below 1.3 stops
// reading after it; a blob may end there.
std::optional<MotionBlobLayout> DecodeMotionBlob(std::span<const uint8_t> bytes,
                                                 int32_t expected_nodes, int32_t expected_planes);

// True when the buffer does not start with the magic (the old layout).
bool IsOldMotionBlobLayout(std::span<const uint8_t> bytes);
// The old layout moved to the current one: magic, zeros up to 256, then the old bytes from
// offset 8 on (the buffer grows by 248 bytes). Nothing for a buffer under 20 bytes.
std::optional<std::vector<uint8_t>> UpgradeOldMotionBlob(std::span<const uint8_t> bytes);

// Reads of a checked blob; `frame` and `node`/`plane` must be within the layout's counts.
struct NodeSample {
  KRX::MATH::CVector3 position;
  KRX::MATH::CQuaternion rotation;  // w, x, y, z as stored
};
NodeSample ReadNodeSample(const uint8_t* bytes, const MotionBlobLayout& layout, int32_t node,
                          int32_t frame);
KRX::MATH::CVector3 ReadPlaneSample(const uint8_t* bytes, const MotionBlobLayout& layout,
                                    int32_t plane, int32_t frame);
int32_t ReadSourceIndex(const uint8_t* bytes, const MotionBlobLayout& layout, int32_t node);

// The live slot of a buffer of at least 12 bytes (0 for a shorter one).
uint64_t ReadLiveSlot(std::span<const uint8_t> bytes);

}  // namespace kavor

#include "kavor/operators/motion_blob.h"

#include <bit>
#include <cassert>
#include <cmath>
#include <cstring>
#include <type_traits>

#include "kavor/motion/normalized_motion.h"

namespace kavor {

using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

// The blob is little-endian and is read and written with plain byte copies.
static_assert(std::endian::native == std::endian::little,
              "the motion blob's byte copies assume a little-endian machine");

namespace {

constexpr size_t kNodeSampleBytes = 7 * sizeof(double);
constexpr size_t kPlaneSampleBytes = 3 * sizeof(double);
constexpr size_t kChannelCount = 6;
// Version 1.3 added the insertion frame and the curves, 1.4 the target's scale.
constexpr double kCurvesVersion = 1.3;
constexpr double kScaleVersion = 1.4;
// A curve with an empty name and six empty lists: its length word and six count words.
constexpr uint64_t kSmallestCurveBytes = 4 + kChannelCount * 4;

// Appends values to a buffer that was sized up front.
class Writer {
 public:
  explicit Writer(std::vector<uint8_t>& bytes) : bytes_(bytes) {}
  template <typename T>
  void Put(T value) {
    static_assert(std::is_trivially_copyable_v<T>);
    assert(at_ + sizeof(T) <= bytes_.size());
    std::memcpy(bytes_.data() + at_, &value, sizeof(T));
    at_ += sizeof(T);
  }
  void SkipTo(size_t offset) { at_ = offset; }
  size_t At() const { return at_; }

 private:
  std::vector<uint8_t>& bytes_;
  size_t at_ = 0;
};

// Reads values from an untrusted buffer; every read checks the bytes left and fails once
// past the end, after which every further read fails too.
class Reader {
 public:
  explicit Reader(std::span<const uint8_t> bytes, size_t at) : bytes_(bytes), at_(at) {
    if (at_ > bytes_.size()) {
      at_ = bytes_.size();
      ok_ = false;
    }
  }
  uint64_t Left() const { return bytes_.size() - at_; }
  bool Ok() const { return ok_; }
  size_t At() const { return at_; }
  bool Skip(uint64_t count) {
    if (!ok_ || count > Left()) return ok_ = false;
    at_ += static_cast<size_t>(count);
    return true;
  }
  template <typename T>
  bool Get(T& value) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (!ok_ || sizeof(T) > Left()) return ok_ = false;
    std::memcpy(&value, bytes_.data() + at_, sizeof(T));
    at_ += sizeof(T);
    return true;
  }

 private:
  std::span<const uint8_t> bytes_;
  size_t at_;
  bool ok_ = true;
};

template <typename T>
T Load(const uint8_t* at) {
  T value;
  std::memcpy(&value, at, sizeof(T));
  return value;
}

uint64_t CurveBytes(const CurveKeyRecord& curve) {
  uint64_t bytes = 4 + 2 * (curve.node_name.size() + 1);
  for (const std::vector<double>& keys : curve.channels) bytes += 4 + 8 * keys.size();
  return bytes;
}

// Names are 8-bit in memory: each byte is one UTF-16 unit. Units a byte cannot hold read as
// '?'; the name ends at its first zero unit.
bool ReadCurve(Reader& reader, CurveKeyRecord& curve) {
  uint32_t units = 0;
  if (!reader.Get(units) || uint64_t{units} * 2 > reader.Left()) return false;
  bool ended = false;
  for (uint32_t i = 0; i < units; ++i) {
    uint16_t unit = 0;
    reader.Get(unit);
    if (unit == 0) ended = true;
    if (!ended) curve.node_name.push_back(unit > 255 ? '?' : static_cast<char>(unit));
  }
  for (std::vector<double>& keys : curve.channels) {
    uint32_t count = 0;
    if (!reader.Get(count) || uint64_t{count} * 8 > reader.Left()) return false;
    keys.resize(count);
    for (double& key : keys) reader.Get(key);
  }
  return reader.Ok();
}

}  // namespace

std::vector<uint8_t> EncodeMotionBlob(const MotionBlobContent& content) {
  const NormalizedMotion* motion = content.motion;
  const int32_t frames = motion ? motion->frame_count : 0;
  const int32_t nodes = motion ? motion->NumNodes() : 0;
  const int32_t planes = motion ? motion->NumPlanes() : 0;
  const size_t f = static_cast<size_t>(frames), n = static_cast<size_t>(nodes),
               p = static_cast<size_t>(planes);
  uint64_t size = 292 + 4 * n + f * (kNodeSampleBytes * n + kPlaneSampleBytes * p);
  for (const CurveKeyRecord& curve : content.curves) size += CurveBytes(curve);

  std::vector<uint8_t> bytes(static_cast<size_t>(size), 0);
  Writer out(bytes);
  out.Put(kMotionBlobMagic);
  out.Put(uint64_t{0});  // live slot
  out.SkipTo(kMotionBlobCountsOffset);
  out.Put(frames);
  out.Put(nodes);
  out.Put(planes);
  for (size_t node = 0; node < n; ++node) {
    const std::vector<CTransformation>& poses = motion->global_poses[node];
    assert(poses.size() >= f);
    for (size_t frame = 0; frame < f; ++frame) {
      const CVector3 t = poses[frame].GetTranslation();
      const CQuaternion q = poses[frame].GetRotationQuaternion();
      for (double v : {t.GetX(), t.GetY(), t.GetZ(), q.GetW(), q.GetX(), q.GetY(), q.GetZ()}) {
        out.Put(v);
      }
    }
  }
  for (size_t plane = 0; plane < p; ++plane) {
    const std::vector<CVector3>& ups = motion->up_vectors[plane];
    assert(ups.size() >= f);
    for (size_t frame = 0; frame < f; ++frame) {
      for (double v : {ups[frame].GetX(), ups[frame].GetY(), ups[frame].GetZ()}) out.Put(v);
    }
  }
  // A node missing from the list takes no motion.
  for (size_t node = 0; node < n; ++node) {
    out.Put(node < content.source_indices.size() ? content.source_indices[node] : int32_t{-1});
  }
  out.Put(kMotionBlobVersion);
  out.Put(content.insertion_frame);
  out.Put(static_cast<int32_t>(content.curves.size()));
  for (const CurveKeyRecord& curve : content.curves) {
    out.Put(static_cast<uint32_t>(curve.node_name.size() + 1));
    for (char c : curve.node_name) out.Put(static_cast<uint16_t>(static_cast<unsigned char>(c)));
    out.Put(uint16_t{0});
    for (const std::vector<double>& keys : curve.channels) {
      out.Put(static_cast<uint32_t>(keys.size()));
      for (double key : keys) out.Put(key);
    }
  }
  out.Put(content.scale);
  assert(out.At() == bytes.size());
  return bytes;
}

std::optional<MotionBlobLayout> DecodeMotionBlob(std::span<const uint8_t> bytes,
                                                 int32_t expected_nodes, int32_t expected_planes) {
  Reader in(bytes, 0);
  uint32_t magic = 0;
  if (!in.Get(magic) || magic != kMotionBlobMagic) return std::nullopt;
  MotionBlobLayout layout;
  in = Reader(bytes, kMotionBlobCountsOffset);
  if (!in.Get(layout.frame_count) || !in.Get(layout.node_count) || !in.Get(layout.plane_count)) {
    return std::nullopt;
  }
  const int32_t f = layout.frame_count, n = layout.node_count, p = layout.plane_count;
  if (f < 1 || n < 1 || p < 0) return std::nullopt;
  if ((expected_nodes >= 0 && n != expected_nodes) ||
      (expected_planes >= 0 && p != expected_planes)) {
    return std::nullopt;
  }
  // All in 64 bits: the counts are below 2^31, so no product here can wrap.
  const uint64_t frame_bytes = kNodeSampleBytes * uint64_t(n) + kPlaneSampleBytes * uint64_t(p);
  if (uint64_t(f) > in.Left() / frame_bytes) return std::nullopt;
  layout.node_samples = in.At();
  layout.plane_samples = layout.node_samples + kNodeSampleBytes * size_t(n) * size_t(f);
  layout.source_indices = layout.plane_samples + kPlaneSampleBytes * size_t(p) * size_t(f);
  if (!in.Skip(frame_bytes * uint64_t(f)) || !in.Skip(4 * uint64_t(n)) || !in.Get(layout.version)) {
    return std::nullopt;
  }
  // A version that is no number counts as the oldest.
  if (!(layout.version >= kCurvesVersion)) return layout;

  int32_t curve_count = 0;
  if (!in.Get(layout.insertion_frame) || !in.Get(curve_count) || curve_count < 0 ||
      uint64_t(curve_count) > in.Left() / kSmallestCurveBytes) {
    return std::nullopt;
  }
  layout.curves.resize(static_cast<size_t>(curve_count));
  for (CurveKeyRecord& curve : layout.curves) {
    if (!ReadCurve(in, curve)) return std::nullopt;
  }
  if (layout.version >= kScaleVersion) {
    // The scale multiplies every placed position: one that is no number would spoil them all.
    if (!in.Get(layout.scale) || !std::isfinite(layout.scale)) return std::nullopt;
  }
  return layout;
}

bool IsOldMotionBlobLayout(std::span<const uint8_t> bytes) {
  return bytes.size() < sizeof(uint32_t) || Load<uint32_t>(bytes.data()) != kMotionBlobMagic;
}

std::optional<std::vector<uint8_t>> UpgradeOldMotionBlob(std::span<const uint8_t> bytes) {
  if (bytes.size() < kOldLayoutMinimumSize) return std::nullopt;
  std::vector<uint8_t> upgraded(bytes.size() + kOldLayoutGrowth, 0);
  std::memcpy(upgraded.data(), &kMotionBlobMagic, sizeof(kMotionBlobMagic));
  std::memcpy(upgraded.data() + kMotionBlobCountsOffset, bytes.data() + kOldLayoutDataOffset,
              bytes.size() - kOldLayoutDataOffset);
  return upgraded;
}

NodeSample ReadNodeSample(const uint8_t* bytes, const MotionBlobLayout& layout, int32_t node,
                          int32_t frame) {
  assert(node >= 0 && node < layout.node_count && frame >= 0 && frame < layout.frame_count);
  const uint8_t* at =
      bytes + layout.node_samples +
      kNodeSampleBytes * (size_t(node) * size_t(layout.frame_count) + size_t(frame));
  double v[7];
  std::memcpy(v, at, sizeof(v));
  return NodeSample{CVector3(v[0], v[1], v[2]), CQuaternion(v[3], v[4], v[5], v[6])};
}

CVector3 ReadPlaneSample(const uint8_t* bytes, const MotionBlobLayout& layout, int32_t plane,
                         int32_t frame) {
  assert(plane >= 0 && plane < layout.plane_count && frame >= 0 && frame < layout.frame_count);
  const uint8_t* at =
      bytes + layout.plane_samples +
      kPlaneSampleBytes * (size_t(plane) * size_t(layout.frame_count) + size_t(frame));
  double v[3];
  std::memcpy(v, at, sizeof(v));
  return CVector3(v[0], v[1], v[2]);
}

int32_t ReadSourceIndex(const uint8_t* bytes, const MotionBlobLayout& layout, int32_t node) {
  assert(node >= 0 && node < layout.node_count);
  return Load<int32_t>(bytes + layout.source_indices + 4 * size_t(node));
}

uint64_t ReadLiveSlot(std::span<const uint8_t> bytes) {
  if (bytes.size() < kLiveSlotOffset + sizeof(uint64_t)) return 0;
  return Load<uint64_t>(bytes.data() + kLiveSlotOffset);
}

}  // namespace kavor

// The motion blob: its byte layout, what decoding refuses, and the old layout's upgrade.
#include "kavor/operators/motion_blob.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>

#include "kavor/motion/normalized_motion.h"

namespace kavor {
namespace {

using KRX::MATH::CQuaternion;
using KRX::MATH::CVector3;
using Bytes = std::vector<uint8_t>;

// Two nodes, one plane, three frames, one curve "Hips" with 2, 0, 0, 1, 0, 0 keys.
struct Sample {
  NormalizedMotion motion{3, nullptr, nullptr};
  MotionBlobContent content;
  Sample() {
    motion.global_poses.assign(2, std::vector<KRX::MATH::CTransformation>(3));
    motion.up_vectors.assign(1, std::vector<CVector3>(3));
    for (int n = 0; n < 2; ++n) {
      for (int f = 0; f < 3; ++f) {
        auto& pose = motion.global_poses[size_t(n)][size_t(f)];
        pose.SetTranslationFromValues(n, f, -1.5);
        pose.SetRotationFromQuaternion(CQuaternion(0.5 + n, 0.1 * f, -0.3, 0.7));
        motion.up_vectors[0][size_t(f)] = CVector3(f, 2, 3);
      }
    }
    content = {&motion, {0, -1}, 7, {{"Hips", {{{0.5, 1.5}, {}, {}, {-2}, {}, {}}}}}, 1.25};
  }
};

template <typename T>
void Poke(Bytes& bytes, size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof(T));
}
template <typename T>
T Peek(const Bytes& bytes, size_t at) {
  T value;
  std::memcpy(&value, bytes.data() + at, sizeof(T));
  return value;
}

TEST(MotionBlob, LayoutAndRoundTrip) {
  const Sample sample;
  const Bytes bytes = EncodeMotionBlob(sample.content);
  ASSERT_EQ(bytes.size(), 770u);
  EXPECT_EQ(Peek<double>(bytes, 684), 1.4);
  EXPECT_EQ(Peek<int32_t>(bytes, 692), 7);
  EXPECT_EQ(Peek<int32_t>(bytes, 696), 1);
  EXPECT_EQ(Peek<uint32_t>(bytes, 700), 5u);
  EXPECT_EQ(Peek<double>(bytes, 762), 1.25);
  const auto layout = DecodeMotionBlob(bytes, 2, 1);
  ASSERT_TRUE(layout);
  EXPECT_EQ(layout->plane_samples, 604u);
  EXPECT_EQ(layout->source_indices, 676u);
  EXPECT_EQ(layout->insertion_frame, 7);
  EXPECT_EQ(layout->scale, 1.25);
  EXPECT_EQ(ReadLiveSlot(bytes), 0u);
  ASSERT_EQ(layout->curves.size(), 1u);
  EXPECT_EQ(layout->curves[0].node_name, "Hips");
  EXPECT_EQ(layout->curves[0].channels, sample.content.curves[0].channels);
  EXPECT_EQ(ReadSourceIndex(bytes.data(), *layout, 1), -1);
  for (int n = 0; n < 2; ++n) {
    for (int f = 0; f < 3; ++f) {
      const auto& pose = sample.motion.global_poses[size_t(n)][size_t(f)];
      const NodeSample s = ReadNodeSample(bytes.data(), *layout, n, f);
      EXPECT_EQ(s.position, pose.GetTranslation());
      EXPECT_TRUE(s.rotation.Equals(pose.GetRotationQuaternion(), 0));  // w first, as stored
      EXPECT_EQ(ReadPlaneSample(bytes.data(), *layout, 0, f), CVector3(f, 2, 3));
    }
  }
  {  // Names are one byte per unit; a unit above 255 reads as '?'.
    Sample named;
    named.content.curves[0].node_name = "H\xE9ps";
    Bytes b = EncodeMotionBlob(named.content);
    EXPECT_EQ(DecodeMotionBlob(b, -1, -1)->curves[0].node_name, "H\xE9ps");
    Poke<uint16_t>(b, 704 + 2, 0x100);
    EXPECT_EQ(DecodeMotionBlob(b, -1, -1)->curves[0].node_name, "H?ps");
  }
  {  // The live slot is the 8 bytes from offset 4.
    Bytes b = bytes;
    Poke<uint64_t>(b, 4, 0x1122334455667788u);
    EXPECT_EQ(ReadLiveSlot(b), 0x1122334455667788u);
    EXPECT_EQ(ReadLiveSlot(std::span(b).first(11)), 0u);
  }
}

TEST(MotionBlob, DecodingRefusesEveryBrokenCount) {
  const Bytes good = EncodeMotionBlob(Sample().content);
  for (size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(DecodeMotionBlob(std::span(good).first(size), -1, -1)) << size;
  }
  EXPECT_TRUE(DecodeMotionBlob(good, -1, -1));
  EXPECT_FALSE(DecodeMotionBlob(good, 3, 1));
  EXPECT_FALSE(DecodeMotionBlob(good, 2, 0));
  const uint32_t huge = 0x7FFFFFFF;
  const struct {
    size_t at;
    uint32_t value;
  } breaks[] = {{0, 0x38DEF312}, {256, 0},          {260, 0},  {264, uint32_t(-1)}, {256, huge},
                {260, huge},     {264, huge},       {256, 4},  {696, uint32_t(-1)}, {696, huge},
                {696, 2},        {700, 0xFFFFFFFF}, {700, 34}, {714, 0xFFFFFFFF},   {714, 7}};
  for (const auto& broken : breaks) {
    Bytes b = good;
    Poke(b, broken.at, broken.value);
    EXPECT_FALSE(DecodeMotionBlob(b, -1, -1)) << broken.at << " " << broken.value;
  }
  Bytes b = good;
  // Counts whose sample bytes wrap to 0 in 64 bits (2^30 frames of 2^35 bytes).
  Poke(b, 256, int32_t{1} << 30);
  Poke(b, 260, 1);
  Poke(b, 264, 1431655763);
  EXPECT_FALSE(DecodeMotionBlob(b, -1, -1));
  b = good;
  Poke(b, 762, std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(DecodeMotionBlob(b, -1, -1));
  {  // Older versions end early: 1.3 without the scale, 1.2 right after the version.
    Poke(b, 684, 1.3);
    const auto v13 = DecodeMotionBlob(std::span(b).first(762), 2, 1);
    ASSERT_TRUE(v13);
    EXPECT_EQ(v13->curves.size(), 1u);
    EXPECT_EQ(v13->scale, 1.0);
    Poke(b, 684, 1.2);
    const auto v12 = DecodeMotionBlob(std::span(b).first(692), 2, 1);
    ASSERT_TRUE(v12);
    EXPECT_EQ(v12->insertion_frame, 0);
    EXPECT_TRUE(v12->curves.empty());
  }
}

TEST(MotionBlob, OldLayoutUpgradesToTheCurrentOne) {
  const Bytes current = EncodeMotionBlob(Sample().content);
  Bytes old(8, 0xAB);  // the old layout: 8 bytes, then the counts
  old.insert(old.end(), current.begin() + 256, current.end());
  ASSERT_EQ(old.size(), 522u);
  EXPECT_TRUE(IsOldMotionBlobLayout(old));
  EXPECT_FALSE(IsOldMotionBlobLayout(current));
  EXPECT_TRUE(IsOldMotionBlobLayout(Bytes(3, 0)));
  EXPECT_EQ(UpgradeOldMotionBlob(Bytes(500, 1))->size(), 748u);
  EXPECT_FALSE(UpgradeOldMotionBlob(Bytes(19, 1)));
  EXPECT_EQ(UpgradeOldMotionBlob(Bytes(20, 1))->size(), 268u);
  const auto upgraded = UpgradeOldMotionBlob(old);
  ASSERT_TRUE(upgraded);
  EXPECT_EQ(*upgraded, current);  // zeros where the slot and the reserved bytes are
}

}  // namespace
}  // namespace kavor

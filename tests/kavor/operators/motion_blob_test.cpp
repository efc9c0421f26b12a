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
  MotionBlobContent content{
      &motion, {0, -1}, 7, {{"Hips", {{{0.5, 1.5}, {}, {}, {-2}, {}, {}}}}}, 1.25};
  Sample() {
    motion.global_poses.assign(2, std::vector<KRX::MATH::CTransformation>(3));
    motion.up_vectors.assign(1, std::vector<CVector3>(3));
    for (size_t i = 0; i < 6; ++i) {
      motion.global_poses[i / 3][i % 3].SetTranslationFromValues(double(i), -1.5, 2);
      motion.global_poses[i / 3][i % 3].SetRotationFromQuaternion(
          CQuaternion(0.5 + i, 0.1 * i, -0.3, 0.7));
      motion.up_vectors[0][i % 3] = CVector3(i % 3, 2, 3);
    }
  }
};

template <typename T>
void Poke(Bytes& bytes, size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof(T));
}

TEST(MotionBlob, LayoutAndRoundTrip) {
  const Sample sample;
  Bytes bytes = EncodeMotionBlob(sample.content);
  ASSERT_EQ(bytes.size(), 770u);
  const auto layout = DecodeMotionBlob(bytes, 2, 1);
  ASSERT_TRUE(layout && layout->curves.size() == 1);
  EXPECT_EQ(layout->plane_samples, 604u);
  EXPECT_EQ(layout->source_indices, 676u);
  EXPECT_EQ(layout->insertion_frame, 7);
  EXPECT_EQ(layout->scale, 1.25);
  EXPECT_EQ(layout->curves[0].node_name, "Hips");
  EXPECT_EQ(layout->curves[0].channels, sample.content.curves[0].channels);
  EXPECT_EQ(ReadSourceIndex(bytes.data(), *layout, 1), -1);
  for (int i = 0; i < 6; ++i) {
    const auto& pose = sample.motion.global_poses[size_t(i / 3)][size_t(i % 3)];
    const NodeSample s = ReadNodeSample(bytes.data(), *layout, i / 3, i % 3);
    EXPECT_EQ(s.position, pose.GetTranslation());
    EXPECT_TRUE(s.rotation.Equals(pose.GetRotationQuaternion(), 0));  // w first, as stored
    EXPECT_EQ(ReadPlaneSample(bytes.data(), *layout, 0, i % 3), CVector3(i % 3, 2, 3));
  }
  EXPECT_EQ(ReadLiveSlot(bytes), 0u);
  Poke<uint64_t>(bytes, 4, 0x1122334455667788u);
  EXPECT_EQ(ReadLiveSlot(bytes), 0x1122334455667788u);
  EXPECT_EQ(ReadLiveSlot(std::span(bytes).first(11)), 0u);
  // Names are one byte per unit; a unit above 255 reads as '?'.
  Sample named;
  named.content.curves[0].node_name = "H\xE9ps";
  bytes = EncodeMotionBlob(named.content);
  EXPECT_EQ(DecodeMotionBlob(bytes, -1, -1)->curves[0].node_name, "H\xE9ps");
  Poke<uint16_t>(bytes, 706, 0x100);
  EXPECT_EQ(DecodeMotionBlob(bytes, -1, -1)->curves[0].node_name, "H?ps");
}

TEST(MotionBlob, DecodingRefusesEveryBrokenCount) {
  const Bytes good = EncodeMotionBlob(Sample().content);
  for (size_t size = 0; size < good.size(); ++size) {
    EXPECT_FALSE(DecodeMotionBlob(std::span(good).first(size), -1, -1)) << size;
  }
  EXPECT_FALSE(DecodeMotionBlob(good, 3, 1));
  EXPECT_FALSE(DecodeMotionBlob(good, 2, 0));
  const uint32_t huge = 0x7FFFFFFF, minus = 0xFFFFFFFF;
  // Offset, value: magic; F, N, P; C (at 696); the curve's L (700) and first K (714).
  const std::pair<size_t, uint32_t> breaks[] = {
      {0, 0x38DEF312}, {256, 0},     {260, 0}, {264, minus}, {256, huge}, {260, huge},  {264, huge},
      {256, 4},        {696, minus}, {696, 2}, {700, minus}, {700, 34},   {714, minus}, {714, 7}};
  for (const auto& [at, value] : breaks) {
    Bytes b = good;
    Poke(b, at, value);
    EXPECT_FALSE(DecodeMotionBlob(b, -1, -1)) << at << " " << value;
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
  // Older versions (at 684) end early: 1.3 without the scale (at 762), 1.2 right after the
  // version.
  Poke(b, 684, 1.3);
  const auto v13 = DecodeMotionBlob(std::span(b).first(762), 2, 1);
  ASSERT_TRUE(v13);
  EXPECT_EQ(v13->curves.size(), 1u);
  EXPECT_EQ(v13->scale, 1.0);
  Poke(b, 684, 1.2);
  const auto v12 = DecodeMotionBlob(std::span(b).first(692), 2, 1);
  ASSERT_TRUE(v12);
  EXPECT_TRUE(v12->insertion_frame == 0 && v12->curves.empty());
}

TEST(MotionBlob, OldLayoutUpgradesToTheCurrentOne) {
  const Bytes current = EncodeMotionBlob(Sample().content);
  Bytes old(8, 0xAB);  // the old layout: 8 bytes, then the counts
  old.insert(old.end(), current.begin() + 256, current.end());
  EXPECT_TRUE(IsOldMotionBlobLayout(old) && IsOldMotionBlobLayout(Bytes(3, 0)));
  EXPECT_FALSE(IsOldMotionBlobLayout(current));
  EXPECT_EQ(UpgradeOldMotionBlob(old), current);  // zeros in the slot and reserved bytes
  EXPECT_EQ(UpgradeOldMotionBlob(Bytes(500, 1))->size(), 748u);
  EXPECT_FALSE(UpgradeOldMotionBlob(Bytes(19, 1)));
  EXPECT_TRUE(UpgradeOldMotionBlob(Bytes(20, 1)));
}

}  // namespace
}  // namespace kavor

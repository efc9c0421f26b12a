// Key choice for reduced channels: unrolling, the marks, the key list and merged source
// key times.
#include "kavor/plot/key_marks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace kavor {
namespace {

using Keys = std::vector<double>;

Keys KeysOf(const std::vector<double>& v) {
  std::vector<uint8_t> marks(v.size(), 0);
  MarkPeaksValleysInflections(v, MarkTolerance(v), marks);
  return BuildKeyList(marks);
}

TEST(KeyMarks, UnrollsWithTheLiteralTurns) {
  constexpr double kDeg = 3.14159265358979323846 / 180.0;
  double previous = 170 * kDeg;  // 170, -170, -160, 179, -179 degrees
  for (const auto& [in, out] :
       {std::pair{-170.0, 190.0}, {-160.0, 200.0}, {179.0, 179.0}, {-179.0, 181.0}}) {
    previous = UnrollAngle(in * kDeg, previous);
    EXPECT_NEAR(previous / kDeg, out, 1e-9) << in;
  }
  // The literal half turn lies above pi; a turn is the literal value.
  EXPECT_EQ(UnrollAngle(3.1415926535899, 0.0), 3.1415926535899);
  EXPECT_EQ(UnrollAngle(7.0, 0.0), 7.0 - 6.2831853071796);
  // Far away ends close by in one call; no number comes back as it is.
  EXPECT_LE(std::fabs(UnrollAngle(1e6, 0.5) - 0.5), 3.1415926536);
  EXPECT_TRUE(std::isfinite(UnrollAngle(1e300, 0.0)));
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(UnrollAngle(inf, 0.0), inf);
  EXPECT_EQ(UnrollAngle(2.0, std::nan("")), 2.0);
}

TEST(KeyMarks, PeaksValleysAndInflections) {
  EXPECT_EQ(KeysOf({0, 1, 2, 3, 2, 1, 0}), (Keys{0, 3, 6}));
  EXPECT_EQ(KeysOf({0, 0, 0, 1, 1, 1}), (Keys{0, 2, 3, 5}));
  EXPECT_EQ(KeysOf({0, 1, 4, 9, 16, 25, 36}), (Keys{0, 6}));
  EXPECT_EQ(KeysOf({2, 2, 2, 2, 2}), (Keys{0, 4}));
  // Abrupt steps and turns of the second difference, each moving the last key.
  EXPECT_EQ(KeysOf({1, 1, 2, 3, 7, 5, 2, 7, 8}), (Keys{0, 1, 3, 4, 6, 8}));
  EXPECT_EQ(KeysOf({0, 0, 2, 4, 7, 6, 1}), (Keys{0, 1, 3, 4, 6}));
  // A turn at 4 on a stretch whose steps all lie within the tolerance of its slope.
  EXPECT_EQ(KeysOf({0, 0.8, 1.9, 2.9, 3.9, 4.9, 3.9, 2.9}), (Keys{0, 4, 5, 7}));
  EXPECT_EQ(KeysOf({0, 1}), (Keys{0, 1}));
  EXPECT_EQ(KeysOf({5}), (Keys{0}));
  EXPECT_EQ(KeysOf({}), (Keys{}));
}

TEST(KeyMarks, IntervalPlantedAndKeyList) {
  std::vector<uint8_t> marks(8, 0);
  MarkInterval(0, marks);  // no step: nothing
  EXPECT_EQ(BuildKeyList(marks), (Keys{0, 7}));
  MarkInterval(3, marks);
  MarkPlanted(std::vector<uint8_t>{0, 0, 1, 1, 0, 0, 0, 0, 1, 1}, marks);  // longer than F
  EXPECT_EQ(BuildKeyList(marks), (Keys{0, 2, 3, 6, 7}));
}

TEST(KeyMarks, MergesShiftedSourceKeyTimes) {
  const Keys keys = {0, 3, 6};
  // Inserted at 10, plotted from 12: source times shift by -2; unsorted on purpose.
  const Keys source = {5, 1, 2, 6.5, 9, std::nan(""), 5};
  EXPECT_EQ(MergeSourceKeyTimes(keys, source, 10, 12), (Keys{0, 3, 4.5, 6, 7}));
  EXPECT_EQ(MergeSourceKeyTimes(keys, {}, 10, 12), keys);
  EXPECT_EQ(MergeSourceKeyTimes({}, Keys{3, 0, -0.5}, 0, 0), (Keys{0, 3}));
}

}  // namespace
}  // namespace kavor

// Key choice for reduced channels: unrolling, the marks and the key list, merged source
// key times.
#include "kavor/plot/key_marks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace kavor {
namespace {

constexpr double kDeg = 3.14159265358979323846 / 180.0;

std::vector<double> KeysOf(const std::vector<double>& v) {
  std::vector<uint8_t> marks(v.size(), 0);
  MarkPeaksValleysInflections(v, MarkTolerance(v), marks);
  return BuildKeyList(marks);
}

TEST(UnrollAngle, FollowsTheLiteralTurns) {
  {  // Crossing +-180 degrees frame by frame.
    const double in[] = {170, -170, -160, 179, -179};
    const double expected[] = {170, 190, 200, 179, 181};
    double previous = in[0] * kDeg;
    for (int i = 1; i < 5; ++i) {
      previous = UnrollAngle(in[i] * kDeg, previous);
      EXPECT_NEAR(previous / kDeg, expected[i], 1e-9) << i;
    }
  }
  {  // The literal half turn lies above pi, and one turn is the literal value.
    EXPECT_EQ(UnrollAngle(3.1415926535899, 0.0), 3.1415926535899);
    EXPECT_EQ(UnrollAngle(7.0, 0.0), 7.0 - 6.2831853071796);
    EXPECT_EQ(UnrollAngle(-7.0, 0.0), -7.0 + 6.2831853071796);
  }
  {  // Many turns away ends close by; no number, or no end to the walk, comes back as is.
    EXPECT_LE(std::fabs(UnrollAngle(1e6, 0.5) - 0.5), 3.1415926536);
    EXPECT_TRUE(std::isfinite(UnrollAngle(1e300, 0.0)));
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(UnrollAngle(inf, 0.0), inf);
    EXPECT_EQ(UnrollAngle(2.0, std::nan("")), 2.0);
    EXPECT_TRUE(std::isnan(UnrollAngle(std::nan(""), 0.0)));
  }
}

TEST(KeyMarks, PeaksValleysAndInflections) {
  using Keys = std::vector<double>;
  EXPECT_EQ(KeysOf({0, 1, 2, 3, 2, 1, 0}), (Keys{0, 3, 6}));
  EXPECT_EQ(KeysOf({0, 0, 0, 1, 1, 1}), (Keys{0, 2, 3, 5}));
  EXPECT_EQ(KeysOf({0, 1, 4, 9, 16, 25, 36}), (Keys{0, 6}));
  EXPECT_EQ(KeysOf({2, 2, 2, 2, 2}), (Keys{0, 4}));
  // Steps 1, 2, 3, 2, 1, 0.5: the second difference turns at 3, away from the straight line.
  EXPECT_EQ(KeysOf({0, 1, 3, 6, 8, 9, 9.5}), (Keys{0, 3, 6}));
  EXPECT_EQ(KeysOf({0, 2, 3, 4, 7}), (Keys{0, 3, 4}));       // a zero change before the turn
  EXPECT_EQ(KeysOf({0, 1, 3, 4, 4.5, 4.75}), (Keys{0, 5}));  // no turn is looked for at 2
  // The same turn on a stretch whose steps stay within the tolerance is not a key.
  EXPECT_EQ(KeysOf({0, 1, 2, 3.05, 4.05, 5.05, 6.05, 100}), (Keys{0, 6, 7}));
  EXPECT_EQ(KeysOf({0, 1}), (Keys{0, 1}));
  EXPECT_EQ(KeysOf({5}), (Keys{0}));
  EXPECT_EQ(KeysOf({}), (Keys{}));
}

// The straightness test keeps the extreme steps since the last key; rescanning the stretch
// at every frame must give the same marks.
TEST(KeyMarks, TrackedStretchAgreesWithRescanning) {
  std::mt19937 random(7);
  std::normal_distribution<double> noise(0.0, 1.0);
  for (int trial = 0; trial < 40; ++trial) {
    std::vector<double> v(60);
    double x = 0, step = 0;
    for (double& s : v) s = x += step += 0.3 * noise(random);  // a smooth random walk
    const double tol = MarkTolerance(v);
    std::vector<uint8_t> tracked(v.size(), 0), rescanned(v.size(), 0);
    MarkPeaksValleysInflections(v, tol, tracked);

    size_t last_key = 0;
    for (size_t i = 1; i + 1 < v.size(); ++i) {
      const double d1 = v[i] - v[i - 1], d2 = v[i + 1] - v[i];
      const bool abrupt = std::fabs(d1) * 5 < std::fabs(d2) || std::fabs(d2) * 5 < std::fabs(d1);
      rescanned[i] = abrupt;
      if (std::fabs(v[i] - v[last_key]) < tol) continue;
      bool key = (d1 > 0) != (d2 > 0);
      if (!key && i > 2) {
        const double c = d1 - (v[i - 1] - v[i - 2]);
        if ((c <= 0) == (d2 - d1 > 0)) {
          const double slope = (v[i] - v[last_key]) / static_cast<double>(i - last_key);
          for (size_t j = last_key + 1; j <= i; ++j)
            key = key || std::fabs(v[j] - v[j - 1] - slope) > tol;
        }
      }
      if (key) rescanned[i] = 1;
      if (key || abrupt) last_key = i;
    }
    EXPECT_EQ(tracked, rescanned) << trial;
  }
}

TEST(KeyMarks, IntervalPlantedAndKeyList) {
  std::vector<uint8_t> marks(8, 0);
  MarkInterval(0, marks);  // no step: nothing
  EXPECT_EQ(BuildKeyList(marks), (std::vector<double>{0, 7}));
  MarkInterval(3, marks);
  const std::vector<uint8_t> planted = {0, 0, 1, 1, 0, 0, 0, 0, 1, 1};  // longer than F
  MarkPlanted(planted, marks);
  EXPECT_EQ(BuildKeyList(marks), (std::vector<double>{0, 2, 3, 6, 7}));
}

TEST(KeyMarks, MergesShiftedSourceKeyTimes) {
  const std::vector<double> keys = {0, 3, 6};
  // Inserted at 10, plotted from 12: source times shift by -2, unsorted on purpose.
  const std::vector<double> source = {5, 1, 2, 6.5, 9, std::nan(""), 5};
  EXPECT_EQ(MergeSourceKeyTimes(keys, source, 10, 12), (std::vector<double>{0, 3, 4.5, 6, 7}));
  EXPECT_EQ(MergeSourceKeyTimes(keys, {}, 10, 12), keys);
  EXPECT_EQ(MergeSourceKeyTimes({}, source, 0, 0), (std::vector<double>{1, 2, 5, 6.5, 9}));
  EXPECT_EQ(MergeSourceKeyTimes({}, std::vector<double>{3, 0, -0.5}, 0, 0),
            (std::vector<double>{0, 3}));
}

}  // namespace
}  // namespace kavor

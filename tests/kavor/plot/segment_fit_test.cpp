// Curve segments fitted through key frames: values between frames, slopes and broken keys,
// the handle search, and the error-driven key choice checked on the curve as the host plays it.
#include "kavor/plot/segment_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "anim/fcurve_eval.h"

namespace kavor {
namespace {

using Samples = std::vector<double>;
const Samples kSquares = {0, 1, 4, 9, 16, 25, 36};

// The curve a plot writes: each key's left handle from the segment ending there, its right
// handle from the one starting there.
std::vector<KRX::FCurveKeyData> HostKeys(const std::vector<SegmentFit>& fits) {
  std::vector<KRX::FCurveKeyData> k(fits.size() + 1);
  for (size_t n = 0; n < fits.size(); ++n) {
    const SegmentFit& f = fits[n];
    std::tie(k[n].time, k[n].value, k[n].right_dx, k[n].right_dy) =
        std::tuple(f.p0.x, f.p0.y, f.p1.x - f.p0.x, f.p1.y - f.p0.y);
    std::tie(k[n + 1].time, k[n + 1].value, k[n + 1].left_dx, k[n + 1].left_dy) =
        std::tuple(f.p3.x, f.p3.y, f.p2.x - f.p3.x, f.p2.y - f.p3.y);
  }
  return k;
}

TEST(SegmentFit, ValueBetweenFrames) {
  const Samples v = {0, 1, 4, 9};
  EXPECT_DOUBLE_EQ(ValueAt(v, 1.5), 2.5);
  EXPECT_DOUBLE_EQ(ValueAt(v, 2.5), 5.5);  // backward slope on the last interval
  EXPECT_DOUBLE_EQ(ValueAt(v, 2.5, {.interpolate_last_interval = true}), 6.5);
  EXPECT_DOUBLE_EQ(ValueAt(v, 4), 14);   // beyond the last frame: the last step continued
  EXPECT_DOUBLE_EQ(ValueAt(v, -1), -1);  // before the first: the first step
  EXPECT_DOUBLE_EQ(ValueAt(Samples{2, 4}, 0.25), 2.5);
  EXPECT_DOUBLE_EQ(ValueAt(Samples{2}, 7), 2);
  EXPECT_TRUE(std::isnan(ValueAt({}, 0)));
  EXPECT_TRUE(std::isnan(ValueAt(v, std::nan(""))));
}

TEST(SegmentFit, HandleSearchKnownAnswers) {
  const auto expect = [](const SegmentFit& f, double x1, double y1, double x2, double y2,
                         double error) {
    const double got[] = {f.p1.x, f.p1.y, f.p2.x, f.p2.y, f.search_error};
    const double want[] = {x1, y1, x2, y2, error};
    for (int i = 0; i < 5; ++i) EXPECT_NEAR(got[i], want[i], 1e-12) << i;
  };
  // i^2 from 0 to 6: slopes 1 and 11, la = lb = 12. The data is read at x - start, so the
  // answer moves with the start frame.
  expect(FitSegment(kSquares, 0, 6, 0), 2.4, 2.4, 3.6, 9.6, 0.1856);
  expect(FitSegment(kSquares, 0, 6, 10), 12.4, 2.4, 13.6, 9.6, 0.1856);
  // A constant fits every candidate exactly: the first one (3 thirtieths) is kept.
  expect(FitSegment(Samples(11, 2.0), 0, 10, 0), 1, 2, 9, 2, 0);
  // A step wants long flat handles: the search reaches 29 thirtieths.
  expect(FitSegment(Samples{0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1}, 0, 10, 0), 25.0 / 3, 0, 1.0 / 3, 1,
         0.104);
  // Three frames: the last interval is measured too, never beyond it.
  expect(FitSegment(Samples{0, 1, 4}, 0, 2, 0), 1.2, 1.2, 0.8, 0.4, 0.0224);
  // One frame apart: no search, handles of 0.333 with the mean slopes (3 + 5) / 2, (5 + 7) / 2.
  expect(FitSegment(kSquares, 2, 3, 0), 2.333, 4 + 4 * 0.333, 2.667, 9 - 6 * 0.333, 0);
  {  // Fractional ends: the first step's slope below index 1, the last one's above F - 2.
    const SegmentFit fit = FitSegment(kSquares, 0.5, 5.5, 0);
    EXPECT_NEAR((fit.p1.y - fit.p0.y) / (fit.p1.x - fit.p0.x), 1, 1e-12);
    EXPECT_NEAR((fit.p3.y - fit.p2.y) / (fit.p3.x - fit.p2.x), 11, 1e-12);
  }
}

TEST(SegmentFit, BrokenKeysTakeTheSegmentsSide) {
  // atan 0 against atan 5 differ by 1.373: broken, slope 5 on the side of the rise.
  const Samples v = {0, 0, 0, 5, 5, 5};
  const SegmentFit rise = FitSegment(v, 2, 3, 0);
  EXPECT_TRUE(rise.broken_a && rise.broken_b);
  EXPECT_DOUBLE_EQ(rise.p1.y, 5 * 0.333);
  EXPECT_DOUBLE_EQ(rise.p2.y, 5 - 5 * 0.333);
  EXPECT_DOUBLE_EQ(FitSegment(v, 0, 2, 0).p2.y, 0);  // the flat sides
  EXPECT_DOUBLE_EQ(FitSegment(v, 3, 5, 0).p1.y, 5);
  // A bend below 0.7 rad averages the two sides.
  const SegmentFit bend = FitSegment(Samples{0, 0.2, 0.6, 1.2}, 1, 2, 0);
  EXPECT_FALSE(bend.broken_a || bend.broken_b);
  EXPECT_DOUBLE_EQ(bend.p1.y, 0.2 + 0.3 * 0.333);
}

TEST(SegmentFit, ShortChannelsAndKeysBeyondThem) {
  EXPECT_TRUE(FitKeys(Samples{3}, Samples{0}, 0).empty());
  EXPECT_EQ(FitWithinTolerance(Samples{3}, {}, 0.1), (Samples{0}));
  const std::vector<SegmentFit> two = FitKeys(Samples{1, 3}, Samples{0, 1}, 5);
  ASSERT_EQ(two.size(), 1u);
  EXPECT_DOUBLE_EQ(EvaluateSegmentFit(two[0], 5.5), 2);
  EXPECT_EQ(FitKeys(kSquares, Samples{0, 3, 6, 7}, 0).size(), 2u);  // 7 lies beyond
}

TEST(SegmentFit, WithinToleranceKeepsEveryFrameClose) {
  std::mt19937 random(3);
  std::normal_distribution<double> noise(0.0, 0.05);
  Samples v(300);
  for (size_t i = 0; i < v.size(); ++i) {
    v[i] = 40 * std::sin(0.03 * i) + 10 * std::sin(0.11 * i) + noise(random);
  }
  for (const double tolerance : {0.5, 0.1}) {
    const Samples keys = FitWithinTolerance(v, {}, tolerance);
    ASSERT_GE(keys.size(), 2u);
    EXPECT_LT(keys.size(), v.size() / 3);
    const std::vector<KRX::FCurveKeyData> curve = HostKeys(FitKeys(v, keys, 0));
    for (size_t i = 0; i < v.size(); ++i) {
      ASSERT_LE(std::fabs(KRX::rt::EvaluateFCurve(curve, i) - v[i]), tolerance) << i;
    }
  }
  // A constant needs no keys between its ends; given keys inside stay.
  EXPECT_EQ(FitWithinTolerance(Samples(50, 2.0), {20, 80}, 0.01), (Samples{0, 20, 49}));
}

}  // namespace
}  // namespace kavor

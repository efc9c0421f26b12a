// Curve segments fitted through key frames: sample values between frames, slopes and
// broken keys, the handle search, the fitted curve against the host's evaluation, and the
// error-driven key choice.
#include "kavor/plot/segment_fit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "anim/fcurve_eval.h"
#include "kavor/plot/key_marks.h"

namespace kavor {
namespace {

std::vector<double> Squares(int count) {
  std::vector<double> v;
  for (int i = 0; i < count; ++i) v.push_back(i * i);
  return v;
}

// The keys a plot writes for the fitted segments: each key takes its left handle from the
// segment ending there and its right handle from the one starting there.
std::vector<KRX::FCurveKeyData> HostKeys(const std::vector<SegmentFit>& fits) {
  std::vector<KRX::FCurveKeyData> keys(fits.size() + 1);
  for (size_t n = 0; n < fits.size(); ++n) {
    const SegmentFit& f = fits[n];
    keys[n].time = f.p0.x;
    keys[n].value = f.p0.y;
    keys[n].right_dx = f.p1.x - f.p0.x;
    keys[n].right_dy = f.p1.y - f.p0.y;
    keys[n].interpolation = KRX::Interpolation::Bezier;
    keys[n + 1].time = f.p3.x;
    keys[n + 1].value = f.p3.y;
    keys[n + 1].left_dx = f.p2.x - f.p3.x;
    keys[n + 1].left_dy = f.p2.y - f.p3.y;
  }
  return keys;
}

TEST(SegmentFit, ValueBetweenFrames) {
  const std::vector<double> v = {0, 1, 4, 9};
  const SegmentFitOptions interpolate{.interpolate_last_interval = true};
  EXPECT_DOUBLE_EQ(ValueAt(v, 1.5), 2.5);
  EXPECT_DOUBLE_EQ(ValueAt(v, 2.5), 5.5);  // backward slope on the last interval
  EXPECT_DOUBLE_EQ(ValueAt(v, 2.5, interpolate), 6.5);
  EXPECT_DOUBLE_EQ(ValueAt(v, 3), 9);
  EXPECT_DOUBLE_EQ(ValueAt(v, 4), 14);   // beyond the last frame: the last step continued
  EXPECT_DOUBLE_EQ(ValueAt(v, -1), -1);  // before the first: the first step
  EXPECT_DOUBLE_EQ(ValueAt(std::vector<double>{2, 4}, 0.25), 2.5);
  EXPECT_DOUBLE_EQ(ValueAt(std::vector<double>{2}, 7), 2);
  EXPECT_TRUE(std::isnan(ValueAt({}, 0)));
  EXPECT_TRUE(std::isnan(ValueAt(v, std::nan(""))));
}

TEST(SegmentFit, HandleSearchKnownAnswer) {
  // i^2 from key 0 to key 6: slopes 1 and 11, initial handles at 0.333 of the segment;
  // the search keeps la = lb = 12 thirtieths. The data is read at x - start, so the
  // answer moves with the start frame.
  for (const double start : {0.0, 10.0}) {
    const SegmentFit fit = FitSegment(Squares(7), 0, 6, start);
    EXPECT_NEAR(fit.p1.x - start, 2.4, 1e-12);
    EXPECT_NEAR(fit.p1.y, 2.4, 1e-12);
    EXPECT_NEAR(fit.p2.x - start, 3.6, 1e-12);
    EXPECT_NEAR(fit.p2.y, 9.6, 1e-12);
    EXPECT_NEAR(fit.search_error, 0.1856, 1e-12);
    EXPECT_NEAR(fit.p2.y - fit.p3.y, -26.4, 1e-12);  // left tangent at 6
    EXPECT_FALSE(fit.broken_a || fit.broken_b);
  }
  {  // On a constant every candidate fits exactly: the first one (3 thirtieths) is kept.
    const SegmentFit fit = FitSegment(std::vector<double>(11, 2.0), 0, 10, 0);
    EXPECT_DOUBLE_EQ(fit.p1.x, 1);
    EXPECT_DOUBLE_EQ(fit.p2.x, 9);
  }
  {  // A step wants long flat handles: the search reaches the last length, 29 thirtieths,
     // measuring the last interval too.
    std::vector<double> step(11, 1.0);
    std::fill_n(step.begin(), 5, 0.0);
    const SegmentFit fit = FitSegment(step, 0, 10, 0);
    EXPECT_NEAR(fit.p1.x, 25.0 / 3, 1e-12);
    EXPECT_NEAR(fit.p2.x, 1.0 / 3, 1e-12);
    EXPECT_NEAR(fit.search_error, 0.104, 1e-12);
  }
  {  // Fractional ends: the first step's slope below index 1, the last one's above F - 2.
    const SegmentFit fit = FitSegment(Squares(7), 0.5, 5.5, 0);
    EXPECT_NEAR((fit.p1.y - fit.p0.y) / (fit.p1.x - fit.p0.x), 1, 1e-12);
    EXPECT_NEAR((fit.p3.y - fit.p2.y) / (fit.p3.x - fit.p2.x), 11, 1e-12);
  }
  {  // One frame apart: no search, the 0.333 handles stay.
    const SegmentFit fit = FitSegment(Squares(7), 2, 3, 0);
    EXPECT_DOUBLE_EQ(fit.p1.x, 2.333);
    EXPECT_DOUBLE_EQ(fit.p1.y, 4 + 4 * 0.333);  // slope (3 + 5) / 2
    EXPECT_DOUBLE_EQ(fit.p2.y, 9 - 6 * 0.333);
    EXPECT_EQ(fit.search_error, 0);
  }
}

TEST(SegmentFit, BrokenKeysTakeTheSegmentsSide) {
  const std::vector<double> v = {0, 0, 0, 5, 5, 5};
  {  // atan 0 against atan 5 differ by 1.373: broken, forward slope 5 after the corner...
    const SegmentFit fit = FitSegment(v, 2, 3, 0);
    EXPECT_TRUE(fit.broken_a);
    EXPECT_DOUBLE_EQ(fit.p1.y, 5 * 0.333);
    EXPECT_TRUE(fit.broken_b);  // ...and backward slope 5 before the one at 3
    EXPECT_DOUBLE_EQ(fit.p2.y, 5 - 5 * 0.333);
  }
  {  // The flat sides of the corners: slope 0.
    EXPECT_DOUBLE_EQ(FitSegment(v, 0, 2, 0).p2.y, 0);
    EXPECT_DOUBLE_EQ(FitSegment(v, 3, 5, 0).p1.y, 5);
  }
  {  // Bends below 0.7 rad average the two sides.
    const SegmentFit fit = FitSegment(std::vector<double>{0, 0.2, 0.6, 1.2}, 1, 2, 0);
    EXPECT_FALSE(fit.broken_a || fit.broken_b);
    EXPECT_DOUBLE_EQ(fit.p1.y, 0.2 + 0.3 * 0.333);
  }
}

// The fitted curve as the host's function curves play it: keys at p0 and p3 with the
// segment's handles.
TEST(SegmentFit, EvaluatesAsTheHostCurve) {
  std::vector<double> v(40);
  for (size_t i = 0; i < v.size(); ++i) v[i] = 30 * std::sin(0.2 * i) + 0.5 * i;
  for (const auto& [a, b] : {std::pair{0.0, 7.0}, {7.0, 8.0}, {8.0, 39.0}, {3.5, 12.25}}) {
    const SegmentFit fit = FitSegment(v, a, b, 100);
    const std::vector<KRX::FCurveKeyData> keys = HostKeys({fit});
    for (double t = fit.p0.x; t <= fit.p3.x; t += 0.25) {
      EXPECT_NEAR(EvaluateSegmentFit(fit, t), KRX::rt::EvaluateFCurve(keys, t), 1e-9) << t;
    }
    EXPECT_EQ(EvaluateSegmentFit(fit, fit.p3.x), fit.p3.y);
  }
}

TEST(SegmentFit, ShortChannels) {
  {  // One frame: no segment.
    EXPECT_TRUE(FitKeys(std::vector<double>{3}, std::vector<double>{0}, 0).empty());
    EXPECT_EQ(FitWithinTolerance(std::vector<double>{3}, {}, 0.1), (std::vector<double>{0}));
  }
  {  // Two frames: one exact segment.
    const std::vector<double> v = {1, 3};
    const std::vector<SegmentFit> fits = FitKeys(v, BuildKeyList(std::vector<uint8_t>(2)), 5);
    ASSERT_EQ(fits.size(), 1u);
    EXPECT_DOUBLE_EQ(EvaluateSegmentFit(fits[0], 5.5), 2);
  }
  {  // Three frames: the search measures the last interval too, never beyond it.
    const SegmentFit fit = FitSegment(std::vector<double>{0, 1, 4}, 0, 2, 0);
    EXPECT_NEAR(fit.p1.x, 1.2, 1e-12);  // la = lb = 18
    EXPECT_NEAR(fit.p2.x, 0.8, 1e-12);
    EXPECT_NEAR(fit.search_error, 0.0224, 1e-12);
  }
  {  // A key beyond the samples ends the fitting.
    EXPECT_EQ(FitKeys(Squares(7), std::vector<double>{0, 3, 6, 7}, 0).size(), 2u);
  }
}

TEST(SegmentFit, WithinToleranceKeepsEveryFrameClose) {
  std::mt19937 random(3);
  std::normal_distribution<double> noise(0.0, 0.05);
  std::vector<double> v(300);
  for (size_t i = 0; i < v.size(); ++i) {
    v[i] = 40 * std::sin(0.03 * i) + 10 * std::sin(0.11 * i) + noise(random);
  }
  for (const double tolerance : {0.5, 0.1}) {
    const std::vector<double> keys = FitWithinTolerance(v, {}, tolerance);
    ASSERT_GE(keys.size(), 2u);
    EXPECT_EQ(keys.front(), 0);
    EXPECT_EQ(keys.back(), 299);
    const std::vector<KRX::FCurveKeyData> curve = HostKeys(FitKeys(v, keys, 0));
    for (size_t i = 0; i < v.size(); ++i) {
      ASSERT_LE(std::fabs(KRX::rt::EvaluateFCurve(curve, i) - v[i]), tolerance) << i;
    }
    EXPECT_LT(keys.size(), v.size() / 3);
  }
  {  // A constant needs no keys between its ends; kept keys stay.
    const std::vector<double> flat(50, 2.0);
    EXPECT_EQ(FitWithinTolerance(flat, {20, 80}, 0.01), (std::vector<double>{0, 20, 49}));
  }
}

}  // namespace
}  // namespace kavor

#include "anim/fcurve_eval.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace KRX::rt {
namespace {

using I = Interpolation;
using Keys = std::vector<FCurveKeyData>;

FCurveKeyData Key(double t, double v, I interpolation, double ldx = -1, double ldy = 0,
                  double rdx = 1, double rdy = 0) {
  return {t, v, ldx, ldy, rdx, rdy, interpolation};
}

// (frame, expected value) pairs.
void ExpectTable(const Keys& keys, const std::vector<std::pair<double, double>>& table,
                 double tolerance) {
  for (const auto& [f, v] : table) EXPECT_NEAR(EvaluateFCurve(keys, f), v, tolerance) << f;
}

TEST(FCurveEval, EmptySingleAndExtrapolation) {
  EXPECT_EQ(EvaluateFCurve({}, 3.0), 0.0);
  ExpectTable({Key(5, 2.5, I::Bezier)}, {{-1e9, 2.5}, {5, 2.5}, {5 + 1e-7, 2.5}, {1e9, 2.5}}, 0);
  const Keys keys = {Key(10, -3, I::Linear), Key(20, 7, I::Linear)};
  ExpectTable(keys, {{-100, -3}, {10 - 1e-7, -3}, {20 + 1e-7, 7}, {1e6, 7}}, 0);
  EXPECT_EQ(EvaluateFCurve(keys, std::numeric_limits<double>::quiet_NaN()), -3);
}

TEST(FCurveEval, ConstantAndLinearTables) {
  // Each segment uses the interpolation of the key that starts it.
  const Keys keys = {Key(0, 1, I::Constant), Key(10, 5, I::Linear), Key(14, -3, I::Constant),
                     Key(20, 4, I::Linear)};
  ExpectTable(keys,
              {{0, 1},
               {1e-7, 1},
               {10 - 1e-7, 1},
               {10, 5},
               {10 + 1e-7, 5 - 2e-7},
               {11, 3},
               {13, -1},
               {14 - 1e-7, -3 + 2e-7},
               {14, -3},
               {20 - 1e-7, -3},
               {20, 4}},
              1e-12);
}

TEST(FCurveEval, BezierClosedForms) {
  {  // Control points on a line give that line, for any handle lengths; handles past the
     // segment are scaled back onto it, slope kept.
    const Keys keys = {Key(2, 1, I::Bezier, -1, -0.5, 1, 0.5),
                       Key(8, 4, I::Bezier, -3, -1.5, 20, 10), Key(12, 6, I::Bezier, -40, -20)};
    for (double f = 2; f <= 12; f += 0.125) EXPECT_NEAR(EvaluateFCurve(keys, f), f / 2, 1e-12);
  }
  {  // Flat handles at thirds: 3u^2 - 2u^3 with u = (f - t0) / L.
    const Keys keys = {Key(0, 0, I::Bezier), Key(3, 1, I::Bezier)};
    EXPECT_NEAR(EvaluateFCurve(keys, 1.5), 0.5, 1e-14);
    for (double u : {1e-7, 0.1, 0.25, 0.7, 1 - 1e-7}) {
      EXPECT_NEAR(EvaluateFCurve(keys, 3 * u), 3 * u * u - 2 * u * u * u, 1e-13) << u;
    }
  }
  {  // Handles at thirds rising by 2: 6u(1 - u).
    const Keys keys = {Key(0, 0, I::Bezier, -1, 0, 1, 2), Key(3, 0, I::Bezier, -1, 2)};
    ExpectTable(keys, {{1, 4.0 / 3.0}, {1.5, 1.5}, {2.4, 6 * 0.8 * 0.2}, {3, 0}}, 1e-13);
  }
  {  // Zero-length handles: time and value share one parameterisation, so the line.
    const Keys keys = {Key(1, 2, I::Bezier, 0, 0, 0), Key(5, -6, I::Bezier, 0, 0, 0)};
    for (double f : {1 + 1e-7, 1.3, 2.9, 3.0, 4.2, 5 - 1e-4, 5 - 1e-7}) {
      EXPECT_NEAR(EvaluateFCurve(keys, f), 2 - 2 * (f - 1), 1e-11) << f;
    }
  }
}

TEST(FCurveEval, BezierExtremeHandles) {
  {  // Handles past the segment act as full-length ones. With control abscissae 0, L, 0, L
     // the curve is f = L(3s - 6s^2 + 4s^3), value 3s^2 - 2s^3.
    const Keys keys = {Key(0, 0, I::Bezier, -50, 0, 50), Key(2, 1, I::Bezier, -50, 0, 50)};
    for (double s : {0.01, 0.1, 0.25, 0.5, 0.6, 0.999}) {
      const double f = 2 * (3 * s - 6 * s * s + 4 * s * s * s);
      EXPECT_NEAR(EvaluateFCurve(keys, f), 3 * s * s - 2 * s * s * s, 1e-10) << s;
    }
    double previous = 0;
    for (int i = 0; i <= 2000; ++i) {  // monotonic in time, within the key values
      const double v = EvaluateFCurve(keys, i / 1000.0);
      EXPECT_TRUE(v >= previous && v <= 1.0) << i;
      previous = v;
    }
  }
  {  // Vertical, backward and overflowing handles: finite, inside the control hull.
    const double big = 1.7e308;
    const Keys keys = {Key(0, 0, I::Bezier, 0, 0, 0, 5), Key(1, 1, I::Bezier, 0, -5, -1, 3),
                       Key(2, 0, I::Bezier, 1, 0, 1e-300, big), Key(3, big, I::Bezier, -1, big)};
    for (int i = 0; i <= 3000; ++i) {
      const double v = EvaluateFCurve(keys, i / 1000.0);
      ASSERT_TRUE(std::isfinite(v)) << i;
      EXPECT_TRUE(i >= 2000 || (v >= -4 - 1e-9 && v <= 5 + 1e-9)) << i;
    }
  }
}

}  // namespace
}  // namespace KRX::rt

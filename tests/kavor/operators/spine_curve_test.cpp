// The spine curve: its samples, where the joints fall on it, and the twist kept continuous.
#include "kavor/operators/spine_curve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace kavor {
namespace {

using KRX::MATH::CVector3;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(SpineCurve, SamplesFollowTheCubic) {
  const CVector3 p0(0, 0, 0), p1(0, 3, 0), p2(2, 3, 1), p3(4, 4, 0);
  const SpineCurveSamples s = SampleSpineCurve(p0, p1, p2, p3);
  EXPECT_TRUE(s[25].Equals((p0 + p1 * 3 + p2 * 3 + p3) * 0.125, 1e-15));
  EXPECT_TRUE(s[50].Equals(p3, 1e-15));
}

TEST(SpineCurve, JointPointsWalkTheBoneLengths) {
  const CVector3 up(0, 1, 0);
  const SpineCurveSamples line = SampleSpineCurve({}, {}, up, up);  // no tangents
  using Rule = SpinePointRule;
  const struct {
    Rule rule;
    std::vector<double> bones, expected_y;
  } cases[] = {
      // Short of the goal: the sample fraction drifts past the bone lengths.
      {Rule::kSampleFraction, {0.3, 0.3, 0.3}, {0.32104, 0.64542, 0.94591}},
      {Rule::kBoneLength, {0.3, 0.3, 0.3}, {0.3, 0.6, 0.9}},
      // Past the goal, with no goal tangent: on along the curve's last direction.
      {Rule::kSampleFraction, {0.3, 0.5, 0.4, 0.3}, {0.32104, 0.83126, 1.23126, 1.53126}},
      {Rule::kBoneLength, {0.3, 0.5, 0.4, 0.3}, {0.3, 0.8, 1.2, 1.5}},
      {Rule::kBoneLength, {0.3, kNaN, 0.3}, {0.3, 0.3, 0.6}},  // no number: stays put
  };
  for (const auto& c : cases) {
    std::vector<CVector3> points(c.bones.size());
    PlaceSpinePoints(line, up, up, c.bones, points, c.rule);
    for (size_t i = 0; i < points.size(); ++i) {
      EXPECT_TRUE(points[i].Equals(CVector3(0, c.expected_y[i], 0), 1e-5))
          << i << ": " << points[i].GetY();
    }
  }
  // Bent: each joint at its bone's length from the last, then straight for the goal, then
  // on along the goal tangent.
  const CVector3 p2(0.5, 1, 0), p3(1, 1, 0);
  const std::vector<double> bones{0.4, 0.4, 0.4, 0.5, 0.5};
  std::vector<CVector3> points(bones.size());
  PlaceSpinePoints(SampleSpineCurve({}, up * 0.5, p2, p3), p2, p3, bones, points,
                   Rule::kBoneLength);
  for (size_t i = 0; i < points.size(); ++i) {
    EXPECT_NEAR((points[i] - (i ? points[i - 1] : CVector3())).GetLength(), bones[i], 1e-12) << i;
  }
  CVector3 towards_goal = p3 - points[2];
  towards_goal.NormalizeInPlace();
  EXPECT_TRUE(points[3].Equals(points[2] + towards_goal * 0.5, 1e-12));
  EXPECT_TRUE(points[4].Equals(points[3] + CVector3(0.5, 0, 0), 1e-12));
}

TEST(SpineCurve, TwistKeepsCountingWholeTurns) {
  EXPECT_NEAR(ContinuousTwist(3.0, -3.0), 3.28318530718, 1e-10);
  EXPECT_NEAR(ContinuousTwist(7.0, 0.8), 7.08318530718, 1e-10);
  EXPECT_NEAR(ContinuousTwist(-3.0, 3.0), -3.28318530718, 1e-10);
  EXPECT_NEAR(ContinuousTwist(ContinuousTwist(3.0, -3.0), -3.0), 3.28318530718, 1e-9);  // again
  EXPECT_EQ(ContinuousTwist(2.0, kNaN), 2.0);
  // One and a half turns in 24 steps, each measured wrapped into (-pi, pi].
  double twist = 0;
  for (int k = 1; k <= 24; ++k) {
    twist = ContinuousTwist(twist, std::remainder(k * 3 * KRX::MATH::kPi / 24, 2 * KRX::MATH::kPi));
  }
  EXPECT_NEAR(twist, 9.424778, 1e-6);
}

}  // namespace
}  // namespace kavor

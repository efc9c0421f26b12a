// The spine curve: its samples, where the joints fall on it, and the twist kept continuous.
#include "kavor/operators/spine_curve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace kavor {
namespace {

using KRX::MATH::CVector3;

std::vector<CVector3> Place(const SpineCurveSamples& samples, const CVector3& p2,
                            const CVector3& p3, std::vector<double> bones, SpinePointRule rule) {
  std::vector<CVector3> points(bones.size(), CVector3(-9, -9, -9));
  PlaceSpinePoints(samples, p2, p3, bones, points, rule);
  return points;
}

TEST(SpineCurve, SamplesFollowTheCubic) {
  const CVector3 p0(0, 0, 0), p1(0, 3, 0), p2(2, 3, 1), p3(4, 4, 0);
  const SpineCurveSamples s = SampleSpineCurve(p0, p1, p2, p3);
  EXPECT_EQ(s[0], p0);
  EXPECT_TRUE(s[50].Equals(p3, 1e-15));
  EXPECT_TRUE(s[25].Equals((p0 + p1 * 3 + p2 * 3 + p3) * 0.125, 1e-15));
  EXPECT_TRUE(s[10].Equals(p0 * 0.512 + p1 * 0.384 + p2 * 0.096 + p3 * 0.008, 1e-15));
}

TEST(SpineCurve, JointPointsWalkTheBoneLengths) {
  const CVector3 origin, up(0, 1, 0);
  const SpineCurveSamples line = SampleSpineCurve(origin, origin, up, up);  // zero tangents
  const struct {
    SpinePointRule rule;
    std::vector<double> bones, expected_y;
  } cases[] = {
      // Short of the goal: the sample fraction drifts past the bone lengths.
      {SpinePointRule::kSampleFraction, {0.3, 0.3, 0.3}, {0.32104, 0.64542, 0.94591}},
      {SpinePointRule::kBoneLength, {0.3, 0.3, 0.3}, {0.3, 0.6, 0.9}},
      // Past the goal, with no goal tangent: on along the curve's last direction.
      {SpinePointRule::kSampleFraction, {0.3, 0.5, 0.4, 0.3}, {0.32104, 0.83126, 1.23126, 1.53126}},
      {SpinePointRule::kBoneLength, {0.3, 0.5, 0.4, 0.3}, {0.3, 0.8, 1.2, 1.5}},
      // A length that is no number leaves that joint on the previous one.
      {SpinePointRule::kBoneLength,
       {0.3, std::numeric_limits<double>::quiet_NaN(), 0.3},
       {0.3, 0.3, 0.6}},
  };
  for (const auto& c : cases) {
    const std::vector<CVector3> points = Place(line, up, up, c.bones, c.rule);
    for (size_t i = 0; i < points.size(); ++i) {
      EXPECT_TRUE(points[i].Equals(CVector3(0, c.expected_y[i], 0), 1e-5))
          << c.bones.size() << " " << i << ": " << points[i].GetY();
    }
  }
  {  // A bent curve: each joint at its bone's length from the last, then towards the goal and
     // on along the goal tangent.
    const CVector3 p2(0.5, 1, 0), p3(1, 1, 0);
    const std::vector<double> bones{0.4, 0.4, 0.4, 0.5, 0.5};
    const std::vector<CVector3> points =
        Place(SampleSpineCurve(origin, CVector3(0, 0.5, 0), p2, p3), p2, p3, bones,
              SpinePointRule::kBoneLength);
    CVector3 previous = origin;
    for (size_t i = 0; i < points.size(); ++i) {
      EXPECT_NEAR((points[i] - previous).GetLength(), bones[i], 1e-12) << i;
      previous = points[i];
    }
    EXPECT_LT(points[2].GetX(), 1.0);
    const CVector3 towards_goal = (p3 - points[2]) * (1 / (p3 - points[2]).GetLength());
    EXPECT_TRUE(points[3].Equals(points[2] + towards_goal * 0.5, 1e-12));
    EXPECT_TRUE(points[4].Equals(points[3] + CVector3(0.5, 0, 0), 1e-12));
  }
}

TEST(SpineCurve, TwistKeepsCountingWholeTurns) {
  EXPECT_NEAR(ContinuousTwist(3.0, -3.0), 3.28318530718, 1e-10);
  EXPECT_NEAR(ContinuousTwist(7.0, 0.8), 7.08318530718, 1e-10);
  EXPECT_NEAR(ContinuousTwist(-3.0, 3.0), -3.28318530718, 1e-10);
  // One and a half turns in 24 steps, each measured wrapped into (-pi, pi].
  double twist = 0;
  for (int k = 1; k <= 24; ++k) {
    const double turned = k * 3 * KRX::MATH::kPi / 24;
    twist = ContinuousTwist(twist, std::atan2(std::sin(turned), std::cos(turned)));
  }
  EXPECT_NEAR(twist, 9.424778, 1e-6);
  EXPECT_NEAR(ContinuousTwist(twist, 3.0 - 2 * KRX::MATH::kPi), ContinuousTwist(twist, 3.0), 1e-9);
  // The same frame measured again keeps the stored twist; a measure that is no number too.
  EXPECT_NEAR(ContinuousTwist(ContinuousTwist(3.0, -3.0), -3.0), 3.28318530718, 1e-9);
  EXPECT_EQ(ContinuousTwist(2.0, std::numeric_limits<double>::quiet_NaN()), 2.0);
}

}  // namespace
}  // namespace kavor

// The curve a spine bends along, and where the spine's joints fall on it.
#pragma once

#include <array>
#include <span>

#include "krx/math.h"

namespace kavor {

inline constexpr int kSpineCurveSamples = 51;
using SpineCurveSamples = std::array<KRX::MATH::CVector3, kSpineCurveSamples>;

// The cubic Bezier curve through p0 and p3 with inner control points p1 and p2, sampled at
// t = 0, 0.02, ..., 1.
SpineCurveSamples SampleSpineCurve(const KRX::MATH::CVector3& p0, const KRX::MATH::CVector3& p1,
                                   const KRX::MATH::CVector3& p2, const KRX::MATH::CVector3& p3);

// How a joint point is placed between the two curve samples around its bone's length.
enum class SpinePointRule {
  // At the fraction |a - c| / |b - c| from sample a (c the previous point, b the first sample
  // farther than the bone's length): the joints drift slightly beyond their bone lengths.
  kSampleFraction,
  // At exactly the bone's length from the previous point on the segment a-b.
  kBoneLength,
};

// Walks the bone lengths from p0 along the samples: each next joint point lies between the
// last sample within the bone's length of the previous point and the first one beyond it.
// When the samples run out, the next point continues from the previous one towards p3,
// and the further ones along the curve's end direction (p3 - p2, or the last segment's
// direction where that is undefined). `points` receives one point per bone length.
void PlaceSpinePoints(const SpineCurveSamples& samples, const KRX::MATH::CVector3& p2,
                      const KRX::MATH::CVector3& p3, std::span<const double> bone_lengths,
                      std::span<KRX::MATH::CVector3> points,
                      SpinePointRule rule = SpinePointRule::kSampleFraction);

// The twist measured this frame made continuous with the previous stored one: the
// difference to the previous twist's turn fraction is brought into [-pi, pi] once, so that
// the stored twist keeps counting whole turns.
double ContinuousTwist(double previous, double measured);

}  // namespace kavor

#include "kavor/operators/spine_curve.h"

#include <algorithm>
#include <cmath>

namespace kavor {

using KRX::MATH::CVector3;

namespace {

// The twist is kept with these constants so that stored twists read back as they were made.
constexpr double kTwistInverseTurn = 0.15915494309188485;
constexpr double kTwistTurn = 6.28318530718;
constexpr double kTwistHalfTurn = 3.1415927;

bool IsFinitePoint(const CVector3& v) {
  return std::isfinite(v.GetX()) && std::isfinite(v.GetY()) && std::isfinite(v.GetZ());
}

// The direction the curve leaves p3 with: p3 - p2, or where the goal tangent is zero, the
// last sample segment that has a length. Zero when the whole curve is one point.
CVector3 EndDirection(const SpineCurveSamples& samples, const CVector3& p2, const CVector3& p3) {
  CVector3 direction = p3 - p2;
  if (direction.NormalizeInPlace()) return direction;
  for (int i = kSpineCurveSamples - 1; i > 0; --i) {
    direction = samples[static_cast<size_t>(i)] - samples[static_cast<size_t>(i) - 1];
    if (direction.NormalizeInPlace()) return direction;
  }
  return CVector3();
}

// The point at `length` from `from` on the segment a-b, taking the farther of the two
// crossings; the segment's nearest point to that distance where the sphere misses it.
CVector3 PointAtDistance(const CVector3& a, const CVector3& b, const CVector3& from,
                         double length) {
  const CVector3 d = b - a;
  const CVector3 e = a - from;
  const double dd = d.Dot(d);
  if (!(dd > 0.0)) return b;
  const double de = d.Dot(e);
  const double discriminant = de * de - dd * (e.Dot(e) - length * length);
  const double s = (-de + std::sqrt(std::max(discriminant, 0.0))) / dd;
  return a + d * std::clamp(s, 0.0, 1.0);
}

}  // namespace

SpineCurveSamples SampleSpineCurve(const CVector3& p0, const CVector3& p1, const CVector3& p2,
                                   const CVector3& p3) {
  SpineCurveSamples samples;
  for (int i = 0; i < kSpineCurveSamples; ++i) {
    const double t = static_cast<double>(i) / (kSpineCurveSamples - 1);
    const double u = 1.0 - t;
    samples[static_cast<size_t>(i)] =
        p0 * (u * u * u) + p1 * (3.0 * t * u * u) + p2 * (3.0 * t * t * u) + p3 * (t * t * t);
  }
  return samples;
}

void PlaceSpinePoints(const SpineCurveSamples& samples, const CVector3& p2, const CVector3& p3,
                      std::span<const double> bone_lengths, std::span<CVector3> points,
                      SpinePointRule rule) {
  const size_t count = std::min(bone_lengths.size(), points.size());
  const CVector3 end_direction = EndDirection(samples, p2, p3);
  CVector3 current = IsFinitePoint(samples[0]) ? samples[0] : CVector3();
  size_t next_sample = 1;
  bool samples_used_up = false;
  for (size_t k = 0; k < count; ++k) {
    const double length = bone_lengths[k];
    CVector3 point;
    if (!samples_used_up) {
      size_t beyond = next_sample;
      while (beyond < samples.size() && !((samples[beyond] - current).GetLength() > length)) {
        ++beyond;
      }
      if (beyond < samples.size()) {
        const CVector3& a = samples[beyond - 1];
        const CVector3& b = samples[beyond];
        if (rule == SpinePointRule::kBoneLength) {
          point = PointAtDistance(a, b, current, length);
        } else {
          const double to_b = (b - current).GetLength();
          const double fraction = to_b > 0.0 ? (a - current).GetLength() / to_b : 0.0;
          point = a + (b - a) * fraction;
        }
        next_sample = beyond;
      } else {
        // The curve is shorter than the bones: head for its end, then carry on past it.
        samples_used_up = true;
        CVector3 direction = p3 - current;
        if (!direction.NormalizeInPlace()) direction = end_direction;
        point = current + direction * length;
      }
    } else {
      point = current + end_direction * length;
    }
    // A curve or bone length that is no number leaves the joint where the previous one is.
    if (IsFinitePoint(point)) current = point;
    points[k] = current;
  }
}

double ContinuousTwist(double previous, double measured) {
  if (!std::isfinite(measured)) return previous;
  if (!std::isfinite(previous)) return measured;
  // The previous twist's position within its turn, with the whole turns taken off.
  const double turns = previous * kTwistInverseTurn;
  double difference = measured - (turns - std::trunc(turns)) * kTwistTurn;
  if (difference > kTwistHalfTurn) {
    difference -= kTwistTurn;
  } else if (difference < -kTwistHalfTurn) {
    difference += kTwistTurn;
  }
  return previous + difference;
}

}  // namespace kavor

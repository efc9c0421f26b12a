#include "anim/sampled_curve.h"

#include <bit>
#include <cmath>
#include <cstdint>

#include "anim/fcurve_eval.h"

namespace KRX::rt {
namespace {

// Bit equality: -0.0 and 0.0 are written differently to scene files, so they must not be
// taken for each other.
bool Same(double a, double b) { return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b); }

bool HasDefaultHandles(const FCurveKeyData& key) {
  static const FCurveKeyData kDefault;
  return Same(key.left_dx, kDefault.left_dx) && Same(key.left_dy, kDefault.left_dy) &&
         Same(key.right_dx, kDefault.right_dx) && Same(key.right_dy, kDefault.right_dy);
}

}  // namespace

FCurveKeyData SampledCurve::KeyAt(size_t index) const {
  FCurveKeyData key;
  key.time = TimeAt(index);
  key.value = values[index];
  key.interpolation = interpolation;
  return key;
}

bool FitsSampledCurve(const std::vector<FCurveKeyData>& keys, const std::vector<bool>& computed) {
  if (keys.size() < 2) return false;
  const SampledCurve sampling{keys[0].time, keys[1].time - keys[0].time, keys[0].interpolation, {}};
  if (!(sampling.step > 0.0) || !std::isfinite(sampling.step)) return false;
  for (size_t i = 0; i < keys.size(); ++i) {
    const FCurveKeyData& key = keys[i];
    if (!Same(key.time, sampling.TimeAt(i)) || key.interpolation != sampling.interpolation ||
        !HasDefaultHandles(key) || key.constraints != 0 || (i < computed.size() && computed[i])) {
      return false;
    }
  }
  return true;
}

SampledCurve ToSampledCurve(const std::vector<FCurveKeyData>& keys) {
  SampledCurve curve;
  if (keys.empty()) return curve;
  curve.start = keys[0].time;
  curve.step = keys.size() > 1 ? keys[1].time - keys[0].time : 1.0;
  curve.interpolation = keys[0].interpolation;
  curve.values.reserve(keys.size());
  for (const FCurveKeyData& key : keys) curve.values.push_back(key.value);
  return curve;
}

std::vector<FCurveKeyData> ToKeys(const SampledCurve& curve) {
  std::vector<FCurveKeyData> keys;
  keys.reserve(curve.values.size());
  for (size_t i = 0; i < curve.values.size(); ++i) keys.push_back(curve.KeyAt(i));
  return keys;
}

bool ValidSampling(double start, double step, size_t count) {
  if (!std::isfinite(start) || !(step > 0.0) || !std::isfinite(step)) return false;
  const SampledCurve sampling{start, step, Interpolation::Linear, {}};
  // Far from zero a step can fall below the spacing of doubles: times would repeat.
  for (size_t i = 1; i < count; ++i) {
    if (!(sampling.TimeAt(i) > sampling.TimeAt(i - 1)) || !std::isfinite(sampling.TimeAt(i)))
      return false;
  }
  return true;
}

double EvaluateSampledCurve(const SampledCurve& curve, double frame) {
  const size_t count = curve.values.size();
  if (count == 0) return 0.0;
  // Written as negated comparisons so that a NaN frame gets the first key's value.
  if (!(frame > curve.start)) return curve.values.front();
  if (!(frame < curve.TimeAt(count - 1))) return curve.values.back();
  // The segment from its index, then corrected against the key times themselves, so that
  // rounding in the division never picks another segment than a search over the keys.
  const double estimate = std::floor((frame - curve.start) / curve.step);
  size_t lo =
      estimate > 0.0 ? static_cast<size_t>(std::fmin(estimate, static_cast<double>(count - 2))) : 0;
  while (lo > 0 && curve.TimeAt(lo) > frame) --lo;
  while (lo + 2 < count && curve.TimeAt(lo + 1) <= frame) ++lo;
  return EvaluateSegment(curve.KeyAt(lo), curve.KeyAt(lo + 1), frame);
}

}  // namespace KRX::rt

#include "anim/fcurve_edit.h"

#include <algorithm>
#include <cmath>

namespace KRX::rt {
namespace {

bool Fail(std::string* why, size_t index, const char* rule) {
  if (why) *why = "key " + std::to_string(index) + ": " + rule;
  return false;
}

}  // namespace

int InsertKey(std::vector<FCurveKeyData>& keys, const FCurveKeyData& key) {
  if (!std::isfinite(key.time) || !std::isfinite(key.value)) return -1;
  // Keys arriving in time order (imports, bakes) go to the end without a search.
  if (keys.empty() || key.time - keys.back().time >= kKeyTimeEpsilon) {
    keys.push_back(key);
    return static_cast<int>(keys.size() - 1);
  }
  // First key not earlier than the new time less the tolerance: either the key to
  // replace or the insertion point.
  const auto it = std::lower_bound(keys.begin(), keys.end(), key.time - kKeyTimeEpsilon,
                                   [](const FCurveKeyData& k, double t) { return k.time <= t; });
  if (it != keys.end() && std::fabs(it->time - key.time) < kKeyTimeEpsilon) {
    *it = key;
    return static_cast<int>(it - keys.begin());
  }
  const auto index = it - keys.begin();
  keys.insert(it, key);
  return static_cast<int>(index);
}

int NearestKeyIndex(const std::vector<FCurveKeyData>& keys, double time, double tolerance) {
  if (keys.empty() || !std::isfinite(time) || !(tolerance >= 0.0)) return -1;
  // Past the last key without a search: look-ups follow keys added in time order.
  const size_t after =
      time > keys.back().time
          ? keys.size()
          : static_cast<size_t>(
                std::lower_bound(keys.begin(), keys.end(), time,
                                 [](const FCurveKeyData& k, double t) { return k.time < t; }) -
                keys.begin());
  // The nearest key is the first one at or after `time`, or the one before it.
  int best = -1;
  double best_distance = tolerance;
  if (after > 0 && time - keys[after - 1].time <= best_distance) {
    best = static_cast<int>(after - 1);
    best_distance = time - keys[after - 1].time;
  }
  if (after < keys.size() && keys[after].time - time <= tolerance &&
      (best < 0 || keys[after].time - time < best_distance)) {
    best = static_cast<int>(after);
  }
  return best;
}

int NearestSampledIndex(double start, double step, size_t count, double time, double tolerance) {
  if (count == 0 || !std::isfinite(time) || !(tolerance >= 0.0)) return -1;
  auto time_at = [start, step](size_t i) { return start + static_cast<double>(i) * step; };
  // The key at or before `time` from its index, then corrected against the key times
  // themselves (the same times SampledCurve::TimeAt gives).
  const double estimate = std::floor((time - start) / step);
  size_t lo = estimate > 0.0
                  ? static_cast<size_t>(std::fmin(estimate, static_cast<double>(count - 1)))
                  : 0;
  while (lo > 0 && time_at(lo) > time) --lo;
  while (lo + 1 < count && time_at(lo + 1) <= time) ++lo;
  int best = -1;
  double best_distance = tolerance;
  const double d_lo = std::fabs(time - time_at(lo));
  if (d_lo <= best_distance) {
    best = static_cast<int>(lo);
    best_distance = d_lo;
  }
  if (lo + 1 < count) {
    const double d_hi = std::fabs(time_at(lo + 1) - time);
    if (d_hi <= tolerance && (best < 0 || d_hi < best_distance)) best = static_cast<int>(lo + 1);
  }
  return best;
}

void PutTangent(FCurveKeyData& key, bool left, double dx, double dy) {
  double& own_dx = left ? key.left_dx : key.right_dx;
  double& own_dy = left ? key.left_dy : key.right_dy;
  own_dx = left ? std::min(dx, 0.0) : std::max(dx, 0.0);
  own_dy = dy;
  if ((key.constraints & static_cast<int>(KeyConstraint::AlignTangents)) == 0) return;
  const double own_length = std::hypot(own_dx, own_dy);
  if (!(own_length > 0.0)) return;
  double& other_dx = left ? key.right_dx : key.left_dx;
  double& other_dy = left ? key.right_dy : key.left_dy;
  const double scale = std::hypot(other_dx, other_dy) / own_length;
  other_dx = -own_dx * scale;
  other_dy = -own_dy * scale;
}

void ComputeAutoTangents(std::vector<FCurveKeyData>& keys, size_t index) {
  if (index >= keys.size()) return;
  FCurveKeyData& k = keys[index];
  const bool has_prev = index > 0;
  const bool has_next = index + 1 < keys.size();
  const double left_length = has_prev ? k.time - keys[index - 1].time : 0.0;
  const double right_length = has_next ? keys[index + 1].time - k.time : 0.0;

  double left_dx = -left_length / 3.0;
  double right_dx = right_length / 3.0;
  if (!has_prev && !has_next) {
    left_dx = -1.0 / 3.0;
    right_dx = 1.0 / 3.0;
  } else if (!has_prev) {
    left_dx = -right_dx;
  } else if (!has_next) {
    right_dx = -left_dx;
  }

  double slope = 0.0;
  if (has_prev && has_next) {
    const double rise_in = k.value - keys[index - 1].value;
    const double rise_out = keys[index + 1].value - k.value;
    // Only a key between its neighbours gets a slope; extrema and plateaus stay flat.
    if (rise_in * rise_out > 0.0 && left_length > 0.0 && right_length > 0.0) {
      slope = (keys[index + 1].value - keys[index - 1].value) /
              (keys[index + 1].time - keys[index - 1].time);
      // Handle heights are slope * length / 3; keep each within its own segment's rise.
      const double limit =
          3.0 * std::min(std::fabs(rise_in) / left_length, std::fabs(rise_out) / right_length);
      slope = std::clamp(slope, -limit, limit);
      if (!std::isfinite(slope)) slope = 0.0;
    }
  }
  k.left_dx = left_dx;
  k.left_dy = slope * left_dx;
  k.right_dx = right_dx;
  k.right_dy = slope * right_dx;
}

void ComputeAutoTangents(std::vector<FCurveKeyData>& keys) {
  for (size_t i = 0; i < keys.size(); ++i) ComputeAutoTangents(keys, i);
}

bool ValidateKeys(const std::vector<FCurveKeyData>& keys, std::string* why) {
  for (size_t i = 0; i < keys.size(); ++i) {
    const FCurveKeyData& k = keys[i];
    if (!std::isfinite(k.time) || !std::isfinite(k.value) || !std::isfinite(k.left_dx) ||
        !std::isfinite(k.left_dy) || !std::isfinite(k.right_dx) || !std::isfinite(k.right_dy)) {
      return Fail(why, i, "number is not finite");
    }
    if (k.interpolation != Interpolation::Constant && k.interpolation != Interpolation::Linear &&
        k.interpolation != Interpolation::Bezier) {
      return Fail(why, i, "unknown interpolation");
    }
    if ((k.constraints & ~kKnownKeyConstraints) != 0) return Fail(why, i, "unknown key constraint");
    if (i > 0 && !(k.time > keys[i - 1].time)) {
      return Fail(why, i, "time is not after the previous key's");
    }
    if (k.left_dx > 0.0) return Fail(why, i, "left handle points forward in time");
    if (k.right_dx < 0.0) return Fail(why, i, "right handle points backward in time");
  }
  return true;
}

}  // namespace KRX::rt

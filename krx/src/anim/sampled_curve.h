// The compact form of a function curve that has a key on every step: keys `step` frames
// apart from `start`, all with one interpolation and the default handles of FCurveKeyData,
// none with computed tangents or constraints - what importers and bakes build from sampled motion. Key
// times are implicit and values are one flat array, 8 bytes a key instead of a full key
// record.
//
// A SampledCurve is another storage of the same keys, not another curve: KeyAt gives back
// the exact records the full form holds, and EvaluateSampledCurve gives the same value as
// EvaluateFCurve over those records, bit for bit.
#pragma once

#include <cstddef>
#include <vector>

#include "krx/property.h"

namespace KRX::rt {

struct SampledCurve {
  double start = 0.0;  // time of the first key (frames)
  double step = 1.0;   // frames between keys; > 0
  Interpolation interpolation = Interpolation::Linear;
  std::vector<double> values;  // one per key, in time order

  double TimeAt(size_t index) const { return start + static_cast<double>(index) * step; }
  // The full record of key `index` (< values.size()).
  FCurveKeyData KeyAt(size_t index) const;
};

// True when `keys` can be held as a SampledCurve without changing any bit of any key: at
// least two keys, key i exactly at TimeAt(i), one interpolation, the default handles, no
// constraint, and no computed-tangent flag set in `computed` (missing entries count as unset).
bool FitsSampledCurve(const std::vector<FCurveKeyData>& keys, const std::vector<bool>& computed);

// The compact form of keys for which FitsSampledCurve holds.
SampledCurve ToSampledCurve(const std::vector<FCurveKeyData>& keys);

// The full records of every key.
std::vector<FCurveKeyData> ToKeys(const SampledCurve& curve);

// True when the key times of a curve of `count` keys are finite and strictly increasing.
bool ValidSampling(double start, double step, size_t count);

// Value at `frame`; equal to EvaluateFCurve(ToKeys(curve), frame) for every frame, NaN
// included, without building a key.
double EvaluateSampledCurve(const SampledCurve& curve, double frame);

}  // namespace KRX::rt

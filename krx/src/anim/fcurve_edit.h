// Editing and checking of function-curve key arrays: inserting keys in time order, smooth
// tangents for keys set without explicit ones, and validation of keys read from files.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "krx/property.h"

namespace KRX::rt {

// Keys closer in time than this (frames) are the same key.
constexpr double kKeyTimeEpsilon = 1e-9;

// Replaces the key within kKeyTimeEpsilon of `key.time`, or inserts `key` so that the keys
// stay sorted by time. Returns the key's index, or -1 (nothing changed) when the key's
// time or value is not finite.
int InsertKey(std::vector<FCurveKeyData>& keys, const FCurveKeyData& key);

// Smooth tangents, as a keyframer sets them when a key is added without explicit ones:
// - each handle's dx is a third of the segment on its side (the first and last keys mirror
//   their only segment; a lone key keeps +-1/3 frame);
// - the slope is that of the line through the two neighbours, flat at the first and last
//   key and at local extrema (including plateaus);
// - the slope is then limited so that neither handle rises or falls past the neighbouring
//   key's value, which keeps every Bezier segment between its two key values.
// Only the handles of `keys[index]` change; an index out of range does nothing.
void ComputeAutoTangents(std::vector<FCurveKeyData>& keys, size_t index);
// The same for every key.
void ComputeAutoTangents(std::vector<FCurveKeyData>& keys);

// Checks keys taken from untrusted data: every number finite, a known interpolation, times
// strictly increasing, left_dx <= 0 <= right_dx. On failure `why` (when given) names the
// first offending key and rule.
[[nodiscard]] bool ValidateKeys(const std::vector<FCurveKeyData>& keys, std::string* why);

}  // namespace KRX::rt

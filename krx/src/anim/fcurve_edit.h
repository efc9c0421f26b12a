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

// KeyConstraint bits this host knows.
constexpr int kKnownKeyConstraints = static_cast<int>(KeyConstraint::AlignTangents);

// Replaces the key within kKeyTimeEpsilon of `key.time`, or inserts `key` so that the keys
// stay sorted by time. Returns the key's index, or -1 (nothing changed) when the key's
// time or value is not finite. A key after the last one is appended in O(1).
int InsertKey(std::vector<FCurveKeyData>& keys, const FCurveKeyData& key);

// Index of the key nearest to `time` among those within `tolerance` frames of it (the
// earlier one on a tie), or -1. Keys sorted by time; O(log n), O(1) for the last key.
int NearestKeyIndex(const std::vector<FCurveKeyData>& keys, double time, double tolerance);

// The same over keys at start + i * step, i < count, without building them.
int NearestSampledIndex(double start, double step, size_t count, double time, double tolerance);

// Puts one handle of `key` (the left one when `left`), its dx clamped to its side of the
// key. With AlignTangents set, the other handle turns to the opposite direction, keeping
// its length (it stays as it is when the new handle has no length).
void PutTangent(FCurveKeyData& key, bool left, double dx, double dy);

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

// Checks keys taken from untrusted data: every number finite, a known interpolation, only
// known constraint bits, times strictly increasing, left_dx <= 0 <= right_dx. On failure `why` (when given) names the
// first offending key and rule.
[[nodiscard]] bool ValidateKeys(const std::vector<FCurveKeyData>& keys, std::string* why);

}  // namespace KRX::rt

// Evaluation of function curves given as key arrays. These are pure functions over keys
// sorted by strictly increasing time (see ValidateKeys); the curve handles of the runtime
// call them, and so do importers and benchmarks that never build a scene.
#pragma once

#include <vector>

#include "krx/property.h"

namespace KRX::rt {

// Value of the curve at `frame` (frames).
// - No keys: 0. Before the first key: the first key's value; after the last key: the last
//   key's value (constant extrapolation).
// - The segment from key i to key i+1 follows key i's interpolation:
//   Constant holds key i's value up to (not including) the next key's time;
//   Linear is the straight line between the two keys;
//   Bezier is the 2D cubic with control points (t_i, v_i), key i's right handle, key
//   i+1's left handle and (t_i+1, v_i+1). Each handle is scaled down (keeping its
//   direction) so that its dx lies within the segment, which keeps the curve a function of
//   time; the curve parameter is then solved for `frame` to about 1e-13 of the segment.
// - At a key's time the result is exactly that key's value.
// Finite keys and a finite frame always give a finite result. Unknown interpolation values
// are evaluated as Linear.
double EvaluateFCurve(const std::vector<FCurveKeyData>& keys, double frame);

// Value at `frame` on the segment from `k0` to `k1`, for k0.time <= frame < k1.time: the
// part of EvaluateFCurve after the segment search, shared by the compact curves.
double EvaluateSegment(const FCurveKeyData& k0, const FCurveKeyData& k1, double frame);

// Time of the first and last key (frames). False, and outputs untouched, when there are
// no keys.
bool KeyRange(const std::vector<FCurveKeyData>& keys, double* first, double* last);

}  // namespace KRX::rt

// Choosing the frames that become keys when a sampled channel is reduced: Euler unrolling
// of the sampled angles, the marks for peaks, valleys, inflection points, interval and
// planted frames, the key list built from the marks, and merging in the key times of the
// curves the motion came from.
//
// Pure functions over one channel's samples v[0 .. F-1] (frame index i = frame - start).
// A mark row holds one byte per frame; any non-zero byte marks the frame.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kavor {

// The half and whole turns used by unrolling (plotted rotations are then converted to
// degrees with kRadiansToDegrees of kavor/host/host.h). These literal values are what
// plotted curves have always been made with; the exact values of pi would move unrolled
// angles by about 1e-12 rad per turn.
inline constexpr double kUnrollHalfTurn = 3.14159265359;
inline constexpr double kUnrollTurn = 6.2831853071796;

// `angle` (radians) moved by whole turns to within half a turn of `previous`: while
// angle - previous > kUnrollHalfTurn one turn is subtracted, then while it is below
// -kUnrollHalfTurn one turn is added. A non-finite angle or previous comes back unchanged.
// Angles many turns away are brought close in one step first, so the call always ends.
double UnrollAngle(double angle, double previous);

// Marking tolerance of a channel: (max - min) x 0.03 over its samples; 0 for no samples.
double MarkTolerance(std::span<const double> v);

// Marks peaks, valleys and inflection points of v with tolerance `tol` (marks has v's
// size). Nothing is marked for fewer than three samples. Walking i = 1 .. F-2 with
// d1 = v[i] - v[i-1], d2 = v[i+1] - v[i] and a last key (initially 0):
// 1. an abrupt change of step (|d1| x 5 < |d2| or |d2| x 5 < |d1|) marks i;
// 2. only when |v[i] - v[lastKey]| >= tol:
//    - a peak (d1 > 0, d2 <= 0) or valley (d1 <= 0, d2 > 0) marks i and makes it the last key;
//    - otherwise, for i > 2, a change of sign of the second difference (c = d1 - previous
//      step; c <= 0 and d2 - d1 > 0, or c > 0 and d2 - d1 <= 0) marks i and makes it the
//      last key, unless the stretch from the last key to i is straight (every step in it
//      within tol of the stretch's mean slope);
//    - a frame marked by rule 1 becomes the last key.
// Runs in O(F): the straightness test keeps the smallest and largest step since the last
// key instead of rescanning the stretch.
void MarkPeaksValleysInflections(std::span<const double> v, double tol, std::span<uint8_t> marks);

// Marks indices 0, step, 2 x step, ... below marks.size(). A step below 1 marks nothing.
void MarkInterval(int step, std::span<uint8_t> marks);

// ORs a row of planted flags (1 where a limb end stands still) into the marks; the shorter
// of the two rows decides how many frames are touched.
void MarkPlanted(std::span<const uint8_t> planted, std::span<uint8_t> marks);

// Key frame indices: every marked index plus 0 and F-1, ascending, each once (F = size of
// marks). Empty for no frames, {0} for one. Indices are held as doubles because merged
// source key times may fall between frames.
std::vector<double> BuildKeyList(std::span<const uint8_t> marks);

// The key list merged with the key times of a source curve, shifted to frame indices:
// s = insertion_frame + time - start. Both lists are walked in ascending order and the
// smaller value taken; a shifted time below 0 (or not finite) is skipped, and a value equal
// to the one taken last is taken once. `keys` must be ascending; the source times are
// sorted here.
std::vector<double> MergeSourceKeyTimes(std::span<const double> keys,
                                        std::span<const double> source_times,
                                        double insertion_frame, double start);

}  // namespace kavor

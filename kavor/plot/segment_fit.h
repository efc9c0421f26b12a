// Fitting a sampled channel with cubic Bezier segments between chosen key frames: the
// sample value at fractional frame indices, the slope and broken-tangent rule at a key,
// the bounded search for handle lengths, and an error-driven choice of keys.
//
// Pure functions over one channel's samples v[0 .. F-1]; frame index i is frame start + i.
// Segment times and control points are in frames (x) and channel units (y).
#pragma once

#include <span>
#include <vector>

namespace kavor {

struct CurvePoint {
  double x = 0.0;  // time, frames
  double y = 0.0;  // value
};

struct SegmentFitOptions {
  // Between the last two samples, ValueAt continues the slope of the interval before them
  // (v = [0, 1, 4, 9] at 2.5 gives 5.5) by default. True interpolates there too (6.5),
  // which only changes fits that start or end at a fractional index in the last interval.
  bool interpolate_last_interval = false;
};

// One Bezier segment of the curve from key index a to key index b: p0 = (start + a, v(a)),
// p3 = (start + b, v(b)); p1 and p2 are the handle ends. A broken key takes its tangent on
// this segment's side from one side of the data only (see FitSegment).
struct SegmentFit {
  CurvePoint p0, p1, p2, p3;
  bool broken_a = false;
  bool broken_b = false;
  // Largest |curve - data| at the four points the handle search measures; 0 when the
  // segment is shorter than two frames (no search).
  double search_error = 0.0;
};

// v at fractional index t: with i = floor(t), r = t - i,
//   v[i] + (v[i+1] - v[i]) r   when t < F - 2 (t < F - 1 with interpolate_last_interval),
//   v[i] + (v[i] - v[i-1]) r   otherwise when i > 0,
//   v[0] + (v[F-1] - v[F-2]) r otherwise.
// Indices are kept inside the samples: before 0 the first step is continued, beyond F - 1
// the last one. No samples or a non-finite t give NaN; one sample gives v[0].
double ValueAt(std::span<const double> v, double t, const SegmentFitOptions& options = {});

// Fits the segment from key index a to key index b (0 <= a < b):
// - slope at a: v[1] - v[0] when a < 1; otherwise with back = v(a) - v(a-1) and
//   fwd = v(a+1) - v(a) the key is broken when |atan(back) - atan(fwd)| >= 0.7 and its
//   slope is fwd, else (back + fwd) / 2. At b likewise (v[F-1] - v[F-2] when b > F - 2;
//   a broken key takes back);
// - handles of 0.333 x (b - a) along these slopes;
// - for b - a >= 2, handle lengths la, lb = 3 .. 29 thirtieths of the segment are searched
//   (la outer, lb inner): the curve is measured at u = 0.2, 0.4, 0.6, 0.8 against the data
//   linearly interpolated at its time, and the first candidate with the smallest largest
//   error is kept.
// F must be at least 2 for a segment; with fewer samples the slopes are 0.
SegmentFit FitSegment(std::span<const double> v, double a, double b, double start,
                      const SegmentFitOptions& options = {});

// The fitted curve's value at time `time` (frames, within the segment): the parameter of
// the cubic's time coordinate is solved for `time`, as a function curve does between two
// keys with these handles. Handles reaching beyond the segment are shortened along their
// direction first, as the curves do.
double EvaluateSegmentFit(const SegmentFit& fit, double time);

// Fits every consecutive pair of `keys` (ascending key indices) while the pair's end lies
// within the samples; the fits come out in key order.
std::vector<SegmentFit> FitKeys(std::span<const double> v, std::span<const double> keys,
                                double start, const SegmentFitOptions& options = {});

// Largest |curve - v[i]| over the whole frames of the fitted segments.
double LargestDeviation(std::span<const double> v, std::span<const SegmentFit> fits, double start);

// Error-driven key choice, an alternative to marking peaks and inflections: starting from
// `keys` (ascending; 0 and F-1 are added when missing), the segments are fitted and, while
// some whole frame lies more than `tolerance` from its segment's curve, the frame of the
// largest deviation in each such segment becomes a key and the two new segments are fitted
// again. Returns the final key list; each segment then deviates by at most `tolerance`
// (a segment of one frame is exact at both keys and has no frame between them).
std::vector<double> FitWithinTolerance(std::span<const double> v, std::vector<double> keys,
                                       double tolerance, const SegmentFitOptions& options = {});

}  // namespace kavor

#include "anim/fcurve_eval.h"

#include <cmath>
#include <cstddef>

namespace KRX::rt {
namespace {

// Iteration caps for the parameter solve: Newton converges in a handful of steps for
// ordinary handles; bisection alone reaches double resolution in about 55 halvings.
constexpr int kMaxSolveIterations = 100;
constexpr double kSolveTolerance = 1e-13;  // relative to the segment length

// A handle as used for evaluation: dx within [0, length] (mirrored for the left handle),
// scaled as a whole so its slope is kept. A handle pointing the wrong way is flattened to
// dx 0, which still leaves the time coordinate monotonic.
struct Handle {
  double dx;
  double dy;
};

Handle FitHandle(double dx, double dy, double length) {
  if (!(dx > 0.0)) return {0.0, dy};
  if (dx > length) return {length, dy * (length / dx)};
  return {dx, dy};
}

// Convex blend of two values; it cannot overflow for finite inputs.
double Lerp(double a, double b, double alpha) { return a * (1.0 - alpha) + b * alpha; }

// Solves x(s) = u for s in [0, 1] where x is the cubic Bezier with control abscissae
// 0, a, b, length (0 <= a, b <= length). With the handles fitted into the segment x is
// non-decreasing in s, so the root is bracketed by [lo, hi] at every step; Newton steps
// that leave the bracket, or meet a flat spot, are replaced by bisection.
double SolveBezierParameter(double a, double b, double length, double u) {
  // Power basis: x(s) = c1 s + c2 s^2 + c3 s^3.
  const double c1 = 3.0 * a;
  const double c2 = 3.0 * b - 6.0 * a;
  const double c3 = 3.0 * a - 3.0 * b + length;
  const double tolerance = kSolveTolerance * length;
  double lo = 0.0;
  double hi = 1.0;
  double s = u / length;  // exact when the handles sit at thirds of the segment
  for (int i = 0; i < kMaxSolveIterations; ++i) {
    const double f = ((c3 * s + c2) * s + c1) * s - u;
    if (std::fabs(f) <= tolerance) return s;
    if (f < 0.0) {
      lo = s;
    } else {
      hi = s;
    }
    if (hi - lo <= 1e-15) break;
    const double slope = (3.0 * c3 * s + 2.0 * c2) * s + c1;
    double next = slope > 0.0 ? s - f / slope : lo;
    if (!(next > lo && next < hi)) next = 0.5 * (lo + hi);
    s = next;
  }
  return s;
}

double EvaluateBezier(const FCurveKeyData& k0, const FCurveKeyData& k1, double frame) {
  const double length = k1.time - k0.time;
  const Handle right = FitHandle(k0.right_dx, k0.right_dy, length);
  const Handle left = FitHandle(-k1.left_dx, k1.left_dy, length);  // left.dx mirrored
  const double s = SolveBezierParameter(right.dx, length - left.dx, length, frame - k0.time);
  // Control values relative to the first key: a flat segment then stays exactly flat, and
  // s = 0 gives exactly the key's value.
  const double rise = k1.value - k0.value;
  const double d1 = right.dy;
  const double d2 = rise + left.dy;
  const double t = 1.0 - s;
  const double value = k0.value + 3.0 * t * t * s * d1 + 3.0 * t * s * s * d2 + s * s * s * rise;
  if (std::isfinite(value)) return value;
  // Values or handles so large that a control value overflows: fall back to the chord so
  // the result stays finite.
  return Lerp(k0.value, k1.value, (frame - k0.time) / length);
}

}  // namespace

double EvaluateFCurve(const std::vector<FCurveKeyData>& keys, double frame) {
  if (keys.empty()) return 0.0;
  // Written as negated comparisons so that a NaN frame gets the first key's value.
  if (!(frame > keys.front().time)) return keys.front().value;
  if (!(frame < keys.back().time)) return keys.back().value;

  // Invariant: keys[lo].time <= frame < keys[hi].time. It holds even for unsorted keys,
  // so the segment found always has a positive length.
  size_t lo = 0;
  size_t hi = keys.size() - 1;
  while (hi - lo > 1) {
    const size_t mid = lo + (hi - lo) / 2;
    if (keys[mid].time <= frame) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return EvaluateSegment(keys[lo], keys[hi], frame);
}

double EvaluateSegment(const FCurveKeyData& k0, const FCurveKeyData& k1, double frame) {
  if (frame == k0.time) return k0.value;
  switch (k0.interpolation) {
    case Interpolation::Constant:
      return k0.value;
    case Interpolation::Bezier:
      return EvaluateBezier(k0, k1, frame);
    case Interpolation::Linear:
    default:
      return Lerp(k0.value, k1.value, (frame - k0.time) / (k1.time - k0.time));
  }
}

bool KeyRange(const std::vector<FCurveKeyData>& keys, double* first, double* last) {
  if (keys.empty()) return false;
  if (first) *first = keys.front().time;
  if (last) *last = keys.back().time;
  return true;
}

}  // namespace KRX::rt

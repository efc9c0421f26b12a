#include "kavor/plot/segment_fit.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

namespace kavor {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A key is broken when the directions of the data before and after it differ by this much
// (radians).
constexpr double kBrokenAngle = 0.7;
// Initial handle length as a fraction of the segment (deliberately not exactly a third).
constexpr double kHandleFraction = 0.333;
// The handle search tries la, lb = kFirstStep .. kLastStep thirtieths of the segment.
constexpr int kFirstStep = 3;
constexpr int kLastStep = 29;
constexpr double kStepFraction = 1.0 / 30.0;
// Curve parameters at which a candidate is measured.
constexpr std::array<double, 4> kMeasureAt = {0.2, 0.4, 0.6, 0.8};

// Bernstein weights of the cubic at kMeasureAt, computed once.
struct BernsteinTable {
  std::array<std::array<double, 4>, kMeasureAt.size()> w{};
  constexpr BernsteinTable() {
    for (size_t n = 0; n < kMeasureAt.size(); ++n) {
      const double u = kMeasureAt[n];
      const double t = 1.0 - u;
      w[n] = {t * t * t, 3.0 * t * t * u, 3.0 * t * u * u, u * u * u};
    }
  }
};
constexpr BernsteinTable kBernstein;

// Slope of the data at key index `at`, and whether the key is broken there. A broken key
// takes the slope on the segment's side: forward for a segment starting at the key,
// backward for one ending there.
struct KeySlope {
  double slope = 0.0;
  bool broken = false;
};

KeySlope InnerSlope(std::span<const double> v, double at, bool forward_side,
                    const SegmentFitOptions& options) {
  const double here = ValueAt(v, at, options);
  const double back = here - ValueAt(v, at - 1.0, options);
  const double fwd = ValueAt(v, at + 1.0, options) - here;
  if (std::fabs(std::atan(back) - std::atan(fwd)) >= kBrokenAngle) {
    return {forward_side ? fwd : back, true};
  }
  return {(back + fwd) * 0.5, false};
}

// Cubic Bezier time coordinate with control abscissae 0, c1, c2, length at parameter s.
double BezierX(double c1, double c2, double length, double s) {
  const double t = 1.0 - s;
  return 3.0 * t * t * s * c1 + 3.0 * t * s * s * c2 + s * s * s * length;
}

// Solves BezierX(s) = u for s in [0, 1]; x is non-decreasing when 0 <= c1, c2 <= length,
// so bisection keeps a bracket and Newton steps are taken only inside it.
double SolveParameter(double c1, double c2, double length, double u) {
  double lo = 0.0;
  double hi = 1.0;
  double s = u / length;
  for (int n = 0; n < 100 && hi - lo > 1e-15; ++n) {
    const double f = BezierX(c1, c2, length, s) - u;
    if (std::fabs(f) <= 1e-13 * length) break;
    (f < 0.0 ? lo : hi) = s;
    const double t = 1.0 - s;
    const double slope = 3.0 * t * t * c1 + 6.0 * t * s * (c2 - c1) + 3.0 * s * s * (length - c2);
    double next = slope > 0.0 ? s - f / slope : lo;
    if (!(next > lo && next < hi)) next = 0.5 * (lo + hi);
    s = next;
  }
  return s;
}

// A handle (dx >= 0 along time) shortened along its direction to lie within the segment.
CurvePoint FitHandle(double dx, double dy, double length) {
  if (!(dx > 0.0)) return {0.0, dy};
  if (dx > length) return {length, dy * (length / dx)};
  return {dx, dy};
}

}  // namespace

double ValueAt(std::span<const double> v, double t, const SegmentFitOptions& options) {
  const size_t count = v.size();
  if (count == 0 || !std::isfinite(t)) return kNaN;
  if (count == 1) return v[0];
  const double last = static_cast<double>(count - 1);
  const double whole = std::floor(t);
  const size_t i = whole < 0.0 ? 0 : whole > last ? count - 1 : static_cast<size_t>(whole);
  const double r = t - static_cast<double>(i);
  const double interpolate_below = options.interpolate_last_interval ? last : last - 1.0;
  if (t < interpolate_below && i + 1 < count) return v[i] + (v[i + 1] - v[i]) * r;
  if (i > 0) return v[i] + (v[i] - v[i - 1]) * r;
  return v[i] + (v[count - 1] - v[count - 2]) * r;
}

SegmentFit FitSegment(std::span<const double> v, double a, double b, double start,
                      const SegmentFitOptions& options) {
  const size_t count = v.size();
  SegmentFit fit;
  fit.p0 = {start + a, ValueAt(v, a, options)};
  fit.p3 = {start + b, ValueAt(v, b, options)};

  KeySlope at_a;
  KeySlope at_b;
  if (count >= 2) {
    const double last_step = v[count - 1] - v[count - 2];
    at_a = a < 1.0 ? KeySlope{v[1] - v[0], false} : InnerSlope(v, a, true, options);
    at_b = b > static_cast<double>(count) - 2.0 ? KeySlope{last_step, false}
                                                : InnerSlope(v, b, false, options);
  }
  fit.broken_a = at_a.broken;
  fit.broken_b = at_b.broken;

  const double len = b - a;
  fit.p1 = {fit.p0.x + kHandleFraction * len, fit.p0.y + at_a.slope * kHandleFraction * len};
  fit.p2 = {fit.p3.x - kHandleFraction * len, fit.p3.y - at_b.slope * kHandleFraction * len};
  if (!(len >= 2.0) || count < 2) return fit;

  // Handle search. The data at a curve point (x, y) is v interpolated linearly at x - start
  // between the samples k - 1 and k, k the first whole index from a + 1 with k > x - start;
  // beyond b + 1 (or the last sample) there is none and the point counts as no error.
  const double dir_a = (fit.p1.y - fit.p0.y) / (fit.p1.x - fit.p0.x);
  const double dir_b = (fit.p3.y - fit.p2.y) / (fit.p3.x - fit.p2.x);
  const double unit = len * kStepFraction;
  const double k_first = std::max(1.0, std::floor(a) + 1.0);
  const double k_last = std::min(std::floor(b) + 1.0, static_cast<double>(count - 1));
  const auto& w = kBernstein.w;

  // The terms of each measured point that do not change with lb, summed in the same order
  // as the whole Bernstein sum so that the result does not depend on this split.
  constexpr size_t kPoints = kMeasureAt.size();
  std::array<double, kPoints> x_lead{}, y_lead{}, x_end{}, y_end{};
  for (size_t n = 0; n < kPoints; ++n) {
    x_end[n] = w[n][3] * fit.p3.x;
    y_end[n] = w[n][3] * fit.p3.y;
  }
  double best = std::numeric_limits<double>::infinity();
  for (int la = kFirstStep; la <= kLastStep; ++la) {
    const double p1x = fit.p0.x + la * unit;
    const double p1y = fit.p0.y + la * unit * dir_a;
    for (size_t n = 0; n < kPoints; ++n) {
      x_lead[n] = w[n][0] * fit.p0.x + w[n][1] * p1x;
      y_lead[n] = w[n][0] * fit.p0.y + w[n][1] * p1y;
    }
    for (int lb = kFirstStep; lb <= kLastStep; ++lb) {
      const double p2x = fit.p3.x - lb * unit;
      const double p2y = fit.p3.y - lb * unit * dir_b;
      double error = 0.0;
      for (size_t n = 0; n < kPoints; ++n) {
        const double x = x_lead[n] + w[n][2] * p2x + x_end[n] - start;
        if (!(x < k_last)) continue;  // no sample index beyond x within reach
        const double k = x < k_first ? k_first : std::floor(x) + 1.0;
        const size_t ki = static_cast<size_t>(k);
        const double data = v[ki - 1] + (v[ki] - v[ki - 1]) * (x - (k - 1.0));
        const double y = y_lead[n] + w[n][2] * p2y + y_end[n];
        const double e = std::fabs(y - data);
        if (e > error) error = e;
      }
      if (error < best) {
        best = error;
        fit.p1 = {p1x, p1y};
        fit.p2 = {p2x, p2y};
      }
    }
  }
  fit.search_error = best;
  return fit;
}

double EvaluateSegmentFit(const SegmentFit& fit, double time) {
  const double length = fit.p3.x - fit.p0.x;
  if (!(length > 0.0) || !(time > fit.p0.x)) return fit.p0.y;
  if (!(time < fit.p3.x)) return fit.p3.y;
  const CurvePoint right = FitHandle(fit.p1.x - fit.p0.x, fit.p1.y - fit.p0.y, length);
  const CurvePoint left = FitHandle(fit.p3.x - fit.p2.x, fit.p2.y - fit.p3.y, length);
  const double s = SolveParameter(right.x, length - left.x, length, time - fit.p0.x);
  const double rise = fit.p3.y - fit.p0.y;
  const double t = 1.0 - s;
  return fit.p0.y + 3.0 * t * t * s * right.y + 3.0 * t * s * s * (rise + left.y) +
         s * s * s * rise;
}

std::vector<SegmentFit> FitKeys(std::span<const double> v, std::span<const double> keys,
                                double start, const SegmentFitOptions& options) {
  std::vector<SegmentFit> fits;
  const double last = static_cast<double>(v.size()) - 1.0;
  for (size_t n = 1; n < keys.size() && keys[n] <= last; ++n) {
    fits.push_back(FitSegment(v, keys[n - 1], keys[n], start, options));
  }
  return fits;
}

namespace {

// Largest deviation of one fitted segment from the samples at the whole frames strictly
// inside it, and the frame index where it occurs (-1 when there is no such frame).
struct Deviation {
  double error = 0.0;
  double at = -1.0;
};

Deviation SegmentDeviation(std::span<const double> v, const SegmentFit& fit, double start) {
  Deviation worst;
  const double a = fit.p0.x - start;
  const double b = fit.p3.x - start;
  const double last = static_cast<double>(v.size()) - 1.0;
  for (double i = std::floor(a) + 1.0; i < b && i <= last; i += 1.0) {
    if (i < 0.0) continue;
    const double e = std::fabs(EvaluateSegmentFit(fit, start + i) - v[static_cast<size_t>(i)]);
    if (e > worst.error) worst = {e, i};
  }
  return worst;
}

}  // namespace

double LargestDeviation(std::span<const double> v, std::span<const SegmentFit> fits, double start) {
  double worst = 0.0;
  for (const SegmentFit& fit : fits) worst = std::max(worst, SegmentDeviation(v, fit, start).error);
  return worst;
}

std::vector<double> FitWithinTolerance(std::span<const double> v, std::vector<double> keys,
                                       double tolerance, const SegmentFitOptions& options) {
  if (v.empty()) return {};
  const double last = static_cast<double>(v.size()) - 1.0;
  std::erase_if(keys, [last](double k) { return !(k >= 0.0 && k <= last); });
  keys.push_back(0.0);
  keys.push_back(last);
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());

  // Each segment is refined left to right: `pending` holds the ends still to be reached
  // from `from`, nearest last.
  std::vector<double> result = {keys.front()};
  std::vector<double> pending;
  for (size_t n = 1; n < keys.size(); ++n) {
    double from = keys[n - 1];
    pending.assign(1, keys[n]);
    while (!pending.empty()) {
      const double to = pending.back();
      const Deviation worst = SegmentDeviation(v, FitSegment(v, from, to, 0.0, options), 0.0);
      if (worst.at >= 0.0 && worst.error > tolerance) {
        pending.push_back(worst.at);
      } else {
        result.push_back(to);
        from = to;
        pending.pop_back();
      }
    }
  }
  return result;
}

}  // namespace kavor

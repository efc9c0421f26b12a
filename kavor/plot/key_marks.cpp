#include "kavor/plot/key_marks.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace kavor {
namespace {

// Beyond this many turns apart, unrolling first removes the whole turns in one step: a
// turn-by-turn walk would take too long, and where subtracting a turn no longer changes
// the value it would never end.
constexpr double kFarTurns = 1024.0;
// Turn-by-turn steps left after that jump: at most a few are ever needed.
constexpr int kMaxUnrollSteps = 2048;

// Smallest and largest step of a stretch of samples, grown one step at a time.
struct StepRange {
  double min = std::numeric_limits<double>::infinity();
  double max = -std::numeric_limits<double>::infinity();

  void Add(double step) {
    min = std::min(min, step);
    max = std::max(max, step);
  }
  // True when every step lies within tol of `slope`. Rounding is monotonic, so the extreme
  // steps give the same answers as testing each step.
  bool Within(double slope, double tol) const {
    return std::fabs(max - slope) <= tol && std::fabs(min - slope) <= tol;
  }
};

}  // namespace

double UnrollAngle(double angle, double previous) {
  if (!std::isfinite(angle) || !std::isfinite(previous)) return angle;
  double a = angle;
  const double turns = (a - previous) / kUnrollTurn;
  if (std::fabs(turns) > kFarTurns) a -= std::trunc(turns) * kUnrollTurn;
  for (int n = 0; a - previous > kUnrollHalfTurn && n < kMaxUnrollSteps; ++n) a -= kUnrollTurn;
  for (int n = 0; a - previous < -kUnrollHalfTurn && n < kMaxUnrollSteps; ++n) a += kUnrollTurn;
  return a;
}

double MarkTolerance(std::span<const double> v) {
  if (v.empty()) return 0.0;
  const auto [lo, hi] = std::minmax_element(v.begin(), v.end());
  return (*hi - *lo) * 0.03;
}

void MarkPeaksValleysInflections(std::span<const double> v, double tol, std::span<uint8_t> marks) {
  const size_t count = std::min(v.size(), marks.size());
  if (count < 3) return;
  const size_t last = count - 1;
  size_t last_key = 0;
  StepRange steps;  // the steps v[j] - v[j-1] for j = last_key + 1 .. i
  for (size_t i = 1; i < last; ++i) {
    const double d1 = v[i] - v[i - 1];
    const double d2 = v[i + 1] - v[i];
    steps.Add(d1);
    const bool abrupt = std::fabs(d1) * 5.0 < std::fabs(d2) || std::fabs(d2) * 5.0 < std::fabs(d1);
    if (abrupt) marks[i] = 1;
    if (!(std::fabs(v[i] - v[last_key]) >= tol)) continue;
    bool new_key = false;
    if ((d1 > 0.0 && d2 <= 0.0) || (d1 <= 0.0 && d2 > 0.0)) {
      new_key = true;
    } else if (i > 2) {
      const double c = d1 - (v[i - 1] - v[i - 2]);
      const double bend = d2 - d1;
      const bool turns = (c <= 0.0 && bend > 0.0) || (c > 0.0 && bend <= 0.0);
      if (turns) {
        const double slope = (v[i] - v[last_key]) / static_cast<double>(i - last_key);
        new_key = !steps.Within(slope, tol);
      }
    }
    if (new_key) marks[i] = 1;
    if (new_key || abrupt) {
      last_key = i;
      steps = StepRange{};
    }
  }
}

void MarkInterval(int step, std::span<uint8_t> marks) {
  if (step < 1) return;
  for (size_t i = 0; i < marks.size(); i += static_cast<size_t>(step)) marks[i] = 1;
}

void MarkPlanted(std::span<const uint8_t> planted, std::span<uint8_t> marks) {
  const size_t count = std::min(planted.size(), marks.size());
  for (size_t i = 0; i < count; ++i) marks[i] |= planted[i];
}

std::vector<double> BuildKeyList(std::span<const uint8_t> marks) {
  std::vector<double> keys;
  const size_t count = marks.size();
  for (size_t i = 0; i < count; ++i) {
    if (i == 0 || i + 1 == count || marks[i] != 0) keys.push_back(static_cast<double>(i));
  }
  return keys;
}

std::vector<double> MergeSourceKeyTimes(std::span<const double> keys,
                                        std::span<const double> source_times,
                                        double insertion_frame, double start) {
  std::vector<double> shifted;
  shifted.reserve(source_times.size());
  for (const double time : source_times) {
    const double s = insertion_frame + time - start;
    if (std::isfinite(s) && s >= 0.0) shifted.push_back(s);
  }
  std::sort(shifted.begin(), shifted.end());

  std::vector<double> merged;
  merged.reserve(keys.size() + shifted.size());
  const auto take = [&merged](double value) {
    if (merged.empty() || merged.back() != value) merged.push_back(value);
  };
  size_t k = 0;
  size_t s = 0;
  while (k < keys.size() || s < shifted.size()) {
    if (s == shifted.size() || (k < keys.size() && keys[k] <= shifted[s])) {
      take(keys[k++]);
    } else {
      take(shifted[s++]);
    }
  }
  return merged;
}

}  // namespace kavor

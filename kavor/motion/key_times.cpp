// The key-time selection rule: which key times of one function curve a motion keeps.
#include <cmath>

#include "kavor/motion/kavor_file.h"

namespace kavor {

std::vector<double> SelectKeyTimes(std::span<const double> key_times, double first, double last,
                                   KeyOnFirstFrame on_first) {
  std::vector<double> times;
  for (size_t i = 0; i < key_times.size(); ++i) {
    const double t = key_times[i];
    if (!std::isfinite(t) || t < first) continue;
    if (t > last) {
      // The curve runs on past the end: the last frame is where its motion is cut.
      if (i > 0 && key_times[i - 1] < last) times.push_back(last - first);
      break;
    }
    // The first frame holds a value that no key inside the range gave before: the curve
    // comes in from before the start, or starts late.
    const bool comes_in = i > 0 && key_times[i - 1] < first;
    const bool starts_late = i == 0 && t > first;
    const bool key_is_boundary = t == first && on_first == KeyOnFirstFrame::kKeyIsBoundary;
    if ((comes_in || starts_late) && !key_is_boundary) times.push_back(0.0);
    times.push_back(t - first);
  }
  return times;
}

}  // namespace kavor

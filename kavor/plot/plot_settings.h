// What one plot of a live retarget is asked to do: the frame range and the key-reduction
// choices of the plot page, and the plotting rules a user can switch in the preferences.
#pragma once

#include <cstdint>

namespace kavor {

struct PlotOptions {
  // Sub-controls key "rotx" and "rotz" only when both of their channel bits are set, as
  // the plot always did; with this on, each of the two follows its own bit, the way the
  // decompose operator writes them, so a single-axis sub-control keeps its motion.
  bool single_axis_sub_controls = false;
  // Values between the last two samples come from the line through them instead of the
  // slope before them (only fractional key times, from preserved source keys, land there).
  bool interpolate_last_interval = false;
  // After the keys of the chosen reduction are fitted, adds keys where the fitted curve
  // strays from the samples by more than this (degrees for rotations, a fraction of the
  // target's leg length for positions); 0 keeps the reduction's keys as they are.
  double rotation_tolerance = 0.0;
  double position_tolerance = 0.0;
};

// PlotOptions from the "PLOT" section of the plug-in's preferences.
PlotOptions PreferredPlotOptions();

struct PlotSettings {
  int32_t start = 0;
  int32_t end = 0;  // one past the last frame plotted
  bool preserve = false;
  bool inflection = false;
  bool interval = false;
  int32_t interval_step = 1;
  PlotOptions options;

  int32_t FrameCount() const { return end - start; }
  // Every frame becomes a key unless a reduction option is set, and an interval of one
  // frame keys every frame too.
  bool ReducesKeys() const {
    if (!preserve && !inflection && !interval) return false;
    return !(interval && interval_step == 1);
  }
};

}  // namespace kavor

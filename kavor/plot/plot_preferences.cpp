// The plotting rules a user keeps in the plug-in's preferences.
#include "kavor/plot/plot_settings.h"
#include "kavor/xml/preferences.h"

namespace kavor {

PlotOptions PreferredPlotOptions() {
  PlotOptions options;
  // Without an installation path there is no file to read.
  if (PreferencesFilePath().IsEmpty()) return options;
  Preferences preferences;
  options.single_axis_sub_controls =
      preferences.GetInteger(L"PLOT", L"SINGLE_AXIS_SUB_CONTROLS", 0) != 0;
  options.interpolate_last_interval =
      preferences.GetInteger(L"PLOT", L"INTERPOLATE_LAST_INTERVAL", 0) != 0;
  // Tolerances in thousandths of a degree and in millionths of the leg length; 0 leaves
  // them off.
  const int rotation = preferences.GetInteger(L"PLOT", L"ROTATION_TOLERANCE_MILLIDEGREES", 0);
  const int position = preferences.GetInteger(L"PLOT", L"POSITION_TOLERANCE_PPM_OF_LEG", 0);
  if (rotation > 0) options.rotation_tolerance = rotation * 1e-3;
  if (position > 0) options.position_tolerance = position * 1e-6;
  return options;
}

}  // namespace kavor

// The plot page: the custom property "PlotRetargetPPG" on a retargeted model, holding the
// key-reduction settings and the frame range of a plot, and the action that shows it and
// plots.
#pragma once

#include <cstdint>

#include "krx/krx.h"

namespace kavor {

inline constexpr const wchar_t* kPlotProperty = L"PlotRetargetPPG";

// The last frame a plot should cover for a motion of `frame_count` frames played from
// `start` at `speed`: the first frame t from start on at which
// floor((t - start) x speed + 0.1) reaches frame_count - 1. A speed that is not a positive
// number never gets there and gives `start`.
int32_t PlotEndFrame(int32_t start, double speed, int32_t frame_count);

// Shows the model's plot page modally ("Plot KAVOR Keyframes") and, when confirmed, plots
// with its settings. Without a retargeted motion on the model it only says so.
void RunPlotAction(const KRX::Model& model);

// Deletes the model's plot page when it has one.
void RemovePlotPage(const KRX::Model& model);

}  // namespace kavor

// The frame range of a model's own animation. The frame-range commands use it through
// GetRetargetFrameRange when the model carries no retargeted motion.
#pragma once

#include <cstdint>

#include "krx/krx.h"

namespace kavor {

// The range a search starts from: start above and end below every frame.
inline constexpr int32_t kNoStartFrame = 2147483647;
inline constexpr int32_t kNoEndFrame = -2147483647;

// Narrows [*start_frame, *end_frame] to take in every key of every function curve that
// drives a parameter of the model or of a 3D object below it (kinematics, properties and
// the objects' own parameters). Key times are widened to whole frames: the start rounds
// down, the end up. Returns true when the result is a range: start < end and the start was
// moved from kNoStartFrame. A single key gives no range.
bool GetKeyFrameRange(const KRX::Model& model, int32_t* start_frame, int32_t* end_frame);

}  // namespace kavor

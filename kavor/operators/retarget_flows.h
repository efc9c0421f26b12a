// What the retarget commands do once their arguments are checked: retarget one tagged rig
// onto another, load a motion file onto a tagged rig, report the frames of a model's
// retargeted motion and take the plug-in's setup off a model.
#pragma once

#include <cstdint>

#include "krx/krx.h"

namespace kavor {

// The source's motion over the scene frames start to end (both included) onto the target,
// played live from scene frame `start`. Failures are shown in a warning box.
bool RetargetRigToRig(const KRX::Model& source, const KRX::Model& target, int32_t start,
                      int32_t end);

// A motion file's motion onto the target, played from scene frame `insertion_frame`.
bool LoadKavorMotion(const KRX::CString& path, const KRX::Model& target, int32_t insertion_frame);

// The first frame and the frame after the last of the model's retargeted motion (from
// its blob: the insertion frame and insertion frame + frame count), or else the key range
// of its animation. False when there is no range.
bool GetRetargetFrameRange(const KRX::Model& model, int32_t* start, int32_t* end);

// Every trace of the plug-in on the model: the retarget setup, the tag page's data, the
// tags, the glue and model maps, the structure, and the plot page.
void RemoveAllKavorSetup(const KRX::Model& model);

}  // namespace kavor

// The three ways a motion reaches a tagged target rig: from another rig over a frame range,
// from a motion file, or from a capture skeleton. Each flow binds the source, extracts every
// frame into a NormalizedMotion, finishes it and hands it to `hand_over`, which builds the
// retarget operators on the target (or, in tests, inspects the result).
#pragma once

#include <cstdint>
#include <functional>

#include "kavor/maps/glue_map.h"
#include "kavor/maps/retarget_model.h"
#include "kavor/motion/extraction.h"
#include "kavor/motion/normalized_motion.h"

namespace kavor {

// Receives the finished motion and the scene frame at which it is to start playing.
using MotionHandOver =
    std::function<bool(GlueMap& glue, NormalizedMotion& motion, int32_t insertion_frame)>;

// Each flow extracts its frames with `options` (extraction.h).

// Samples the source rig at the frames first <= f < end. The scene's current frame moves
// through the range and is put back; the models stay at the identity global transform
// (the caller restores them with RestoreModelTransforms).
bool ApplyRigMotion(RetargetModel& target, RetargetModel& source, GlueMap& glue, int32_t first,
                    int32_t end, const MotionHandOver& hand_over,
                    const ExtractOptions& options = {});

// Every frame of a motion read from a file, to start at `insertion_frame`.
bool ApplyFileMotion(RetargetModel& target, RetargetModel& source, GlueMap& glue,
                     int32_t insertion_frame, const MotionHandOver& hand_over,
                     const ExtractOptions& options = {});

// Every sample of a capture skeleton, to start at frame 1.
bool ApplyMocapMotion(RetargetModel& target, RetargetModel& source, GlueMap& glue,
                      const MotionHandOver& hand_over, const ExtractOptions& options = {});

}  // namespace kavor

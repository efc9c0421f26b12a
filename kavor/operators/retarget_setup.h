// Making and removing the live retarget of a target model: the adjustment property, the
// motion blob, the main operator and one chain operator per driven rig object.
#pragma once

#include <cstdint>

#include "kavor/maps/glue_map.h"
#include "kavor/motion/normalized_motion.h"
#include "krx/krx.h"

namespace kavor {

// Builds the setup on the model of the motion's target (removing any earlier one first):
// the "RetargetAdjustPPG" property, the "ZRKRetargetOp" blob holding the motion, the
// "RetargetOp" main operator and the chain operators, wired for the host to evaluate.
// The motion plays from scene frame `insertion_frame` on. False when the motion has no
// target model or an operator could not be made.
bool CreateRetargetOperators(GlueMap& glue, NormalizedMotion& motion, int32_t insertion_frame);

// Deletes the model's setup: the adjustment property, the blob, "ZRKRefFrames", the main
// operator, and below the model every chain operator and "RotationOffsetPPG". False (and
// nothing deleted) when the model has no "RetargetAdjustPPG".
bool RemoveRetargetSetup(const KRX::Model& model);

}  // namespace kavor

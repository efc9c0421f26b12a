// The rest data of a tagged model as text, the last section of a tag template:
//
//   4
//   Humanoid            (structure source)
//   Humanoid            (structure type)
//   hip
//   <length> <rest W X Y Z> <extraction W X Y Z> [<extraction object>]
//   ...
//   <hip offset> <leg length>
//
// The extraction object's name follows only a non-zero extraction rotation.
#pragma once

#include <ostream>

#include "kavor/structure/tokenizer.h"

namespace kavor {

class RetargetModel;

inline constexpr int32_t kModelMapTextVersion = 4;

void WriteModelMapSection(std::ostream& out, const RetargetModel& model);

// Fills the model's lengths, rest rotations, extraction rotations, hip offset and leg
// length from the section. A version other than 4, another structure source or type, or a
// node name out of order is logged and marks the model invalid; reading stops there.
void ReadModelMapText(RetargetModel& model, Tokenizer& tokenizer);

}  // namespace kavor

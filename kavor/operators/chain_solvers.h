// What each chain operator writes: one rig object's share of the pose that the main
// operator solved, read from the live context.
#pragma once

#include <cstdint>

#include "kavor/operators/retarget_context.h"
#include "krx/krx.h"

namespace kavor {

// Each writes through the operator context's output when the context is bound and solved
// for this evaluation, and leaves the output untouched otherwise (an index out of range,
// a node without motion, an undefined direction).
void SolveGlobalOp(RetargetOpContext& context, KRX::OperatorContext& op, int32_t mocap_index);
void SolveUpVectorOp(RetargetOpContext& context, KRX::OperatorContext& op, int32_t plane_index);
void SolveDecompOp(RetargetOpContext& context, KRX::OperatorContext& op,
                   const KRX::MATH::CTransformation& parent_global, int32_t node_index,
                   int32_t channel_index);
void SolveSpineOp(RetargetOpContext& context, KRX::OperatorContext& op,
                  const KRX::MATH::CTransformation& parent_global, int32_t spine_index,
                  int32_t node_index);

}  // namespace kavor

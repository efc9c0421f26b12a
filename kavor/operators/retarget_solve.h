// The main retarget operator's work: binding to its model once, and every evaluation the
// time mapping and the solve of the whole pose for that time.
#pragma once

#include "kavor/operators/retarget_context.h"

namespace kavor {

// Binds the context to the blob's owner model: upgrades an old blob, finds the model that
// carries this blob, reads its structure, maps and glue, checks and decodes the blob, stores
// the context's address in the live slot and prepares the solve (InitialiseBinding). False,
// leaving the context unbound, when any of that fails; the next evaluation tries again.
bool BindRetargetOp(RetargetOpContext& context, KRX::UserDataBlob blob, double time);

// The preparation after decoding: source indices, re-pointed orphan entries, speed, combo
// items, rotation offsets, foot flags, semi-free nodes, stride paths and clamp records,
// and every adjustment parameter resolved to a handle.
void InitialiseBinding(RetargetOpContext& context, double time);

// Re-reads the blob's byte view when the host moved it (a put on the blob). False when the
// blob no longer decodes as the one bound.
bool RefreshBlobView(RetargetOpContext& context);

// Fills the root path and each plane's effector path from the motion and "Stride".
void BuildStrideData(RetargetOpContext& context, double time);

// Rebuilds the plant and release records of structure plane `plane` from its "Clamp",
// "Frame" and "BlendBack" adjustments (keys of an animated "Clamp" each give a record).
void BuildClampRecords(RetargetOpContext& context, int32_t plane, double time);

// The pose of motion frame `frame` (clamped into the motion) with the adjustments at scene
// time `time`, up to the rotation offsets' "Reduce": where the clamps find the places
// they plant.
void SolveBeforeClamps(RetargetOpContext& context, int32_t frame, double time);

// The adjustment parameter `name` of the context's adjustment property (invalid when there
// is none). Resolved once, at binding or on a change, never per frame.
KRX::Parameter AdjustmentParameter(const RetargetOpContext& context, const std::string& name);

// Scene time to motion frame and fraction: frames play from the insertion frame at
// "Speed" motion frames per scene frame; before the start the first frame holds, after the
// end the last.
void MapTime(RetargetOpContext& context, double time);

// The pose of the mapped frame for every node of the target's RetargetModel.
void SolveFrame(RetargetOpContext& context);

}  // namespace kavor

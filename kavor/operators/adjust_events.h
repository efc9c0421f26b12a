// How a live retarget reacts when one of its adjustments changes, from its page or from a
// script's SetValue: what is rebuilt (stride paths, clamp records), what is stored in the
// running context, and whether the main operator is made to evaluate again.
#pragma once

#include "kavor/operators/retarget_context.h"
#include "krx/krx.h"

namespace kavor {

// Reacts to `parameter` of the model's "RetargetAdjustPPG" having changed; `time` is the
// evaluation time. Parameters are recognised by their exact names, never by a part of one
// (a node "Spine" must not take "Spine1X").
void OnAdjustmentChanged(RetargetOpContext& context, const KRX::Parameter& parameter,
                         double time);

// Moves the keys of every animated adjustment so that each stays on the motion frame it
// was on before "Speed" went from the context's previous speed to its speed: a key at
// scene time t goes to insertion + (t - insertion) x previous / speed. Keys move from the
// last one backwards when they spread out, from the first one forwards otherwise, so
// that none passes another. Stride paths and clamp records are rebuilt where a curve they
// read moved.
void RetimeAdjustments(RetargetOpContext& context, double time);

}  // namespace kavor

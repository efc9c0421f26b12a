// How a live retarget reacts when one of its adjustments changes, from its page or from a
// script's SetValue: what is rebuilt (stride paths, clamp records), what is stored in the
// running context, and whether the main operator is made to evaluate again.
#pragma once

#include <string_view>

#include "kavor/operators/retarget_context.h"
#include "krx/krx.h"

namespace kavor {

enum class AdjustmentOwner { kPlaneEnd, kSemiFree };

// True when `name` is the adjustment of `node` of that kind: the node's name followed by
// exactly one of its suffixes ("Roll", "Clamp", ... for a limb end; "X", "RX",
// "AnchorTangentLength", ... for a semi-free node), which goes to `*suffix`.
bool SplitAdjustmentName(std::string_view name, std::string_view node, AdjustmentOwner owner,
                         std::string_view* suffix);

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
//
// Semi-free nodes' offsets and turns ("SpineX", "SpineRX", ...) keep their keys by
// default, so a keyed lean lands on other motion frames once the speed changes; with the
// switch RETIME_SEMI_FREE 1 in the preferences' "RETARGET" section they move with the rest.
inline constexpr const wchar_t* kRetimeSemiFreeKey = L"RETIME_SEMI_FREE";
void RetimeAdjustments(RetargetOpContext& context, double time);

}  // namespace kavor

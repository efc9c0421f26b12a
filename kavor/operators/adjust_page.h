// The adjustment page of a retargeted model ("RetargetAdjustPPG"): its layout, its events
// and the view that shows it.
#pragma once

#include "kavor/operators/retarget_context.h"
#include "krx/krx.h"

namespace kavor {

// Clears `layout` and builds the page: a "Global" tab (presets, general settings, hip
// offsets, rotation offsets), a tab per limb plane with adjustments and a tab per
// semi-free node.
void BuildAdjustLayout(KRX::PPGLayout layout, const KRX::CustomProperty& property,
                       const RetargetOpContext& context);

// Shows the model's adjustment page in a property panel ("RetargetAdjust" at (110, 419),
// 400 x 370), re-pointing the panel that already shows it. With `refresh_only` an existing
// panel of the model adjusted last is re-pointed and nothing is ever created or warned.
void ShowAdjustPage(const KRX::Model& model, bool refresh_only);

}  // namespace kavor

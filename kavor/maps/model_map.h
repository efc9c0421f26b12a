// The model map: a tagged model's rest data stored on the model in the custom property
// "ZRKMap", so that retargeting does not depend on the pose the rig is in later. Per
// structure node: the bone's rest length, the rest rotation and the extraction object with
// its rotation; and the hip offset and leg length.
#pragma once

#include <cstdint>

#include "kavor/maps/retarget_model.h"

namespace kavor {

inline constexpr const wchar_t* kModelMapProperty = L"ZRKMap";
inline constexpr int32_t kModelMapVersion = 4;

// Replaces the model's "ZRKMap" with the RetargetModel's rest data.
void WriteModelMap(const RetargetModel& model);

// Fills the RetargetModel's rest data from its model's "ZRKMap". Any failure is logged and
// leaves `valid` false; values not reached keep what they held.
void ReadModelMap(RetargetModel& model);

// True for node 0; otherwise whether no node on the parent chain above the node (node 0
// included) is a limb end or a spine node.
bool HasNoFrictionOrFreeAncestor(const RetargetModel& model, int32_t node);

}  // namespace kavor

// The adjustment property "RetargetAdjustPPG" of a retargeted model: its fixed parameters,
// the ones added for a target's structure when the retarget is made, and the integer index
// parameters through which each chain operator knows the record it drives.
#pragma once

#include <cstdint>
#include <string>

#include "kavor/maps/retarget_model.h"
#include "krx/krx.h"

namespace kavor {

inline constexpr const wchar_t* kAdjustProperty = L"RetargetAdjustPPG";
inline constexpr const wchar_t* kRotationOffsetProperty = L"RotationOffsetPPG";

// "InsertionFrame", "Speed", "Scale", "Stride", "Ping" and "RotNodes".
void DefineAdjustmentParameters(KRX::CustomProperty& property);

// A structure node that the user can move and turn: a spine node with a rig object whose
// object lies more than one parent step below its structure parent's object.
bool IsSemiFreeNode(const RetargetModel& target, int32_t node);

// The parameters of the target's structure: "Scale" set to the target's scale, "NumPlanes",
// the hip offsets, per semi-free node its offsets, tangent lengths and turns, "NumSemiFree",
// and per limb plane with a rig object at its end its name, object, offsets, roll, stretch,
// clamp, clamp target, blend-back and foot flag.
void AddTargetAdjustments(KRX::CustomProperty& property, const RetargetModel& target);

// Adds the integer parameter `name` holding `value` for a chain operator. False, with a
// warning, when the property already has a parameter of that name (a rig object named like
// an adjustment): the operator is then left out rather than reading the wrong value.
bool AddIndexParameter(KRX::CustomProperty& property, const std::string& name, int32_t value);

}  // namespace kavor

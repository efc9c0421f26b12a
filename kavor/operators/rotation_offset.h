// Rotation offsets: the "RotationOffsetPPG" property a rig object of a live retarget
// carries to turn its node ("X", "Y", "Z" in degrees) or to blend it towards its rest
// rotation ("Reduce"), and its page.
#pragma once

#include <cstdint>

#include "kavor/operators/retarget_context.h"
#include "krx/krx.h"

namespace kavor {

// "X", "Y", "Z", "Reduce" and "IsCog".
void DefineRotationOffsetParameters(KRX::CustomProperty& property);

// The offset's "X", "Y", "Z" and "Reduce", for the solve to read without building names.
RotationOffsetParameters ResolveRotationOffset(const KRX::CustomProperty& property);

// The object's "RotationOffsetPPG", made when it has none; "IsCog" is set for rotation item
// 0 (the body's root), and "Reduce" is read-only exactly when the object is a limb end
// (the limb solve places it). Invalid when the property cannot be made.
KRX::CustomProperty EnsureRotationOffset(const KRX::X3DObject& object, int32_t rotation_item,
                                         bool is_limb_end);

// Tells the live retarget of the model above the property's object that this object now
// carries a rotation offset, and makes it evaluate again. False when no live retarget
// drives the object.
bool RegisterRotationOffset(const KRX::CustomProperty& property);

// True when `object` is the rig object of the end node of one of the structure's planes.
bool IsLimbEndObject(const RetargetOpContext& context, const KRX::X3DObject& object);

// Makes the object's rotation offset (EnsureRotationOffset), registers it and shows its
// page in the "RotateNode" view, making the view when there is none.
void ShowRotationOffsetPage(const KRX::X3DObject& object, int32_t rotation_item, bool is_limb_end);

}  // namespace kavor

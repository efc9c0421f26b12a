// Mirror links between the two sides of a body: while a linked object is selected and the
// scene's symmetry switch is on, moving it moves its partner mirrored across the YZ plane
// of a reference object.
//
// A link from `source` to `partner` is the property "ZRKSymmetryOp" on the source (its
// text parameter "target" names the partner), a symmetry blob on the source holding its
// last local translation, and one operator on the partner's local kinematic state:
// "RetargetSymmetrySpecialOp" when the two share a parent, else "RetargetSymmetryOp".
// Mirroring needs the partner to be the source of the opposite link as well (its blob
// has to hold data), so pairs are linked both ways.
#pragma once

#include "krx/krx.h"

namespace kavor {

// Names stored in scenes: be careful when changing them.
inline constexpr const wchar_t* kSymmetryProperty = L"ZRKSymmetryOp";
inline constexpr const wchar_t* kSymmetryTargetParameter = L"target";
inline constexpr const wchar_t* kSymmetryBlobName = L"ZRKSymmetryOpUDB";
inline constexpr const wchar_t* kSymmetryOperator = L"RetargetSymmetryOp";
inline constexpr const wchar_t* kSymmetrySpecialOperator = L"RetargetSymmetrySpecialOp";
// The scene-root property holding the switch, and the switch.
inline constexpr const wchar_t* kSymmetrySwitchProperty = L"MocapToRig";
inline constexpr const wchar_t* kSymmetrySwitch = L"C3DSymmetry";
// Off by default: a source's last place is recorded only while it is selected, so a
// source moved while not selected makes its partner jump by that move the next time it is
// moved selected. On: every evaluation records it, selected or not, and no jump follows.
inline constexpr const wchar_t* kSymmetryTrackUnselected = L"C3DSymmetryTrackUnselected";

// Makes the link from `source` to `partner` mirrored across `reference`, replacing one
// that exists. Logs and returns false when an object is invalid or the operator cannot be
// made; what was made before stays (RemoveSymmetryLink takes it off).
bool CreateSymmetryLink(const KRX::X3DObject& source, const KRX::X3DObject& partner,
                        const KRX::X3DObject& reference);

// Deletes the link's operators on the partner and the source's "ZRKSymmetryOp" property;
// the blobs stay.
void RemoveSymmetryLink(const KRX::X3DObject& source, const KRX::X3DObject& partner);

// Deletes every link below the model (operators and properties; blobs stay), then removes
// all animation of the model's branch.
void RemoveAllSymmetry(const KRX::Model& model);

}  // namespace kavor

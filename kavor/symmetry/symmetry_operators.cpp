// The host's callbacks of the two symmetry operators, and the symmetry switch of the
// scene-root "MocapToRig" property.
//
// Each operator sits on a partner's local kinematic state. While its source is selected
// and the switch is on, it moves the partner by the source's movement since its last
// evaluation, mirrored; in every evaluation that finds its source selected it records the
// source's position in the source's blob. Nothing is written when nothing changed: equal
// blob bytes and equal parameter values invalidate nothing, so the evaluation settles.
#include <cmath>
#include <optional>
#include <vector>

#include "kavor/io/scene_helpers.h"
#include "kavor/symmetry/symmetry_blob.h"
#include "kavor/symmetry/symmetry_link.h"
#include "kavor/symmetry/symmetry_mirror.h"
#include "krx/krx.h"
#include "krx/plugin.h"

namespace kavor {

namespace {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

// Made once: the update runs on every evaluation of a linked object.
struct Names {
  KRX::CString switch_property{kSymmetrySwitchProperty};
  KRX::CString switch_parameter{kSymmetrySwitch};
  KRX::CString track_unselected{kSymmetryTrackUnselected};
  KRX::CString link_property{kSymmetryProperty};
  KRX::CString target{kSymmetryTargetParameter};
  KRX::CString blob{kSymmetryBlobName};
  KRX::CString empty;
  KRX::CString position[3] = {L"posx", L"posy", L"posz"};
};
const Names& N() {
  static const Names names;
  return names;
}

KRX::UserDataBlob BlobOf(const KRX::X3DObject& object) {
  KRX::Property found;
  if (!FindPropertyByName(object, N().blob, &found)) return KRX::UserDataBlob();
  return KRX::UserDataBlob(found.GetRef());
}

std::optional<CVector3> ReadBlob(const KRX::UserDataBlob& blob) {
  const std::vector<uint8_t>* bytes = blob.IsValid() ? blob.GetBytes() : nullptr;
  if (bytes == nullptr) return std::nullopt;
  return DecodeSymmetryBlob(bytes->data(), bytes->size());
}

void WriteBlob(KRX::UserDataBlob& blob, const CVector3& translation) {
  const auto bytes = EncodeSymmetryBlob(translation);
  blob.PutValue(bytes.data(), bytes.size());
}

bool IsFinite(const CVector3& v) {
  return std::isfinite(v.GetX()) && std::isfinite(v.GetY()) && std::isfinite(v.GetZ());
}

bool IsSelected(const KRX::X3DObject& object) {
  for (const KRX::CRef& item : KRX::Application().GetSelection()) {
    if (item == object.GetRef()) return true;
  }
  return false;
}

CTransformation GlobalAt(const KRX::OperatorContext& op, int port) {
  return KRX::KinematicState(op.GetInputTarget(port)).GetTransform(op.GetTime());
}

// Keeps the partner where the operator put it: its local position parameters take the
// new local translation (through its neutral pose), as a move by hand would. The host
// keeps an operator's write for the evaluated time only.
void KeepPartnerLocal(const KRX::X3DObject& partner, const CTransformation& local, double time) {
  const CVector3 values =
      KRX::MATH::MapWorldPoseToObjectSpace(NeutralPose(partner), local).GetTranslation();
  KRX::KinematicState state = partner.GetKinematics().GetLocal();
  for (int axis = 0; axis < 3; ++axis) {
    state.PutParameterValue(N().position[axis], values[axis], time);
  }
}

// Records where an unselected source is, when the switch property asks for it.
// The source's parent (or, for the special kind, the reference standing in for it) is on
// port 1 either way.
void TrackUnselected(KRX::OperatorContext& op, const KRX::X3DObject& source,
                     const KRX::Property& switch_property) {
  const double time = op.GetTime();
  if (!switch_property.GetParameterValue(N().track_unselected, time).GetBool()) return;
  KRX::UserDataBlob source_blob = BlobOf(source);
  KRX::Property link;
  if (!ReadBlob(source_blob) || !FindPropertyByName(source, N().link_property, &link)) return;
  const CVector3 local = PointInFrame(GlobalAt(op, 1), GlobalAt(op, 0).GetTranslation());
  if (IsFinite(local)) WriteBlob(source_blob, local);
}

// `special`: the source and the partner share a parent, and the reference's global
// stands in for both parents' globals.
void SymmetryUpdate(KRX::OperatorContext& op, bool special) {
  const KRX::Model root = KRX::Application().GetActiveSceneRoot();
  KRX::Property switch_property;
  if (!FindPropertyByName(root, N().switch_property, &switch_property)) return;

  const KRX::X3DObject source = KRX::KinematicState(op.GetInputTarget(0)).GetObject();
  if (!source.IsValid()) return;
  if (!IsSelected(source)) {
    TrackUnselected(op, source, switch_property);
    return;
  }
  KRX::UserDataBlob source_blob = BlobOf(source);
  const std::optional<CVector3> previous = ReadBlob(source_blob);
  KRX::Property link;
  if (!previous || !FindPropertyByName(source, N().link_property, &link)) return;

  const double time = op.GetTime();
  const CTransformation reference = GlobalAt(op, special ? 1 : 3);
  MirrorFrames frames;
  frames.reference = reference;
  frames.source_parent = special ? reference : GlobalAt(op, 1);
  frames.partner_parent = special ? reference : GlobalAt(op, 2);
  const CVector3 source_world = GlobalAt(op, 0).GetTranslation();

  const KRX::CString partner_name = link.GetParameterValue(N().target, time).GetString();
  const KRX::X3DObject partner =
      partner_name.IsEmpty() ? KRX::X3DObject()
                             : KRX::X3DObject(source.GetModel()).FindChild(partner_name, N().empty);
  KRX::UserDataBlob partner_blob = partner.IsValid() ? BlobOf(partner) : KRX::UserDataBlob();
  const bool mirroring = ReadBlob(partner_blob).has_value() &&
                         switch_property.GetParameterValue(N().switch_parameter, time).GetBool();
  // A source that has not moved moves nothing: mirroring a zero movement through the
  // parents' transforms leaves rounding noise, which would move the partner on every
  // evaluation and never let the evaluation settle.
  const CVector3 source_local = PointInFrame(frames.source_parent, source_world);
  if (mirroring && !(source_local == *previous)) {
    CTransformation local = op.GetOutputTransform();
    const CVector3 moved =
        MirroredPartnerLocal(frames, *previous, source_world, local.GetTranslation());
    // Positions far out enough to overflow (a damaged blob) leave the partner alone.
    if (!IsFinite(moved)) return;
    local.SetTranslation(moved);
    op.PutOutputTransform(local);
    WriteBlob(partner_blob, local.GetTranslation());
    const KRX::X3DObject output = KRX::KinematicState(op.GetOutputTarget()).GetObject();
    if (output.IsValid()) KeepPartnerLocal(output, local, time);
  }
  WriteBlob(source_blob, source_local);
}

}  // namespace

}  // namespace kavor

KRX_PLUGIN_EXPORT KRX::CStatus RetargetSymmetryOp_Update(KRX::CRef& ref) {
  KRX::OperatorContext op(ref);
  kavor::SymmetryUpdate(op, false);
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetSymmetrySpecialOp_Update(KRX::CRef& ref) {
  KRX::OperatorContext op(ref);
  kavor::SymmetryUpdate(op, true);
  return KRX::CStatus::OK;
}

// The scene-root property's symmetry switch: on unless the user turns it off.
KRX_PLUGIN_EXPORT KRX::CStatus MocapToRig_Define(KRX::CRef& ref) {
  KRX::CustomProperty property(KRX::Context(ref).GetSource());
  property.AddParameter(kavor::kSymmetrySwitch, KRX::ValueType::Bool,
                        KRX::kCapAnimatable | KRX::kCapPersistable, L"Enable Symmetry", L"",
                        true);
  property.AddParameter(kavor::kSymmetryTrackUnselected, KRX::ValueType::Bool,
                        KRX::kCapAnimatable | KRX::kCapPersistable, L"Track Unselected Objects",
                        L"", false);
  return KRX::CStatus::OK;
}

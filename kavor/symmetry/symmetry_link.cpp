#include "kavor/symmetry/symmetry_link.h"

#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/symmetry/symmetry_blob.h"

namespace kavor {

namespace {

// How the operator is connected: the host's construction mode of animation.
constexpr int kConstructionMode = 4;

// Stored with the property: persistable, not animatable.
constexpr int kTargetCapabilities = KRX::kCapPersistable;

void DeleteSymmetryOperators(const KRX::X3DObject& object) {
  const KRX::CString local = object.GetKinematics().GetLocal().GetFullName();
  for (const wchar_t* type : {kSymmetryOperator, kSymmetrySpecialOperator}) {
    KRX::CustomOperator op;
    if (FindOperatorByName(local, type, &op)) DeleteByName(op.GetFullName());
  }
}

// The object's symmetry blob, made when it has none (a removed link leaves it behind).
KRX::UserDataBlob SymmetryBlob(const KRX::X3DObject& object) {
  KRX::Property found;
  if (FindPropertyByName(object, kSymmetryBlobName, &found)) {
    const KRX::UserDataBlob blob(found.GetRef());
    if (blob.IsValid()) return blob;
  }
  KRX::X3DObject owner = object;
  return KRX::UserDataBlob(owner.AddProperty(L"UserDataBlob", false, kSymmetryBlobName));
}

KRX::CRef GlobalOf(const KRX::CRef& object) {
  return KRX::X3DObject(object).GetKinematics().GetGlobal().GetRef();
}

}  // namespace

void RemoveSymmetryLink(const KRX::X3DObject& source, const KRX::X3DObject& partner) {
  if (partner.IsValid()) DeleteSymmetryOperators(partner);
  if (source.IsValid()) DeletePropertyByName(source, kSymmetryProperty);
}

bool CreateSymmetryLink(const KRX::X3DObject& source, const KRX::X3DObject& partner,
                        const KRX::X3DObject& reference) {
  if (!source.IsValid() || !partner.IsValid() || !reference.IsValid()) {
    LogError(L"A symmetry link needs a source, a partner and a reference object.");
    return false;
  }
  RemoveSymmetryLink(source, partner);

  KRX::X3DObject owner = source;
  KRX::CustomProperty link = owner.AddCustomProperty(kSymmetryProperty);
  link.AddParameter(kSymmetryTargetParameter, KRX::ValueType::String, kTargetCapabilities, L"",
                    L"", partner.GetName());

  const auto bytes = EncodeSymmetryBlob(
      source.GetKinematics().GetLocal().GetTransform(KRX::kCurrentTime).GetTranslation());
  KRX::UserDataBlob blob = SymmetryBlob(source);
  if (!link.IsValid() || !blob.IsValid() ||
      !KRX::Succeeded(blob.PutValue(bytes.data(), bytes.size()))) {
    LogError(L"Cannot store the symmetry link on " + source.GetFullName() + L".");
    return false;
  }

  const KRX::CRef source_parent = source.GetParent();
  const KRX::CRef partner_parent = partner.GetParent();
  const bool same_parent = source_parent == partner_parent;
  const wchar_t* type = same_parent ? kSymmetrySpecialOperator : kSymmetryOperator;
  KRX::CustomOperator op(KRX::Application().CreateObject(type));
  if (!op.IsValid()) {
    LogError(KRX::CString(L"Cannot create the operator ") + type + L".");
    return false;
  }
  op.PutAlwaysEvaluate(true);
  op.AddOutputPort(partner.GetKinematics().GetLocal().GetRef());
  op.AddInputPort(source.GetKinematics().GetGlobal().GetRef());
  if (!same_parent) {
    op.AddInputPort(GlobalOf(source_parent));
    op.AddInputPort(GlobalOf(partner_parent));
  }
  op.AddInputPort(reference.GetKinematics().GetGlobal().GetRef());
  if (!KRX::Succeeded(op.Connect(kConstructionMode))) {
    LogError(KRX::CString(L"Cannot connect the operator ") + type + L" on " +
             partner.GetFullName() + L".");
    return false;
  }
  return true;
}

void RemoveAllSymmetry(const KRX::Model& model) {
  if (!model.IsValid()) return;
  for (const KRX::X3DObject& object : model.FindChildren(L"", L"", true)) {
    DeleteSymmetryOperators(object);
    DeletePropertyByName(object, kSymmetryProperty);
  }
  // Arguments as the host takes them: the branch, and what to remove from it.
  TryRunCommand(L"RemoveAllAnimation",
                {KRX::CString(L"B:") + model.GetFullName(), true, 3, 2, 128, false});
}

}  // namespace kavor

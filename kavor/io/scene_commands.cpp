// Scene helpers that look items up on one object or run host commands on them.
#include <string>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"

namespace kavor {
namespace {

// The elements "EnumElements" gives, whether it returns one value or an array.
KRX::CValueArray EnumElements(const KRX::CString& path) {
  const KRX::CValue found = RunCommand(L"EnumElements", {path});
  if (found.IsEmpty()) return {};
  if (found.GetType() == KRX::ValueType::Array) return found.GetArray();
  return {found};
}

}  // namespace

bool FindPropertyByName(const KRX::SceneItem& object, const KRX::CString& name,
                        KRX::Property* out) {
  for (const KRX::Property& property : object.GetProperties()) {
    if (property.GetName() == name) {
      if (out != nullptr) *out = property;
      return true;
    }
  }
  return false;
}

bool DeleteByName(const KRX::CString& name) { return TryRunCommand(L"DeleteObj", {name}); }

bool DeletePropertyByName(const KRX::SceneItem& item, const KRX::CString& name) {
  KRX::Property property;
  return FindPropertyByName(item, name, &property) && DeleteByName(property.GetFullName());
}

bool DeleteChildByName(const KRX::X3DObject& model, const KRX::CString& name) {
  // An empty name would match the first child of any name.
  if (name.IsEmpty()) return false;
  const KRX::X3DObject child = model.FindChild(name, L"", true);
  if (!child.IsValid()) return false;
  // The full name: a plain name can stand for objects of other models too.
  TryRunCommand(L"DeleteObj", {child.GetFullName()});
  return true;
}

void RemoveAnimation(const KRX::Model& model) {
  const KRX::CString model_name = model.GetFullName();
  TryRunCommand(L"SelectObj", {model_name, L"BRANCH"});
  TryRunCommand(L"RemoveAllAnimation", {KRX::CValue(), KRX::CValue(), 3, 3, 128});
  if (model.GetMixer().IsValid()) {
    for (const KRX::CValue& track : EnumElements(model_name + L".Mixer.AnimTracks")) {
      TryRunCommand(L"DeleteObj", {track});
    }
  }
  TryRunCommand(L"DeselectAll", {});
}

bool InspectProperty(const KRX::Property& property) {
  if (!property.IsValid()) return false;
  // Arguments: the property, no keywords, no title, modal.
  KRX::CValue result;
  const bool ok = TryRunCommand(L"InspectObj",
                                {property.GetFullName(), KRX::CValue(), KRX::CValue(), 4}, &result);
  return ok && (result.IsEmpty() || result.GetBool());
}

KRX::Constraint FindPositionOrientationConstraint(const KRX::X3DObject& object) {
  for (const KRX::Constraint& constraint : object.GetConstraints()) {
    const KRX::CString type = constraint.GetType();
    if (type == L"Position Cns" || type == L"Orientation Cns") return constraint;
  }
  return KRX::Constraint();
}

bool FindOperatorByName(const KRX::CString& path, const KRX::CString& name,
                        KRX::CustomOperator* out) {
  if (path.IsEmpty()) return false;
  for (const KRX::CValue& element : EnumElements(path)) {
    const KRX::CustomOperator op(element.GetRef());
    if (op.IsValid() && op.GetName() == name) {
      if (out != nullptr) *out = op;
      return true;
    }
  }
  return false;
}

}  // namespace kavor

// What the plug-in does when the host makes a new scene or opens one: pages that showed
// the old scene's items are re-pointed or closed, and adjusted models are re-evaluated.
#include <exception>
#include <optional>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/plugin/shared_names.h"
#include "krx/plugin.h"

namespace {

constexpr const wchar_t* kPropertyPanel = L"Property Panel";
constexpr const wchar_t* kTargetContent = L"targetcontent";
constexpr int kViewClosed = 1;
constexpr int kMocapPageWidth = 393;
constexpr int kMocapPageHeight = 395;

constexpr const wchar_t* kStructurePropertyName = L"ZRKStructure";
constexpr const wchar_t* kAdjustPropertyName = L"RetargetAdjustPPG";
constexpr const wchar_t* kRotationOffsetPropertyName = L"RotationOffsetPPG";
// A Mocap to Rig property without this parameter was made by an older plug-in and is
// rebuilt.
constexpr const wchar_t* kCurrentMocapParameter = L"C3DSymmetry";
constexpr const wchar_t* kTargetModelParameter = L"TargetModel";

// The property pages of the active desktop layout, in view order.
std::vector<KRX::View> PropertyPanels() {
  std::vector<KRX::View> panels;
  for (const KRX::View& view : KRX::Application().GetDesktop().GetActiveLayout().GetViews()) {
    if (view.GetType() == kPropertyPanel) panels.push_back(view);
  }
  return panels;
}

KRX::CString TargetContent(const KRX::View& view) {
  return view.GetAttributeValue(kTargetContent).GetString();
}

// The Mocap to Rig page shows a property of the scene root: point an open page at the
// new scene's property, making one when the scene has none.
void RepointMocapToRigPage() {
  const KRX::CString& name = kavor::MocapToRigPropertyName();
  if (name.IsEmpty()) return;
  std::optional<KRX::View> page;
  for (const KRX::View& view : PropertyPanels()) {
    if (TargetContent(view) == name) {
      page = view;
      break;
    }
  }
  if (!page) return;

  KRX::Model root = KRX::Application().GetActiveSceneRoot();
  KRX::Property property;
  bool exists = kavor::FindPropertyByName(root, name, &property);
  if (exists && !property.GetParameter(kCurrentMocapParameter).IsValid()) {
    // A stale property is replaced by a fresh one below.
    kavor::DeleteByName(property.GetFullName());
    exists = kavor::FindPropertyByName(root, name, &property);
  }
  if (!exists) {
    property = root.AddProperty(name, false, name);
    if (!property.IsValid()) return;
    const std::vector<KRX::Model> characters =
        kavor::FindModelsWithProperty(kStructurePropertyName, true);
    if (characters.size() == 1) {
      property.PutParameterValue(kTargetModelParameter, characters.front().GetFullName());
    }
  }
  page->PutAttributeValue(kTargetContent, property.GetFullName());
  page->Resize(kMocapPageWidth, kMocapPageHeight);
}

// The adjustment page of the model adjusted last belongs to the old scene.
void CloseAdjustmentPage() {
  const KRX::CString& model = kavor::LastAdjustedModelName();
  if (model.IsEmpty()) return;
  const KRX::CString content = model + KRX::CString(L".") + KRX::CString(kAdjustPropertyName);
  for (KRX::View& view : PropertyPanels()) {
    if (TargetContent(view) == content) {
      view.PutState(kViewClosed);
      return;
    }
  }
}

void CloseRotationOffsetPages() {
  for (KRX::View& view : PropertyPanels()) {
    if (TargetContent(view).FindString(kRotationOffsetPropertyName) != KRX::CString::npos) {
      view.PutState(kViewClosed);
    }
  }
}

// Reading and writing back the global transform of every adjusted model makes the host
// evaluate its retarget operators, which bind to the opened scene's motion.
void TouchAdjustedModels() {
  const KRX::Model root = KRX::Application().GetActiveSceneRoot();
  for (const KRX::X3DObject& object : root.FindChildren(L"", L"", true)) {
    const KRX::Model model(object.GetRef());
    if (!model.IsValid()) continue;
    KRX::Property adjustments;
    if (!kavor::FindPropertyByName(model, kAdjustPropertyName, &adjustments) ||
        !KRX::CustomProperty(adjustments.GetRef()).IsValid()) {
      continue;
    }
    KRX::KinematicState global = model.GetKinematics().GetGlobal();
    global.PutTransform(global.GetTransform(KRX::kCurrentTime), KRX::kCurrentTime);
  }
}

template <typename Steps>
KRX::CStatus RunSceneEvent(const char* name, Steps steps) {
  try {
    steps();
  } catch (const std::exception& e) {
    kavor::LogError(KRX::CString(name) + KRX::CString(" failed: ") + KRX::CString(e.what()));
  } catch (...) {
    kavor::LogError(KRX::CString(name) + KRX::CString(" failed."));
  }
  return KRX::CStatus::OK;
}

}  // namespace

KRX_PLUGIN_EXPORT KRX::CStatus MyNewScene_OnEvent(KRX::CRef&) {
  return RunSceneEvent("MyNewScene_OnEvent", [] {
    RepointMocapToRigPage();
    CloseAdjustmentPage();
    CloseRotationOffsetPages();
  });
}

KRX_PLUGIN_EXPORT KRX::CStatus MyOpenScene_OnEvent(KRX::CRef&) {
  return RunSceneEvent("MyOpenScene_OnEvent", [] {
    RepointMocapToRigPage();
    CloseAdjustmentPage();
    CloseRotationOffsetPages();
    TouchAdjustedModels();
  });
}

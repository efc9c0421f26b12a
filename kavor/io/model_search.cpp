// Scene helpers that find models: by name below the scene root, from the selection, and
// by a property they carry.
#include <algorithm>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"

namespace kavor {
namespace {

bool Contains(const std::vector<KRX::Model>& models, const KRX::Model& model) {
  return std::any_of(models.begin(), models.end(),
                     [&](const KRX::Model& m) { return m == model; });
}

}  // namespace

KRX::Model FindSceneModel(const KRX::CString& name) {
  const KRX::Model root = KRX::Application().GetActiveSceneRoot();
  // Only the root's own children qualify, so walking them in order finds the same model
  // as a depth-first search of the whole scene would.
  for (const KRX::X3DObject& child : root.GetChildren()) {
    const KRX::Model model(child.GetRef());
    if (model.IsValid() && model.GetName() == name) return model;
  }
  return KRX::Model();
}

KRX::Model ModelOfItem(const KRX::CRef& item) {
  const KRX::SIObject object(item);
  if (!object.IsValid()) return KRX::Model();
  if (object.GetType() == L"#model") return KRX::Model(item);
  return KRX::Model(object.GetModel());
}

std::vector<KRX::Model> SelectedModels() {
  const KRX::Application app;
  const KRX::CString root_name = app.GetActiveSceneRoot().GetFullName();
  std::vector<KRX::Model> models;
  for (const KRX::CRef& item : app.GetSelection()) {
    const KRX::Model model = ModelOfItem(item);
    if (!model.IsValid() || model.GetFullName() == root_name) continue;
    if (!Contains(models, model)) models.push_back(model);
  }
  return models;
}

std::vector<KRX::Model> FindModelsWithProperty(const KRX::CString& name, bool from_selection) {
  const KRX::Application app;
  const KRX::Model root = app.GetActiveSceneRoot();

  // 1. Models directly below the scene root that carry the property, in scene order.
  std::vector<KRX::Model> models;
  for (const KRX::X3DObject& child : root.GetChildren()) {
    const KRX::Model model(child.GetRef());
    if (model.IsValid() && FindPropertyByName(model, name, nullptr)) models.push_back(model);
  }
  // 2. None: nothing to narrow or rebuild.
  if (models.empty()) return models;

  const std::vector<KRX::CRef> selection = app.GetSelection();
  if (!from_selection) {
    // 4. The first selected item whose model is listed narrows the list to that model.
    for (const KRX::CRef& item : selection) {
      const KRX::Model model = ModelOfItem(item);
      if (model.IsValid() && Contains(models, model)) return {model};
    }
    return models;
  }

  // 5. Rebuilt from the selection.
  const KRX::CString root_name = root.GetFullName();
  std::vector<KRX::Model> selected;
  for (const KRX::CRef& item : selection) {
    const KRX::Model model = ModelOfItem(item);
    if (!model.IsValid() || model.GetFullName() == root_name) continue;
    if (!FindPropertyByName(model, name, nullptr) || Contains(selected, model)) continue;
    selected.push_back(model);
  }
  return selected;
}

void FrameModels(const KRX::CString& property_name) {
  const std::vector<KRX::Model> models = FindModelsWithProperty(property_name, false);
  for (const KRX::Model& model : models) {
    TryRunCommand(L"SelectObj", {model.GetFullName(), L"BRANCH"});
  }
  if (models.empty()) {
    TryRunCommand(L"FrameAll", {});
  } else {
    TryRunCommand(L"FrameAll", {0});
  }
  TryRunCommand(L"DeselectAll", {});
}

}  // namespace kavor

#include "kavor/operators/adjust_page.h"

#include <string>

#include "kavor/host/host.h"
#include "kavor/io/messages.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/operators/adjust_events.h"
#include "kavor/operators/adjust_property.h"
#include "kavor/operators/rotation_offset.h"
#include "kavor/plugin/shared_names.h"
#include "kavor/xml/preferences.h"
#include "kavor/xml/remembered_folder.h"
#include "krx/plugin.h"

namespace kavor {

namespace {

constexpr const wchar_t* kHelpFile =
    L"<FactoryPath>/Doc/<DocLangPref>/krxdocs.chm::/charanim_props_RetargetAdjust.htm";
constexpr int kNumericWidth = 250;
constexpr const wchar_t* kPropertyPanel = L"Property Panel";
constexpr const wchar_t* kTargetContent = L"targetcontent";
constexpr const wchar_t* kPresetFilter = L"Save Adjustment File (*.adj)|*.adj||";
constexpr const wchar_t* kPresetTitle = L"Save Adjustment File";

// A numeric item, wide enough for its slider.
void Numeric(KRX::PPGLayout& layout, const KRX::CString& name, const KRX::CString& label = L"") {
  layout.AddItem(name, label).PutAttribute(L"cx", KRX::CValue(kNumericWidth));
}

void Tab(KRX::PPGLayout& layout, const KRX::CString& name) {
  layout.AddTab(name).PutAttribute(L"helpfile", KRX::CValue(kHelpFile));
}

void Offsets(KRX::PPGLayout& layout, const std::string& base) {
  Numeric(layout, ToWide(base + "X"), L"X Offset");
  Numeric(layout, ToWide(base + "Y"), L"Y Offset");
  Numeric(layout, ToWide(base + "Z"), L"Z Offset");
}

KRX::CValueArray ComboValues(const std::vector<ComboItem>& items) {
  KRX::CValueArray values;
  for (const ComboItem& item : items) {
    values.emplace_back(ToWide(item.label));
    values.emplace_back(item.value);
  }
  return values;
}

std::string TextValue(const KRX::CustomProperty& property, const std::string& name) {
  const KRX::Parameter parameter = property.GetParameter(ToWide(name));
  return parameter.IsValid() ? ToNarrow(parameter.GetValue().GetString()) : std::string();
}

int32_t IntValue(const KRX::CustomProperty& property, const wchar_t* name) {
  const KRX::Parameter parameter = property.GetParameter(name);
  return parameter.IsValid() ? parameter.GetValue().GetInt() : 0;
}

// The model a page event is about: the property's parent, or else the first model among
// its owners.
KRX::Model OwningModel(const KRX::CustomProperty& property) {
  for (KRX::SIObject walk(property.GetParent()); walk.IsValid();
       walk = KRX::SIObject(walk.GetParent())) {
    const KRX::Model model(walk.GetRef());
    if (model.IsValid()) return model;
  }
  return KRX::Model();
}

// Browses for a preset file in the folder remembered for presets and runs `command` on it.
void PresetButton(const KRX::Model& model, const wchar_t* command, bool open) {
  KRX::CString folder;
  {
    Preferences preferences;
    folder = preferences.GetString(kFilePathsSection, kAdjustmentPresetsKey,
                                   KRX::Application().GetInstallationPath(1));
    preferences.Close();
  }
  const KRX::CString path =
      BrowseInRememberedFolder(kAdjustmentPresetsKey, kPresetFilter, kPresetTitle, open, folder);
  if (path.IsEmpty()) return;
  RunCommand(command, {KRX::CValue(model.GetFullName()), KRX::CValue(path)});
}

// Opens the rotation offset page of the object the "Rotations" choice names.
void EditRotationOffset(const KRX::Model& model, const KRX::CustomProperty& property,
                        const RetargetOpContext& context) {
  const int32_t item = IntValue(property, L"RotNodes");
  if (item < 0 || static_cast<size_t>(item) >= context.rotation_node_items.size()) return;
  const KRX::X3DObject object =
      model.FindChild(ToWide(context.rotation_node_items[item].label), L"", true);
  if (!object.IsValid()) return;
  ShowRotationOffsetPage(object, item, IsLimbEndObject(context, object));
}

}  // namespace

void BuildAdjustLayout(KRX::PPGLayout layout, const KRX::CustomProperty& property,
                       const RetargetOpContext& context) {
  if (!layout.IsValid()) return;
  layout.Clear();
  Tab(layout, L"Global");
  layout.AddGroup(L"Adjustment Files");
  layout.AddRow();
  layout.AddButton(L"Save Preset");
  layout.AddButton(L"Load Preset");
  layout.EndRow();
  layout.EndGroup();
  layout.AddGroup(L"General Settings");
  Numeric(layout, L"InsertionFrame", L"Start Frame");
  Numeric(layout, L"Speed");
  Numeric(layout, L"Scale");
  Numeric(layout, L"Stride");
  layout.EndGroup();
  layout.AddGroup(L"Position Offsets");
  layout.AddItem(L"offsetFeet", L"Offset Feet");
  Numeric(layout, L"hipX", L"X Offset");
  Numeric(layout, L"hipY", L"Y Offset");
  Numeric(layout, L"hipZ", L"Z Offset");
  layout.EndGroup();
  layout.AddGroup(L"Rotations Offsets");
  layout.AddSpacer();
  layout.AddRow();
  layout.AddEnumControl(L"RotNodes", ComboValues(context.rotation_node_items), L"Rotations");
  layout.AddButton(L"Edit");
  layout.EndRow();
  layout.EndGroup();

  // Plane tabs are looked up by the structure's plane index, which skips planes without a
  // rig object: every index is tried, absent names are passed over.
  const int32_t planes = context.structure ? context.structure->NumPlanes() : 0;
  for (int32_t k = 0; k < planes; ++k) {
    const std::string end = TextValue(property, "name" + std::to_string(k));
    if (end.empty()) continue;
    Tab(layout, ToWide(end));
    layout.AddGroup(L"Position Offsets");
    Offsets(layout, end);
    layout.EndGroup();
    layout.AddGroup(L"Chain Settings");
    layout.AddItem(ToWide(end + "Foot"));
    Numeric(layout, ToWide(end + "Roll"));
    Numeric(layout, ToWide(end + "Stretch"));
    layout.EndGroup();
    layout.AddGroup(L"Clamp Settings");
    layout.AddItem(ToWide(end + "Clamp"));
    layout.AddEnumControl(ToWide(end + "Frame"), ComboValues(context.global_frame_items),
                          L"Clamp Target");
    Numeric(layout, ToWide(end + "BlendBack"), L"Blend Back Time");
    layout.EndGroup();
  }
  const int32_t semi_free = IntValue(property, L"NumSemiFree");
  for (int32_t k = 0; k < semi_free; ++k) {
    const std::string node = TextValue(property, "semiName" + std::to_string(k));
    if (node.empty()) continue;
    Tab(layout, ToWide(node));
    layout.AddGroup(L"Position Offsets");
    if (property.GetParameter(ToWide(node + "offsetChildren")).IsValid()) {
      layout.AddItem(ToWide(node + "offsetChildren"), L"Offset End Effectors");
    }
    Offsets(layout, node);
    layout.EndGroup();
    layout.AddGroup(L"Rotation Offsets");
    Numeric(layout, ToWide(node + "RX"), L"RotX");
    Numeric(layout, ToWide(node + "RY"), L"RotY");
    Numeric(layout, ToWide(node + "RZ"), L"RotZ");
    layout.EndGroup();
    layout.AddGroup(L"Curve Settings");
    Numeric(layout, ToWide(node + "AnchorTangentLength"), L"Anchor");
    Numeric(layout, ToWide(node + "GoalTangentLength"));
    layout.EndGroup();
  }
}

void ShowAdjustPage(const KRX::Model& model, bool refresh_only) {
  if (!model.IsValid()) {
    ShowWarning(L"Select a valid model.");
    return;
  }
  const KRX::CString name = model.GetFullName();
  if (refresh_only && !(name == LastAdjustedModelName())) return;
  SetLastAdjustedModelName(name);
  KRX::Property property;
  if (!FindPropertyByName(model, kAdjustProperty, &property)) {
    if (!refresh_only) ShowWarning(L"Select a model with retargetted motion.");
    return;
  }
  // The page is built from the running retarget: reading the model's pose makes its
  // operators bind first.
  (void)model.GetKinematics().GetGlobal().GetTransform(KRX::kCurrentTime);
  const KRX::CString content = name + KRX::CString(L".") + KRX::CString(kAdjustProperty);
  KRX::Layout desktop = KRX::Application().GetDesktop().GetActiveLayout();
  KRX::View page;
  for (const KRX::View& view : desktop.GetViews()) {
    if (view.GetType() == kPropertyPanel &&
        view.GetAttributeValue(kTargetContent).GetString() == content) {
      page = view;
      break;
    }
  }
  if (!page.IsValid()) {
    if (refresh_only) return;
    page = desktop.CreateView(kPropertyPanel, L"RetargetAdjust");
    page.Move(110, 419);
  }
  page.PutAttributeValue(kTargetContent, property.GetFullName());
  page.Resize(400, 370);
}

}  // namespace kavor

using kavor::RetargetOpContext;

// A change made by a command while the page is closed reacts as one made on the page.
KRX_PLUGIN_EXPORT KRX::CStatus RetargetAdjustPPG_ParameterChanged(KRX::CRef& ref) {
  const KRX::Parameter parameter(KRX::Context(ref).GetSource());
  const KRX::CustomProperty property(parameter.GetParent());
  RetargetOpContext* context = kavor::FindLiveContext(kavor::OwningModel(property));
  if (context != nullptr) {
    kavor::OnAdjustmentChanged(*context, parameter, KRX::Application().GetCurrentFrame());
  }
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetAdjustPPG_PPGEvent(KRX::CRef& ref) {
  KRX::PPGEventContext event(ref);
  const KRX::CRef source = event.GetSource();
  KRX::CustomProperty property(source);
  if (!property.IsValid()) property = KRX::CustomProperty(KRX::SIObject(source).GetParent());
  const KRX::Model model = kavor::OwningModel(property);
  RetargetOpContext* context = kavor::FindLiveContext(model);
  if (context == nullptr) return KRX::CStatus::OK;
  switch (event.GetEventID()) {
    case KRX::PPGEvent::OnInit:
      kavor::BuildAdjustLayout(event.GetLayout(), property, *context);
      event.PutAttribute(L"Refresh", KRX::CValue(true));
      break;
    case KRX::PPGEvent::ButtonClicked: {
      const KRX::CString button = event.GetAttribute(L"Button").GetString();
      if (button == KRX::CString(L"Save Preset")) {
        kavor::PresetButton(model, L"SaveKAVORAdjustmentPresetFile", false);
      } else if (button == KRX::CString(L"Load Preset")) {
        kavor::PresetButton(model, L"LoadKAVORAdjustmentPresetFile", true);
      } else if (button == KRX::CString(L"Edit")) {
        kavor::EditRotationOffset(model, property, *context);
      }
      break;
    }
    case KRX::PPGEvent::ParameterChange:
      kavor::OnAdjustmentChanged(*context, KRX::Parameter(source),
                                 KRX::Application().GetCurrentFrame());
      break;
    default:
      break;
  }
  return KRX::CStatus::OK;
}

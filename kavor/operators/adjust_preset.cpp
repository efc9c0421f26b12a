#include "kavor/operators/adjust_preset.h"

#include <xercesc/dom/DOM.hpp>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/io/whole_file.h"
#include "kavor/operators/adjust_events.h"
#include "kavor/operators/adjust_property.h"
#include "kavor/operators/retarget_context.h"
#include "kavor/operators/rotation_offset.h"
#include "kavor/xml/property_parameters.h"
#include "kavor/xml/xml_document.h"

namespace kavor {

namespace {

constexpr const wchar_t* kHeader = L"HEADER";
constexpr const wchar_t* kHeaderText = L"Ajustment Preset file Saved out from KRX using KAVOR";
constexpr const wchar_t* kHostVersion = L"krx";
constexpr const wchar_t* kAdjustData = L"ADJUST_PPG_DATA";
constexpr const wchar_t* kRotationOffsets = L"ROTATION_OFFSETS";
constexpr const wchar_t* kNoData = L"No KAVOR Data loaded onto model.";

// The child elements of `parent` in order, walked directly (a file may hold many).
template <typename Visit>
void ForEachChild(const XmlElement* parent, Visit visit) {
  if (parent == nullptr) return;
  for (const xercesc::DOMNode* node = parent->getFirstChild(); node != nullptr;
       node = node->getNextSibling()) {
    if (node->getNodeType() == xercesc::DOMNode::ELEMENT_NODE) {
      visit(static_cast<const XmlElement*>(node));
    }
  }
}

PresetValues ReadValues(const XmlElement* element) {
  PresetValues values;
  ForEachChild(element, [&](const XmlElement* child) {
    values.emplace_back(ElementName(child), ElementText(child));
  });
  return values;
}

bool FindAdjustments(const KRX::Model& model, KRX::CustomProperty* out) {
  KRX::Property property;
  if (!model.IsValid() || !FindPropertyByName(model, kAdjustProperty, &property)) {
    LogWarning(kNoData);
    return false;
  }
  *out = KRX::CustomProperty(property.GetRef());
  return true;
}

// The model's live retarget; reading the model's pose first makes its operators bind.
RetargetOpContext* BoundContext(const KRX::Model& model, double time) {
  (void)model.GetKinematics().GetGlobal().GetTransform(time);
  return FindLiveContext(model);
}

// Values that describe the rig or the operators' wiring, not an adjustment.
bool DescribesRig(const KRX::Parameter& parameter) {
  return (parameter.GetCapabilities() & (KRX::kCapSilent | KRX::kCapNotInspectable)) != 0;
}

}  // namespace

std::optional<AdjustmentPreset> ParseAdjustmentPreset(const KRX::CString& path,
                                                      std::string_view bytes) {
  XmlDocument document;
  document.OpenFromBytes(path, bytes, false);
  const XmlElement* root = document.DocumentElement();
  if (root == nullptr) {
    document.Close();
    return std::nullopt;
  }
  AdjustmentPreset preset;
  preset.adjustments = ReadValues(ChildElement(root, kAdjustData));
  ForEachChild(ChildElement(root, kRotationOffsets), [&](const XmlElement* child) {
    preset.rotation_offsets.emplace_back(ElementName(child), ReadValues(child));
  });
  document.Close();
  return preset;
}

bool SaveAdjustmentPreset(const KRX::Model& model, const KRX::CString& path) {
  KRX::CustomProperty adjust;
  if (!FindAdjustments(model, &adjust)) return false;
  const RetargetOpContext* context = BoundContext(model, KRX::kCurrentTime);
  XmlDocument document(path, false, true);
  XmlElement* root = document.DocumentElement();
  XmlElement* header = document.AddTextElement(root, kHeader, kHeaderText);
  document.SetAttribute(header, L"VERSION", kHostVersion);
  WritePropertyParameters(document, root, kAdjustData, adjust);
  XmlElement* offsets = document.AddElement(root, kRotationOffsets);
  if (context != nullptr) {
    for (const ComboItem& item : context->rotation_node_items) {
      const KRX::X3DObject object = model.FindChild(ToWide(item.label), L"", true);
      KRX::Property property;
      if (!object.IsValid() || !FindPropertyByName(object, kRotationOffsetProperty, &property)) {
        continue;
      }
      WritePropertyParameters(document, offsets, ToWide(item.label), property);
    }
  }
  if (!document.Close()) {
    LogWarning(L"The adjustment preset " + path + L" could not be written.");
    return false;
  }
  return true;
}

bool LoadAdjustmentPreset(const KRX::Model& model, const KRX::CString& path, double time) {
  KRX::CustomProperty adjust;
  if (!FindAdjustments(model, &adjust)) return false;
  ReadFileStatus status = ReadFileStatus::kOk;
  const FileBuffer bytes = ReadWholeFile(path, &status, kMaxSmallTextFileBytes);
  if (status != ReadFileStatus::kOk) {
    LogWarning(L"The adjustment preset " + path + L" cannot be read.");
    return false;
  }
  const std::optional<AdjustmentPreset> preset = ParseAdjustmentPreset(path, bytes.Text());
  if (!preset) return false;

  for (const auto& [name, text] : preset->adjustments) {
    KRX::Parameter parameter = adjust.GetParameter(name);
    if (!parameter.IsValid() || DescribesRig(parameter)) continue;
    parameter.PutValue(KRX::CValue(text), time);
  }
  RetargetOpContext* context = BoundContext(model, time);
  if (context == nullptr) return true;
  for (const KRX::Parameter& parameter : adjust.GetParameters()) {
    OnAdjustmentChanged(*context, parameter, time);
  }
  const std::vector<ComboItem> items = context->rotation_node_items;
  for (const auto& [object_name, values] : preset->rotation_offsets) {
    const std::string name = ToNarrow(object_name);
    for (const ComboItem& item : items) {
      if (item.label != name) continue;
      const KRX::X3DObject object = model.FindChild(object_name, L"", true);
      if (!object.IsValid()) break;
      KRX::CustomProperty offset =
          EnsureRotationOffset(object, item.value, IsLimbEndObject(*context, object));
      if (!offset.IsValid()) break;
      for (const auto& [parameter_name, text] : values) {
        KRX::Parameter parameter = offset.GetParameter(parameter_name);
        if (parameter.IsValid()) parameter.PutValue(KRX::CValue(text), time);
      }
      RegisterRotationOffset(offset);
      break;
    }
  }
  PingRetarget(*context);
  return true;
}

}  // namespace kavor

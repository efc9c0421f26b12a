#include "kavor/operators/rotation_offset.h"

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/operators/adjust_property.h"
#include "krx/plugin.h"

namespace kavor {

namespace {

using KRX::CValue;
using KRX::ValueType;

constexpr int kAnimatable = KRX::kCapAnimatable | KRX::kCapPersistable;
constexpr int kHidden = KRX::kCapPersistable | KRX::kCapSilent;
constexpr const wchar_t* kPropertyPanel = L"Property Panel";
constexpr const wchar_t* kTargetContent = L"targetcontent";
constexpr const wchar_t* kViewName = L"RotateNode";

void AddAngle(KRX::CustomProperty& property, const wchar_t* name) {
  property.AddParameter(name, ValueType::Double, kAnimatable, L"", L"", CValue(0.0), CValue(-180.0),
                        CValue(180.0), CValue(-180.0), CValue(180.0));
}

// The nearest model above `object` (the object itself included) that a live retarget
// drives.
RetargetOpContext* LiveContextAbove(const KRX::X3DObject& object) {
  for (KRX::SIObject walk(object.GetRef()); walk.IsValid();
       walk = KRX::SIObject(walk.GetParent())) {
    const KRX::Model model(walk.GetRef());
    if (!model.IsValid()) continue;
    if (RetargetOpContext* context = FindLiveContext(model)) return context;
  }
  return nullptr;
}

// The property a page event is about: the event's source, or the parameter's owner.
KRX::CustomProperty EventProperty(const KRX::CRef& source) {
  KRX::CustomProperty property(source);
  if (!property.IsValid()) property = KRX::CustomProperty(KRX::SIObject(source).GetParent());
  return property;
}

}  // namespace

void DefineRotationOffsetParameters(KRX::CustomProperty& property) {
  for (const wchar_t* axis : {L"X", L"Y", L"Z"}) AddAngle(property, axis);
  property.AddParameter(L"Reduce", ValueType::Double, kAnimatable, L"", L"", CValue(0.0),
                        CValue(0.0), CValue(1.0), CValue(0.0), CValue(1.0));
  property.AddParameter(L"IsCog", ValueType::Bool, kHidden, L"", L"", CValue(false));
}

RotationOffsetParameters ResolveRotationOffset(const KRX::CustomProperty& property) {
  return {property.GetParameter(L"X"), property.GetParameter(L"Y"), property.GetParameter(L"Z"),
          property.GetParameter(L"Reduce")};
}

KRX::CustomProperty EnsureRotationOffset(const KRX::X3DObject& object, int32_t rotation_item,
                                         bool is_limb_end) {
  if (!object.IsValid()) return KRX::CustomProperty();
  KRX::X3DObject owner = object;
  KRX::Property found;
  KRX::CustomProperty property;
  if (FindPropertyByName(owner, kRotationOffsetProperty, &found)) {
    property = KRX::CustomProperty(found.GetRef());
  } else {
    property = KRX::CustomProperty(owner.AddProperty(kRotationOffsetProperty));
    // Without the plug-in's registration, a plain custom property of that name does.
    if (!property.IsValid()) property = owner.AddCustomProperty(kRotationOffsetProperty);
    if (!property.IsValid()) return property;
    if (!property.GetParameter(L"X").IsValid()) DefineRotationOffsetParameters(property);
  }
  if (rotation_item == 0) property.PutParameterValue(L"IsCog", CValue(true));
  KRX::Parameter reduce = property.GetParameter(L"Reduce");
  if (reduce.IsValid()) reduce.PutCapabilityFlag(KRX::kCapReadOnly, is_limb_end);
  return property;
}

bool RegisterRotationOffset(const KRX::CustomProperty& property) {
  const KRX::X3DObject object(property.GetParent());
  RetargetOpContext* context = object.IsValid() ? LiveContextAbove(object) : nullptr;
  if (context == nullptr || !context->glue) return false;
  bool found = false;
  std::vector<GlueMocapEntry>& mocaps = context->glue->mocaps;
  context->rotation_offsets.resize(mocaps.size());
  for (size_t m = 0; m < mocaps.size(); ++m) {
    GlueMocapEntry& entry = mocaps[m];
    if (!(entry.object == object) || entry.type == GlueMocapType::kPositionOnly) continue;
    entry.has_rotation_offset = true;
    entry.rotation_offset_page = property;
    context->rotation_offsets[m] = ResolveRotationOffset(property);
    found = true;
  }
  if (found) PingRetarget(*context);
  return found;
}

bool IsLimbEndObject(const RetargetOpContext& context, const KRX::X3DObject& object) {
  if (!context.model || !context.structure) return false;
  for (const StructurePlane& plane : context.structure->planes) {
    if (plane.span >= 0 && plane.span < context.model->NumNodes() &&
        context.model->Node(plane.span).object == object) {
      return true;
    }
  }
  return false;
}

void ShowRotationOffsetPage(const KRX::X3DObject& object, int32_t rotation_item, bool is_limb_end) {
  const KRX::CustomProperty property = EnsureRotationOffset(object, rotation_item, is_limb_end);
  if (!property.IsValid()) return;
  RegisterRotationOffset(property);
  KRX::Layout desktop = KRX::Application().GetDesktop().GetActiveLayout();
  KRX::View page;
  for (const KRX::View& view : desktop.GetViews()) {
    if (view.GetType() == kPropertyPanel && view.GetName() == kViewName) page = view;
  }
  if (!page.IsValid()) {
    page = desktop.CreateView(kPropertyPanel, kViewName);
    page.Move(110, 769);
    page.Resize(400, 145);
  }
  page.PutAttributeValue(kTargetContent, property.GetFullName());
}

}  // namespace kavor

KRX_PLUGIN_EXPORT KRX::CStatus RotationOffsetPPG_Define(KRX::CRef& ref) {
  KRX::CustomProperty property(KRX::Context(ref).GetSource());
  kavor::DefineRotationOffsetParameters(property);
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RotationOffsetPPG_DefineLayout(KRX::CRef& ref) {
  KRX::PPGLayout(KRX::Context(ref).GetSource()).Clear();
  return KRX::CStatus::OK;
}

// A change made by a command while the page is closed counts as one made on the page.
KRX_PLUGIN_EXPORT KRX::CStatus RotationOffsetPPG_ParameterChanged(KRX::CRef& ref) {
  kavor::RegisterRotationOffset(kavor::EventProperty(KRX::Context(ref).GetSource()));
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus RotationOffsetPPG_PPGEvent(KRX::CRef& ref) {
  KRX::PPGEventContext event(ref);
  const KRX::CustomProperty property = kavor::EventProperty(event.GetSource());
  if (!property.IsValid()) return KRX::CStatus::OK;
  switch (event.GetEventID()) {
    case KRX::PPGEvent::OnInit: {
      KRX::PPGLayout layout = event.GetLayout();
      if (layout.IsValid()) {
        layout.Clear();
        layout.AddGroup(KRX::SIObject(property.GetParent()).GetName());
        layout.AddItem(L"X", L"RotX");
        layout.AddItem(L"Y", L"RotY");
        layout.AddItem(L"Z", L"RotZ");
        layout.AddItem(L"Reduce");
        layout.EndGroup();
      }
      event.PutAttribute(L"Refresh", KRX::CValue(true));
      break;
    }
    case KRX::PPGEvent::ParameterChange:
      kavor::RegisterRotationOffset(property);
      break;
    default:
      break;
  }
  return KRX::CStatus::OK;
}

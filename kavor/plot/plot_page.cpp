#include "kavor/plot/plot_page.h"

#include <cmath>
#include <limits>

#include "kavor/host/host.h"
#include "kavor/io/messages.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/operators/adjust_property.h"
#include "kavor/operators/retarget_context.h"
#include "krx/plugin.h"

namespace kavor {
namespace {

using KRX::CValue;
using KRX::ValueType;

constexpr const wchar_t* kPlotHelpFile =
    L"<FactoryPath>/Doc/<DocLangPref>/krxdocs.chm::/charanim_props_PlotRetarget.htm";
// The host capability that lets a parameter be keyed; the frame range is not animation.
constexpr int kKeyable = 2048;
constexpr int kStored = KRX::kCapPersistable;
constexpr int32_t kFrameLimit = std::numeric_limits<int32_t>::max();

KRX::CustomProperty PlotPageProperty(const KRX::CRef& source) {
  KRX::CustomProperty property(source);
  if (!property.IsValid()) property = KRX::CustomProperty(KRX::SIObject(source).GetParent());
  return property;
}

int32_t PageInteger(const KRX::CustomProperty& property, const wchar_t* name) {
  const KRX::Parameter parameter = property.GetParameter(name);
  return parameter.IsValid() ? parameter.GetValue().GetInt() : 0;
}
bool PageFlag(const KRX::CustomProperty& property, const wchar_t* name) {
  const KRX::Parameter parameter = property.GetParameter(name);
  return parameter.IsValid() && parameter.GetValue().GetBool();
}

void PutFrameRange(KRX::CustomProperty& property, int32_t start, int32_t end) {
  if (property.GetParameter(L"Start").IsValid()) {
    property.PutParameterValue(L"Start", CValue(start));
    property.PutParameterValue(L"End", CValue(end));
  } else {
    property.AddParameter(L"Start", ValueType::Int, kStored, L"", L"", CValue(start),
                          CValue(-kFrameLimit), CValue(kFrameLimit));
    property.AddParameter(L"End", ValueType::Int, kStored, L"", L"", CValue(end),
                          CValue(-kFrameLimit), CValue(kFrameLimit));
  }
  for (const wchar_t* name : {L"Start", L"End"}) {
    KRX::Parameter parameter = property.GetParameter(name);
    if (parameter.IsValid()) parameter.PutCapabilityFlag(kKeyable, false);
  }
}

void BuildPlotLayout(KRX::PPGLayout& layout) {
  layout.Clear();
  layout.PutAttribute(L"helpfile", CValue(kPlotHelpFile));
  layout.AddGroup(L"Settings");
  layout.AddItem(L"Preserve", L"Preserve Source Keys");
  layout.AddItem(L"Inflection", L"Key Peak, Valley and Inflection Points");
  layout.AddItem(L"Interval", L"Key at Interval Spacing");
  layout.AddSpacer(0, 5);
  layout.AddItem(L"IntervalStep", L"Interval Size");
  layout.AddItem(L"Start", L"Start Frame");
  layout.AddItem(L"End", L"End Frame");
  layout.EndGroup();
}

}  // namespace

int32_t PlotEndFrame(int32_t start, double speed, int32_t frame_count) {
  if (!(speed > 0.0) || !std::isfinite(speed) || frame_count <= 1) return start;
  // The smallest whole t - start with floor(d x speed + 0.1) >= frame_count - 1, found in
  // closed form and then corrected by a step for rounding, rather than counting frames.
  const double needed = static_cast<double>(frame_count - 1);
  double steps = std::ceil((needed - 0.1) / speed);
  if (steps < 0.0) steps = 0.0;
  while (steps > 0.0 && std::floor((steps - 1.0) * speed + 0.1) >= needed) steps -= 1.0;
  while (std::floor(steps * speed + 0.1) < needed) steps += 1.0;
  const double end = std::floor(static_cast<double>(start) + steps + 0.1);
  return end >= kFrameLimit ? kFrameLimit : static_cast<int32_t>(end);
}

void RemovePlotPage(const KRX::Model& model) { DeletePropertyByName(model, kPlotProperty); }

void RunPlotAction(const KRX::Model& model) {
  KRX::Property adjust;
  if (!model.IsValid() || !FindPropertyByName(model, kAdjustProperty, &adjust)) {
    ShowWarning(L"Select a model with retargetted motion.");
    return;
  }
  KRX::Property found;
  KRX::CustomProperty page;
  if (FindPropertyByName(model, kPlotProperty, &found)) {
    page = KRX::CustomProperty(found.GetRef());
  } else {
    KRX::Model owner = model;
    page = KRX::CustomProperty(owner.AddProperty(kPlotProperty));
  }
  if (!page.IsValid()) return;
  KRX::CValue confirmed;
  const bool shown = TryRunCommand(
      L"InspectObj",
      {page.GetFullName(), CValue(L""), CValue(L"Plot KAVOR Keyframes"), CValue(4), CValue(false)},
      &confirmed);
  if (!shown || (!confirmed.IsEmpty() && !confirmed.GetBool())) return;
  RunCommand(L"PlotRetargetMotion",
             {model.GetFullName(), CValue(PageFlag(page, L"Preserve")),
              CValue(PageFlag(page, L"Inflection")), CValue(PageFlag(page, L"Interval")),
              CValue(PageInteger(page, L"IntervalStep")), CValue(PageInteger(page, L"Start")),
              CValue(PageInteger(page, L"End") + 1)});
}

}  // namespace kavor

KRX_PLUGIN_EXPORT KRX::CStatus PlotRetargetPPG_Define(KRX::CRef& ref) {
  KRX::CustomProperty property(KRX::Context(ref).GetSource());
  constexpr int kAnimatable = KRX::kCapAnimatable | KRX::kCapPersistable;
  property.AddParameter(L"Preserve", KRX::ValueType::Bool, kAnimatable, L"", L"",
                        KRX::CValue(false));
  property.AddParameter(L"Inflection", KRX::ValueType::Bool, kAnimatable, L"", L"",
                        KRX::CValue(false));
  property.AddParameter(L"Interval", KRX::ValueType::Bool, kAnimatable, L"", L"",
                        KRX::CValue(true));
  property.AddParameter(L"IntervalStep", KRX::ValueType::Int, kAnimatable, L"", L"", KRX::CValue(1),
                        KRX::CValue(1), KRX::CValue(100), KRX::CValue(1), KRX::CValue(10));
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus PlotRetargetPPG_DefineLayout(KRX::CRef& ref) {
  KRX::PPGLayout(KRX::Context(ref).GetSource()).Clear();
  return KRX::CStatus::OK;
}

KRX_PLUGIN_EXPORT KRX::CStatus PlotRetargetPPG_PPGEvent(KRX::CRef& ref) {
  KRX::PPGEventContext event(ref);
  if (event.GetEventID() != KRX::PPGEvent::OnInit) return KRX::CStatus::OK;
  KRX::CustomProperty property = kavor::PlotPageProperty(event.GetSource());
  if (!property.IsValid()) return KRX::CStatus::OK;
  const KRX::Model model(property.GetParent());
  kavor::RetargetOpContext* context = model.IsValid() ? kavor::FindLiveContext(model) : nullptr;
  if (context == nullptr) return KRX::CStatus::OK;
  double speed = 1.0;
  if (context->speed_parameter.IsValid()) speed = context->speed_parameter.GetValue().GetDouble();
  const int32_t start = context->insertion_frame;
  kavor::PutFrameRange(property, start, kavor::PlotEndFrame(start, speed, context->frame_count));
  KRX::PPGLayout layout = event.GetLayout();
  if (layout.IsValid()) kavor::BuildPlotLayout(layout);
  event.PutAttribute(L"Refresh", KRX::CValue(true));
  return KRX::CStatus::OK;
}

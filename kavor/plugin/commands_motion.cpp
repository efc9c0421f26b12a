// Commands about a model's motion: its frame range, motion files and plotting.
#include "kavor/plugin/command_call.h"
#include "kavor/plugin/operations.h"
#include "krx/plugin.h"

using kavor::CommandCall;
using kavor::DeclareCommand;
using kavor::ExecuteCommandBody;
using kavor::OnFailure;

namespace {

enum class RangeEnd { kStart, kEnd };

// The first or last frame of the model's range as an integer; the integer 0 when the
// model has no range.
void ReturnFrameRangeEnd(CommandCall& call, const KRX::Model& model, RangeEnd which) {
  int32_t start_frame = 0;
  int32_t end_frame = 0;
  if (!kavor::ops::GetRetargetFrameRange(model, &start_frame, &end_frame)) {
    call.Return(0);
    return;
  }
  call.Return(which == RangeEnd::kStart ? start_frame : end_frame);
}

}  // namespace

KRX_PLUGIN_EXPORT KRX::CStatus RetargetExtractStartFrame_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"model"});
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetExtractStartFrame_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "RetargetExtractStartFrame", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model,
                               L"RetargetExtractStartFrame command missing source model.",
                               L"RetargetExtractStartFrame command invalid source model.")) {
          return;
        }
        ReturnFrameRangeEnd(call, model, RangeEnd::kStart);
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetExtractEndFrame_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"model"});
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetExtractEndFrame_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "RetargetExtractEndFrame", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model, L"RetargetExtractEndFrame command missing source model.",
                               L"RetargetExtractEndFrame command invalid source model.")) {
          return;
        }
        ReturnFrameRangeEnd(call, model, RangeEnd::kEnd);
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus LoadKavorFile_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"targetmodel", L"kavorfile", L"start"});
}

KRX_PLUGIN_EXPORT KRX::CStatus LoadKavorFile_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "LoadKavorFile", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model target;
        if (!call.RequireModel(0, &target, L"LoadKavorFile command missing destination model.",
                               L"LoadKavorFile command invalid destination model.") ||
            !call.Require(1, L"LoadKavorFile command missing kavorfile.")) {
          return;
        }
        // Without a start the motion plays from frame 0.
        call.Return(kavor::ops::LoadKavorMotion(call.TextAt(1), target, call.IntegerOr(2, 0)));
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus SaveKavorFile_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"model", L"kavorfile", L"start", L"end"});
}

KRX_PLUGIN_EXPORT KRX::CStatus SaveKavorFile_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "SaveKavorFile", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model source;
        if (!call.RequireModel(0, &source, L"SaveKavorFile command missing source model.",
                               L"SaveKavorFile command invalid source model.") ||
            !call.Require(1, L"SaveKavorFile command missing kavorfile.") ||
            !call.Require(2, L"SaveKavorFile command missing start frame.") ||
            !call.Require(3, L"SaveKavorFile command missing end frame.")) {
          return;
        }
        call.Return(kavor::ops::SaveKavorMotion(source, call.TextAt(1), call.IntegerAt(2),
                                                call.IntegerAt(3)));
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus PlotRetargetMotion_Init(KRX::CRef& context) {
  return DeclareCommand(
      context, {L"model", L"preserve", L"inflection", L"interval", L"step", L"start", L"end"});
}

// Plotting reports its outcome itself; the command stores no return value.
KRX_PLUGIN_EXPORT KRX::CStatus PlotRetargetMotion_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "PlotRetargetMotion", OnFailure::kStoreNothing, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model, L"PlotRetargetMotion command missing target model.",
                               L"PlotRetargetMotion command invalid target model.") ||
            !call.Require(1, L"PlotRetargetMotion command missing preserve.") ||
            !call.Require(2, L"PlotRetargetMotion command missing inflection.") ||
            !call.Require(3, L"PlotRetargetMotion command missing interval.") ||
            !call.Require(4, L"PlotRetargetMotion command missing step.") ||
            !call.Require(5, L"PlotRetargetMotion command missing start.") ||
            !call.Require(6, L"PlotRetargetMotion command missing end.")) {
          return;
        }
        kavor::ops::PlotRequest request;
        request.model = model;
        request.preserve = call.FlagAt(1);
        request.inflection = call.FlagAt(2);
        request.interval = call.FlagAt(3);
        request.step = call.IntegerAt(4);
        request.start_frame = call.IntegerAt(5);
        request.end_frame = call.IntegerAt(6);
        kavor::ops::RunMotionPlotter(request);
      });
}

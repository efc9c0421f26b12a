// Commands that remove a model's retarget setup or save and load its adjustments.
#include "kavor/plugin/command_call.h"
#include "kavor/plugin/operations.h"
#include "krx/plugin.h"

using kavor::CommandCall;
using kavor::CommandReturn;
using kavor::DeclareCommand;
using kavor::ExecuteCommandBody;
using kavor::OnFailure;

// The command is not echoed to the host's command log and has no return value.
KRX_PLUGIN_EXPORT KRX::CStatus RemoveAllKavorPropsAndOps_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"model"}, CommandReturn::kNone, KRX::kCommandFlagNoLogging);
}

KRX_PLUGIN_EXPORT KRX::CStatus RemoveAllKavorPropsAndOps_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "RemoveAllKavorPropsAndOps", OnFailure::kStoreNothing, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model,
                               L"RemoveAllKavorPropsAndOps command missing target model.",
                               L"RemoveAllKavorPropsAndOps command invalid target model.")) {
          return;
        }
        kavor::ops::RemoveAllKavorSetup(model);
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus RemoveKAVOROperators_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"model"});
}

// The outcome is not stored: callers run it for its effect on the scene.
KRX_PLUGIN_EXPORT KRX::CStatus RemoveKAVOROperators_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "RemoveKAVOROperators", OnFailure::kStoreNothing, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model, L"RemoveKAVOROperators command missing target model.",
                               L"RemoveKAVOROperators command invalid target model.")) {
          return;
        }
        kavor::ops::RemoveRetargetSetup(model);
      });
}

// In the two preset commands the file name is checked before the model's validity, so a
// call without a file reports the file even when the model is also wrong.
KRX_PLUGIN_EXPORT KRX::CStatus SaveKAVORAdjustmentPresetFile_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"model", L"filename"});
}

KRX_PLUGIN_EXPORT KRX::CStatus SaveKAVORAdjustmentPresetFile_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "SaveKAVORAdjustmentPresetFile", OnFailure::kStoreNothing, [](CommandCall& call) {
        if (!call.Require(0, L"SaveKAVORAdjustmentPresetFile command missing target model.") ||
            !call.Require(1, L"SaveKAVORAdjustmentPresetFile command missing file path.")) {
          return;
        }
        const KRX::Model model = call.ModelAt(0);
        if (!call.Check(model.IsValid(),
                        L"SaveKAVORAdjustmentPresetFile command invalid target model.")) {
          return;
        }
        kavor::ops::SaveAdjustmentPreset(model, call.TextAt(1));
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus LoadKAVORAdjustmentPresetFile_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"model", L"filename"});
}

KRX_PLUGIN_EXPORT KRX::CStatus LoadKAVORAdjustmentPresetFile_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "LoadKAVORAdjustmentPresetFile", OnFailure::kStoreNothing, [](CommandCall& call) {
        if (!call.Require(0, L"LoadKAVORAdjustmentPresetFile command missing target model.") ||
            !call.Require(1, L"LoadKAVORAdjustmentPresetFile command missing file path.")) {
          return;
        }
        const KRX::Model model = call.ModelAt(0);
        if (!call.Check(model.IsValid(),
                        L"LoadKAVORAdjustmentPresetFile command invalid target model.")) {
          return;
        }
        kavor::ops::LoadAdjustmentPreset(model, call.TextAt(1), call.TimeFrames());
      });
}

// Commands of the tagging workflow: tag values, tag templates, applying and cleaning tags,
// and choosing a model's structure.
#include "kavor/plugin/command_call.h"
#include "kavor/plugin/operations.h"
#include "krx/plugin.h"

using kavor::CommandCall;
using kavor::DeclareCommand;
using kavor::ExecuteCommandBody;
using kavor::OnFailure;

KRX_PLUGIN_EXPORT KRX::CStatus SetTagValue_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"model", L"tagname", L"tagvalue", L"tagtype"});
}

KRX_PLUGIN_EXPORT KRX::CStatus SetTagValue_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(context, "SetTagValue", OnFailure::kStoreFalse, [](CommandCall& call) {
    KRX::Model model;
    if (!call.RequireModel(0, &model, L"SetTagValue command missing model.",
                           L"SetTagValue command invalid model.") ||
        !call.Require(1, L"SetTagValue command missing tagname.") ||
        !call.Require(2, L"SetTagValue command missing tagvalue.") ||
        !call.Require(3, L"SetTagValue command missing tagtype.")) {
      return;
    }
    call.Return(kavor::ops::SetTagValue(model, call.TextAt(1), call.TextAt(2), call.IntegerAt(3)));
  });
}

KRX_PLUGIN_EXPORT KRX::CStatus SaveTagTemplateFile_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"model", L"tag_template_filename"});
}

KRX_PLUGIN_EXPORT KRX::CStatus SaveTagTemplateFile_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "SaveTagTemplateFile", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model, L"SaveTagTemplateFile command missing model.",
                               L"SaveTagTemplateFile command invalid model.") ||
            !call.Require(1, L"SaveTagTemplateFile command missing template file.")) {
          return;
        }
        call.Return(kavor::ops::SaveTagTemplate(model, call.TextAt(1)));
      });
}

// LoadTagTemplateFile and InheritRetargetSetup run the same operation; they differ only
// in their messages.
KRX_PLUGIN_EXPORT KRX::CStatus LoadTagTemplateFile_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"targetmodel", L"template"});
}

KRX_PLUGIN_EXPORT KRX::CStatus LoadTagTemplateFile_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "LoadTagTemplateFile", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model, L"LoadTagTemplateFile command missing model.",
                               L"LoadTagTemplateFile command invalid model.") ||
            !call.Require(1, L"LoadTagTemplateFile command missing template file.")) {
          return;
        }
        call.Return(kavor::ops::InheritTagTemplate(model, call.TextAt(1)));
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus InheritRetargetSetup_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"targetmodel", L"template"});
}

KRX_PLUGIN_EXPORT KRX::CStatus InheritRetargetSetup_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "InheritRetargetSetup", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model,
                               L"InheritRetargetSetup command missing destination model.",
                               L"InheritRetargetSetup command invalid destination model.") ||
            !call.Require(1, L"InheritRetargetSetup command missing template file.")) {
          return;
        }
        call.Return(kavor::ops::InheritTagTemplate(model, call.TextAt(1)));
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus ApplyTagsToRig_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"targetmodel"});
}

KRX_PLUGIN_EXPORT KRX::CStatus ApplyTagsToRig_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "ApplyTagsToRig", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model, L"ApplyTagsToRig command missing model.",
                               L"ApplyTagsToRig command invalid model.")) {
          return;
        }
        call.Return(kavor::ops::ApplyTagsToRig(model));
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus CleanTagsFromRig_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"targetmodel"});
}

KRX_PLUGIN_EXPORT KRX::CStatus CleanTagsFromRig_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "CleanTagsFromRig", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model, L"CleanTagsFromRig command missing model.",
                               L"CleanTagsFromRig command invalid model.")) {
          return;
        }
        call.Return(kavor::ops::CleanTagsFromRig(model));
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus SetStructureFile_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"targetmodel", L"structurefile"});
}

KRX_PLUGIN_EXPORT KRX::CStatus SetStructureFile_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "SetStructureFile", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model model;
        if (!call.RequireModel(0, &model, L"SetStructureFile command missing model.",
                               L"SetStructureFile command invalid model.") ||
            !call.Require(1, L"SetStructureFile command missing structure file.")) {
          return;
        }
        call.Return(kavor::ops::BuildTagPageLayout(model, call.TextAt(1)));
      });
}

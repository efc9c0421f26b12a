// Commands that start a retarget: rig to rig, BVH and C3D capture, and the C3D helpers.
#include "kavor/plugin/command_call.h"
#include "kavor/plugin/operations.h"
#include "krx/plugin.h"

using kavor::CommandCall;
using kavor::DeclareCommand;
using kavor::ExecuteCommandBody;
using kavor::OnFailure;

KRX_PLUGIN_EXPORT KRX::CStatus Retarget_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"sourcemodel", L"targetmodel", L"strarttime", L"endtime"});
}

KRX_PLUGIN_EXPORT KRX::CStatus Retarget_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(context, "Retarget", OnFailure::kStoreFalse, [](CommandCall& call) {
    KRX::Model source;
    KRX::Model target;
    if (!call.RequireModel(0, &source, L"Retarget command missing source model.",
                           L"Retarget command invalid source model.") ||
        !call.RequireModel(1, &target, L"Retarget command missing destination model.",
                           L"Retarget command invalid destination model.") ||
        !call.Require(2, L"Retarget command missing start frame.") ||
        !call.Require(3, L"Retarget command missing end frame.")) {
      return;
    }
    call.Return(kavor::ops::RetargetRigToRig(source, target, call.IntegerAt(2), call.IntegerAt(3)));
  });
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetBVH_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"targetmodel", L"bvhfile", L"mapfile"});
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetBVH_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(context, "RetargetBVH", OnFailure::kStoreFalse, [](CommandCall& call) {
    KRX::Model target;
    if (!call.RequireModel(0, &target, L"RetargetBVH command missing destination model.",
                           L"RetargetBVH command invalid destination model.") ||
        !call.Require(1, L"RetargetBVH command missing bvhfile.") ||
        !call.Require(2, L"RetargetBVH command missing mapfile.")) {
      return;
    }
    call.Return(kavor::ops::RetargetBvh(call.TextAt(1), call.TextAt(2), target));
  });
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetC3DData_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"c3dfile", L"mapfile"});
}

KRX_PLUGIN_EXPORT KRX::CStatus RetargetC3DData_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "RetargetC3DData", OnFailure::kStoreFalse, [](CommandCall& call) {
        // The double blank before "file" is how the message has always read; scripts that
        // watch the log match it as it is.
        if (!call.Require(0, L"RetargetC3DData command missing the c3d file.") ||
            !call.Require(1, L"RetargetC3DData command missing the map  file.")) {
          return;
        }
        call.Return(kavor::ops::RetargetC3dData(call.TextAt(0), call.TextAt(1)));
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus ImportC3DFile_Init(KRX::CRef& context) {
  return DeclareCommand(
      context, {L"c3dfile", L"updir", L"create_esr_Optional", L"esr_structuretemplate_Optional"});
}

KRX_PLUGIN_EXPORT KRX::CStatus ImportC3DFile_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "ImportC3DFile", OnFailure::kStoreFalse, [](CommandCall& call) {
        constexpr int32_t kDefaultUpAxis = 2;  // Z up, as most capture files are
        if (!call.Require(0, L"ImportC3DFile command missing the c3d file.")) return;
        // Asking for the rig at all, whatever the flag's value, needs its structure.
        if (!call.Check(!call.Has(2) || call.Has(3),
                        L"ImportC3DFile command missing the structure file for ESR model.")) {
          return;
        }
        call.Return(kavor::ops::ImportC3dFile(call.TextAt(0), call.IntegerOr(1, kDefaultUpAxis),
                                              call.FlagOr(2, false),
                                              call.TextOr(3, KRX::CString())));
      });
}

KRX_PLUGIN_EXPORT KRX::CStatus SaveC3DPoseMap_Init(KRX::CRef& context) {
  return DeclareCommand(context, {L"c3dmodel", L"ESR_rig", L"Map_file"});
}

KRX_PLUGIN_EXPORT KRX::CStatus SaveC3DPoseMap_Execute(KRX::CRef& context) {
  return ExecuteCommandBody(
      context, "SaveC3DPoseMap", OnFailure::kStoreFalse, [](CommandCall& call) {
        KRX::Model c3d_model;
        KRX::Model esr_rig;
        // These messages have no final period.
        if (!call.RequireModel(0, &c3d_model, L"SaveC3DPoseMap command missing the c3dmodel",
                               L"SaveC3DPoseMap command invalid c3dmodel") ||
            !call.RequireModel(1, &esr_rig, L"SaveC3DPoseMap command missing the ESR rig",
                               L"SaveC3DPoseMap command invalid ESR rig") ||
            !call.Require(2, L"SaveC3DPoseMap command missing the Map file")) {
          return;
        }
        call.Return(kavor::ops::SaveC3dPoseMap(c3d_model, esr_rig, call.TextAt(2)));
      });
}

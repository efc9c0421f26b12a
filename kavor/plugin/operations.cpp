#include "kavor/plugin/operations.h"

#include "kavor/host/host.h"
#include "kavor/motion/save_kavor_motion.h"
#include "kavor/operators/adjust_preset.h"
#include "kavor/operators/retarget_flows.h"
#include "kavor/operators/retarget_setup.h"
#include "kavor/plot/motion_plotter.h"
#include "kavor/plugin/retarget_frame_range.h"
#include "kavor/tagging/tag_flows.h"
#include "kavor/tagging/tag_templates.h"

namespace kavor::ops {

namespace {

// The report of an operation whose subsystem is not part of the plug-in yet.
bool NotAvailable(const wchar_t* operation) {
  LogWarning(KRX::CString(operation) + KRX::CString(L" is not available yet."));
  return false;
}

}  // namespace

bool RetargetRigToRig(const KRX::Model& source, const KRX::Model& target, int32_t start_frame,
                      int32_t end_frame) {
  return kavor::RetargetRigToRig(source, target, start_frame, end_frame);
}

bool RetargetBvh(const KRX::CString&, const KRX::CString&, const KRX::Model&) {
  return NotAvailable(L"RetargetBvh");
}

bool RetargetC3dData(const KRX::CString&, const KRX::CString&) {
  return NotAvailable(L"RetargetC3dData");
}

bool ImportC3dFile(const KRX::CString&, int32_t, bool, const KRX::CString&) {
  return NotAvailable(L"ImportC3dFile");
}

bool SaveC3dPoseMap(const KRX::Model&, const KRX::Model&, const KRX::CString&) {
  return NotAvailable(L"SaveC3dPoseMap");
}

bool SetTagValue(const KRX::Model& model, const KRX::CString& tag_name,
                 const KRX::CString& tag_value, int32_t tag_type) {
  return kavor::SetTagValue(model, ToNarrow(tag_name), ToNarrow(tag_value), tag_type);
}

bool SaveTagTemplate(const KRX::Model& model, const KRX::CString& template_file) {
  return kavor::SaveTagTemplate(model, ToNarrow(template_file));
}

bool InheritTagTemplate(const KRX::Model& model, const KRX::CString& template_file) {
  return kavor::InheritTagTemplate(model, ToNarrow(template_file));
}

bool ApplyTagsToRig(const KRX::Model& model) { return kavor::ApplyTagsToRig(model); }

bool CleanTagsFromRig(const KRX::Model& model) { return kavor::CleanTagsFromRig(model); }

bool BuildTagPageLayout(const KRX::Model& model, const KRX::CString& structure_file) {
  return kavor::BuildTagPageLayout(model, ToNarrow(structure_file));
}

bool GetRetargetFrameRange(const KRX::Model& model, int32_t* start_frame, int32_t* end_frame) {
  return kavor::GetRetargetFrameRange(model, start_frame, end_frame);
}

bool LoadKavorMotion(const KRX::CString& kavor_file, const KRX::Model& target,
                     int32_t insertion_frame) {
  return kavor::LoadKavorMotion(kavor_file, target, insertion_frame);
}

bool SaveKavorMotion(const KRX::Model& source, const KRX::CString& kavor_file, int32_t start_frame,
                     int32_t end_frame) {
  return kavor::SaveKavorMotion(source, kavor_file, start_frame, end_frame);
}

bool RemoveRetargetSetup(const KRX::Model& model) { return kavor::RemoveRetargetSetup(model); }

bool RemoveAllKavorSetup(const KRX::Model& model) {
  kavor::RemoveAllKavorSetup(model);
  return true;
}

bool RunMotionPlotter(const PlotRequest& request) {
  PlotSettings settings;
  settings.start = request.start_frame;
  settings.end = request.end_frame;
  settings.preserve = request.preserve;
  settings.inflection = request.inflection;
  settings.interval = request.interval;
  settings.interval_step = request.step;
  settings.options = PreferredPlotOptions();
  return PlotRetargetMotion(request.model, settings);
}

bool SaveAdjustmentPreset(const KRX::Model& model, const KRX::CString& preset_file) {
  return kavor::SaveAdjustmentPreset(model, preset_file);
}

bool LoadAdjustmentPreset(const KRX::Model& model, const KRX::CString& preset_file, double time) {
  return kavor::LoadAdjustmentPreset(model, preset_file, time);
}

void OpenTagPage(const KRX::Model& model) { kavor::OpenTagPage(model); }

void OpenRigToRigPage() { NotAvailable(L"The Rig to Rig page"); }

void OpenMocapToRigPage() { NotAvailable(L"The Mocap to Rig page"); }

void OpenKavorFilePage(KavorFileMode, const KRX::CString&, const KRX::Model&) {
  NotAvailable(L"The motion file page");
}

}  // namespace kavor::ops

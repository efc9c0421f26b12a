// The operations that the commands, menus and scene events hand their work to.
//
// Each command is a thin shell: it checks its arguments and calls exactly one of these.
// The operations belong to the subsystems that own the workflows; until a subsystem
// provides its operation, the hand-over here logs "<operation> is not available yet."
// (severity 4) and reports failure. Replace the bodies one by one as the subsystems land.
#pragma once

#include <cstdint>

#include "krx/krx.h"

namespace kavor::ops {

// Rig-to-rig retarget of the source's motion over [start_frame, end_frame] onto target.
bool RetargetRigToRig(const KRX::Model& source, const KRX::Model& target, int32_t start_frame,
                      int32_t end_frame);

// Motion capture.
bool RetargetBvh(const KRX::CString& bvh_file, const KRX::CString& map_file,
                 const KRX::Model& target);
bool RetargetC3dData(const KRX::CString& c3d_file, const KRX::CString& map_file);
// `up_axis`: 0 X, 1 Y, 2 Z. `build_rig`: also build a rig fitted to the markers from
// `structure_file`.
bool ImportC3dFile(const KRX::CString& c3d_file, int32_t up_axis, bool build_rig,
                   const KRX::CString& structure_file);
bool SaveC3dPoseMap(const KRX::Model& c3d_model, const KRX::Model& esr_rig,
                    const KRX::CString& map_file);

// Tagging.
bool SetTagValue(const KRX::Model& model, const KRX::CString& tag_name,
                 const KRX::CString& tag_value, int32_t tag_type);
bool SaveTagTemplate(const KRX::Model& model, const KRX::CString& template_file);
bool InheritTagTemplate(const KRX::Model& model, const KRX::CString& template_file);
bool ApplyTagsToRig(const KRX::Model& model);
bool CleanTagsFromRig(const KRX::Model& model);
bool BuildTagPageLayout(const KRX::Model& model, const KRX::CString& structure_file);

// The frames the model's motion covers: the retargeted motion when the model carries one,
// otherwise the key range of its animation. Returns whether there is a range; start and
// end are written in every case.
bool GetRetargetFrameRange(const KRX::Model& model, int32_t* start_frame, int32_t* end_frame);

// Motion files. `insertion_frame`: the scene frame at which the file's first frame plays.
bool LoadKavorMotion(const KRX::CString& kavor_file, const KRX::Model& target,
                     int32_t insertion_frame);
bool SaveKavorMotion(const KRX::Model& source, const KRX::CString& kavor_file, int32_t start_frame,
                     int32_t end_frame);

// Removal of the retarget setup (operators, blob, adjustments) only, or of everything
// the plug-in put on the model.
bool RemoveRetargetSetup(const KRX::Model& model);
bool RemoveAllKavorSetup(const KRX::Model& model);

// Baking the operator-driven motion into keys.
struct PlotRequest {
  KRX::Model model;
  bool preserve = false;
  bool inflection = false;
  bool interval = false;
  int32_t step = 0;
  int32_t start_frame = 0;
  int32_t end_frame = 0;
};
bool RunMotionPlotter(const PlotRequest& request);

// Adjustment presets. `time_frames`: the evaluation time the preset is applied at.
bool SaveAdjustmentPreset(const KRX::Model& model, const KRX::CString& preset_file);
bool LoadAdjustmentPreset(const KRX::Model& model, const KRX::CString& preset_file,
                          double time_frames);

// Pages opened from the menus. An invalid `model` means "none given": the page asks.
void OpenTagPage(const KRX::Model& model);
void OpenRigToRigPage();
void OpenMocapToRigPage();
enum class KavorFileMode { kSave, kLoad };
void OpenKavorFilePage(KavorFileMode mode, const KRX::CString& initial_folder,
                       const KRX::Model& model);

}  // namespace kavor::ops

// Adjustment presets (".adj"): a retargeted model's adjustments and the rotation offsets of
// its rig objects, saved as XML and loaded onto the same or another retarget.
#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "krx/krx.h"

namespace kavor {

// Parameter name and value text, as a preset file holds them.
using PresetValues = std::vector<std::pair<KRX::CString, KRX::CString>>;

struct AdjustmentPreset {
  PresetValues adjustments;
  // Per rig object, by name: its rotation offset values.
  std::vector<std::pair<KRX::CString, PresetValues>> rotation_offsets;
};

// Reads a preset from the bytes of the file at `path` (named in messages). Nothing when
// the bytes are no XML document; missing sections read as empty.
std::optional<AdjustmentPreset> ParseAdjustmentPreset(const KRX::CString& path,
                                                      std::string_view bytes);

// Writes the model's "RetargetAdjustPPG" and the rotation offsets of its rotation nodes to
// `path`. False, with a warning, when the model has no adjustments or the file cannot be
// written.
bool SaveAdjustmentPreset(const KRX::Model& model, const KRX::CString& path);

// Sets the model's adjustments from the preset at `path` and lets the live retarget react
// to each as to a change on its page (at scene time `time`); makes and fills the rotation
// offsets the preset names for the model's rotation nodes. Parameters that describe the
// rig rather than adjust it (hidden ones and the chain operators' indices) keep their
// values. False, with a warning, when the model has no adjustments or the file cannot be
// read.
bool LoadAdjustmentPreset(const KRX::Model& model, const KRX::CString& path, double time);

}  // namespace kavor

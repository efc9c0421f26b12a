#include "kavor/plugin/retarget_frame_range.h"

#include <cmath>
#include <vector>

namespace kavor {

namespace {

// Whole frames, clamped to the 32-bit range so that an outlandish key time cannot overflow
// the conversion.
int32_t ClampToFrame(double frames) {
  if (frames <= static_cast<double>(kNoEndFrame)) return kNoEndFrame;
  if (frames >= static_cast<double>(kNoStartFrame)) return kNoStartFrame;
  return static_cast<int32_t>(frames);
}

struct KeyRange {
  int32_t start;
  int32_t end;
};

void AddCurveKeys(const KRX::Parameter& parameter, KeyRange* range) {
  const KRX::FCurve curve = parameter.GetFCurve();
  if (!curve.IsValid()) return;
  for (const KRX::FCurveKeyData& key : curve.GetKeys()) {
    if (!std::isfinite(key.time)) continue;
    const int32_t start = ClampToFrame(std::floor(key.time));
    const int32_t end = ClampToFrame(std::ceil(key.time));
    if (start < range->start) range->start = start;
    if (end > range->end) range->end = end;
  }
}

void AddParameters(const KRX::ProjectItem& item, KeyRange* range) {
  for (const KRX::Parameter& parameter : item.GetParameters()) AddCurveKeys(parameter, range);
}

void AddObject(const KRX::X3DObject& object, KeyRange* range) {
  AddParameters(object, range);
  for (const KRX::Property& property : object.GetProperties()) AddParameters(property, range);
  // The kinematic parameters live on the kinematic states, not on the property itself.
  const KRX::Kinematics kinematics = object.GetKinematics();
  AddParameters(kinematics.GetLocal(), range);
  AddParameters(kinematics.GetGlobal(), range);
}

}  // namespace

bool GetKeyFrameRange(const KRX::Model& model, int32_t* start_frame, int32_t* end_frame) {
  KeyRange range{*start_frame, *end_frame};
  AddObject(model, &range);
  for (const KRX::X3DObject& child : model.FindChildren(L"", L"", true)) AddObject(child, &range);
  *start_frame = range.start;
  *end_frame = range.end;
  return range.start < range.end && range.start != kNoStartFrame;
}

}  // namespace kavor

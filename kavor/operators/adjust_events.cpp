#include "kavor/operators/adjust_events.h"

#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/operators/retarget_solve.h"
#include "kavor/xml/preferences.h"

namespace kavor {

namespace {

constexpr const char* kPlaneSuffixes[] = {"Roll",      "Stretch", "X",         "Y",   "Z",
                                          "Clamp",     "Frame",   "BlendBack", "Foot"};
constexpr const char* kSemiFreeSuffixes[] = {"AnchorTangentLength", "GoalTangentLength",
                                             "offsetChildren",      "X",
                                             "Y",                   "Z",
                                             "RX",                  "RY",
                                             "RZ"};

// The structure plane whose end node's adjustment `name` is; -1 when none. Only planes
// with adjustments ("name" + k present) count.
int32_t PlaneOfParameter(const RetargetOpContext& context, std::string_view name,
                         std::string_view* suffix) {
  const ModelStructure& structure = *context.structure;
  for (int32_t k = 0; k < structure.NumPlanes(); ++k) {
    const int32_t span = structure.planes[k].span;
    if (span < 0 || span >= structure.NumNodes()) continue;
    if (SplitAdjustmentName(name, structure.nodes[span].name, AdjustmentOwner::kPlaneEnd,
                            suffix) &&
        AdjustmentParameter(context, "name" + std::to_string(k)).IsValid()) {
      return k;
    }
  }
  return -1;
}

int32_t SemiFreeOfParameter(const RetargetOpContext& context, std::string_view name,
                            std::string_view* suffix) {
  for (size_t e = 0; e < context.semi_free.size(); ++e) {
    if (SplitAdjustmentName(name, context.semi_free[e].name, AdjustmentOwner::kSemiFree,
                            suffix)) {
      return static_cast<int32_t>(e);
    }
  }
  return -1;
}

// Keeps the blob's insertion frame with the context's, so that a saved and reopened scene
// plays from where the page put it. Blobs older than the field have no place for it.
void StoreInsertionFrame(RetargetOpContext& context) {
  const MotionBlobLayout& layout = context.layout;
  if (layout.version < 1.3 || !context.blob.IsValid()) return;
  const size_t offset = layout.source_indices + sizeof(int32_t) * layout.node_count +
                        sizeof(double);
  if (offset + sizeof(int32_t) > context.byte_count) return;
  uint8_t bytes[sizeof(int32_t)];
  std::memcpy(bytes, &context.insertion_frame, sizeof bytes);
  context.blob.PutRange(offset, bytes, sizeof bytes);
  RefreshBlobView(context);
}

void RebuildAllClamps(RetargetOpContext& context, double time) {
  for (int32_t k = 0; k < context.structure->NumPlanes(); ++k) {
    BuildClampRecords(context, k, time);
  }
}

void OnPlaneParameter(RetargetOpContext& context, int32_t plane, std::string_view suffix,
                      const KRX::CValue& value, double time) {
  if (suffix == "Clamp" || suffix == "Frame" || suffix == "BlendBack") {
    BuildClampRecords(context, plane, time);
  } else if (suffix == "Foot") {
    bool& friction = context.structure->nodes[context.structure->planes[plane].span].friction;
    if (friction != value.GetBool()) friction = value.GetBool();
    BuildStrideData(context, time);
  }
  PingRetarget(context);
}

void OnSemiFreeParameter(RetargetOpContext& context, int32_t index, std::string_view suffix,
                         const KRX::CValue& value) {
  SemiFreeEntry& entry = context.semi_free[index];
  bool changed = true;
  if (suffix == "AnchorTangentLength") {
    changed = entry.anchor_tangent_length != value.GetDouble();
    entry.anchor_tangent_length = value.GetDouble();
  } else if (suffix == "GoalTangentLength") {
    changed = entry.goal_tangent_length != value.GetDouble();
    entry.goal_tangent_length = value.GetDouble();
  } else if (suffix == "offsetChildren") {
    changed = entry.offset_children != value.GetBool();
    entry.offset_children = value.GetBool();
  }
  if (changed) PingRetarget(context);
}

// Moves every key of the parameter's curve; false when it has none.
bool RetimeCurve(const KRX::Parameter& parameter, double insertion, double ratio) {
  if (!parameter.IsValid()) return false;
  KRX::FCurve curve = parameter.GetFCurve();
  if (!curve.IsValid() || curve.GetNumKeys() == 0) return false;
  std::vector<KRX::FCurveKeyData> keys = curve.GetKeys();
  // The map is increasing, so the keys keep their order; they are set together, so no
  // key meets another on its way.
  for (KRX::FCurveKeyData& key : keys) {
    key.time = insertion + (key.time - insertion) * ratio;
    key.left_dx *= ratio;
    key.right_dx *= ratio;
  }
  curve.SetKeys(keys);
  return true;
}

// Whether the user asked for semi-free nodes' offsets and turns to be re-timed with the
// rest (the plug-in's preferences, section "RETARGET", RETIME_SEMI_FREE 1).
bool RetimeSemiFreeChosen() {
  if (PreferencesFilePath().IsEmpty()) return false;
  Preferences preferences;
  return preferences.GetInteger(L"RETARGET", kRetimeSemiFreeKey, 0) != 0;
}

}  // namespace

bool SplitAdjustmentName(std::string_view name, std::string_view node, AdjustmentOwner owner,
                         std::string_view* suffix) {
  if (node.empty() || name.size() <= node.size() || name.substr(0, node.size()) != node) {
    return false;
  }
  const std::string_view rest = name.substr(node.size());
  const std::span<const char* const> suffixes =
      owner == AdjustmentOwner::kPlaneEnd ? std::span<const char* const>(kPlaneSuffixes)
                                          : std::span<const char* const>(kSemiFreeSuffixes);
  for (const char* candidate : suffixes) {
    if (rest == candidate) {
      *suffix = rest;
      return true;
    }
  }
  return false;
}

void RetimeAdjustments(RetargetOpContext& context, double time) {
  if (!context.adjust_property.IsValid() || !(context.speed > 0.0) ||
      !(context.previous_speed > 0.0)) {
    return;
  }
  const double ratio = context.previous_speed / context.speed;
  const double insertion = context.insertion_frame;
  if (RetimeCurve(AdjustmentParameter(context, "Stride"), insertion, ratio)) BuildStrideData(context, time);
  for (const char* hip : {"hipX", "hipY", "hipZ"}) {
    RetimeCurve(AdjustmentParameter(context, hip), insertion, ratio);
  }
  const ModelStructure& structure = *context.structure;
  for (int32_t k = 0; k < structure.NumPlanes(); ++k) {
    const int32_t span = structure.planes[k].span;
    if (span < 0 || span >= structure.NumNodes() ||
        !AdjustmentParameter(context, "name" + std::to_string(k)).IsValid()) {
      continue;
    }
    const std::string& end = structure.nodes[span].name;
    RetimeCurve(AdjustmentParameter(context, end + "Roll"), insertion, ratio);
    RetimeCurve(AdjustmentParameter(context, end + "Stretch"), insertion, ratio);
    const bool clamp = RetimeCurve(AdjustmentParameter(context, end + "Clamp"), insertion, ratio);
    const bool blend = RetimeCurve(AdjustmentParameter(context, end + "BlendBack"), insertion, ratio);
    if (clamp || blend) BuildClampRecords(context, k, time);
    for (const char* axis : {"X", "Y", "Z"}) {
      RetimeCurve(AdjustmentParameter(context, end + axis), insertion, ratio);
    }
  }
  if (!RetimeSemiFreeChosen()) return;
  for (const SemiFreeEntry& entry : context.semi_free) {
    for (const char* suffix : {"X", "Y", "Z", "RX", "RY", "RZ"}) {
      RetimeCurve(AdjustmentParameter(context, entry.name + suffix), insertion, ratio);
    }
  }
}

void OnAdjustmentChanged(RetargetOpContext& context, const KRX::Parameter& parameter,
                         double time) {
  if (!context.bound || !parameter.IsValid()) return;
  const std::string name = ToNarrow(parameter.GetName());
  const KRX::CValue value = parameter.GetValue(time);
  if (name == "Ping" || name == "RotNodes") return;
  if (name == "InsertionFrame") {
    if (value.GetInt() == context.insertion_frame) return;
    context.insertion_frame = value.GetInt();
    StoreInsertionFrame(context);
    // Key times map to motion frames through the insertion frame.
    BuildStrideData(context, time);
    RebuildAllClamps(context, time);
    PingRetarget(context);
    return;
  }
  if (name == "Speed") {
    // A new speed is stored with the old one kept, and the animated adjustments move with
    // it at once (each change is reported once here). Setting the stored speed again moves
    // nothing.
    if (value.GetDouble() == context.speed) return;
    context.previous_speed = context.speed;
    context.speed = value.GetDouble();
    LogInfo(L"Speed has changed");
    RetimeAdjustments(context, time);
    BuildStrideData(context, time);
    RebuildAllClamps(context, time);
    PingRetarget(context);
    return;
  }
  if (name == "Scale" || name == "Stride") {
    BuildStrideData(context, time);
    PingRetarget(context);
    return;
  }
  if (name == "offsetFeet" || name == "hipX" || name == "hipY" || name == "hipZ") {
    PingRetarget(context);
    return;
  }
  std::string_view suffix;
  if (const int32_t plane = PlaneOfParameter(context, name, &suffix); plane >= 0) {
    OnPlaneParameter(context, plane, suffix, value, time);
    return;
  }
  if (const int32_t entry = SemiFreeOfParameter(context, name, &suffix); entry >= 0) {
    OnSemiFreeParameter(context, entry, suffix, value);
  }
}

}  // namespace kavor

#include "kavor/operators/adjust_property.h"

#include <limits>
#include <vector>

#include "kavor/host/host.h"

namespace kavor {

namespace {

using KRX::CValue;
using KRX::ValueType;

constexpr int kPersist = 4;            // kept in scene files
constexpr int kAnimatable = 5;         // kept and animatable
constexpr int kHidden = 20;            // kept, silent
constexpr int kIndexCapabilities = 8;  // not shown on the page
constexpr double kHuge = std::numeric_limits<double>::max();

KRX::CString Name(const std::string& base, const char* suffix) { return ToWide(base + suffix); }

void AddDouble(KRX::CustomProperty& property, const KRX::CString& name, int capabilities,
               double value, double min, double max, double suggested_min, double suggested_max) {
  property.AddParameter(name, ValueType::Double, capabilities, L"", L"", CValue(value), CValue(min),
                        CValue(max), CValue(suggested_min), CValue(suggested_max));
}

// An offset in scene units, suggested within +-size.
void AddOffset(KRX::CustomProperty& property, const KRX::CString& name, double size) {
  if (size <= 0.0) size = 10.0;
  AddDouble(property, name, kAnimatable, 0.0, -kHuge, kHuge, -size, size);
}

void AddText(KRX::CustomProperty& property, const KRX::CString& name, const std::string& value) {
  property.AddParameter(name, ValueType::String, kHidden, L"", L"", CValue(ToWide(value)));
}

void AddBool(KRX::CustomProperty& property, const KRX::CString& name, int capabilities,
             bool value) {
  property.AddParameter(name, ValueType::Bool, capabilities, L"", L"", CValue(value));
}

// The number of parent steps from `object` up to `ancestor`; -1 when it is not above it.
int ParentSteps(const KRX::X3DObject& object, const KRX::X3DObject& ancestor) {
  int steps = 0;
  for (KRX::X3DObject walk = object; walk.IsValid(); walk = KRX::X3DObject(walk.GetParent())) {
    if (walk == ancestor) return steps;
    ++steps;
  }
  return -1;
}

bool HasObject(const RetargetModel& target, int32_t node) {
  return node >= 0 && node < target.NumNodes() && target.Node(node).object.IsValid();
}

// The nearest semi-free node above `node` (the node itself excluded); -1 when none.
int32_t NearestSemiFreeAncestor(const RetargetModel& target, int32_t node) {
  const ModelStructure& structure = *target.structure;
  int32_t guard = 0;
  for (int32_t walk = structure.nodes[node].parent; walk >= 0 && guard < kMaxStructureDepth;
       walk = structure.nodes[walk].parent, ++guard) {
    if (IsSemiFreeNode(target, walk)) return walk;
  }
  return -1;
}

}  // namespace

void DefineAdjustmentParameters(KRX::CustomProperty& property) {
  property.AddParameter(L"InsertionFrame", ValueType::Int, kPersist, L"", L"", CValue(0));
  AddDouble(property, L"Speed", kPersist, 1.0, 0.01, kHuge, 0.01, 4.0);
  AddDouble(property, L"Scale", kPersist, 1.0, 0.01, kHuge, 0.01, 4.0);
  AddDouble(property, L"Stride", kAnimatable, 1.0, 0.0, kHuge, 0.0, 4.0);
  property.AddParameter(L"Ping", ValueType::Int, kHidden, L"", L"", CValue(0));
  property.AddParameter(L"RotNodes", ValueType::Int, kHidden, L"", L"", CValue(0));
}

bool IsSemiFreeNode(const RetargetModel& target, int32_t node) {
  const ModelStructure& structure = *target.structure;
  if (node < 0 || node >= structure.NumNodes()) return false;
  const StructureNode& entry = structure.nodes[node];
  if (entry.type != StructureNodeType::kFree || !HasObject(target, node) || entry.parent < 0) {
    return false;
  }
  if (!HasObject(target, entry.parent)) return false;
  return ParentSteps(target.Node(node).object, target.Node(entry.parent).object) > 1;
}

void AddTargetAdjustments(KRX::CustomProperty& property, const RetargetModel& target) {
  const ModelStructure& structure = *target.structure;
  const double size = target.leg_length;
  property.PutParameterValue(L"Scale", CValue(target.scale));

  int32_t num_planes = 0;
  for (const StructurePlane& plane : structure.planes) num_planes += HasObject(target, plane.span);
  property.AddParameter(L"NumPlanes", ValueType::Int, kHidden, L"", L"", CValue(num_planes));
  AddBool(property, L"offsetFeet", kPersist, true);
  for (const wchar_t* hip : {L"hipX", L"hipY", L"hipZ"}) AddOffset(property, hip, size);

  // Semi-free nodes that some limb hangs from carry the switch that keeps that limb's end in
  // place while they move.
  std::vector<bool> carries_limb(structure.nodes.size(), false);
  for (const StructurePlane& plane : structure.planes) {
    if (plane.anchor_index < 0 || plane.anchor_index >= structure.NumNodes()) continue;
    const int32_t carrier = NearestSemiFreeAncestor(target, plane.anchor_index);
    if (carrier >= 0) carries_limb[carrier] = true;
  }
  int32_t num_semi_free = 0;
  for (int32_t node = 0; node < structure.NumNodes(); ++node) {
    if (!IsSemiFreeNode(target, node)) continue;
    const std::string& name = structure.nodes[node].name;
    AddText(property, ToWide("semiName" + std::to_string(num_semi_free)), name);
    for (const char* axis : {"X", "Y", "Z"}) AddOffset(property, Name(name, axis), size);
    if (carries_limb[node]) AddBool(property, Name(name, "offsetChildren"), kPersist, true);
    for (const char* tangent : {"AnchorTangentLength", "GoalTangentLength"}) {
      AddDouble(property, Name(name, tangent), kAnimatable, 1.0, 0.1, kHuge, 0.1, 4.0);
    }
    for (const char* turn : {"RX", "RY", "RZ"}) {
      AddDouble(property, Name(name, turn), kAnimatable, 0.0, -180.0, 180.0, -180.0, 180.0);
    }
    ++num_semi_free;
  }
  property.AddParameter(L"NumSemiFree", ValueType::Int, kHidden, L"", L"", CValue(num_semi_free));

  for (int32_t k = 0; k < structure.NumPlanes(); ++k) {
    const int32_t span = structure.planes[k].span;
    if (!HasObject(target, span)) continue;
    const std::string& end = structure.nodes[span].name;
    AddText(property, ToWide("name" + std::to_string(k)), end);
    AddText(property, ToWide("obj" + std::to_string(k)),
            ToNarrow(target.Node(span).object.GetName()));
    for (const char* axis : {"X", "Y", "Z"}) {
      AddOffset(property, Name(end, axis), target.Node(span).length);
    }
    AddDouble(property, Name(end, "Roll"), kAnimatable, 0.0, -360.0, 360.0, -360.0, 360.0);
    AddDouble(property, Name(end, "Stretch"), kAnimatable, 1.0, 0.1, 2.0, 0.1, 2.0);
    AddBool(property, Name(end, "Clamp"), kAnimatable, false);
    property.AddParameter(Name(end, "Frame"), ValueType::Int, kPersist, L"", L"", CValue(0));
    property.AddParameter(Name(end, "BlendBack"), ValueType::Int, kPersist, L"", L"", CValue(4),
                          CValue(0), CValue(2147483647), CValue(0), CValue(10));
    AddBool(property, Name(end, "Foot"), kPersist, structure.nodes[span].friction);
  }
}

bool AddIndexParameter(KRX::CustomProperty& property, const std::string& name, int32_t value) {
  const KRX::CString wide = ToWide(name);
  if (property.GetParameter(wide).IsValid()) {
    LogWarning(L"The rig object name " + wide +
               L" is also an adjustment name: its retarget operator is left out.");
    return false;
  }
  property.AddParameter(wide, ValueType::Int, kIndexCapabilities, L"", L"", CValue(value));
  return true;
}

}  // namespace kavor

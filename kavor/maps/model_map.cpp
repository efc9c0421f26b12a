#include "kavor/maps/model_map.h"

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/grid_table.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/model_space.h"

namespace kavor {

namespace {

using KRX::CValue;
using KRX::MATH::CQuaternion;
using KRX::MATH::CTransformation;

constexpr int kCapabilities = 4;
constexpr int kColumns = 11;
const std::vector<const wchar_t*> kLabels = {L"Name",  L"Length", L"RotW",  L"RotX",
                                             L"RotY",  L"RotZ",   L"eRotW", L"eRotX",
                                             L"eRotY", L"eRotZ",  L"eName"};

void Fail(RetargetModel& model, const std::string& message) {
  LogInfo(ToWide(message));
  model.valid = false;
}

// A value that is not finite would spread through every later computation: it is
// neither written nor read, 0 stands for it.
double Finite(double value) { return std::isfinite(value) ? value : 0.0; }
CValue Number(double value) { return CValue(Finite(value)); }

CTransformation RotationOf(const CQuaternion& q) {
  CQuaternion unit = q;
  unit.NormalizeInPlace();
  CTransformation t;
  t.SetRotationFromQuaternion(unit);
  return t;
}

CQuaternion QuaternionAt(const KRX::GridData& grid, int first, int row) {
  return {GridNumber(grid, first, row), GridNumber(grid, first + 1, row),
          GridNumber(grid, first + 2, row), GridNumber(grid, first + 3, row)};
}

}  // namespace

void WriteModelMap(const RetargetModel& model) {
  if (!model.structure || model.structure->NumNodes() != model.NumNodes()) {
    LogError(L"ModelMap not written: the retarget model does not match its structure");
    return;
  }
  KRX::Property old;
  if (FindPropertyByName(model.model, kModelMapProperty, &old)) DeleteByName(old.GetFullName());
  KRX::CustomProperty property = KRX::Model(model.model).AddCustomProperty(kModelMapProperty);
  property
      .AddParameter(L"Version", KRX::ValueType::String, kCapabilities, L"Version",
                    L"Version of the map format", CValue(L""))
      .PutValue(CValue(kModelMapVersion));
  property
      .AddParameter(L"Source", KRX::ValueType::String, kCapabilities, L"Source",
                    L"Source file for the map structure", CValue(L""))
      .PutValue(CValue(ToWide(model.structure->source)));
  property
      .AddParameter(L"Type", KRX::ValueType::String, kCapabilities, L"Type",
                    L"Type of the simple rig used for mapping", CValue(L""))
      .PutValue(CValue(ToWide(model.structure->type)));
  KRX::GridData nodes = AddGridTable(property, L"Nodes", kLabels, model.NumNodes());
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    const NodeMapEntry& node = model.Node(i);
    const CQuaternion rest = node.rest_rotation.GetRotationQuaternion();
    PutGridRow(
        nodes, i, 0,
        {CValue(ToWide(model.structure->nodes[static_cast<size_t>(i)].name)), Number(node.length),
         Number(rest.GetW()), Number(rest.GetX()), Number(rest.GetY()), Number(rest.GetZ())});
    if (node.extraction) {
      const CQuaternion e = node.extraction->transform.GetRotationQuaternion();
      PutGridRow(nodes, i, 6,
                 {Number(e.GetW()), Number(e.GetX()), Number(e.GetY()), Number(e.GetZ()),
                  CValue(node.extraction->object.GetName())});
    } else {
      PutGridRow(nodes, i, 6, {CValue(0.0), CValue(0.0), CValue(0.0), CValue(0.0), CValue(L"")});
    }
  }
  property.AddParameter(L"HipOffset", KRX::ValueType::Double, kCapabilities, L"", L"",
                        Number(model.hip_offset));
  property.AddParameter(L"LegLength", KRX::ValueType::Double, kCapabilities, L"", L"",
                        Number(model.leg_length));
}

void ReadModelMap(RetargetModel& model) {
  model.valid = true;
  if (!model.structure || model.structure->NumNodes() != model.NumNodes()) {
    return Fail(model, "ModelMap not read: the retarget model does not match its structure");
  }
  KRX::Property property;
  if (!model.model.IsValid() || !FindPropertyByName(model.model, kModelMapProperty, &property)) {
    return Fail(model, "ModelMap property not found");
  }
  const KRX::Parameter version_parameter = property.GetParameter(L"Version");
  if (!version_parameter.IsValid())
    return Fail(model, "ModelMap property is missing Version parameter");
  const int32_t version = version_parameter.GetValue().GetInt();
  if (version > kModelMapVersion) {
    return Fail(model, "ModelMap property has version " + std::to_string(version) +
                           ", was expecting " + std::to_string(kModelMapVersion) + " or lower");
  }
  const KRX::Parameter type_parameter = property.GetParameter(L"Type");
  if (!type_parameter.IsValid()) return Fail(model, "ModelMap property is missing Type parameter");
  const std::string type = ToNarrow(type_parameter.GetValue().GetString());
  if (type != model.structure->type) {
    return Fail(model,
                "ModelMap property has type " + type + ", was expecting " + model.structure->type);
  }
  const KRX::GridData nodes = FindGridTable(property, L"Nodes");
  if (!GridHolds(nodes, kColumns, model.NumNodes())) {
    return Fail(model, "ModelMap property has " +
                           std::to_string(nodes.IsValid() ? nodes.GetRowCount() : 0) +
                           " node rows, was expecting " + std::to_string(model.NumNodes()));
  }
  for (int32_t i = 0; i < model.NumNodes(); ++i) {
    const std::string& expected = model.structure->nodes[static_cast<size_t>(i)].name;
    const std::string name = GridText(nodes, 0, i);
    if (name != expected)
      LogInfo(ToWide("name mismatch: got " + name + ", was expecting " + expected));
    NodeMapEntry& node = model.Node(i);
    node.length = GridNumber(nodes, 1, i);
    node.rest_rotation = RotationOf(QuaternionAt(nodes, 2, i));
    node.rest_rotation_inverse = RigidInverse(node.rest_rotation);
    const CQuaternion extraction = QuaternionAt(nodes, 6, i);
    if (std::sqrt(extraction.Dot(extraction)) > 0.5) {
      auto entry = std::make_unique<ExtractionEntry>();
      entry->transform = RotationOf(extraction);
      const std::string object = GridText(nodes, 10, i);
      if (!object.empty()) entry->object = model.model.FindChild(ToWide(object));
      if (node.extraction) {
        entry->align = node.extraction->align;
        entry->roll = node.extraction->roll;
      }
      node.extraction = std::move(entry);
    }
  }
  model.hip_offset = Finite(property.GetParameterValue(L"HipOffset").GetDouble());
  model.leg_length = Finite(property.GetParameterValue(L"LegLength").GetDouble());
}

bool HasNoFrictionOrFreeAncestor(const RetargetModel& model, int32_t node) {
  if (node == 0) return true;
  if (!model.structure || node < 0 || node >= model.NumNodes()) return false;
  const std::vector<StructureNode>& nodes = model.structure->nodes;
  int32_t up = nodes[static_cast<size_t>(node)].parent;
  const auto count = static_cast<int32_t>(nodes.size());
  for (int32_t steps = 0; up >= 0 && up < count && steps < count; ++steps) {
    const StructureNodeType type = nodes[static_cast<size_t>(up)].type;
    if (type == StructureNodeType::kIk || type == StructureNodeType::kFree) return false;
    if (up == 0) break;
    up = nodes[static_cast<size_t>(up)].parent;
  }
  return true;
}

}  // namespace kavor

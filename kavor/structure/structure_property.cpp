#include "kavor/structure/structure_property.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/grid_table.h"
#include "kavor/io/scene_helpers.h"

namespace kavor {

namespace {

using KRX::CValue;
using KRX::MATH::CVector3;

constexpr int kCapabilities = 6;
constexpr int kNodeColumns = 12;
constexpr int kOldNodeColumns = 11;

const std::vector<const wchar_t*> kNodeLabels = {
    L"Parent", L"OffsetParent", L"Name",  L"Type",  L"Friction", L"alignX",
    L"alignY", L"alingZ",       L"rollX", L"rollY", L"rollZ",    L"mirror_node_index"};
const std::vector<const wchar_t*> kPlaneLabels = {L"AnchorIndex", L"Mid", L"Span", L"Name"};
const std::vector<const wchar_t*> kDecompLabels = {L"SrcName", L"PX",     L"PY",     L"PZ",
                                                   L"RX",      L"RY",     L"RZ",     L"RtoP_X",
                                                   L"RtoP_Y",  L"RtoP_Z"};
const std::vector<const wchar_t*> kGroupListLabels = {L"Name", L"Parent"};
const std::vector<const wchar_t*> kGroupLabels = {L"Name",   L"Type",      L"Align",    L"Roll",
                                                  L"Offset", L"Minlimits", L"Maxlimits"};

CValue Text(const std::string& text) { return CValue(ToWide(text)); }

// The list table comes first, then one node table per group; the list is filled last.
void WriteGroups(KRX::CustomProperty& property, const std::vector<StructureGroup>& groups,
                 const wchar_t* list_name, const std::string& table_prefix) {
  KRX::GridData list = AddGridTable(property, list_name, kGroupListLabels, static_cast<int>(groups.size()));
  for (const StructureGroup& group : groups) {
    KRX::GridData table = AddGridTable(property, ToWide(table_prefix + group.name), kGroupLabels,
                                       static_cast<int>(group.nodes.size()));
    for (size_t r = 0; r < group.nodes.size(); ++r) {
      const StructureGroupNode& node = group.nodes[r];
      PutGridRow(table, static_cast<int>(r), 0,
                 {Text(node.name), Text(node.type), Text(VectorToText(node.align)),
                  Text(VectorToText(node.roll)), Text(VectorToText(node.offset)),
                  Text(VectorToText(node.min_limits)), Text(VectorToText(node.max_limits))});
    }
  }
  for (size_t r = 0; r < groups.size(); ++r) {
    PutGridRow(list, static_cast<int>(r), 0, {Text(groups[r].name), Text(groups[r].parent)});
  }
}

void ReadGroups(const KRX::Property& property, const wchar_t* list_name, const std::string& table_prefix,
                std::vector<StructureGroup>& groups) {
  const KRX::GridData list = FindGridTable(property, list_name);
  if (!list.IsValid()) return;
  for (int r = 0; r < list.GetRowCount(); ++r) {
    StructureGroup group;
    group.name = GridText(list, 0, r);
    group.parent = GridText(list, 1, r);
    const KRX::GridData table = FindGridTable(property, ToWide(table_prefix + group.name));
    if (!table.IsValid()) continue;  // a group without its table is left out
    for (int n = 0; n < table.GetRowCount(); ++n) {
      StructureGroupNode node;
      node.name = GridText(table, 0, n);
      node.type = GridText(table, 1, n);
      node.align = TextToVector(GridText(table, 2, n));
      node.roll = TextToVector(GridText(table, 3, n));
      node.offset = TextToVector(GridText(table, 4, n));
      node.min_limits = TextToVector(GridText(table, 5, n));
      node.max_limits = TextToVector(GridText(table, 6, n));
      group.nodes.push_back(std::move(node));
    }
    groups.push_back(std::move(group));
  }
}

std::optional<ModelStructure> Damaged(const std::string& why) {
  LogError(ToWide("The embedded model structure is damaged (" + why + ")."));
  return std::nullopt;
}

CVector3 CellVector(const KRX::GridData& grid, int first, int row) {
  return {GridNumber(grid, first, row), GridNumber(grid, first + 1, row), GridNumber(grid, first + 2, row)};
}

}  // namespace

std::string VectorToText(const CVector3& v) {
  return ToNarrow(CValue(v.GetX()).GetString()) + "," + ToNarrow(CValue(v.GetY()).GetString()) + "," +
         ToNarrow(CValue(v.GetZ()).GetString());
}

CVector3 TextToVector(std::string_view text) {
  std::vector<std::string_view> fields;
  size_t start = 0;
  while (true) {
    const size_t comma = text.find(',', start);
    fields.push_back(text.substr(start, comma == std::string_view::npos ? comma : comma - start));
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  if (fields.size() != 3) {
    LogInfo(ToWide("Error converting string to CVector3  : <" + std::string(text)));
    return {};
  }
  double v[3];
  for (size_t i = 0; i < 3; ++i) {
    v[i] = CValue(ToWide(fields[i])).GetDouble();
    if (!std::isfinite(v[i])) v[i] = 0.0;
  }
  return {v[0], v[1], v[2]};
}

const StructureGroupNode* FindGroupNode(const ModelStructure& structure, std::string_view name) {
  for (const std::vector<StructureGroup>* groups : {&structure.base_groups, &structure.groups}) {
    for (const StructureGroup& group : *groups) {
      for (const StructureGroupNode& node : group.nodes) {
        if (node.name == name) return &node;
      }
    }
  }
  return nullptr;
}

void WriteStructureProperty(const ModelStructure& structure, const KRX::X3DObject& model) {
  KRX::Property old;
  if (FindPropertyByName(model, kStructureProperty, &old)) DeleteByName(old.GetFullName());
  KRX::CustomProperty property = KRX::X3DObject(model).AddCustomProperty(kStructureProperty);
  property.AddParameter(L"Version", KRX::ValueType::Int, kCapabilities, L"Version",
                        L"Version of the structure format", CValue(kStructurePropertyVersion));
  property.AddParameter(L"Type", KRX::ValueType::String, kCapabilities, L"Type", L"Type of the structure",
                        Text(structure.type));
  property.AddParameter(L"Source", KRX::ValueType::String, kCapabilities, L"Source", L"Source file name",
                        Text(structure.source));
  property.AddParameter(L"numNodes", KRX::ValueType::Int, kCapabilities, L"", L"", CValue(structure.NumNodes()));
  property.AddParameter(L"numPlanes", KRX::ValueType::Int, kCapabilities, L"", L"", CValue(structure.NumPlanes()));
  property.AddParameter(L"numDecomps", KRX::ValueType::Int, kCapabilities, L"", L"",
                        CValue(static_cast<int>(structure.decomps.size())));

  KRX::GridData nodes = AddGridTable(property, L"Nodes", kNodeLabels, structure.NumNodes());
  for (int r = 0; r < structure.NumNodes(); ++r) {
    const StructureNode& node = structure.nodes[static_cast<size_t>(r)];
    PutGridRow(nodes, r, 0,
               {CValue(node.parent), CValue(node.offset_parent), Text(node.name),
                CValue(static_cast<int>(node.type)), CValue(node.friction ? 1 : 0), CValue(node.align.GetX()),
                CValue(node.align.GetY()), CValue(node.align.GetZ()), CValue(node.roll.GetX()),
                CValue(node.roll.GetY()), CValue(node.roll.GetZ()), CValue(node.mirror_index)});
  }
  KRX::GridData planes = AddGridTable(property, L"Planes", kPlaneLabels, structure.NumPlanes());
  for (int r = 0; r < structure.NumPlanes(); ++r) {
    const StructurePlane& plane = structure.planes[static_cast<size_t>(r)];
    PutGridRow(planes, r, 0, {CValue(plane.anchor_index), CValue(plane.mid), CValue(plane.span), Text(plane.name)});
  }
  if (!structure.decomps.empty()) {
    KRX::GridData decomps =
        AddGridTable(property, L"Decomps", kDecompLabels, static_cast<int>(structure.decomps.size()));
    for (size_t r = 0; r < structure.decomps.size(); ++r) {
      const StructureDecomp& decomp = structure.decomps[r];
      decomps.PutCell(0, static_cast<int>(r), Text(decomp.src_name));
      for (int s = 0; s < kDecompSlotCount; ++s) {
        decomps.PutCell(s + 1, static_cast<int>(r), Text(decomp.slots[static_cast<size_t>(s)]));
      }
    }
  }
  WriteGroups(property, structure.base_groups, L"BaseGroups", "BaseGroup_");
  WriteGroups(property, structure.groups, L"Groups", "Group_");
}

std::optional<ModelStructure> ReadStructureProperty(const KRX::X3DObject& model) {
  KRX::Property property;
  if (!FindPropertyByName(model, kStructureProperty, &property)) return std::nullopt;
  const int32_t version = property.GetParameterValue(L"Version").GetInt();
  if (version < kOldestStructurePropertyVersion) {
    LogInfo(L"The embedded model structure has an outdated version number.  Please reload the tag template.");
    return std::nullopt;
  }
  const int32_t num_nodes = property.GetParameterValue(L"numNodes").GetInt();
  const int32_t num_planes = property.GetParameterValue(L"numPlanes").GetInt();
  const int32_t num_decomps = property.GetParameterValue(L"numDecomps").GetInt();
  if (num_nodes < 1 || num_nodes > kMaxStructureNodes) return Damaged("node count");
  if (num_planes < 0 || num_planes > num_nodes || num_decomps < 0) return Damaged("plane or decompose count");

  ModelStructure structure;
  structure.type = ToNarrow(property.GetParameterValue(L"Type").GetString());
  structure.source = ToNarrow(property.GetParameterValue(L"Source").GetString());
  const KRX::GridData nodes = FindGridTable(property, L"Nodes");
  const int columns = version >= 8 ? kNodeColumns : kOldNodeColumns;
  if (!nodes.IsValid() || nodes.GetRowCount() < num_nodes || nodes.GetColumnCount() < columns) {
    return Damaged("node table");
  }
  structure.nodes.resize(static_cast<size_t>(num_nodes));
  for (int r = 0; r < num_nodes; ++r) {
    StructureNode& node = structure.nodes[static_cast<size_t>(r)];
    node.parent = GridInteger(nodes, 0, r);
    node.offset_parent = GridInteger(nodes, 1, r);
    node.name = GridText(nodes, 2, r);
    const int32_t type = GridInteger(nodes, 3, r);
    node.type = static_cast<StructureNodeType>(type >= 0 && type <= 2 ? type : 3);
    node.friction = GridInteger(nodes, 4, r) != 0;
    node.align = CellVector(nodes, 5, r);
    node.roll = CellVector(nodes, 8, r);
    node.mirror_index = version >= 8 ? GridInteger(nodes, 11, r) : -1;
  }
  const KRX::GridData planes = FindGridTable(property, L"Planes");
  if (num_planes > 0 && (!planes.IsValid() || planes.GetRowCount() < num_planes || planes.GetColumnCount() < 4)) {
    return Damaged("plane table");
  }
  for (int r = 0; r < num_planes; ++r) {
    StructurePlane plane;
    plane.anchor_index = GridInteger(planes, 0, r);
    plane.mid = GridInteger(planes, 1, r);
    plane.span = GridInteger(planes, 2, r);
    plane.name = GridText(planes, 3, r);
    if (plane.anchor_index < 0 || plane.span < plane.anchor_index || plane.span >= num_nodes) {
      return Damaged("plane " + std::to_string(r));
    }
    for (int32_t n = plane.span; n >= plane.anchor_index; --n) plane.chain.push_back(n);
    structure.planes.push_back(std::move(plane));
  }
  const KRX::GridData decomps = FindGridTable(property, L"Decomps");
  if (decomps.IsValid()) {
    const int rows = std::min(num_decomps, decomps.GetRowCount());
    const int slots = decomps.GetColumnCount() > 7 ? kDecompSlotCount : 6;
    for (int r = 0; r < rows; ++r) {
      StructureDecomp decomp;
      decomp.src_name = GridText(decomps, 0, r);
      for (int s = 0; s < slots; ++s) {
        std::string channel = GridText(decomps, s + 1, r);
        if (channel == "Unused") channel.clear();
        if (!channel.empty() && std::find(decomp.channels.begin(), decomp.channels.end(), channel) ==
                                    decomp.channels.end()) {
          decomp.channels.push_back(channel);
        }
        decomp.slots[static_cast<size_t>(s)] = std::move(channel);
      }
      LogInfo(ToWide("ModelStructure::createFromGrid : " + decomp.src_name));
      structure.decomps.push_back(std::move(decomp));
    }
  }
  ReadGroups(property, L"BaseGroups", "BaseGroup_", structure.base_groups);
  ReadGroups(property, L"Groups", "Group_", structure.groups);
  const std::string problem = CheckModelStructure(structure);
  if (!problem.empty()) return Damaged(problem);
  return structure;
}

}  // namespace kavor

// The glue map as the custom property "ZRKGlue" on a model: a version, three counts and one
// grid per entry kind, one row per entry.
//
//   Mocap   rignodename TagObj Type
//   Planes  rignodename Mid Sign UpLength defx defy defz
//   Spines  anchor base end goal, then aaxis, aroll, axis, roll, atan, gtan (X Y Z each)
//
// A scene file can carry anything in these grids, so reading checks the counts against the
// grids' sizes before it reads a row; a cell that is not a finite number reads as 0.

#include <optional>
#include <string>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/grid_table.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/glue_map.h"

namespace kavor {

namespace {

using KRX::MATH::CVector3;

// Capability flags of the parameters, as plain numbers.
constexpr int kVersionCapabilities = 4;
constexpr int kCountCapabilities = 6;

const std::vector<const wchar_t*> kMocapColumns = {L"rignodename", L"TagObj", L"Type"};
const std::vector<const wchar_t*> kPlaneColumns = {L"rignodename", L"Mid",  L"Sign", L"UpLength",
                                                   L"defx",        L"defy", L"defz"};
const std::vector<const wchar_t*> kSpineColumns = {
    L"anchor", L"base",   L"end",   L"goal",  L"aaxisX", L"aaxisY", L"aaxisZ", L"arollX",
    L"arollY", L"arollZ", L"axisX", L"axisY", L"axisZ",  L"rollX",  L"rollY",  L"rollZ",
    L"atanX",  L"atanY",  L"atanZ", L"gtanX", L"gtanY",  L"gtanZ"};

constexpr const wchar_t* kOutdatedMessage = L"GlueMap data is outdated - please re-tag.";
constexpr const wchar_t* kDamagedMessage = L"GlueMap data is damaged - please re-tag.";

// The table `name` when it holds the `rows` rows its count announces, with all columns.
std::optional<KRX::GridData> CheckedTable(const KRX::CustomProperty& property, const wchar_t* name,
                                          size_t columns, int rows) {
  const KRX::GridData grid = FindGridTable(property, name);
  if (rows < 0) return std::nullopt;
  if (rows > 0 && !GridHolds(grid, static_cast<int>(columns), rows)) return std::nullopt;
  return grid;
}

void ReadMocaps(const KRX::GridData& grid, int rows, GlueMap& glue) {
  for (int row = 0; row < rows; ++row) {
    GlueMocapEntry& entry = glue.mocaps.emplace_back();
    entry.rig_node_name = GridText(grid, 0, row);
    entry.tag_obj = GridText(grid, 1, row);
    // Anything but 0 and 1 reads as rotation only.
    const int32_t type = GridInteger(grid, 2, row);
    entry.type = type == 0   ? GlueMocapType::kPositionAndRotation
                 : type == 1 ? GlueMocapType::kPositionOnly
                             : GlueMocapType::kRotationOnly;
  }
}

void ReadPlanes(const KRX::GridData& grid, int rows, GlueMap& glue) {
  for (int row = 0; row < rows; ++row) {
    GluePlaneEntry& entry = glue.planes.emplace_back();
    entry.rig_node_name = GridText(grid, 0, row);
    entry.plane_name = GridText(grid, 1, row);
    entry.sign = GridNumber(grid, 2, row) < 0.0 ? -1 : 1;
    entry.up_length = GridNumber(grid, 3, row);
    entry.rest_transform.SetTranslation(GridVector(grid, 4, row));
  }
}

void ReadSpines(const KRX::GridData& grid, int rows, GlueMap& glue) {
  for (int row = 0; row < rows; ++row) {
    GlueSpineEntry& entry = glue.spines.emplace_back();
    entry.anchor_name = GridText(grid, 0, row);
    entry.base_name = GridText(grid, 1, row);
    entry.end_name = GridText(grid, 2, row);
    entry.goal_name = GridText(grid, 3, row);
    entry.anchor_axis = GridVector(grid, 4, row);
    entry.anchor_roll = GridVector(grid, 7, row);
    entry.axis = GridVector(grid, 10, row);
    entry.roll_axis = GridVector(grid, 13, row);
    entry.anchor_tangent = GridVector(grid, 16, row);
    entry.goal_tangent = GridVector(grid, 19, row);
  }
}

}  // namespace

void WriteGlueMap(const GlueMap& glue, const KRX::Model& model) {
  DeleteGlueMap(model);
  KRX::CustomProperty property(KRX::Model(model).AddCustomProperty(kGlueProperty));
  if (!property.IsValid()) return;

  property
      .AddParameter(L"Version", KRX::ValueType::String, kVersionCapabilities, L"Version",
                    L"Version of the structure format", KRX::CString())
      .PutValue(KRX::CString(std::to_wstring(kGlueMapVersion)));
  const auto add_count = [&](const wchar_t* name, size_t count) {
    property.AddParameter(name, KRX::ValueType::Int, kCountCapabilities, name, L"",
                          static_cast<int>(count));
  };
  add_count(L"numMocaps", glue.mocaps.size());
  add_count(L"numPlanes", glue.planes.size());
  add_count(L"numSpines", glue.spines.size());

  const auto rows = [](size_t count) { return static_cast<int>(count); };
  KRX::GridData mocaps = AddGridTable(property, L"Mocap", kMocapColumns, rows(glue.mocaps.size()));
  for (size_t i = 0; i < glue.mocaps.size(); ++i) {
    const GlueMocapEntry& entry = glue.mocaps[i];
    PutGridRow(mocaps, static_cast<int>(i), 0,
               {ToWide(entry.rig_node_name), ToWide(entry.tag_obj), static_cast<int>(entry.type)});
  }

  KRX::GridData planes = AddGridTable(property, L"Planes", kPlaneColumns, rows(glue.planes.size()));
  for (size_t i = 0; i < glue.planes.size(); ++i) {
    const GluePlaneEntry& entry = glue.planes[i];
    const int row = static_cast<int>(i);
    PutGridRow(
        planes, row, 0,
        {ToWide(entry.rig_node_name), ToWide(entry.plane_name), entry.sign, entry.up_length});
    PutGridVector(planes, row, 4, entry.rest_transform.GetTranslation());
  }

  KRX::GridData spines = AddGridTable(property, L"Spines", kSpineColumns, rows(glue.spines.size()));
  for (size_t i = 0; i < glue.spines.size(); ++i) {
    const GlueSpineEntry& entry = glue.spines[i];
    const int row = static_cast<int>(i);
    PutGridRow(spines, row, 0,
               {ToWide(entry.anchor_name), ToWide(entry.base_name), ToWide(entry.end_name),
                ToWide(entry.goal_name)});
    int column = 4;
    for (const CVector3* v : {&entry.anchor_axis, &entry.anchor_roll, &entry.axis, &entry.roll_axis,
                              &entry.anchor_tangent, &entry.goal_tangent}) {
      PutGridVector(spines, row, column, *v);
      column += 3;
    }
  }
}

std::unique_ptr<GlueMap> ReadGlueMap(const KRX::Model& model) {
  KRX::Property found;
  const bool has_glue = FindPropertyByName(model, kGlueProperty, &found);
  const KRX::CustomProperty property(found);
  const int version =
      has_glue && property.IsValid() ? property.GetParameterValue(L"Version").GetInt() : 0;
  if (version != kGlueMapVersion) {
    LogInfo(kOutdatedMessage);
    return nullptr;
  }

  const int num_mocaps = property.GetParameterValue(L"numMocaps").GetInt();
  const int num_planes = property.GetParameterValue(L"numPlanes").GetInt();
  const int num_spines = property.GetParameterValue(L"numSpines").GetInt();
  const std::optional<KRX::GridData> mocaps =
      CheckedTable(property, L"Mocap", kMocapColumns.size(), num_mocaps);
  const std::optional<KRX::GridData> planes =
      CheckedTable(property, L"Planes", kPlaneColumns.size(), num_planes);
  const std::optional<KRX::GridData> spines =
      CheckedTable(property, L"Spines", kSpineColumns.size(), num_spines);
  if (!mocaps || !planes || !spines) {
    LogWarning(kDamagedMessage);
    return nullptr;
  }
  auto glue = std::make_unique<GlueMap>();
  ReadMocaps(*mocaps, num_mocaps, *glue);
  ReadPlanes(*planes, num_planes, *glue);
  ReadSpines(*spines, num_spines, *glue);
  return glue;
}

void DeleteGlueMap(const KRX::Model& model) {
  KRX::Property property;
  if (FindPropertyByName(model, kGlueProperty, &property)) DeleteByName(property.GetFullName());
}

}  // namespace kavor

#include "kavor/io/grid_table.h"

#include <cmath>

#include "kavor/host/host.h"

namespace kavor {

KRX::GridData AddGridTable(KRX::CustomProperty& property, const KRX::CString& name,
                           const std::vector<const wchar_t*>& labels, int rows) {
  KRX::GridData grid = property.AddGridParameter(name).GetGridData();
  grid.PutColumnCount(static_cast<int>(labels.size()));
  grid.PutRowCount(rows);
  for (size_t c = 0; c < labels.size(); ++c) grid.PutColumnLabel(static_cast<int>(c), labels[c]);
  return grid;
}

void PutGridRow(KRX::GridData& grid, int row, int first, std::initializer_list<KRX::CValue> cells) {
  int column = first;
  for (const KRX::CValue& cell : cells) grid.PutCell(column++, row, cell);
}

KRX::GridData FindGridTable(const KRX::ProjectItem& property, const KRX::CString& name) {
  const KRX::Parameter parameter = property.GetParameter(name);
  return parameter.IsValid() ? parameter.GetGridData() : KRX::GridData();
}

bool GridHolds(const KRX::GridData& grid, int columns, int rows) {
  return grid.IsValid() && grid.GetColumnCount() >= columns && grid.GetRowCount() >= rows;
}

std::string GridText(const KRX::GridData& grid, int column, int row) {
  return ToNarrow(grid.GetCell(column, row).GetString());
}

int32_t GridInteger(const KRX::GridData& grid, int column, int row) {
  const double value = grid.GetCell(column, row).GetDouble();
  if (!std::isfinite(value) || value < -2147483648.0 || value > 2147483647.0) return 0;
  return static_cast<int32_t>(value);
}

double GridNumber(const KRX::GridData& grid, int column, int row) {
  const double value = grid.GetCell(column, row).GetDouble();
  return std::isfinite(value) ? value : 0.0;
}

void PutGridVector(KRX::GridData& grid, int row, int first, const KRX::MATH::CVector3& v) {
  PutGridRow(grid, row, first, {v.GetX(), v.GetY(), v.GetZ()});
}

KRX::MATH::CVector3 GridVector(const KRX::GridData& grid, int first, int row) {
  return {GridNumber(grid, first, row), GridNumber(grid, first + 1, row),
          GridNumber(grid, first + 2, row)};
}

}  // namespace kavor

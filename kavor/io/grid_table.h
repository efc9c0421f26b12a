// Tables stored in grid parameters of custom properties: written whole, read cell by cell
// with every access checked, since a scene file can hold any grid.
#pragma once

#include <string>
#include <vector>

#include "krx/krx.h"

namespace kavor {

// Adds the grid parameter `name` with the labelled columns and `rows` empty rows.
KRX::GridData AddGridTable(KRX::CustomProperty& property, const KRX::CString& name,
                           const std::vector<const wchar_t*>& labels, int rows);

// Puts `cells` into the row from column `first` on.
void PutGridRow(KRX::GridData& grid, int row, int first, std::initializer_list<KRX::CValue> cells);

// The grid of the parameter `name`; invalid when the property has no such grid.
KRX::GridData FindGridTable(const KRX::ProjectItem& property, const KRX::CString& name);

// True when the grid is valid and has at least `columns` columns and `rows` rows: the
// check a reader makes before it reads the rows a stored count announces.
bool GridHolds(const KRX::GridData& grid, int columns, int rows);

// Cells as text, integer and finite number; an empty or unreadable cell gives "", 0 or 0.
std::string GridText(const KRX::GridData& grid, int column, int row);
int32_t GridInteger(const KRX::GridData& grid, int column, int row);
double GridNumber(const KRX::GridData& grid, int column, int row);

// A vector stored as three number cells (x, y, z) from column `first` on; read as
// GridNumber reads each cell.
void PutGridVector(KRX::GridData& grid, int row, int first, const KRX::MATH::CVector3& v);
KRX::MATH::CVector3 GridVector(const KRX::GridData& grid, int first, int row);

}  // namespace kavor

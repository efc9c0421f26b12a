// GridData, UserDataBlob and FCurve handles.
#include <cmath>
#include <cstring>

#include "anim/fcurve_edit.h"
#include "anim/fcurve_eval.h"
#include "krx/property.h"
#include "scene/evaluation.h"
#include "scene/handles.h"

namespace KRX {

using rt::LiveAs;
using rt::RefOf;

namespace {

// Grids larger than this are refused (a table of values on a page, not a data store).
constexpr int64_t kMaxGridCells = int64_t{1} << 26;

rt::GridTable* GridOf(const GridData& handle) {
  auto* param = LiveAs<rt::ParamItem>(handle);
  return param && param->grid ? &*param->grid : nullptr;
}

CValue CellAs(ValueType type, const CValue& value) {
  switch (type) {
    case ValueType::Int:
      return CValue(value.GetInt());
    case ValueType::Double:
      return CValue(value.GetDouble());
    case ValueType::Bool:
      return CValue(value.GetBool());
    case ValueType::String:
      return CValue(value.GetString());
    default:
      return value;
  }
}

void Resize(rt::GridTable& grid, int columns, int rows) {
  std::vector<CValue> cells(static_cast<size_t>(columns) * static_cast<size_t>(rows));
  for (int r = 0; r < std::min(rows, grid.rows); ++r) {
    for (int c = 0; c < std::min(columns, grid.columns); ++c) {
      cells[static_cast<size_t>(r) * columns + c] =
          std::move(grid.cells[static_cast<size_t>(r) * grid.columns + c]);
    }
  }
  grid.cells = std::move(cells);
  grid.columns = columns;
  grid.rows = rows;
  grid.column_labels.resize(static_cast<size_t>(columns));
  grid.column_types.resize(static_cast<size_t>(columns), ValueType::Empty);
  grid.row_labels.resize(static_cast<size_t>(rows));
}

bool InGrid(const rt::GridTable& grid, int column, int row) {
  return column >= 0 && row >= 0 && column < grid.columns && row < grid.rows;
}

rt::FCurveItem* CurveOf(const FCurve& handle) { return LiveAs<rt::FCurveItem>(handle); }

// A change of the curve's keys: what depends on the curve is invalidated now, or once when
// the outermost batch edit ends.
void CurveChanged(rt::FCurveItem& curve) {
  if (curve.edit_depth > 0) {
    curve.edited_in_batch = true;
    return;
  }
  ++curve.change_notices;
  rt::Invalidate(curve);
}

bool KnownInterpolation(Interpolation interpolation) {
  return interpolation == Interpolation::Constant || interpolation == Interpolation::Linear ||
         interpolation == Interpolation::Bezier;
}

// Index of the nearest key within `tolerance` of `time`, in either form of the curve.
int FindKey(const rt::FCurveItem& curve, double time, double tolerance) {
  if (curve.sampled) {
    return rt::NearestSampledIndex(curve.sampled->start, curve.sampled->step,
                                   curve.sampled->values.size(), time, tolerance);
  }
  return rt::NearestKeyIndex(curve.keys, time, tolerance);
}

// A blob's bytes changed: what reads it is evaluated again, except the running operator
// writing into one of its own inputs (it knows what it wrote).
void BlobChanged(rt::BlobItem& blob) {
  const rt::OperatorItem* writer = rt::RunningUpdate();
  bool reads_it = false;
  if (writer) {
    for (const rt::PortData& port : writer->ports)
      reads_it = reads_it || (!port.output && port.item == &blob);
  }
  rt::Invalidate(blob, reads_it ? writer : nullptr);
}

// A grid's cells changed.
void GridChanged(const GridData& handle) {
  if (auto* param = LiveAs<rt::ParamItem>(handle)) rt::Invalidate(*param);
}

// A key a caller may store: finite numbers, a known interpolation and known constraints.
bool FiniteKey(const FCurveKeyData& k) {
  return std::isfinite(k.time) && std::isfinite(k.value) && std::isfinite(k.left_dx) &&
         std::isfinite(k.left_dy) && std::isfinite(k.right_dx) && std::isfinite(k.right_dy) &&
         KnownInterpolation(k.interpolation) && (k.constraints & ~rt::kKnownKeyConstraints) == 0;
}

// Recomputes the computed tangents of the keys around `index`.
void SmoothAround(rt::FCurveItem& curve, size_t index) {
  curve.auto_tangents.resize(curve.keys.size(), false);
  const size_t first = index == 0 ? 0 : index - 1;
  for (size_t i = first; i <= index + 1 && i < curve.keys.size(); ++i) {
    if (curve.auto_tangents[i]) rt::ComputeAutoTangents(curve.keys, i);
  }
}

// Adds a key with computed tangents: it replaces the nearest key within `tolerance` (none
// when negative), else the key within kKeyTimeEpsilon, else it is inserted in time order.
int AddKeyTo(rt::FCurveItem& curve, double time, double value, Interpolation interpolation,
             double tolerance) {
  if (!std::isfinite(time) || !std::isfinite(value) || !KnownInterpolation(interpolation))
    return -1;
  curve.Expand();
  FCurveKeyData key;
  key.time = time;
  key.value = value;
  key.interpolation = interpolation;
  curve.auto_tangents.resize(curve.keys.size(), false);
  int index = tolerance >= 0.0 ? rt::NearestKeyIndex(curve.keys, time, tolerance) : -1;
  if (index >= 0) {
    curve.keys[static_cast<size_t>(index)] = key;
    curve.auto_tangents[static_cast<size_t>(index)] = true;
  } else {
    const size_t before = curve.keys.size();
    index = rt::InsertKey(curve.keys, key);
    if (index < 0) return -1;
    if (curve.keys.size() > before) {
      curve.auto_tangents.insert(curve.auto_tangents.begin() + index, true);
    } else {
      curve.auto_tangents[static_cast<size_t>(index)] = true;
    }
  }
  SmoothAround(curve, static_cast<size_t>(index));
  CurveChanged(curve);
  return index;
}

}  // namespace

// ---- GridData ----

int GridData::GetColumnCount() const {
  const rt::GridTable* grid = GridOf(*this);
  return grid ? grid->columns : 0;
}

int GridData::GetRowCount() const {
  const rt::GridTable* grid = GridOf(*this);
  return grid ? grid->rows : 0;
}

CStatus GridData::PutColumnCount(int n) {
  rt::GridTable* grid = GridOf(*this);
  if (!grid) return CStatus::Fail;
  if (n < 0 || int64_t{n} * grid->rows > kMaxGridCells) return CStatus::InvalidArgument;
  Resize(*grid, n, grid->rows);
  GridChanged(*this);
  return CStatus::OK;
}

CStatus GridData::PutRowCount(int n) {
  rt::GridTable* grid = GridOf(*this);
  if (!grid) return CStatus::Fail;
  if (n < 0 || int64_t{n} * grid->columns > kMaxGridCells) return CStatus::InvalidArgument;
  Resize(*grid, grid->columns, n);
  GridChanged(*this);
  return CStatus::OK;
}

CValue GridData::GetCell(int column, int row) const {
  const rt::GridTable* grid = GridOf(*this);
  if (!grid || !InGrid(*grid, column, row)) return CValue();
  return grid->cells[static_cast<size_t>(row) * grid->columns + column];
}

CStatus GridData::PutCell(int column, int row, const CValue& value) {
  rt::GridTable* grid = GridOf(*this);
  if (!grid) return CStatus::Fail;
  if (!InGrid(*grid, column, row)) return CStatus::InvalidArgument;
  grid->cells[static_cast<size_t>(row) * grid->columns + column] =
      CellAs(grid->column_types[static_cast<size_t>(column)], value);
  GridChanged(*this);
  return CStatus::OK;
}

CString GridData::GetColumnLabel(int column) const {
  const rt::GridTable* grid = GridOf(*this);
  if (!grid || column < 0 || column >= grid->columns) return CString();
  return grid->column_labels[static_cast<size_t>(column)];
}

CStatus GridData::PutColumnLabel(int column, const CString& label) {
  rt::GridTable* grid = GridOf(*this);
  if (!grid) return CStatus::Fail;
  if (column < 0 || column >= grid->columns) return CStatus::InvalidArgument;
  grid->column_labels[static_cast<size_t>(column)] = label;
  return CStatus::OK;
}

CString GridData::GetRowLabel(int row) const {
  const rt::GridTable* grid = GridOf(*this);
  if (!grid || row < 0 || row >= grid->rows) return CString();
  return grid->row_labels[static_cast<size_t>(row)];
}

CStatus GridData::PutRowLabel(int row, const CString& label) {
  rt::GridTable* grid = GridOf(*this);
  if (!grid) return CStatus::Fail;
  if (row < 0 || row >= grid->rows) return CStatus::InvalidArgument;
  grid->row_labels[static_cast<size_t>(row)] = label;
  return CStatus::OK;
}

CStatus GridData::PutColumnType(int column, ValueType type) {
  rt::GridTable* grid = GridOf(*this);
  if (!grid) return CStatus::Fail;
  if (column < 0 || column >= grid->columns) return CStatus::InvalidArgument;
  grid->column_types[static_cast<size_t>(column)] = type;
  for (int row = 0; row < grid->rows; ++row) {
    CValue& cell = grid->cells[static_cast<size_t>(row) * grid->columns + column];
    if (!cell.IsEmpty()) cell = CellAs(type, cell);
  }
  GridChanged(*this);
  return CStatus::OK;
}

// ---- UserDataBlob ----

std::vector<uint8_t> UserDataBlob::GetValue() const {
  auto* blob = LiveAs<rt::BlobItem>(*this);
  if (!blob) return {};
  rt::NoteUpdateRead(*blob);
  return blob->bytes;
}

CStatus UserDataBlob::PutValue(const uint8_t* data, size_t size) {
  auto* blob = LiveAs<rt::BlobItem>(*this);
  if (!blob) return CStatus::Fail;
  if (!data && size > 0) return CStatus::InvalidArgument;
  if (blob->bytes.size() == size &&
      (size == 0 || std::memcmp(blob->bytes.data(), data, size) == 0)) {
    return CStatus::OK;
  }
  blob->bytes.assign(data, data + size);
  BlobChanged(*blob);
  return CStatus::OK;
}

CStatus UserDataBlob::PutRange(size_t offset, const uint8_t* data, size_t size) {
  auto* blob = LiveAs<rt::BlobItem>(*this);
  if (!blob) return CStatus::Fail;
  if ((!data && size > 0) || offset > blob->bytes.size() || size > blob->bytes.size() - offset) {
    return CStatus::InvalidArgument;
  }
  if (size == 0 || std::memcmp(blob->bytes.data() + offset, data, size) == 0) return CStatus::OK;
  std::memcpy(blob->bytes.data() + offset, data, size);
  BlobChanged(*blob);
  return CStatus::OK;
}

const std::vector<uint8_t>* UserDataBlob::GetBytes() const {
  auto* blob = LiveAs<rt::BlobItem>(*this);
  if (!blob) return nullptr;
  rt::NoteUpdateRead(*blob);
  return &blob->bytes;
}

bool UserDataBlob::IsEmpty() const {
  const auto* blob = LiveAs<rt::BlobItem>(*this);
  return !blob || blob->bytes.empty();
}

// ---- FCurve ----
// Reads go through the curve's accessors, whichever form it holds; edits of single keys
// turn a compact curve into the full form first, whole-curve assignments compact it again
// when the keys allow.

int FCurve::GetNumKeys() const {
  const rt::FCurveItem* curve = CurveOf(*this);
  return curve ? static_cast<int>(curve->KeyCount()) : 0;
}

FCurveKeyData FCurve::GetKey(int index) const {
  const rt::FCurveItem* curve = CurveOf(*this);
  if (!curve || index < 0 || static_cast<size_t>(index) >= curve->KeyCount())
    return FCurveKeyData();
  return curve->Key(static_cast<size_t>(index));
}

std::vector<FCurveKeyData> FCurve::GetKeys() const {
  const rt::FCurveItem* curve = CurveOf(*this);
  if (!curve) return {};
  return curve->sampled ? rt::ToKeys(*curve->sampled) : curve->keys;
}

FCurveType FCurve::GetFCurveType() const {
  const rt::FCurveItem* curve = CurveOf(*this);
  return curve ? curve->curve_type : FCurveType::Standard;
}

int FCurve::AddKey(double time, double value) {
  rt::FCurveItem* curve = CurveOf(*this);
  return curve ? AddKeyTo(*curve, time, value, curve->interpolation, -1.0) : -1;
}

int FCurve::AddKey(double time, double value, Interpolation interpolation) {
  rt::FCurveItem* curve = CurveOf(*this);
  return curve ? AddKeyTo(*curve, time, value, interpolation, -1.0) : -1;
}

int FCurve::AddKey(double time, double value, Interpolation interpolation, double tolerance) {
  rt::FCurveItem* curve = CurveOf(*this);
  if (!curve || !(tolerance >= 0.0) || !std::isfinite(tolerance)) return -1;
  return AddKeyTo(*curve, time, value, interpolation, tolerance);
}

CStatus FCurve::SetKey(int index, const FCurveKeyData& key) {
  rt::FCurveItem* curve = CurveOf(*this);
  if (!curve) return CStatus::Fail;
  if (index < 0 || static_cast<size_t>(index) >= curve->KeyCount() || !FiniteKey(key)) {
    return CStatus::InvalidArgument;
  }
  curve->Expand();
  const auto at = static_cast<size_t>(index);
  // The key must stay between its neighbours.
  if ((at > 0 && key.time <= curve->keys[at - 1].time + rt::kKeyTimeEpsilon) ||
      (at + 1 < curve->keys.size() && key.time >= curve->keys[at + 1].time - rt::kKeyTimeEpsilon)) {
    return CStatus::InvalidArgument;
  }
  FCurveKeyData stored = key;
  if (stored.left_dx > 0.0) stored.left_dx = 0.0;
  if (stored.right_dx < 0.0) stored.right_dx = 0.0;
  curve->keys[at] = stored;
  curve->auto_tangents.resize(curve->keys.size(), false);
  curve->auto_tangents[at] = false;
  SmoothAround(*curve, at);
  CurveChanged(*curve);
  return CStatus::OK;
}

CStatus FCurve::SetKeys(const std::vector<FCurveKeyData>& keys) {
  rt::FCurveItem* curve = CurveOf(*this);
  if (!curve) return CStatus::Fail;
  std::vector<FCurveKeyData> sorted;
  for (const FCurveKeyData& key : keys) {
    if (!FiniteKey(key) || rt::InsertKey(sorted, key) < 0) return CStatus::InvalidArgument;
  }
  curve->sampled.reset();
  curve->keys = std::move(sorted);
  curve->auto_tangents.assign(curve->keys.size(), false);
  curve->Compact();
  CurveChanged(*curve);
  return CStatus::OK;
}

CStatus FCurve::RemoveKeyAtIndex(int index) {
  rt::FCurveItem* curve = CurveOf(*this);
  if (!curve) return CStatus::Fail;
  if (index < 0 || static_cast<size_t>(index) >= curve->KeyCount()) return CStatus::InvalidArgument;
  curve->Expand();
  curve->auto_tangents.resize(curve->keys.size(), false);
  curve->keys.erase(curve->keys.begin() + index);
  curve->auto_tangents.erase(curve->auto_tangents.begin() + index);
  if (!curve->keys.empty()) SmoothAround(*curve, static_cast<size_t>(index == 0 ? 0 : index - 1));
  CurveChanged(*curve);
  return CStatus::OK;
}

CStatus FCurve::RemoveKeys() {
  rt::FCurveItem* curve = CurveOf(*this);
  if (!curve) return CStatus::Fail;
  curve->sampled.reset();
  curve->keys.clear();
  curve->auto_tangents.clear();
  CurveChanged(*curve);
  return CStatus::OK;
}

double FCurve::Eval(double time) const {
  const rt::FCurveItem* curve = CurveOf(*this);
  if (!curve) return 0.0;
  return curve->Evaluate(rt::ResolveTime(time));
}

Parameter FCurve::GetParameter() const {
  const rt::FCurveItem* curve = CurveOf(*this);
  return curve ? Parameter(RefOf(curve->owner)) : Parameter();
}

CStatus FCurve::PutInterpolation(Interpolation interpolation) {
  rt::FCurveItem* curve = CurveOf(*this);
  if (!curve) return CStatus::Fail;
  if (!KnownInterpolation(interpolation)) return CStatus::InvalidArgument;
  curve->interpolation = interpolation;
  if (curve->sampled) {
    curve->sampled->interpolation = interpolation;
  } else {
    for (FCurveKeyData& key : curve->keys) key.interpolation = interpolation;
    curve->Compact();
  }
  CurveChanged(*curve);
  return CStatus::OK;
}

Interpolation FCurve::GetInterpolation() const {
  const rt::FCurveItem* curve = CurveOf(*this);
  return curve ? curve->interpolation : Interpolation::Bezier;
}

CStatus FCurve::BeginEdit() {
  rt::FCurveItem* curve = CurveOf(*this);
  if (!curve) return CStatus::Fail;
  ++curve->edit_depth;
  return CStatus::OK;
}

CStatus FCurve::EndEdit() {
  rt::FCurveItem* curve = CurveOf(*this);
  if (!curve || curve->edit_depth == 0) return CStatus::Fail;
  if (--curve->edit_depth == 0 && curve->edited_in_batch) {
    curve->edited_in_batch = false;
    CurveChanged(*curve);
  }
  return CStatus::OK;
}

int FCurve::GetKeyIndex(double time, double tolerance) const {
  const rt::FCurveItem* curve = CurveOf(*this);
  return curve ? FindKey(*curve, time, tolerance) : -1;
}

bool FCurve::KeyExists(double time, double tolerance) const {
  return GetKeyIndex(time, tolerance) >= 0;
}

FCurveKey FCurve::GetKeyAtTime(double time, double tolerance) const {
  const rt::FCurveItem* curve = CurveOf(*this);
  const int index = curve ? FindKey(*curve, time, tolerance) : -1;
  if (index < 0) return FCurveKey();
  return FCurveKey(*this, curve->Key(static_cast<size_t>(index)).time);
}

// ---- FCurveKey ----
// A key handle finds its key again by time on every call, so that it follows the key
// while other keys are inserted or removed around it.

namespace {

struct KeyAt {
  rt::FCurveItem* curve = nullptr;
  int index = -1;
  explicit operator bool() const { return index >= 0; }
};

KeyAt Locate(const FCurve& handle, double time) {
  KeyAt at;
  at.curve = CurveOf(handle);
  if (at.curve) at.index = FindKey(*at.curve, time, rt::kKeyTimeEpsilon);
  return at;
}

// The key's record in the full form, for an edit (converts a compact curve).
FCurveKeyData& EditKey(const KeyAt& at) {
  at.curve->Expand();
  at.curve->auto_tangents.resize(at.curve->keys.size(), false);
  return at.curve->keys[static_cast<size_t>(at.index)];
}

FCurveKeyData ReadKey(const FCurve& handle, double time) {
  const KeyAt at = Locate(handle, time);
  return at ? at.curve->Key(static_cast<size_t>(at.index)) : FCurveKeyData();
}

CStatus PutKeyTangent(const FCurve& handle, double time, bool left, double dx, double dy) {
  const KeyAt at = Locate(handle, time);
  if (!at || !std::isfinite(dx) || !std::isfinite(dy)) return CStatus::InvalidArgument;
  rt::PutTangent(EditKey(at), left, dx, dy);
  at.curve->auto_tangents[static_cast<size_t>(at.index)] = false;
  CurveChanged(*at.curve);
  return CStatus::OK;
}

bool KnownConstraint(KeyConstraint constraint) {
  const int bits = static_cast<int>(constraint);
  return bits != 0 && (bits & ~rt::kKnownKeyConstraints) == 0;
}

}  // namespace

bool FCurveKey::IsValid() const { return static_cast<bool>(Locate(curve_, time_)); }
double FCurveKey::GetTime() const { return ReadKey(curve_, time_).time; }
double FCurveKey::GetValue() const { return ReadKey(curve_, time_).value; }
double FCurveKey::GetLeftTanX() const { return ReadKey(curve_, time_).left_dx; }
double FCurveKey::GetLeftTanY() const { return ReadKey(curve_, time_).left_dy; }
double FCurveKey::GetRightTanX() const { return ReadKey(curve_, time_).right_dx; }
double FCurveKey::GetRightTanY() const { return ReadKey(curve_, time_).right_dy; }

CStatus FCurveKey::PutLeftTan(double dx, double dy) {
  return PutKeyTangent(curve_, time_, true, dx, dy);
}

CStatus FCurveKey::PutRightTan(double dx, double dy) {
  return PutKeyTangent(curve_, time_, false, dx, dy);
}

CStatus FCurveKey::PutConstraint(KeyConstraint constraint, bool on) {
  const KeyAt at = Locate(curve_, time_);
  if (!at || !KnownConstraint(constraint)) return CStatus::InvalidArgument;
  FCurveKeyData& key = EditKey(at);
  const int bits = static_cast<int>(constraint);
  key.constraints = on ? (key.constraints | bits) : (key.constraints & ~bits);
  return CStatus::OK;
}

bool FCurveKey::GetConstraint(KeyConstraint constraint) const {
  const int bits = static_cast<int>(constraint);
  return bits != 0 && (ReadKey(curve_, time_).constraints & bits) == bits;
}

CStatus FCurveKey::ClearConstraints() {
  const KeyAt at = Locate(curve_, time_);
  if (!at) return CStatus::InvalidArgument;
  EditKey(at).constraints = 0;
  return CStatus::OK;
}

}  // namespace KRX

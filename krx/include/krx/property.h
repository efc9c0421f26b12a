// Parameters, custom properties, grid data, user-data blobs and function curves.
#pragma once

#include <cstdint>
#include <vector>

#include "krx/scene.h"

namespace KRX {

// Capability flags of a parameter (combined as a plain number). Values are written to
// scene files: be careful when changing them.
enum ParameterCapability : int {
  kCapAnimatable = 1,
  kCapReadOnly = 2,
  kCapPersistable = 4,
  kCapNotInspectable = 8,
  kCapSilent = 16,
  kCapNotPresetPersistable = 128,
  kCapReadOnlyDisplay = 256,
};

// Where a parameter's value comes from. Values are part of the module interface.
enum class AnimationSource : int {
  None = 0,
  Expression = 1,
  FCurve = 2,
  Operator = 3,
};

// Interpolation of a function-curve segment. Values are written to scene files.
enum class Interpolation : int { Constant = 1, Linear = 2, Bezier = 3 };

struct FCurveKeyData {
  double time = 0.0;  // frames
  double value = 0.0;
  // Tangent handles relative to the key: (dx frames, dy value). The left handle has
  // dx <= 0, the right one dx >= 0.
  double left_dx = -1.0 / 3.0, left_dy = 0.0;
  double right_dx = 1.0 / 3.0, right_dy = 0.0;
  // Interpolation of the segment that starts at this key.
  Interpolation interpolation = Interpolation::Bezier;
};

class FCurve;
class PPGLayout;

class Parameter : public ProjectItem {
 public:
  using ProjectItem::ProjectItem;
  CString GetScriptName() const { return GetName(); }
  CValue GetValue(double time = kCurrentTime) const;
  CStatus PutValue(const CValue& value, double time = kCurrentTime);
  ValueType GetValueType() const;
  int GetCapabilities() const;
  CStatus PutCapabilityFlag(int flag, bool on);
  CValue GetMin() const;
  CValue GetMax() const;
  CValue GetSuggestedMin() const;
  CValue GetSuggestedMax() const;
  CValue GetDefault() const;
  CString GetLabel() const;
  CString GetDescription() const;

  bool IsAnimated(AnimationSource source) const;
  AnimationSource GetSourceKind() const;
  // The function curve driving this parameter; invalid when none.
  FCurve GetFCurve() const;
  // Drives the parameter by a new function curve (replacing any other source). Keys
  // given are copied in.
  FCurve AddFCurve(const std::vector<FCurveKeyData>& keys = {});
  // The same as AddFCurve with one key every `step` frames from `start` holding `values`
  // in order, each with `interpolation` and the default handles; the values are taken
  // over, not copied. Invalid (nothing changes) when a value is not finite or the key
  // times are not finite and strictly increasing.
  FCurve AddSampledFCurve(double start, double step, std::vector<double> values,
                          Interpolation interpolation = Interpolation::Linear);
  // Drives the parameter by an expression: the full name of another parameter, optionally
  // scaled and offset ("Model.a.kine.local.posx * 2 + 1").
  CStatus AddExpression(const CString& text);
  CString GetExpression() const;
  // Removes any animation source; the value at the current time is kept.
  CStatus RemoveAnimation();
  // Valid for grid parameters only.
  GridData GetGridData() const;

 protected:
  ClassID HandleClass() const override { return ClassID::Parameter; }
};

class CustomProperty : public Property {
 public:
  using Property::Property;
  // `type`: ValueType::Int, Double, String or Bool. Empty limits mean none.
  Parameter AddParameter(const CString& name, ValueType type, int capabilities,
                         const CString& label, const CString& description,
                         const CValue& default_value, const CValue& min = CValue(),
                         const CValue& max = CValue(), const CValue& suggested_min = CValue(),
                         const CValue& suggested_max = CValue());
  Parameter AddGridParameter(const CString& name);
  CStatus RemoveParameter(const Parameter& p);
  // The layout of the property's page once the page was shown; invalid before.
  PPGLayout GetPPGLayout() const;

 protected:
  ClassID HandleClass() const override { return ClassID::CustomProperty; }
};

// A table of values held by a grid parameter. Cells are addressed (column, row).
class GridData : public CBase {
 public:
  using CBase::CBase;
  int GetColumnCount() const;
  int GetRowCount() const;
  CStatus PutColumnCount(int n);
  CStatus PutRowCount(int n);
  CValue GetCell(int column, int row) const;
  CStatus PutCell(int column, int row, const CValue& value);
  CString GetColumnLabel(int column) const;
  CStatus PutColumnLabel(int column, const CString& label);
  CString GetRowLabel(int row) const;
  CStatus PutRowLabel(int row, const CString& label);
  // Column type: ValueType::String or Double etc.; cells are converted on put.
  CStatus PutColumnType(int column, ValueType type);

 protected:
  ClassID HandleClass() const override { return ClassID::Parameter; }
};

class UserDataBlob : public Property {
 public:
  using Property::Property;
  std::vector<uint8_t> GetValue() const;
  // Bytes equal to those held change nothing (nothing is evaluated again).
  CStatus PutValue(const uint8_t* data, size_t size);
  // Writes `size` bytes at `offset` in place, keeping the blob's length; InvalidArgument
  // when the range does not lie inside the blob. Unchanged bytes change nothing. An operator
  // may write this way into a blob it reads while its update runs.
  CStatus PutRange(size_t offset, const uint8_t* data, size_t size);
  // Direct view of the bytes; valid until the next PutValue (PutRange keeps it) or the
  // blob's deletion.
  const std::vector<uint8_t>* GetBytes() const;
  bool IsEmpty() const;

 protected:
  ClassID HandleClass() const override { return ClassID::UserDataBlob; }
};

class FCurve : public CBase {
 public:
  using CBase::CBase;
  int GetNumKeys() const;
  FCurveKeyData GetKey(int index) const;
  std::vector<FCurveKeyData> GetKeys() const;
  // Replaces the key at the same time or inserts in time order; returns its index.
  int AddKey(double time, double value, Interpolation interpolation = Interpolation::Bezier);
  CStatus SetKey(int index, const FCurveKeyData& key);
  CStatus SetKeys(const std::vector<FCurveKeyData>& keys);
  CStatus RemoveKeyAtIndex(int index);
  CStatus RemoveKeys();
  double Eval(double time) const;
  // The parameter this curve drives.
  Parameter GetParameter() const;

 protected:
  ClassID HandleClass() const override { return ClassID::FCurve; }
};

}  // namespace KRX

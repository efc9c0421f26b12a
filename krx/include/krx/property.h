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

// Kind of a function curve. Values are written to scene files.
enum class FCurveType : int { Standard = 20 };

// Constraints on a key's tangents, combined as bits in FCurveKeyData::constraints. Values
// are written to scene files.
enum class KeyConstraint : int {
  // Putting one tangent turns the other to the opposite direction, keeping its length.
  AlignTangents = 4,
};

struct FCurveKeyData {
  double time = 0.0;  // frames
  double value = 0.0;
  // Tangent handles relative to the key: (dx frames, dy value). The left handle has
  // dx <= 0, the right one dx >= 0.
  double left_dx = -1.0 / 3.0, left_dy = 0.0;
  double right_dx = 1.0 / 3.0, right_dy = 0.0;
  // Interpolation of the segment that starts at this key.
  Interpolation interpolation = Interpolation::Bezier;
  // KeyConstraint bits; none by default.
  int constraints = 0;
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
  // A new, empty function curve of `type` driving the parameter (replacing any other
  // source).
  FCurve AddFCurve(FCurveType type);
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

class FCurveKey;

// A function curve. Key look-ups by time with a tolerance take the nearest key whose time
// lies within `tolerance` frames (ties go to the earlier key) and cost O(log n).
class FCurve : public CBase {
 public:
  using CBase::CBase;
  FCurveType GetFCurveType() const;
  int GetNumKeys() const;
  FCurveKeyData GetKey(int index) const;
  std::vector<FCurveKeyData> GetKeys() const;
  // Replaces the key at the same time or inserts in time order; returns its index, or -1
  // (nothing changed) when the time or value is not finite. Without an interpolation the
  // curve's (GetInterpolation) is used. The key gets computed tangents, and so do its
  // neighbours that had them. Keys added in increasing time order cost O(1) each.
  int AddKey(double time, double value);
  int AddKey(double time, double value, Interpolation interpolation);
  // The same, but the nearest key within `tolerance` frames of `time` is replaced (the key
  // then lies at `time`) instead of a second key being inserted next to it. -1 also for a
  // negative or non-finite tolerance.
  int AddKey(double time, double value, Interpolation interpolation, double tolerance);
  CStatus SetKey(int index, const FCurveKeyData& key);
  CStatus SetKeys(const std::vector<FCurveKeyData>& keys);
  CStatus RemoveKeyAtIndex(int index);
  CStatus RemoveKeys();
  double Eval(double time) const;
  // The parameter this curve drives.
  Parameter GetParameter() const;

  // Sets the interpolation of every key and the one AddKey uses when given none
  // (Bezier on a new curve).
  CStatus PutInterpolation(Interpolation interpolation);
  Interpolation GetInterpolation() const;

  // Batch edits (nestable). Between the outermost BeginEdit and its EndEdit, key edits
  // leave what depends on the curve (the parameter, its object, operators reading them)
  // as last evaluated; the curve itself (keys, Eval) reads back every edit at once. The
  // outermost EndEdit invalidates the dependents once when anything changed. EndEdit
  // without a BeginEdit fails.
  CStatus BeginEdit();
  CStatus EndEdit();

  // Index of the nearest key within `tolerance` frames of `time`; -1 when none.
  int GetKeyIndex(double time, double tolerance = 0.01) const;
  bool KeyExists(double time, double tolerance = 0.01) const;
  // The nearest key within `tolerance` of `time`; invalid when none.
  FCurveKey GetKeyAtTime(double time, double tolerance = 0.01) const;

 protected:
  ClassID HandleClass() const override { return ClassID::FCurve; }
};

// One key of a function curve, named by the curve and the key's time: the handle stays on
// its key while other keys come and go, and is invalid once no key lies at that time.
// Tangents are relative to the key, in frames and value, as in FCurveKeyData. Edits
// convert a compact curve to the full form first, and fail (InvalidArgument) on an invalid
// handle or a non-finite number.
class FCurveKey {
 public:
  FCurveKey() = default;
  FCurveKey(const FCurve& curve, double time) : curve_(curve), time_(time) {}
  bool IsValid() const;
  FCurve GetFCurve() const { return curve_; }
  double GetTime() const;
  double GetValue() const;
  double GetLeftTanX() const;
  double GetLeftTanY() const;
  double GetRightTanX() const;
  double GetRightTanY() const;
  // Puts a handle (dx is clamped to the handle's side of the key). The key no longer has
  // computed tangents. With AlignTangents on, the other handle turns to the opposite
  // direction, keeping its length.
  CStatus PutLeftTan(double dx, double dy);
  CStatus PutRightTan(double dx, double dy);
  // Constraints change no value of the curve, so they invalidate nothing.
  CStatus PutConstraint(KeyConstraint constraint, bool on);
  bool GetConstraint(KeyConstraint constraint) const;
  CStatus ClearConstraints();

 private:
  FCurve curve_;
  double time_ = 0.0;
};

}  // namespace KRX

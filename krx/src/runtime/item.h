// The runtime's scene items. SDK handles hold weak references to these; the ownership
// tree (scene root -> objects -> properties -> parameters, operators owned by their first
// output) holds the strong ones, so deleting an item from its owner invalidates every
// handle on it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "anim/fcurve_eval.h"
#include "anim/sampled_curve.h"
#include "krx/krx.h"

namespace KRX::rt {

struct OperatorItem;
struct ContextItem;
struct ParamItem;
struct ConstraintItem;
struct ObjectItem;

struct Item : std::enable_shared_from_this<Item> {
  explicit Item(ClassID c) : cls(c) {}
  virtual ~Item() = default;
  Item(const Item&) = delete;
  Item& operator=(const Item&) = delete;

  ClassID cls;
  std::wstring type;  // host type text ("#model", "null", "customparamset", ...)
  CString name;
  Item* owner = nullptr;  // owning item; null for the scene root and detached items
  bool deleted = false;   // set when removed from the scene
  // Parameters (ProjectItem), in order.
  std::vector<std::shared_ptr<Item>> params;
  // Properties (SceneItem), in order. An object's kinematics is its first property.
  std::vector<std::shared_ptr<Item>> properties;
  // Operators whose first output is this item (kinematic states, parameters, blobs,
  // curve geometry).
  std::vector<std::shared_ptr<Item>> operators;
};

// A function curve holds its keys in one of two forms. The full form is `keys` with
// `auto_tangents`. The compact form (`sampled` set, the two vectors empty) serves curves
// with a key on every step and nothing per key but its value, as imports and bakes make
// them. Both read the same through KeyCount, Key, AutoTangent and Evaluate; a key-by-key
// edit calls Expand first, and whole-curve assignments call Compact after.
struct FCurveItem : Item {
  FCurveItem() : Item(ClassID::FCurve) { type = L"FCurve"; }
  std::vector<FCurveKeyData> keys;  // sorted by time
  // Per key: true when its tangents were computed (a key added without explicit tangents),
  // so that later insertions next to it smooth it again. Missing entries count as false.
  std::vector<bool> auto_tangents;
  std::optional<SampledCurve> sampled;

  size_t KeyCount() const { return sampled ? sampled->values.size() : keys.size(); }
  // Key `index` (< KeyCount()).
  FCurveKeyData Key(size_t index) const { return sampled ? sampled->KeyAt(index) : keys[index]; }
  bool AutoTangent(size_t index) const {
    return !sampled && index < auto_tangents.size() && auto_tangents[index];
  }
  double Evaluate(double frame) const {
    return sampled ? EvaluateSampledCurve(*sampled, frame) : EvaluateFCurve(keys, frame);
  }
  void Expand() {
    if (!sampled) return;
    keys = ToKeys(*sampled);
    auto_tangents.assign(keys.size(), false);
    sampled.reset();
  }
  void Compact() {
    if (sampled || !FitsSampledCurve(keys, auto_tangents)) return;
    sampled = ToSampledCurve(keys);
    std::vector<FCurveKeyData>().swap(keys);
    std::vector<bool>().swap(auto_tangents);
  }
};

struct GridTable {
  int columns = 0;
  int rows = 0;
  std::vector<CString> column_labels;
  std::vector<ValueType> column_types;
  std::vector<CString> row_labels;
  std::vector<CValue> cells;  // row-major: cells[row * columns + column]
};

struct ParamItem : Item {
  ParamItem() : Item(ClassID::Parameter) { type = L"Parameter"; }
  ValueType value_type = ValueType::Double;
  int capabilities = 0;
  CValue value;  // static value
  CValue default_value, min, max, suggested_min, suggested_max;
  CString label, description;
  std::shared_ptr<FCurveItem> fcurve;  // animation source when set
  std::optional<CString> expression;   // animation source when set
  std::optional<GridTable> grid;       // grid parameters only
  // A put on an animated parameter: seen by reads at `transient_time` only.
  std::optional<CValue> transient_value;
  double transient_time = 0.0;

  // Evaluation bookkeeping (krx/src/scene), rebuilt whenever the scene's structure stamp
  // moves: the connected operators writing this parameter and what its expression reads.
  struct Binding {
    uint64_t stamp = 0;  // 0 = never built
    std::vector<OperatorItem*> writers;
    bool expression_ok = false;  // the expression parsed and names a parameter (or none)
    ParamItem* expression_source = nullptr;  // null for a constant expression
    double expression_scale = 1.0;
    double expression_offset = 0.0;
  };
  Binding binding;
  bool evaluating = false;  // re-entrance guard (expression cycles)
  bool cycle_reported = false;
};

struct BlobItem : Item {
  BlobItem() : Item(ClassID::UserDataBlob) { type = L"UserDataBlob"; }
  std::vector<uint8_t> bytes;
};

// Local or global kinematic state of an object. The local one holds the kinematic
// parameters; the global one none (it is derived).
struct KineStateItem : Item {
  KineStateItem() : Item(ClassID::KinematicState) {}
  bool global = false;
  ObjectItem* object = nullptr;
};

struct KinematicsItem : Item {
  KinematicsItem() : Item(ClassID::Kinematics) {
    type = L"kine";
    name = L"kine";
  }
  std::shared_ptr<KineStateItem> local;
  std::shared_ptr<KineStateItem> global;
};

struct ConstraintItem : Item {
  ConstraintItem() : Item(ClassID::Constraint) {}
  // "Position Cns" or "Orientation Cns" (also the item's type text)
  std::vector<std::weak_ptr<Item>> constraining;
  ObjectItem* constrained = nullptr;
};

// Evaluated kinematics of one object at one time.
struct EvalCache {
  double time = 0.0;
  uint64_t revision = 0;  // scene revision the values were computed at; 0 = empty
  MATH::CTransformation local;
  MATH::CTransformation global;
  MATH::CTransformation parent_global;  // the parent's global the local is relative to
  bool complete = false;                // false while the object is still being evaluated
};

// Local kinematic parameters in evaluation order: posx..posz, rotx..rotz, sclx..sclz,
// rotorder, nposx..nposz, nrotx..nrotz, nsclx..nsclz. The global state carries the first
// nine (its values are derived from the evaluated global unless animated).
inline constexpr size_t kLocalKineParamCount = 19;
inline constexpr size_t kGlobalKineParamCount = 9;

// What the evaluation resolved for an object, valid while `stamp` equals the scene's
// structure stamp, so that evaluating needs no name lookups.
struct KineBinding {
  uint64_t stamp = 0;  // 0 = never built
  std::array<ParamItem*, kLocalKineParamCount> local{};
  std::array<ParamItem*, kGlobalKineParamCount> global{};
  bool global_driven = false;  // a global parameter has a curve or expression
  ObjectItem* parent = nullptr;
  std::vector<ConstraintItem*> constraints;
  std::vector<OperatorItem*> writers;  // write a kinematic state, in connection order
};

struct ObjectItem : Item {
  explicit ObjectItem(ClassID c) : Item(c) {}
  std::vector<std::shared_ptr<ObjectItem>> children;
  std::shared_ptr<KinematicsItem> kinematics;
  std::vector<MATH::CVector3> curve_points;  // curve objects: control points, own space
  EvalCache cache;
  KineBinding binding;
  bool evaluating = false;  // re-entrance guard while this object is being evaluated
  bool cycle_reported = false;
};

// What an operator wrote to one output port on its last run.
struct PortResult {
  std::optional<MATH::CTransformation> transform;
  std::optional<CValue> value;
  std::optional<std::vector<MATH::CVector3>> points;
};

struct PortData {
  std::weak_ptr<Item> target;
  CString name;
  CString group;
  bool output = false;
};

struct OperatorItem : Item {
  OperatorItem() : Item(ClassID::CustomOperator) { type = L"CustomOperator"; }
  CString op_type;        // the registered operator name ("RetargetOp", "ConnectionLine")
  bool scripted = false;  // a host scripted operator
  CString script, language;
  std::vector<PortData> ports;  // in the order added
  CString current_group;
  bool always_evaluate = false;
  bool connected = false;
  int construction_mode = 0;
  void* user_data = nullptr;  // per-instance data of the plug-in
  bool initialised = false;   // _Init ran, _Term pending
  bool running = false;       // cycle guard
  bool cycle_reported = false;
  // Evaluation state (krx/src/scene): order of connection (operators writing the same
  // target run in this order), the time and revision of the last run and what it wrote
  // (indexed like `ports`), and the context its callbacks receive.
  uint64_t connect_order = 0;
  double run_time = 0.0;
  uint64_t run_revision = 0;  // 0 = never ran
  std::vector<PortResult> results;
  std::shared_ptr<ContextItem> context;
};

// What a callback receives. Created by the caller for the duration of one call (commands,
// menus, property callbacks) or kept per operator instance.
struct ContextItem : Item {
  ContextItem() : Item(ClassID::Context) { type = L"Context"; }
  std::weak_ptr<Item> source;
  std::map<std::wstring, CValue> attributes;  // "Arguments", "ReturnValue", ...
  void* user_data = nullptr;                  // used when the context is not an operator's
  OperatorItem* op = nullptr;  // set for operator callbacks; user data then lives there
  double time = 0.0;           // operator evaluation time, frames
  int output_index = -1;       // operator output being written (index among outputs)
  // Operators write through the context; the evaluation applies the value afterwards.
  std::optional<MATH::CTransformation> output_transform;
  std::optional<CValue> output_value;
  std::optional<std::vector<MATH::CVector3>> output_points;
  // The output's value before the operator's write (GetOutputTransform).
  MATH::CTransformation output_current;
};

}  // namespace KRX::rt

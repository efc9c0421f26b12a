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
#include <unordered_map>
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

// Parameters of an item by name, for items with many parameters; valid while `stamp`
// equals the structure stamp (adding, renaming or deleting a parameter moves it).
struct ParamIndex {
  uint64_t stamp = 0;
  std::unordered_map<std::wstring, ParamItem*> by_name;
};

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
  // Evaluation bookkeeping (krx/src/scene). What must be evaluated again when this item
  // changes, beyond what its place implies (an object's children, a parameter's object):
  // operators reading it, parameters whose expression reads it, objects constrained to it.
  // Valid while `dependents_stamp` equals the scene's dependency stamp.
  std::vector<Item*> dependents;
  uint64_t dependents_stamp = 0;
  uint64_t visit_mark = 0;                  // the last invalidation walk that reached the item
  std::unique_ptr<ParamIndex> param_index;  // built on the first look-up by name
};

// A function curve holds its keys in one of two forms. The full form is `keys` with
// `auto_tangents`. The compact form (`sampled` set, the two vectors empty) serves curves
// with a key on every step and nothing per key but its value, as imports and bakes make
// them. Both read the same through KeyCount, Key, AutoTangent and Evaluate; a key-by-key
// edit calls Expand first, and whole-curve assignments call Compact after.
struct FCurveItem : Item {
  FCurveItem() : Item(ClassID::FCurve) { type = L"FCurve"; }
  FCurveType curve_type = FCurveType::Standard;
  // What AddKey uses when given no interpolation (FCurve::PutInterpolation).
  Interpolation interpolation = Interpolation::Bezier;
  // Batch edits: open BeginEdit calls, and whether a key changed since the outermost one.
  int edit_depth = 0;
  bool edited_in_batch = false;
  // How many times a change of the curve was passed on to what depends on it.
  uint64_t change_notices = 0;
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
  // The local transform has not been composed from the parameters yet: an operator
  // overwrites the object's state, so it is composed only when someone asks for the value
  // before that write.
  bool local_pending = false;
};

// Objects and operators keep their results for this many times, so that reads alternating
// between a few times (the current frame and a frame being plotted) find them again.
inline constexpr size_t kCachedTimes = 4;

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
  // Evaluated poses by time; an entry being filled has `complete` false (re-entrance guard).
  std::array<EvalCache, kCachedTimes> cache;
  uint32_t next_cache = 0;  // the entry to reuse next when all hold valid poses
  KineBinding binding;
  int evaluating = 0;  // entries being filled
  bool cycle_reported = false;
};

// What an operator wrote to one output port on its last run.
struct PortResult {
  std::optional<MATH::CTransformation> transform;
  std::optional<CValue> value;
  std::optional<std::vector<MATH::CVector3>> points;
};

// One run of an operator: its time, the scene revision it ran at (0 = none) and what it
// wrote, indexed like the operator's ports.
struct OperatorRun {
  double time = 0.0;
  uint64_t revision = 0;
  bool running = false;
  std::vector<PortResult> results;
};

struct PortData {
  std::weak_ptr<Item> target;
  Item* item = nullptr;  // the target while it lives (checked through `target` before use)
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
  int running = 0;            // runs in progress (at different times)
  bool cycle_reported = false;
  // Evaluation state (krx/src/scene): order of connection (operators writing the same
  // target run in this order), its last runs by time, and the context its callbacks
  // receive.
  uint64_t connect_order = 0;
  std::array<OperatorRun, kCachedTimes> runs;
  uint32_t next_run = 0;
  std::shared_ptr<ContextItem> context;
  // The plug-in's _Update, resolved when the operator is initialised and again only when
  // the loaded callbacks change (`update_generation`, see CallbackGeneration).
  CallbackFn update = nullptr;
  uint64_t update_generation = 0;
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
  // The object of the kinematic state being written (null for other outputs) and which
  // state: GetOutputTransform gives its value before the operator's write.
  ObjectItem* output_object = nullptr;
  bool output_global = false;
};

// Class tests by ID, for the evaluation's and the handles' hot paths.
inline bool IsObjectClass(ClassID cls) {
  switch (cls) {
    case ClassID::X3DObject:
    case ClassID::Model:
    case ClassID::Null:
    case ClassID::Primitive:
    case ClassID::Curve:
    case ClassID::ChainRoot:
    case ClassID::ChainBone:
    case ClassID::ChainEffector:
      return true;
    default:
      return false;
  }
}

template <typename T>
bool ItemIs(const Item& item) {
  return dynamic_cast<const T*>(&item) != nullptr;
}
template <>
inline bool ItemIs<Item>(const Item&) {
  return true;
}
template <>
inline bool ItemIs<ObjectItem>(const Item& item) {
  return IsObjectClass(item.cls);
}
template <>
inline bool ItemIs<ParamItem>(const Item& item) {
  return item.cls == ClassID::Parameter;
}
template <>
inline bool ItemIs<KineStateItem>(const Item& item) {
  return item.cls == ClassID::KinematicState;
}
template <>
inline bool ItemIs<BlobItem>(const Item& item) {
  return item.cls == ClassID::UserDataBlob;
}
template <>
inline bool ItemIs<OperatorItem>(const Item& item) {
  return item.cls == ClassID::CustomOperator;
}
template <>
inline bool ItemIs<ContextItem>(const Item& item) {
  return item.cls == ClassID::Context;
}
template <>
inline bool ItemIs<FCurveItem>(const Item& item) {
  return item.cls == ClassID::FCurve;
}

}  // namespace KRX::rt

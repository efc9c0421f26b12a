// The runtime's scene items. SDK handles hold weak references to these; the ownership
// tree (scene root -> objects -> properties -> parameters, operators owned by their first
// output) holds the strong ones, so deleting an item from its owner invalidates every
// handle on it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "krx/krx.h"

namespace KRX::rt {

struct Item : std::enable_shared_from_this<Item> {
  explicit Item(ClassID c) : cls(c) {}
  virtual ~Item() = default;
  Item(const Item&) = delete;
  Item& operator=(const Item&) = delete;

  ClassID cls;
  std::wstring type;        // host type text ("#model", "null", "customparamset", ...)
  CString name;
  Item* owner = nullptr;    // owning item; null for the scene root and detached items
  bool deleted = false;     // set when removed from the scene
  // Parameters (ProjectItem), in order.
  std::vector<std::shared_ptr<Item>> params;
  // Properties (SceneItem), in order. An object's kinematics is its first property.
  std::vector<std::shared_ptr<Item>> properties;
  // Operators whose first output is this item (kinematic states, parameters, blobs,
  // curve geometry).
  std::vector<std::shared_ptr<Item>> operators;
};

struct FCurveItem : Item {
  FCurveItem() : Item(ClassID::FCurve) { type = L"FCurve"; }
  std::vector<FCurveKeyData> keys;  // sorted by time
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
  std::shared_ptr<FCurveItem> fcurve;          // animation source when set
  std::optional<CString> expression;           // animation source when set
  std::optional<GridTable> grid;               // grid parameters only
  // A put on an animated parameter: seen by reads at `transient_time` only.
  std::optional<CValue> transient_value;
  double transient_time = 0.0;
};

struct BlobItem : Item {
  BlobItem() : Item(ClassID::UserDataBlob) { type = L"UserDataBlob"; }
  std::vector<uint8_t> bytes;
};

struct ObjectItem;

// Local or global kinematic state of an object. The local one holds the kinematic
// parameters; the global one none (it is derived).
struct KineStateItem : Item {
  KineStateItem() : Item(ClassID::KinematicState) {}
  bool global = false;
  ObjectItem* object = nullptr;
};

struct KinematicsItem : Item {
  KinematicsItem() : Item(ClassID::Kinematics) { type = L"kine"; name = L"kine"; }
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
};

struct ObjectItem : Item {
  explicit ObjectItem(ClassID c) : Item(c) {}
  std::vector<std::shared_ptr<ObjectItem>> children;
  std::shared_ptr<KinematicsItem> kinematics;
  std::vector<MATH::CVector3> curve_points;  // curve objects: control points, own space
  EvalCache cache;
  bool evaluating = false;  // re-entrance guard while this object is being evaluated
};

struct PortData {
  std::weak_ptr<Item> target;
  CString name;
  CString group;
  bool output = false;
};

struct OperatorItem : Item {
  OperatorItem() : Item(ClassID::CustomOperator) { type = L"CustomOperator"; }
  CString op_type;          // the registered operator name ("RetargetOp", "ConnectionLine")
  bool scripted = false;    // a host scripted operator
  CString script, language;
  std::vector<PortData> ports;  // in the order added
  CString current_group;
  bool always_evaluate = false;
  bool connected = false;
  int construction_mode = 0;
  void* user_data = nullptr;    // per-instance data of the plug-in
  bool initialised = false;     // _Init ran, _Term pending
  bool running = false;         // cycle guard
  bool cycle_reported = false;
};

// What a callback receives. Created by the caller for the duration of one call (commands,
// menus, property callbacks) or kept per operator instance.
struct ContextItem : Item {
  ContextItem() : Item(ClassID::Context) { type = L"Context"; }
  std::weak_ptr<Item> source;
  std::map<std::wstring, CValue> attributes;  // "Arguments", "ReturnValue", ...
  void* user_data = nullptr;       // used when the context is not an operator's
  OperatorItem* op = nullptr;      // set for operator callbacks; user data then lives there
  double time = 0.0;               // operator evaluation time, frames
  int output_index = -1;           // operator output being written (index among outputs)
  // Operators write through the context; the evaluation applies the value afterwards.
  std::optional<MATH::CTransformation> output_transform;
  std::optional<CValue> output_value;
  std::optional<std::vector<MATH::CVector3>> output_points;
};

}  // namespace KRX::rt

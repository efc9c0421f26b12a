// Scene items: every object, property, parameter and operator of a scene is a runtime
// item; the classes here are light handles on one. A handle never keeps its item alive.
// A handle constructed from a reference of another family is invalid (IsValid false), so
// `Model(ref).IsValid()` tests both existence and kind. Calls on an invalid handle log
// nothing, change nothing and return empty values.
#pragma once

#include <cstdint>
#include <vector>

#include "krx/math.h"
#include "krx/value.h"

namespace KRX {

// Families for IsA. Values are written to scene files: be careful when changing them.
enum class ClassID : int {
  SIObject = 0,
  ProjectItem = 1,
  SceneItem = 2,
  X3DObject = 3,
  Model = 4,
  Null = 5,
  Primitive = 6,  // "Sphere", "Cube"
  Curve = 7,      // linear curve object
  ChainRoot = 8,
  ChainBone = 9,
  ChainEffector = 10,
  Property = 11,
  CustomProperty = 12,
  UserDataBlob = 13,
  Kinematics = 14,
  KinematicState = 15,
  Parameter = 16,
  Constraint = 17,
  FCurve = 18,
  Operator = 19,
  CustomOperator = 20,
  Project = 21,
  ScriptingObject = 22,
  Context = 23,
  Command = 24,
  Menu = 25,
  Expression = 26,
  Geometry = 27,
  Port = 28,
  PluginRegistrar = 29,
  PPGLayout = 30,
  PPGItem = 31,
  View = 32,    // a desktop view
  Layout = 33,  // a desktop layout
  Desktop = 34,
  ProgressBar = 35,
  // The host's own class code for chain bones, as class tests pass it: IsA of this code
  // is IsA(ChainBone).
  ChainBoneCode = 77,
};

class Parameter;
class Property;
class CustomProperty;
class Kinematics;
class KinematicState;
class Constraint;
class FCurve;
class GridData;

class CBase : public CRef {
 public:
  CBase() = default;
  explicit CBase(const CRef& r) : CRef(r) {}
  CBase(const CBase&) = default;
  CBase& operator=(const CBase&) = default;
  virtual ~CBase() = default;
  // True when the item exists and is of this handle's family.
  bool IsValid() const;
  bool IsA(ClassID id) const;
  CRef GetRef() const { return *this; }
  // The item when IsValid() holds, else null, with one look-up (for the runtime; the item
  // is opaque to plug-ins).
  std::shared_ptr<rt::Item> LockValid() const;

 protected:
  virtual ClassID HandleClass() const { return ClassID::SIObject; }
};

class SIObject : public CBase {
 public:
  using CBase::CBase;
  CString GetName() const;
  CStatus PutName(const CString& name);
  // Dotted path from the scene root's children: "Model.child", "Model.child.kine.local",
  // "Model.MyProp.param". The scene root's full name is its name.
  CString GetFullName() const;
  // Host type text: "#model", "null", "sphere", "cube", "crvlist", "root", "bone", "eff",
  // "customparamset", "UserDataBlob", "kine", "Parameter", "CustomOperator", ...
  CString GetType() const;
  CRef GetParent() const;
  // The owning item's model: the nearest model above (a model's own model is its parent
  // model; the scene root's model is itself).
  CRef GetModel() const;

 protected:
  ClassID HandleClass() const override { return ClassID::SIObject; }
};

class ProjectItem : public SIObject {
 public:
  using SIObject::SIObject;
  std::vector<Parameter> GetParameters() const;
  Parameter GetParameter(const CString& script_name) const;
  // The parameter's value at `time` (frames; kCurrentTime = the current frame).
  CValue GetParameterValue(const CString& script_name, double time = kCurrentTime) const;
  CStatus PutParameterValue(const CString& script_name, const CValue& value,
                            double time = kCurrentTime);

 protected:
  ClassID HandleClass() const override { return ClassID::ProjectItem; }
};

class SceneItem : public ProjectItem {
 public:
  using ProjectItem::ProjectItem;
  std::vector<Property> GetProperties() const;
  // Adds a property from a preset: "CustomProperty" (empty custom property),
  // "UserDataBlob", "Display Property", or the name of a property a plug-in registered
  // (its _Define callback then adds the parameters). `name` empty = the preset's default
  // name.
  Property AddProperty(const CString& preset, bool branch = false, const CString& name = L"");
  CustomProperty AddCustomProperty(const CString& name);

 protected:
  ClassID HandleClass() const override { return ClassID::SceneItem; }
};

class Property : public SceneItem {
 public:
  using SceneItem::SceneItem;

 protected:
  ClassID HandleClass() const override { return ClassID::Property; }
};

class X3DObject : public SceneItem {
 public:
  using SceneItem::SceneItem;
  Kinematics GetKinematics() const;
  std::vector<X3DObject> GetChildren() const;
  // Name match is exact; an empty name matches everything. `type` empty = any type.
  // Recursive searches go depth first, children in order.
  X3DObject FindChild(const CString& name = L"", const CString& type = L"",
                      bool recursive = true) const;
  std::vector<X3DObject> FindChildren(const CString& name = L"", const CString& type = L"",
                                      bool recursive = true) const;

  X3DObject AddNull(const CString& name = L"");
  X3DObject AddModel(const CString& name = L"");
  // "Sphere" or "Cube"; the primitive's parameters ("radius", "length") live on its
  // geometry property named after the primitive.
  X3DObject AddPrimitive(const CString& preset, const CString& name = L"");
  // A linear curve through the points (in this object's space), knots 0..n-1.
  X3DObject AddLinearCurve(const std::vector<MATH::CVector3>& points, const CString& name = L"");
  // Moves an existing object below this one, keeping its global pose.
  CStatus AddChild(const X3DObject& child);

  // Control points of a curve object, in its own space.
  std::vector<MATH::CVector3> GetCurvePoints() const;
  CStatus PutCurvePoints(const std::vector<MATH::CVector3>& points);

  // A two-dimensional IK chain below this object: a chain root at `root_position`, one
  // bone reaching to `end_position`, and an effector there (global positions). `normal`
  // is the chain's preferred bend normal. More bones are added with ChainRoot::AddBone.
  // Returns the chain root.
  X3DObject Add2DChain(const MATH::CVector3& root_position, const MATH::CVector3& end_position,
                       const MATH::CVector3& normal = MATH::CVector3(0.0, 0.0, 1.0),
                       const CString& name = L"");

  std::vector<Constraint> GetConstraints() const;
  // "Position" or "Orientation": the object follows `constraining`'s global position or
  // rotation when evaluated.
  Constraint AddConstraint(const CString& preset, const X3DObject& constraining);

 protected:
  ClassID HandleClass() const override { return ClassID::X3DObject; }
};

class Model : public X3DObject {
 public:
  using X3DObject::X3DObject;
  // This host keeps no animation mixer; the reference is always invalid.
  CRef GetMixer() const { return CRef(); }

 protected:
  ClassID HandleClass() const override { return ClassID::Model; }
};

class Null : public X3DObject {
 public:
  using X3DObject::X3DObject;

 protected:
  ClassID HandleClass() const override { return ClassID::Null; }
};

// The kinematics property of a 3D object.
class Kinematics : public Property {
 public:
  using Property::Property;
  KinematicState GetGlobal() const;
  KinematicState GetLocal() const;

 protected:
  ClassID HandleClass() const override { return ClassID::Kinematics; }
};

// The local state holds the parameters posx..posz, rotx..rotz (degrees), sclx..sclz,
// rotorder (0..5, see MATH::RotationOrder) and the neutral pose nposx..nsclz. The local
// transform is neutral pose composed with the local values: Mul(local, neutral). The
// global state is derived: Mul(local, parent's global).
class KinematicState : public ProjectItem {
 public:
  using ProjectItem::ProjectItem;
  // Evaluates everything that drives the object at `time` (curves, expressions,
  // constraints, IK, operators). kCurrentTime = the current frame.
  MATH::CTransformation GetTransform(double time = kCurrentTime) const;
  // A put on an animated parameter is seen by the reads that follow at that time; it does
  // not become a key and is gone once the scene is evaluated at another frame. A put on the
  // global state sets the local state against the parent's global.
  CStatus PutTransform(const MATH::CTransformation& transform, double time = kCurrentTime);
  // True for the global state, false for the local one.
  bool IsGlobal() const;
  // The 3D object this state belongs to.
  X3DObject GetObject() const;

 protected:
  ClassID HandleClass() const override { return ClassID::KinematicState; }
};

// The root of an IK chain. Its children are the chain's bones, each below the previous
// one, and the effector below the root. When the scene is evaluated, a chain whose
// effector has moved solves: a two-bone chain bends in the plane spanned by the root, the
// effector and the up-vector reference (or the chain's normal without one); the bones keep
// their lengths. An effector follows the last bone's end unless something drives it.
class ChainRoot : public X3DObject {
 public:
  using X3DObject::X3DObject;
  // Appends a bone ending at `end_position` (global) and moves the effector there.
  X3DObject AddBone(const MATH::CVector3& end_position, const CString& name = L"");
  std::vector<X3DObject> GetBones() const;
  X3DObject GetEffector() const;

 protected:
  ClassID HandleClass() const override { return ClassID::ChainRoot; }
};

// A bone of an IK chain. Its joint is the property "joint" with the parameters "roll"
// (degrees, the chain plane's roll about the root-effector line, on the first bone) and
// "chntype" (0 IK, 1 FK, 2 driven), readable and settable by name as
// "<bone full name>.joint.roll".
class ChainBone : public X3DObject {
 public:
  using X3DObject::X3DObject;
  ChainRoot GetRoot() const;
  X3DObject GetEffector() const;
  Property GetJoint() const;
  // The object whose position orients the chain plane; invalid when none.
  X3DObject GetUpVectorReference() const;
  CStatus PutUpVectorReference(const X3DObject& reference);
  // Bone length along its local X axis.
  double GetLength() const;

 protected:
  ClassID HandleClass() const override { return ClassID::ChainBone; }
};

class ChainEffector : public X3DObject {
 public:
  using X3DObject::X3DObject;
  ChainRoot GetRoot() const;

 protected:
  ClassID HandleClass() const override { return ClassID::ChainEffector; }
};

class Constraint : public Property {
 public:
  using Property::Property;
  std::vector<X3DObject> GetConstrainingObjects() const;
  // The object this constraint drives.
  X3DObject GetConstrained() const;

 protected:
  ClassID HandleClass() const override { return ClassID::Constraint; }
};

}  // namespace KRX

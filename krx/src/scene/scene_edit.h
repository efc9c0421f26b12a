// Scene editing and lookup for the rest of the runtime (host commands, scene files, the
// application). Everything here works on the active scene unless an item is passed in.
//
// Scene files may also build runtime items directly (as the scene reader does): the
// evaluation resolves what it needs lazily from the items' fields, so an item tree built
// by hand evaluates like one built through these functions, provided every 3D object has
// its kinematics with the local parameters posx..nsclz (see MakeObjectItem).
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "runtime/item.h"

namespace KRX::rt {

// ---- names ----

// "Model.child", "Model.child.kine.local.posx", "Model.child.Prop.param"; an object's full
// name is its model's full name and its own name (the scene root is left out); the scene
// root's full name is its name; the project's items start with the project's name.
CString FullNameOf(const Item& item);
// Resolves a full name in the active scene: objects, properties, parameters, kinematic
// states ("Obj.kine.local"), operators ("Obj.kine.local.OpName"), the project and its
// properties. Null when nothing matches or the item is deleted.
std::shared_ptr<Item> FindItemByFullName(const CString& full_name);

// The nearest model above the item (the scene root's model is itself); null for items
// outside the object tree (the project's items).
ObjectItem* ModelOf(const Item& item);

// `wanted` if no other item in the same name space holds it, else `wanted` with a number
// appended (a trailing number is counted up: "null" -> "null1" -> "null2"). Objects share
// their model's name space; properties, parameters and operators their owner's.
// `ignore` is left out of the comparison (an item being renamed).
CString UniqueObjectName(const ObjectItem& model, const CString& wanted,
                         const Item* ignore = nullptr);
CString UniqueMemberName(const std::vector<std::shared_ptr<Item>>& siblings, const CString& wanted,
                         const Item* ignore = nullptr);

// ---- walking ----

// Depth first over the item and everything it holds: for an object its properties (with
// their parameters, the kinematic states and their parameters, and function curves), its
// operators, then its children. `fn` returns false to stop the walk. Operators are
// visited where they are kept (with their first output's owner item).
bool ForEachItem(Item& item, const std::function<bool(Item&)>& fn);
// The whole active scene: the root with everything below, then the project.
void ForEachSceneItem(const std::function<bool(Item&)>& fn);

// ---- creation ----

// A new 3D object of `cls` with host type `type` below `parent` (null: detached), named
// uniquely from `name` (empty: `type`'s default name), with its kinematics ("kine" with
// local and global states and their parameters) and its "visibility" property.
std::shared_ptr<ObjectItem> MakeObjectItem(ObjectItem* parent, ClassID cls, const std::wstring& type,
                                           const CString& name);
// A parameter item (not attached to an owner).
std::shared_ptr<ParamItem> MakeParamItem(const CString& name, ValueType type, const CValue& value,
                                         int capabilities);

// A new, unconnected custom operator of a registered type, named after its type. It is
// kept in the scene's pending list until CustomOperator::Connect wires it.
std::shared_ptr<OperatorItem> CreateOperatorItem(const CString& op_type);
// A host scripted operator. "ConnectionLine" is evaluated natively (see
// connection_line.h); the script text of any scripted operator is kept, not run.
std::shared_ptr<OperatorItem> CreateScriptedOperator(const CString& name, const CString& script,
                                                     const CString& language);

// ---- deletion ----

// Deletes an object, a property (not kinematics), a parameter of a custom property, an
// operator or a function curve (the parameter keeps its value): removes it from its owner,
// marks it and everything below it deleted (handles on them become invalid), runs _Term of
// the operators that go with it and removes every operator whose ports name something
// deleted. Fails (nothing changes) for the scene root, the project, kinematics, kinematic
// states and their parameters.
CStatus DeleteItem(const std::shared_ptr<Item>& item);

// ---- time ----

// The current frame ("Play Control" "Current").
double CurrentFrame();
// Sets the current frame (ends transient puts; evaluated values change).
void SetCurrentFrame(double frame);

}  // namespace KRX::rt

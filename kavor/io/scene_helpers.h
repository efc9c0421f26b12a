// Scene helpers shared by the workflows: finding properties, models, constraints and
// operators, deleting and framing objects, reading the neutral pose, and drawing a
// connection line between two objects. Most of them run host commands by name, as a
// script would.
#pragma once

#include <vector>

#include "krx/krx.h"

namespace kavor {

// The first property of `object`, in order, whose name equals `name` exactly. False (and
// `out` untouched) when there is none. `out` may be null.
bool FindPropertyByName(const KRX::SceneItem& object, const KRX::CString& name, KRX::Property* out);

// Runs "DeleteObj" on the object of that name; true when the command succeeded.
bool DeleteByName(const KRX::CString& name);

// Deletes the first property of `item` named `name` with "DeleteObj"; false when there is
// none.
bool DeletePropertyByName(const KRX::SceneItem& item, const KRX::CString& name);

// Finds the object named `name` anywhere below `model` and deletes it with "DeleteObj".
// Returns whether it was found.
bool DeleteChildByName(const KRX::X3DObject& model, const KRX::CString& name);

// Removes every animation from the model's branch: selects the branch, runs
// "RemoveAllAnimation", deletes the mixer's animation tracks when the model has a mixer,
// and clears the selection.
void RemoveAnimation(const KRX::Model& model);

// Frames the models that FindModelsWithProperty(property_name, false) yields (all of them
// when none is selected), then clears the selection.
void FrameModels(const KRX::CString& property_name);

// The object's neutral pose from its local kinematics parameters at the current time:
// translation nposx..nposz, scaling nsclx..nsclz and rotation nrotx..nrotz (degrees),
// composed in the order of "rotorder" (an order outside 0..5 reads as XYZ).
KRX::MATH::CTransformation NeutralPose(const KRX::X3DObject& object);

// The object's global position at the current time.
KRX::MATH::CVector3 GlobalPosition(const KRX::X3DObject& object);

// Opens the property's page with "InspectObj" (modal) and tells whether it was confirmed.
bool InspectProperty(const KRX::Property& property);

// The object's first constraint of type "Position Cns" or "Orientation Cns"; an invalid
// handle when it has none.
KRX::Constraint FindPositionOrientationConstraint(const KRX::X3DObject& object);

// The model directly below the active scene root whose name equals `name` exactly; an
// invalid handle when there is none.
KRX::Model FindSceneModel(const KRX::CString& name);

// The model a selected item stands for: the item itself when it is a model ("#model"),
// otherwise the model that owns it.
KRX::Model ModelOfItem(const KRX::CRef& item);

// The models of the selected items, in selection order, each once. The scene root is left
// out.
std::vector<KRX::Model> SelectedModels();

// Runs "EnumElements" on `path` (the full name of an object's kinematic state, say) and
// gives the first element that is a custom operator named exactly `name`. False when
// `path` is empty or nothing matches. `out` may be null.
bool FindOperatorByName(const KRX::CString& path, const KRX::CString& name,
                        KRX::CustomOperator* out);

// The models that carry a property named exactly `name`:
//  1. every model directly below the scene root that carries it, in scene order;
//  2. none of them: the empty list;
//  3. (the model of a selected item is the item itself when it is a model, otherwise the
//     model that owns it)
//  4. `from_selection` false: the first selected item, in selection order, whose model is
//     in the list narrows the list to that model; otherwise the list stays whole;
//  5. `from_selection` true: the list is rebuilt from the selection, each selected item's
//     model in order, leaving out the scene root, models without the property and models
//     already listed; these models may lie anywhere in the scene.
std::vector<KRX::Model> FindModelsWithProperty(const KRX::CString& name, bool from_selection);

// Draws a line from `object1` to `object2` that follows them: a linear curve below
// `parent` whose two points sit at the objects' global positions, coloured `colour` (the
// "wirecol" of a local "Display Property"), kept up to date by a "ConnectionLine" operator
// and not selectable. Returns the curve (invalid when it could not be made).
KRX::X3DObject AddConnectionLine(KRX::X3DObject& parent, const KRX::X3DObject& object1,
                                 const KRX::X3DObject& object2, int colour);

}  // namespace kavor

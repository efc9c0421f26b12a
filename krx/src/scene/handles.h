// Helpers of the SDK handle implementations. Internal to krx/src/scene.
#pragma once

#include <memory>

#include "krx/krx.h"
#include "runtime/item.h"

namespace KRX::rt {

// The family relation of IsA: Model is-a X3DObject is-a SceneItem is-a ProjectItem is-a
// SIObject; CustomProperty, UserDataBlob, Kinematics, Constraint, Geometry are Properties
// (SceneItems); KinematicState and Parameter are ProjectItems; CustomOperator is-a
// Operator is-a ProjectItem; everything is-a SIObject.
bool ClassIsA(ClassID cls, ClassID family);

// The item behind a valid handle (alive, not deleted, of the handle's family) as T; null
// otherwise. The item stays alive while it is in the scene, which validity implies. One
// look-up of the reference, classes tested by ID.
template <typename T>
T* LiveAs(const CBase& handle) {
  const std::shared_ptr<Item> item = handle.LockValid();
  return item && ItemIs<T>(*item) ? static_cast<T*>(item.get()) : nullptr;
}

inline CRef RefOf(const std::shared_ptr<Item>& item) {
  return item ? CRef(std::weak_ptr<Item>(item)) : CRef();
}
inline CRef RefOf(Item* item) { return item ? CRef(item->weak_from_this()) : CRef(); }

}  // namespace KRX::rt

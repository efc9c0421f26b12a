// X3DObject, Kinematics, KinematicState and Constraint handles.
#include <cmath>

#include "krx/scene.h"
#include "runtime/log.h"
#include "scene/evaluation.h"
#include "scene/handles.h"
#include "scene/items.h"
#include "scene/scene_edit.h"

namespace KRX {

using rt::LiveAs;
using rt::RefOf;

namespace {

bool Matches(const rt::ObjectItem& object, const CString& name, const CString& type) {
  return (name.IsEmpty() || object.name == name) &&
         (type.IsEmpty() || CString(object.type) == type);
}

// Depth first, children in order; stops at the first match when `first_only`.
void Collect(const rt::ObjectItem& object, const CString& name, const CString& type, bool recursive,
             bool first_only, std::vector<X3DObject>& out) {
  for (const auto& child : object.children) {
    if (child->deleted) continue;
    if (Matches(*child, name, type)) {
      out.emplace_back(RefOf(child));
      if (first_only) return;
    }
    if (recursive) {
      Collect(*child, name, type, true, first_only, out);
      if (first_only && !out.empty()) return;
    }
  }
}

bool IsFinite(const std::vector<MATH::CVector3>& points) {
  for (const MATH::CVector3& p : points) {
    if (!std::isfinite(p.GetX()) || !std::isfinite(p.GetY()) || !std::isfinite(p.GetZ()))
      return false;
  }
  return true;
}

X3DObject Added(const std::shared_ptr<rt::ObjectItem>& object) {
  return object ? X3DObject(RefOf(object)) : X3DObject();
}

}  // namespace

// ---- X3DObject ----

Kinematics X3DObject::GetKinematics() const {
  const auto* object = LiveAs<rt::ObjectItem>(*this);
  return object && object->kinematics ? Kinematics(RefOf(object->kinematics)) : Kinematics();
}

std::vector<X3DObject> X3DObject::GetChildren() const {
  std::vector<X3DObject> out;
  const auto* object = LiveAs<rt::ObjectItem>(*this);
  if (!object) return out;
  for (const auto& child : object->children) {
    if (!child->deleted) out.emplace_back(RefOf(child));
  }
  return out;
}

X3DObject X3DObject::FindChild(const CString& name, const CString& type, bool recursive) const {
  std::vector<X3DObject> found;
  if (const auto* object = LiveAs<rt::ObjectItem>(*this))
    Collect(*object, name, type, recursive, true, found);
  return found.empty() ? X3DObject() : found.front();
}

std::vector<X3DObject> X3DObject::FindChildren(const CString& name, const CString& type,
                                               bool recursive) const {
  std::vector<X3DObject> found;
  if (const auto* object = LiveAs<rt::ObjectItem>(*this))
    Collect(*object, name, type, recursive, false, found);
  return found;
}

X3DObject X3DObject::AddNull(const CString& name) {
  auto* object = LiveAs<rt::ObjectItem>(*this);
  return object ? Added(rt::MakeObjectItem(object, ClassID::Null, L"null", name)) : X3DObject();
}

X3DObject X3DObject::AddModel(const CString& name) {
  auto* object = LiveAs<rt::ObjectItem>(*this);
  return object ? Added(rt::MakeObjectItem(object, ClassID::Model, L"#model", name)) : X3DObject();
}

X3DObject X3DObject::AddPrimitive(const CString& preset, const CString& name) {
  auto* object = LiveAs<rt::ObjectItem>(*this);
  if (!object) return X3DObject();
  std::shared_ptr<rt::ObjectItem> added = rt::AddPrimitiveItem(*object, preset, name);
  if (!added)
    rt::Log(CString(L"AddPrimitive: unknown primitive \"") + preset + CString(L"\""),
            kSeverityError);
  return Added(added);
}

X3DObject X3DObject::AddLinearCurve(const std::vector<MATH::CVector3>& points,
                                    const CString& name) {
  auto* object = LiveAs<rt::ObjectItem>(*this);
  if (!object || !IsFinite(points)) return X3DObject();
  std::shared_ptr<rt::ObjectItem> curve =
      rt::MakeObjectItem(object, ClassID::Curve, L"crvlist", name);
  curve->curve_points = points;
  return Added(curve);
}

CStatus X3DObject::AddChild(const X3DObject& child) {
  auto* parent = LiveAs<rt::ObjectItem>(*this);
  auto* moved = LiveAs<rt::ObjectItem>(child);
  if (!parent || !moved) return CStatus::InvalidArgument;
  if (!moved->owner) return CStatus::Fail;  // the scene root
  for (const rt::Item* up = parent; up; up = up->owner) {
    if (up == moved) return CStatus::Fail;  // below itself
  }
  if (moved->owner == parent) return CStatus::OK;
  const KinematicState global = child.GetKinematics().GetGlobal();
  const MATH::CTransformation pose = global.GetTransform(kCurrentTime);
  auto* old_parent = dynamic_cast<rt::ObjectItem*>(moved->owner);
  std::shared_ptr<rt::ObjectItem> keep =
      std::static_pointer_cast<rt::ObjectItem>(moved->shared_from_this());
  std::erase_if(old_parent->children, [moved](const auto& c) { return c.get() == moved; });
  rt::ObjectItem* model = parent->cls == ClassID::Model ? parent : rt::ModelOf(*parent);
  if (model) moved->name = rt::UniqueObjectName(*model, moved->name, moved);
  moved->owner = parent;
  parent->children.push_back(keep);
  rt::BumpTopology();
  KinematicState(global).PutTransform(pose, kCurrentTime);
  return CStatus::OK;
}

std::vector<MATH::CVector3> X3DObject::GetCurvePoints() const {
  auto* object = LiveAs<rt::ObjectItem>(*this);
  if (!object) return {};
  const rt::ReadScope scope(kCurrentTime, true);
  rt::NoteUpdateRead(*object);
  return rt::EvaluateCurvePoints(*object, scope.time());
}

CStatus X3DObject::PutCurvePoints(const std::vector<MATH::CVector3>& points) {
  auto* object = LiveAs<rt::ObjectItem>(*this);
  if (!object) return CStatus::Fail;
  if (!IsFinite(points)) return CStatus::InvalidArgument;
  object->curve_points = points;
  rt::Invalidate(*object);
  return CStatus::OK;
}

std::vector<Constraint> X3DObject::GetConstraints() const {
  std::vector<Constraint> out;
  const auto* object = LiveAs<rt::ObjectItem>(*this);
  if (!object) return out;
  for (const auto& property : object->properties) {
    if (!property->deleted && property->cls == ClassID::Constraint)
      out.emplace_back(RefOf(property));
  }
  return out;
}

Constraint X3DObject::AddConstraint(const CString& preset, const X3DObject& constraining) {
  auto* object = LiveAs<rt::ObjectItem>(*this);
  auto* source = LiveAs<rt::ObjectItem>(constraining);
  if (!object || !source || source == object) return Constraint();
  const wchar_t* type = nullptr;
  if (preset.IsEqualNoCase(L"Position")) {
    type = L"Position Cns";
  } else if (preset.IsEqualNoCase(L"Orientation")) {
    type = L"Orientation Cns";
  } else {
    rt::Log(CString(L"AddConstraint: unknown constraint \"") + preset + CString(L"\""),
            kSeverityError);
    return Constraint();
  }
  auto constraint = std::make_shared<rt::ConstraintItem>();
  constraint->type = type;
  constraint->name = rt::UniqueMemberName(object->properties, type);
  constraint->owner = object;
  constraint->constrained = object;
  constraint->constraining.push_back(source->weak_from_this());
  object->properties.push_back(constraint);
  rt::BumpTopology();
  return Constraint(RefOf(constraint));
}

// ---- Kinematics ----

KinematicState Kinematics::GetGlobal() const {
  const auto* kine = LiveAs<rt::KinematicsItem>(*this);
  return kine && kine->global ? KinematicState(RefOf(kine->global)) : KinematicState();
}

KinematicState Kinematics::GetLocal() const {
  const auto* kine = LiveAs<rt::KinematicsItem>(*this);
  return kine && kine->local ? KinematicState(RefOf(kine->local)) : KinematicState();
}

// ---- KinematicState ----

MATH::CTransformation KinematicState::GetTransform(double time) const {
  // Runs once per frame and object when a take is walked: one lock, no lookups by name.
  std::shared_ptr<rt::Item> item = Lock();
  if (!item || item->deleted || item->cls != ClassID::KinematicState)
    return MATH::CTransformation();
  auto* state = static_cast<rt::KineStateItem*>(item.get());
  if (!state->object) return MATH::CTransformation();
  const rt::ReadScope scope(time, true);
  rt::NoteUpdateRead(*state);
  const rt::Pose pose = rt::EvaluateObject(*state->object, scope.time());
  return state->global ? pose.global : pose.local;
}

CStatus KinematicState::PutTransform(const MATH::CTransformation& transform, double time) {
  auto* state = LiveAs<rt::KineStateItem>(*this);
  if (!state) return CStatus::Fail;
  const rt::ReadScope scope(time);
  return rt::PutStateTransform(*state, transform, scope.time());
}

bool KinematicState::IsGlobal() const {
  const auto* state = LiveAs<rt::KineStateItem>(*this);
  return state && state->global;
}

X3DObject KinematicState::GetObject() const {
  const auto* state = LiveAs<rt::KineStateItem>(*this);
  return state ? X3DObject(RefOf(state->object)) : X3DObject();
}

// ---- Constraint ----

std::vector<X3DObject> Constraint::GetConstrainingObjects() const {
  std::vector<X3DObject> out;
  const auto* constraint = LiveAs<rt::ConstraintItem>(*this);
  if (!constraint) return out;
  for (const auto& weak : constraint->constraining) {
    std::shared_ptr<rt::Item> item = weak.lock();
    if (item && !item->deleted) out.emplace_back(RefOf(item));
  }
  return out;
}

X3DObject Constraint::GetConstrained() const {
  const auto* constraint = LiveAs<rt::ConstraintItem>(*this);
  return constraint ? X3DObject(RefOf(constraint->constrained)) : X3DObject();
}

}  // namespace KRX

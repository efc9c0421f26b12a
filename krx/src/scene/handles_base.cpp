// CBase, SIObject, ProjectItem and SceneItem handles.
#include "krx/property.h"
#include "krx/scene.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"
#include "scene/evaluation.h"
#include "scene/handles.h"
#include "scene/items.h"
#include "scene/scene_edit.h"

namespace KRX {

namespace rt {

namespace {

ClassID ParentClass(ClassID cls) {
  switch (cls) {
    case ClassID::ProjectItem:
      return ClassID::SIObject;
    case ClassID::SceneItem:
      return ClassID::ProjectItem;
    case ClassID::X3DObject:
      return ClassID::SceneItem;
    case ClassID::Model:
    case ClassID::Null:
    case ClassID::Primitive:
    case ClassID::Curve:
    case ClassID::ChainRoot:
    case ClassID::ChainBone:
    case ClassID::ChainEffector:
      return ClassID::X3DObject;
    case ClassID::Property:
      return ClassID::SceneItem;
    case ClassID::CustomProperty:
    case ClassID::UserDataBlob:
    case ClassID::Kinematics:
    case ClassID::Constraint:
    case ClassID::Geometry:
      return ClassID::Property;
    case ClassID::KinematicState:
    case ClassID::Parameter:
    case ClassID::Operator:
      return ClassID::ProjectItem;
    case ClassID::CustomOperator:
      return ClassID::Operator;
    case ClassID::Project:
      return ClassID::SceneItem;
    default:
      return ClassID::SIObject;
  }
}

// Items with fewer parameters than this are searched in order.
constexpr size_t kIndexedParamCount = 8;

// The first parameter of that name, not deleted.
ParamItem* FindOwnParam(Item& item, const CString& name) {
  if (item.params.size() < kIndexedParamCount) {
    for (const auto& param : item.params) {
      if (!param->deleted && param->name == name && param->cls == ClassID::Parameter) {
        return static_cast<ParamItem*>(param.get());
      }
    }
    return nullptr;
  }
  if (!item.param_index) item.param_index = std::make_unique<ParamIndex>();
  ParamIndex& index = *item.param_index;
  if (index.stamp != StructureStamp()) {
    index.by_name.clear();
    for (const auto& param : item.params) {
      if (!param->deleted && param->cls == ClassID::Parameter) {
        index.by_name.emplace(param->name.GetWideString(), static_cast<ParamItem*>(param.get()));
      }
    }
    index.stamp = StructureStamp();
  }
  auto it = index.by_name.find(name.GetWideString());
  return it == index.by_name.end() || it->second->deleted ? nullptr : it->second;
}

ParamItem* FindParam(Item& item, const CString& name) {
  if (ParamItem* own = FindOwnParam(item, name)) return own;
  // A primitive's size parameters are reached from the object itself.
  if (IsObjectClass(item.cls)) {
    for (const auto& property : item.properties) {
      if (property->deleted || property->cls != ClassID::Geometry) continue;
      for (const auto& param : property->params) {
        if (!param->deleted && param->name == name) return dynamic_cast<ParamItem*>(param.get());
      }
    }
  }
  return nullptr;
}

}  // namespace

bool ClassIsA(ClassID cls, ClassID family) {
  if (family == ClassID::ChainBoneCode) family = ClassID::ChainBone;
  for (ClassID c = cls;; c = ParentClass(c)) {
    if (c == family) return true;
    if (c == ClassID::SIObject) return false;
  }
}

}  // namespace rt

using rt::LiveAs;
using rt::RefOf;

bool CBase::IsValid() const {
  std::shared_ptr<rt::Item> item = Lock();
  return item && !item->deleted && rt::ClassIsA(item->cls, HandleClass());
}

std::shared_ptr<rt::Item> CBase::LockValid() const {
  std::shared_ptr<rt::Item> item = Lock();
  if (!item || item->deleted || !rt::ClassIsA(item->cls, HandleClass())) return nullptr;
  return item;
}

bool CBase::IsA(ClassID id) const {
  std::shared_ptr<rt::Item> item = Lock();
  return item && !item->deleted && rt::ClassIsA(item->cls, id);
}

// ---- SIObject ----

CString SIObject::GetName() const {
  const rt::Item* item = LiveAs<rt::Item>(*this);
  return item ? item->name : CString();
}

CStatus SIObject::PutName(const CString& name) {
  rt::Item* item = LiveAs<rt::Item>(*this);
  if (!item) return CStatus::Fail;
  if (name.IsEmpty() || name.FindString(L".") != CString::npos) return CStatus::InvalidArgument;
  if (name == item->name) return CStatus::OK;
  const rt::Scene& scene = rt::ActiveScene();
  if (item == scene.root.get() || item == scene.project.get()) return CStatus::Fail;
  if (dynamic_cast<rt::KinematicsItem*>(item) || dynamic_cast<rt::KineStateItem*>(item)) {
    return CStatus::Fail;
  }
  if (auto* object = dynamic_cast<rt::ObjectItem*>(item)) {
    rt::ObjectItem* model = rt::ModelOf(*object);
    item->name = model ? rt::UniqueObjectName(*model, name, item) : name;
  } else if (dynamic_cast<rt::ParamItem*>(item)) {
    if (item->owner) {
      for (const auto& sibling : item->owner->params) {
        if (sibling.get() != item && !sibling->deleted && sibling->name == name)
          return CStatus::Fail;
      }
    }
    item->name = name;
  } else if (item->owner && !dynamic_cast<rt::OperatorItem*>(item)) {
    item->name = rt::UniqueMemberName(item->owner->properties, name, item);
  } else {
    item->name = name;
  }
  rt::BumpStructure();
  return CStatus::OK;
}

CString SIObject::GetFullName() const {
  const rt::Item* item = LiveAs<rt::Item>(*this);
  return item ? rt::FullNameOf(*item) : CString();
}

CString SIObject::GetType() const {
  const rt::Item* item = LiveAs<rt::Item>(*this);
  return item ? CString(item->type) : CString();
}

CRef SIObject::GetParent() const {
  const rt::Item* item = LiveAs<rt::Item>(*this);
  return item ? RefOf(item->owner) : CRef();
}

CRef SIObject::GetModel() const {
  const rt::Item* item = LiveAs<rt::Item>(*this);
  return item ? RefOf(rt::ModelOf(*item)) : CRef();
}

// ---- ProjectItem ----

std::vector<Parameter> ProjectItem::GetParameters() const {
  std::vector<Parameter> out;
  const rt::Item* item = LiveAs<rt::Item>(*this);
  if (!item) return out;
  for (const auto& param : item->params) {
    if (!param->deleted) out.emplace_back(RefOf(param));
  }
  return out;
}

Parameter ProjectItem::GetParameter(const CString& script_name) const {
  rt::Item* item = LiveAs<rt::Item>(*this);
  rt::ParamItem* param = item ? rt::FindParam(*item, script_name) : nullptr;
  return param ? Parameter(RefOf(param)) : Parameter();
}

CValue ProjectItem::GetParameterValue(const CString& script_name, double time) const {
  rt::Item* item = LiveAs<rt::Item>(*this);
  rt::ParamItem* param = item ? rt::FindParam(*item, script_name) : nullptr;
  if (!param) return CValue();
  const rt::ReadScope scope(time);
  rt::NoteUpdateRead(*param);
  return rt::EvaluateParamValue(*param, scope.time());
}

CStatus ProjectItem::PutParameterValue(const CString& script_name, const CValue& value,
                                       double time) {
  rt::Item* item = LiveAs<rt::Item>(*this);
  if (!item) return CStatus::Fail;
  rt::ParamItem* param = rt::FindParam(*item, script_name);
  if (!param) return CStatus::InvalidArgument;
  const rt::ReadScope scope(time);
  return rt::PutParamValue(*param, value, scope.time());
}

// ---- SceneItem ----

std::vector<Property> SceneItem::GetProperties() const {
  std::vector<Property> out;
  const rt::Item* item = LiveAs<rt::Item>(*this);
  if (!item) return out;
  for (const auto& property : item->properties) {
    if (!property->deleted) out.emplace_back(RefOf(property));
  }
  return out;
}

Property SceneItem::AddProperty(const CString& preset, bool /*branch*/, const CString& name) {
  rt::Item* item = LiveAs<rt::Item>(*this);
  if (!item) return Property();
  std::shared_ptr<rt::Item> property = rt::AddPropertyPreset(*item, preset, name);
  if (!property) {
    rt::Log(CString(L"AddProperty: unknown property preset \"") + preset + CString(L"\""),
            kSeverityError);
    return Property();
  }
  return Property(RefOf(property));
}

CustomProperty SceneItem::AddCustomProperty(const CString& name) {
  rt::Item* item = LiveAs<rt::Item>(*this);
  if (!item) return CustomProperty();
  return CustomProperty(RefOf(rt::AddCustomPropertyItem(*item, name)));
}

}  // namespace KRX

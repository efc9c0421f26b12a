// Building IK chains and the SDK's chain handles.
#include <cmath>

#include "scene/chains.h"
#include "scene/evaluation.h"
#include "scene/handles.h"
#include "scene/items.h"
#include "scene/scene_edit.h"

namespace KRX {

namespace {

using MATH::CRotation;
using MATH::CTransformation;
using MATH::CVector3;

// The rotation whose X axis is `x` and whose Z axis lies along `normal` (made square to x).
CRotation BoneRotation(const CVector3& x, const CVector3& normal) {
  CRotation rotation;
  rt::BoneFrame(x, normal.Cross(x), rotation);
  return rotation;
}

void AddNumber(CustomProperty& property, const wchar_t* name, ValueType type, const CValue& value) {
  property.AddParameter(name, type, kCapPersistable | kCapAnimatable, name, L"", value);
}

// A bone below `parent` starting at the parent's end (`offset` along the parent's X; 0 for
// the first bone), with the given world rotation and length.
X3DObject AddBoneObject(const X3DObject& parent, const CRotation& parent_rotation, double offset,
                        const CRotation& world_rotation, double length, const CString& name) {
  auto* parent_item = rt::LiveAs<rt::ObjectItem>(parent);
  if (!parent_item) return X3DObject();
  X3DObject bone(rt::RefOf(rt::MakeObjectItem(parent_item, ClassID::ChainBone, L"bone",
                                              name.IsEmpty() ? CString(L"bone") : name)));
  CTransformation local;
  local.SetTranslationFromValues(offset, 0.0, 0.0);
  local.SetRotation(CRotation::Mul(world_rotation, parent_rotation.Inverse()));
  bone.GetKinematics().GetLocal().PutTransform(local);
  CustomProperty joint = bone.AddCustomProperty(rt::kJointProperty);
  AddNumber(joint, L"roll", ValueType::Double, CValue(0.0));
  AddNumber(joint, L"chntype", ValueType::Int, CValue(0));
  AddNumber(joint, L"length", ValueType::Double, CValue(length));
  joint.AddParameter(L"upvector", ValueType::String, kCapPersistable, L"upvector", L"",
                     CValue(L""));
  return bone;
}

void PlaceAt(const X3DObject& object, const CVector3& position) {
  CTransformation t = object.GetKinematics().GetGlobal().GetTransform();
  t.SetTranslation(position);
  object.GetKinematics().GetGlobal().PutTransform(t);
}

void PutNormal(ChainRoot& root, const CVector3& world_normal) {
  const CVector3 local = root.GetKinematics()
                             .GetGlobal()
                             .GetTransform()
                             .GetRotation()
                             .Inverse()
                             .GetQuaternion()
                             .Rotate(world_normal);
  Property chain;
  for (const Property& p : root.GetProperties()) {
    if (p.GetName() == CString(rt::kChainProperty)) chain = p;
  }
  chain.PutParameterValue(L"normalx", CValue(local.GetX()));
  chain.PutParameterValue(L"normaly", CValue(local.GetY()));
  chain.PutParameterValue(L"normalz", CValue(local.GetZ()));
}

CVector3 WorldNormal(const ChainRoot& root) {
  Property chain;
  for (const Property& p : root.GetProperties()) {
    if (p.GetName() == CString(rt::kChainProperty)) chain = p;
  }
  const CVector3 local(chain.GetParameterValue(L"normalx").GetDouble(),
                       chain.GetParameterValue(L"normaly").GetDouble(),
                       chain.GetParameterValue(L"normalz").GetDouble());
  return root.GetKinematics().GetGlobal().GetTransform().GetRotation().GetQuaternion().Rotate(
      local);
}

}  // namespace

X3DObject X3DObject::Add2DChain(const CVector3& root_position, const CVector3& end_position,
                                const CVector3& normal, const CString& name) {
  auto* parent = rt::LiveAs<rt::ObjectItem>(*this);
  if (!parent) return X3DObject();
  ChainRoot root(rt::RefOf(rt::MakeObjectItem(parent, ClassID::ChainRoot, L"root",
                                              name.IsEmpty() ? CString(L"root") : name)));
  CTransformation placed;
  placed.SetTranslation(root_position);
  root.GetKinematics().GetGlobal().PutTransform(placed);
  CustomProperty chain = root.AddCustomProperty(rt::kChainProperty);
  AddNumber(chain, L"normalx", ValueType::Double, CValue(0.0));
  AddNumber(chain, L"normaly", ValueType::Double, CValue(0.0));
  AddNumber(chain, L"normalz", ValueType::Double, CValue(1.0));
  PutNormal(root, normal);
  X3DObject effector(
      rt::RefOf(rt::MakeObjectItem(rt::LiveAs<rt::ObjectItem>(root), ClassID::ChainEffector, L"eff",
                                   root.GetName() + CString(L"Eff"))));
  PlaceAt(effector, end_position);
  AddBoneObject(root, CRotation(), 0.0, BoneRotation(end_position - root_position, normal),
                (end_position - root_position).GetLength(), L"");
  return root;
}

X3DObject ChainRoot::AddBone(const CVector3& end_position, const CString& name) {
  const std::vector<X3DObject> bones = GetBones();
  if (bones.empty()) return X3DObject();
  const X3DObject effector = GetEffector();
  // Where the chain stands now, before the effector moves.
  std::vector<CTransformation> globals;
  for (const X3DObject& bone : bones)
    globals.push_back(bone.GetKinematics().GetGlobal().GetTransform());
  const ChainBone last(bones.back());
  const double last_length = last.GetLength();
  const CVector3 start = globals.back().GetTranslation();
  const CVector3 joint =
      start + globals.back().GetRotation().GetQuaternion().Rotate(CVector3(last_length, 0, 0));
  // The bend the new pose has becomes the chain's bend normal.
  const CVector3 segment_start = start;
  CVector3 dir = end_position - segment_start;
  CVector3 normal = WorldNormal(*this);
  if (dir.NormalizeInPlace()) {
    CVector3 bend = (joint - segment_start) - dir * (joint - segment_start).Dot(dir);
    if (bend.NormalizeInPlace()) {
      normal = dir.Cross(bend);
      PutNormal(*this, normal);
    }
  }
  X3DObject bone = AddBoneObject(last, globals.back().GetRotation(), last_length,
                                 BoneRotation(end_position - joint, normal),
                                 (end_position - joint).GetLength(), name);
  if (effector.IsValid()) PlaceAt(effector, end_position);
  return bone;
}

std::vector<X3DObject> ChainRoot::GetBones() const {
  std::vector<X3DObject> out;
  if (auto* root = rt::LiveAs<rt::ObjectItem>(*this)) {
    for (rt::ObjectItem* bone : rt::ChainBonesOf(*root)) out.emplace_back(rt::RefOf(bone));
  }
  return out;
}

X3DObject ChainRoot::GetEffector() const {
  auto* root = rt::LiveAs<rt::ObjectItem>(*this);
  rt::ObjectItem* effector = root ? rt::ChainEffectorOf(*root) : nullptr;
  return effector ? X3DObject(rt::RefOf(effector)) : X3DObject();
}

ChainRoot ChainBone::GetRoot() const {
  auto* bone = rt::LiveAs<rt::ObjectItem>(*this);
  rt::ObjectItem* root = bone ? rt::ChainRootOf(*bone) : nullptr;
  return root ? ChainRoot(rt::RefOf(root)) : ChainRoot();
}

X3DObject ChainBone::GetEffector() const { return GetRoot().GetEffector(); }

Property ChainBone::GetJoint() const {
  auto* bone = rt::LiveAs<rt::ObjectItem>(*this);
  rt::Item* joint = bone ? rt::FindChainProperty(*bone, rt::kJointProperty) : nullptr;
  return joint ? Property(rt::RefOf(joint)) : Property();
}

X3DObject ChainBone::GetUpVectorReference() const {
  auto* bone = rt::LiveAs<rt::ObjectItem>(*this);
  rt::ObjectItem* up = bone ? rt::UpVectorReferenceOf(*bone) : nullptr;
  return up ? X3DObject(rt::RefOf(up)) : X3DObject();
}

CStatus ChainBone::PutUpVectorReference(const X3DObject& reference) {
  Property joint = GetJoint();
  if (!joint.IsValid()) return CStatus::Fail;
  return joint.PutParameterValue(L"upvector",
                                 CValue(reference.IsValid() ? reference.GetFullName() : CString()));
}

double ChainBone::GetLength() const { return GetJoint().GetParameterValue(L"length").GetDouble(); }

ChainRoot ChainEffector::GetRoot() const {
  auto* effector = rt::LiveAs<rt::ObjectItem>(*this);
  auto* root = effector ? dynamic_cast<rt::ObjectItem*>(effector->owner) : nullptr;
  return root && root->cls == ClassID::ChainRoot ? ChainRoot(rt::RefOf(root)) : ChainRoot();
}

}  // namespace KRX

namespace KRX::rt {

Item* FindChainProperty(ObjectItem& object, const wchar_t* name) {
  for (const auto& property : object.properties) {
    if (!property->deleted && property->name.GetWideString() == name) return property.get();
  }
  return nullptr;
}

ObjectItem* ChainRootOf(ObjectItem& object) {
  ObjectItem* up = &object;
  for (int depth = 0; up && depth < 100000; ++depth) {
    if (up->cls == ClassID::ChainRoot) return up;
    if (up->cls != ClassID::ChainBone && up->cls != ClassID::ChainEffector) return nullptr;
    up = dynamic_cast<ObjectItem*>(up->owner);
  }
  return nullptr;
}

ObjectItem* NextChainBone(ObjectItem& object) {
  for (const auto& child : object.children) {
    if (!child->deleted && child->cls == ClassID::ChainBone) return child.get();
  }
  return nullptr;
}

std::vector<ObjectItem*> ChainBonesOf(ObjectItem& root) {
  std::vector<ObjectItem*> bones;
  for (ObjectItem* at = NextChainBone(root);
       at && bones.size() < static_cast<size_t>(kMaxChainBones); at = NextChainBone(*at)) {
    bones.push_back(at);
  }
  return bones;
}

ObjectItem* ChainEffectorOf(ObjectItem& root) {
  for (const auto& child : root.children) {
    if (!child->deleted && child->cls == ClassID::ChainEffector) return child.get();
  }
  return nullptr;
}

double ChainBoneLength(ObjectItem& bone, double time) {
  Item* joint = FindChainProperty(bone, kJointProperty);
  ParamItem* length = joint ? FindChainParam(*joint, L"length") : nullptr;
  return length ? EvaluateParamDouble(*length, time) : 0.0;
}

ObjectItem* UpVectorReferenceOf(ObjectItem& bone) {
  Item* joint = FindChainProperty(bone, kJointProperty);
  ParamItem* param = joint ? FindChainParam(*joint, L"upvector") : nullptr;
  const CString name = param ? param->value.GetString() : CString();
  if (name.IsEmpty()) return nullptr;
  auto* up = dynamic_cast<ObjectItem*>(FindItemByFullName(name).get());
  return up == &bone ? nullptr : up;
}

}  // namespace KRX::rt

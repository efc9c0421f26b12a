// Building scene items: objects with their kinematics, the project, property presets and
// operators.
#include "scene/items.h"

#include "runtime/callbacks.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"
#include "scene/scene_edit.h"

namespace KRX::rt {

const wchar_t* const kKineParamNames[kLocalKineParamCount] = {
    L"posx",  L"posy",  L"posz",  L"rotx",  L"roty",  L"rotz",  L"sclx",
    L"scly",  L"sclz",  L"rotorder", L"nposx", L"nposy", L"nposz", L"nrotx",
    L"nroty", L"nrotz", L"nsclx", L"nscly", L"nsclz"};

namespace {

constexpr int kAnimatable = kCapAnimatable | kCapPersistable;

bool IsScaleParam(size_t index) { return (index >= 6 && index < 9) || index >= 16; }

std::shared_ptr<KineStateItem> MakeKineState(ObjectItem& object, KinematicsItem& kine, bool global) {
  auto state = std::make_shared<KineStateItem>();
  state->name = global ? L"global" : L"local";
  state->type = L"KinematicState";
  state->global = global;
  state->object = &object;
  state->owner = &kine;
  const size_t count = global ? kGlobalKineParamCount : kLocalKineParamCount;
  for (size_t i = 0; i < count; ++i) {
    std::shared_ptr<ParamItem> param;
    if (i == kRotOrderIndex) {
      param = MakeParamItem(kKineParamNames[i], ValueType::Int, 0, kCapPersistable);
      param->min = 0;
      param->max = 5;
    } else {
      param = MakeParamItem(kKineParamNames[i], ValueType::Double, IsScaleParam(i) ? 1.0 : 0.0,
                            kAnimatable);
    }
    param->owner = state.get();
    state->params.push_back(std::move(param));
  }
  return state;
}

std::shared_ptr<Item> MakeBoolProperty(Item& owner, const wchar_t* name,
                                       std::initializer_list<const wchar_t*> params) {
  auto property = std::make_shared<Item>(ClassID::Property);
  property->name = name;
  property->type = name;
  property->owner = &owner;
  for (const wchar_t* p : params) {
    auto param = MakeParamItem(p, ValueType::Bool, true, kAnimatable);
    param->owner = property.get();
    property->params.push_back(std::move(param));
  }
  return property;
}

std::shared_ptr<Item> Attach(Item& owner, std::shared_ptr<Item> property, const CString& wanted) {
  property->name = UniqueMemberName(owner.properties, wanted);
  property->owner = &owner;
  owner.properties.push_back(property);
  BumpStructure();
  return property;
}

}  // namespace

std::shared_ptr<ParamItem> MakeParamItem(const CString& name, ValueType type, const CValue& value,
                                         int capabilities) {
  auto param = std::make_shared<ParamItem>();
  param->name = name;
  param->label = name;
  param->value_type = type;
  param->capabilities = capabilities;
  param->value = value;
  param->default_value = value;
  return param;
}

std::shared_ptr<ObjectItem> MakeObjectItem(ObjectItem* parent, ClassID cls, const std::wstring& type,
                                           const CString& name) {
  auto object = std::make_shared<ObjectItem>(cls);
  object->type = type;
  CString wanted = name;
  if (wanted.IsEmpty()) {
    if (type == L"#model") {
      wanted = L"Model";
    } else {
      wanted = CString(type);
    }
  }
  if (parent) {
    ObjectItem* model = parent->cls == ClassID::Model ? parent : ModelOf(*parent);
    object->name = model ? UniqueObjectName(*model, wanted) : wanted;
  } else {
    object->name = wanted;
  }
  auto kine = std::make_shared<KinematicsItem>();
  kine->owner = object.get();
  kine->local = MakeKineState(*object, *kine, false);
  kine->global = MakeKineState(*object, *kine, true);
  object->kinematics = kine;
  object->properties.push_back(kine);
  object->properties.push_back(
      MakeBoolProperty(*object, L"visibility", {L"viewvis", L"selectability", L"rendvis"}));
  if (parent) {
    object->owner = parent;
    parent->children.push_back(object);
    BumpStructure();
  }
  return object;
}

std::shared_ptr<Item> MakeProjectItem() {
  auto project = std::make_shared<Item>(ClassID::Project);
  project->name = L"Project";
  project->type = L"Project";
  auto play = std::make_shared<Item>(ClassID::Property);
  play->name = L"Play Control";
  play->type = L"PlayControl";
  play->owner = project.get();
  const std::pair<const wchar_t*, double> params[] = {
      {L"Current", 1.0}, {L"In", 1.0}, {L"Out", 100.0}, {L"Rate", 30.0}};
  for (const auto& [name, value] : params) {
    auto param = MakeParamItem(name, ValueType::Double, value, kCapPersistable);
    param->owner = play.get();
    play->params.push_back(std::move(param));
  }
  project->properties.push_back(std::move(play));
  return project;
}

std::shared_ptr<ParamItem> AddParamTo(Item& owner, const CString& name, ValueType type,
                                      const CValue& value, int capabilities) {
  if (name.IsEmpty()) return nullptr;
  for (const auto& p : owner.params) {
    if (p->name == name) return nullptr;
  }
  auto param = MakeParamItem(name, type, value, capabilities);
  param->owner = &owner;
  owner.params.push_back(param);
  BumpStructure();
  return param;
}

std::shared_ptr<Item> AddCustomPropertyItem(Item& owner, const CString& name) {
  auto property = std::make_shared<Item>(ClassID::CustomProperty);
  property->type = L"customparamset";
  return Attach(owner, std::move(property), name.IsEmpty() ? CString(L"CustomProperty") : name);
}

std::shared_ptr<Item> AddPropertyPreset(Item& owner, const CString& preset, const CString& name) {
  auto named = [&name](const wchar_t* fallback) { return name.IsEmpty() ? CString(fallback) : name; };
  if (preset.IsEqualNoCase(L"CustomProperty")) return AddCustomPropertyItem(owner, name);
  if (preset.IsEqualNoCase(L"UserDataBlob")) {
    return Attach(owner, std::make_shared<BlobItem>(), named(L"UserDataBlob"));
  }
  if (preset.IsEqualNoCase(L"Display Property")) {
    auto display = std::make_shared<Item>(ClassID::Property);
    display->type = L"display";
    auto wirecol = MakeParamItem(L"wirecol", ValueType::Int, 0, kCapPersistable);
    wirecol->min = 0;
    wirecol->max = 1023;
    wirecol->owner = display.get();
    display->params.push_back(std::move(wirecol));
    return Attach(owner, std::move(display), named(L"Display Property"));
  }
  if (IsRegisteredProperty(preset)) {
    auto property = std::make_shared<Item>(ClassID::CustomProperty);
    property->type = preset.GetWideString();
    Attach(owner, property, name.IsEmpty() ? preset : name);
    // The plug-in defines the parameters.
    auto context = std::make_shared<ContextItem>();
    context->source = property;
    CRef ref{std::weak_ptr<Item>(context)};
    InvokeCallback(preset, "_Define", ref);
    return property;
  }
  return nullptr;
}

std::shared_ptr<ObjectItem> AddPrimitiveItem(ObjectItem& parent, const CString& preset,
                                             const CString& name) {
  const wchar_t* type = nullptr;
  const wchar_t* param = nullptr;
  double value = 0.0;
  if (preset.IsEqualNoCase(L"Sphere")) {
    type = L"sphere", param = L"radius", value = 1.0;
  } else if (preset.IsEqualNoCase(L"Cube")) {
    type = L"cube", param = L"length", value = 8.0;
  } else {
    return nullptr;
  }
  std::shared_ptr<ObjectItem> object = MakeObjectItem(&parent, ClassID::Primitive, type, name);
  auto geometry = std::make_shared<Item>(ClassID::Geometry);
  geometry->name = type;
  geometry->type = L"geometry";
  geometry->owner = object.get();
  auto size = MakeParamItem(param, ValueType::Double, value, kAnimatable);
  size->min = 0.0;
  size->owner = geometry.get();
  geometry->params.push_back(std::move(size));
  object->properties.push_back(std::move(geometry));
  return object;
}

std::shared_ptr<OperatorItem> CreateOperatorItem(const CString& op_type) {
  if (op_type.IsEmpty()) return nullptr;
  auto op = std::make_shared<OperatorItem>();
  op->op_type = op_type;
  op->name = op_type;
  ActiveScene().pending_operators.push_back(op);
  return op;
}

std::shared_ptr<OperatorItem> CreateScriptedOperator(const CString& name, const CString& script,
                                                     const CString& language) {
  std::shared_ptr<OperatorItem> op = CreateOperatorItem(name);
  if (!op) return nullptr;
  op->scripted = true;
  op->script = script;
  op->language = language;
  op->type = L"ScriptedOperator";
  return op;
}

}  // namespace KRX::rt

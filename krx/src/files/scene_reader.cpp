#include "files/scene_reader.h"

#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "files/scene_format.h"
#include "files/scene_params.h"
#include "files/scene_values.h"
#include "files/text_codec.h"
#include "scene/scene_edit.h"

namespace KRX::rt::files {

namespace {

// Parameters that the evaluation of every 3D object reads from its local kinematic state.
constexpr const wchar_t* kKinematicParams[] = {L"posx",  L"posy",  L"posz",  L"rotx",  L"roty",
                                               L"rotz",  L"sclx",  L"scly",  L"sclz",  L"rotorder",
                                               L"nposx", L"nposy", L"nposz", L"nrotx", L"nroty",
                                               L"nrotz", L"nsclx", L"nscly", L"nsclz"};
constexpr const wchar_t* kPlayControlParams[] = {L"Current", L"In", L"Out", L"Rate"};

std::string Quote(const CString& text) { return "\"" + WideToUtf8(text.GetWideString()) + "\""; }

std::string Indexed(const char* list, size_t index) {
  return std::string(list) + "[" + std::to_string(index) + "]";
}

bool IsNumber(const CValue& v) {
  const ValueType t = v.GetType();
  return t == ValueType::Int || t == ValueType::Double || t == ValueType::Bool;
}

const ParamItem* FindParam(const Item& item, const wchar_t* name) {
  for (const auto& param : item.params) {
    if (param->name.GetWideString() == name) return dynamic_cast<const ParamItem*>(param.get());
  }
  return nullptr;
}

class SceneReader {
 public:
  SceneReader(const Json& doc, LoadedScene& out) : doc_(doc), out_(out) {}

  void Read() {
    r_.Object(doc_, "the document");
    ReadHeader();
    out_.scene = MakeEmptyScene();
    if (!out_.scene.root || !out_.scene.project) r_.Fail("the host made no empty scene");
    ReadObjects(r_.ArrayMember(doc_, "objects"));
    ReadProject(r_.ObjectMember(doc_, "project"));
    IndexNames();
    ResolveDeferred();
    ReadOperators(r_.ArrayMember(doc_, "operators"));
    ReadSelection(r_.ArrayMember(doc_, "selection"));
  }

 private:
  struct DeferredValue {
    CValue* slot;
    const Json* value;
    std::vector<std::string> path;
    std::string what;
  };
  struct DeferredConstraint {
    ConstraintItem* constraint;
    const Json* constraining;
    std::vector<std::string> path;
  };

  void ReadHeader() {
    const CString format = r_.TextMember(doc_, "format", kMaxNameLength);
    if (format != CString(kSceneFormatName)) {
      r_.Fail("not a scene file (format " + Quote(format) + ")");
    }
    const int64_t version = r_.IntegerMember(doc_, "version", 1, INT32_MAX);
    if (version > kSceneFormatVersion) {
      r_.Fail("the file is of format version " + std::to_string(version) +
              "; this program reads version " + std::to_string(kSceneFormatVersion) + " and older");
    }
  }

  ClassID ClassOf(const Json& record) {
    return static_cast<ClassID>(r_.IntegerMember(record, "class", 0, INT32_MAX));
  }

  std::wstring TypeOf(const Json& record) {
    CString type = r_.TextMember(record, "type", kMaxNameLength);
    for (wchar_t c : type.GetWideString()) {
      if (c < 0x20 || c == 0x7F) r_.Fail("\"type\" contains a control character");
    }
    return type.GetWideString();
  }

  // Reads a value now, or after every item exists when it holds a reference.
  void ReadValue(const Json& value, CValue* slot, const std::string& what) {
    if (ValueHasRef(value)) {
      deferred_values_.push_back({slot, &value, r_.Path(), what});
      return;
    }
    *slot = DecodeValue(r_, value, what,
                        [this](const CString&) -> CRef { r_.Fail("unexpected reference"); });
  }

  void ReadParams(Item& item, const Json& record) {
    const Json::array_t& list = r_.ArrayMember(record, "params");
    std::unordered_set<std::wstring> names;
    for (size_t i = 0; i < list.size(); ++i) {
      JsonReader::Scope scope(r_, Indexed("params", i));
      std::shared_ptr<ParamItem> param = DecodeParam(
          r_, list[i], item, [this](const Json& value, CValue* slot, const std::string& what) {
            ReadValue(value, slot, what);
          });
      if (!names.insert(param->name.GetWideString()).second) {
        r_.Fail("a second parameter named " + Quote(param->name));
      }
      item.params.push_back(std::move(param));
    }
  }

  // Name, type, parameters and properties of any item. `object` is the 3D object when the
  // item is one (its kinematics and constraints are read as such).
  void ReadItemBody(Item& item, const Json& record, int nesting, ObjectItem* object) {
    item.type = TypeOf(record);
    ReadParams(item, record);
    const Json::array_t& list = r_.ArrayMember(record, "properties");
    if (!list.empty() && nesting >= kMaxPropertyNesting) {
      r_.Fail("properties nest deeper than " + std::to_string(kMaxPropertyNesting) + " levels");
    }
    std::unordered_set<std::wstring> names;
    for (size_t i = 0; i < list.size(); ++i) {
      JsonReader::Scope scope(r_, Indexed("properties", i));
      std::shared_ptr<Item> property = ReadProperty(list[i], item, nesting, object, i);
      if (!names.insert(property->name.GetWideString()).second) {
        r_.Fail("a second property named " + Quote(property->name));
      }
      item.properties.push_back(std::move(property));
    }
    if (object && !object->kinematics) r_.Fail("the 3D object has no kinematics");
  }

  std::shared_ptr<Item> ReadProperty(const Json& record, Item& owner, int nesting,
                                     ObjectItem* object, size_t index) {
    r_.Object(record, "the property");
    const ClassID cls = ClassOf(record);
    const CString name = r_.NameMember(record, "name");
    r_.NameCurrent(name);
    std::shared_ptr<Item> property;
    switch (cls) {
      case ClassID::Kinematics: {
        if (!object || index != 0) r_.Fail("kinematics can only be a 3D object's first property");
        auto kine = std::make_shared<KinematicsItem>();
        object->kinematics = kine;
        property = kine;
        break;
      }
      case ClassID::UserDataBlob: {
        auto blob = std::make_shared<BlobItem>();
        const Json& bytes = r_.Member(record, "bytes");
        if (!bytes.is_string()) r_.Fail("\"bytes\" is not text");
        std::optional<std::vector<uint8_t>> decoded =
            DecodeBase64(bytes.get_ref<const std::string&>());
        if (!decoded) r_.Fail("\"bytes\" is not valid base64");
        blob->bytes = std::move(*decoded);
        property = blob;
        break;
      }
      case ClassID::Constraint: {
        if (!object) r_.Fail("a constraint can only be a 3D object's property");
        auto cns = std::make_shared<ConstraintItem>();
        cns->constrained = object;
        r_.ArrayMember(record, "constraining");
        deferred_constraints_.push_back({cns.get(), &r_.Member(record, "constraining"), r_.Path()});
        property = cns;
        break;
      }
      case ClassID::Property:
      case ClassID::CustomProperty:
      case ClassID::Geometry:
        property = std::make_shared<Item>(cls);
        break;
      default:
        r_.Fail("class " + std::to_string(static_cast<int>(cls)) + " is not a property class");
    }
    if (object && index == 0 && cls != ClassID::Kinematics) {
      r_.Fail("a 3D object's first property must be its kinematics");
    }
    property->name = name;
    property->owner = &owner;
    ReadItemBody(*property, record, nesting + 1, nullptr);
    if (auto kine = std::dynamic_pointer_cast<KinematicsItem>(property)) {
      kine->local = ReadKineState(record, "local", *kine, object, nesting + 1);
      kine->global = ReadKineState(record, "global", *kine, object, nesting + 1);
    }
    return property;
  }

  std::shared_ptr<KineStateItem> ReadKineState(const Json& kine_record, const char* key,
                                               KinematicsItem& kine, ObjectItem* object,
                                               int nesting) {
    JsonReader::Scope scope(r_, key);
    const Json& record = r_.ObjectMember(kine_record, key);
    if (ClassOf(record) != ClassID::KinematicState) r_.Fail("not a kinematic state");
    auto state = std::make_shared<KineStateItem>();
    state->name = r_.NameMember(record, "name");
    r_.NameCurrent(state->name);
    state->global = std::string(key) == "global";
    state->object = object;
    state->owner = &kine;
    ReadItemBody(*state, record, nesting, nullptr);
    return state;
  }

  void CheckKinematics(const ObjectItem& object) {
    JsonReader::Scope scope(r_, "properties[0]/local");
    for (const wchar_t* name : kKinematicParams) {
      const ParamItem* param = FindParam(*object.kinematics->local, name);
      if (!param || !IsNumber(param->value)) {
        r_.Fail("no numeric parameter " + Quote(CString(name)));
      }
    }
    const int order = FindParam(*object.kinematics->local, L"rotorder")->value.GetInt();
    if (order < 0 || order > 5) r_.Fail("\"rotorder\" is " + std::to_string(order) + ", not 0..5");
  }

  void ReadObjects(const Json::array_t& list) {
    if (list.empty()) r_.Fail("\"objects\" is empty: the scene root is missing");
    std::vector<int> depth(list.size(), 0);
    std::vector<std::unordered_set<std::wstring>> child_names(list.size());
    objects_.reserve(list.size());
    for (size_t i = 0; i < list.size(); ++i) {
      JsonReader::Scope scope(r_, Indexed("objects", i));
      const Json& record = r_.Object(list[i], "the object");
      const ClassID cls = ClassOf(record);
      const CString name = r_.NameMember(record, "name");
      r_.NameCurrent(name);
      std::shared_ptr<ObjectItem> object;
      if (i == 0) {
        if (r_.FindMember(record, "parent")) r_.Fail("the scene root has no parent");
        if (cls != ClassID::Model) r_.Fail("the scene root is not a model");
        object = out_.scene.root;
        object->params.clear();
        object->properties.clear();
        object->children.clear();
        object->kinematics.reset();
      } else {
        if (!IsObjectClass(cls)) {
          r_.Fail("class " + std::to_string(static_cast<int>(cls)) + " is not a 3D object class");
        }
        const auto parent =
            static_cast<size_t>(r_.IntegerMember(record, "parent", 0, static_cast<int64_t>(i) - 1));
        depth[i] = depth[parent] + 1;
        if (depth[i] > kMaxHierarchyDepth) {
          r_.Fail("the hierarchy is deeper than " + std::to_string(kMaxHierarchyDepth) + " levels");
        }
        if (!child_names[parent].insert(name.GetWideString()).second) {
          r_.Fail("a second child named " + Quote(name) + " under the same parent");
        }
        object = std::make_shared<ObjectItem>(cls);
        object->owner = objects_[parent];
        objects_[parent]->children.push_back(object);
      }
      object->name = name;
      ReadItemBody(*object, record, 0, object.get());
      CheckKinematics(*object);
      if (const Json* points = r_.FindMember(record, "curve_points")) {
        object->curve_points = ReadPoints(*points);
      }
      objects_.push_back(object.get());
    }
  }

  std::vector<MATH::CVector3> ReadPoints(const Json& value) {
    const Json::array_t& list = r_.Array(value, "\"curve_points\"");
    std::vector<MATH::CVector3> points;
    points.reserve(list.size());
    for (size_t i = 0; i < list.size(); ++i) {
      const std::string what = "curve point " + std::to_string(i);
      const Json::array_t& xyz = r_.Array(list[i], what);
      if (xyz.size() != 3) r_.Fail(what + " does not have 3 coordinates");
      points.emplace_back(r_.Number(xyz[0], what), r_.Number(xyz[1], what),
                          r_.Number(xyz[2], what));
    }
    return points;
  }

  void ReadProject(const Json& record) {
    JsonReader::Scope scope(r_, "project");
    if (ClassOf(record) != ClassID::Project) r_.Fail("not a project");
    Item& project = *out_.scene.project;
    project.name = r_.NameMember(record, "name");
    project.params.clear();
    project.properties.clear();
    ReadItemBody(project, record, 0, nullptr);
    const Item* play = nullptr;
    for (const auto& property : project.properties) {
      if (property->name == CString(L"Play Control")) play = property.get();
    }
    if (!play) r_.Fail("no \"Play Control\" property");
    for (const wchar_t* name : kPlayControlParams) {
      const ParamItem* param = FindParam(*play, name);
      if (!param || !IsNumber(param->value)) {
        r_.Fail("\"Play Control\" has no numeric parameter " + Quote(CString(name)));
      }
    }
    if (!(FindParam(*play, L"Rate")->value.GetDouble() > 0.0)) {
      r_.Fail("the \"Play Control\" rate is not positive");
    }
  }

  // Every item a reference can name, by full name; null marks a name that several carry.
  void Index(Item& item) {
    auto [it, added] = names_.emplace(FullNameOf(item).GetWideString(), &item);
    if (!added) it->second = nullptr;
  }

  void IndexItem(Item& item) {
    Index(item);
    for (const auto& param : item.params) Index(*param);
    for (const auto& property : item.properties) {
      IndexItem(*property);
      if (auto* kine = dynamic_cast<KinematicsItem*>(property.get())) {
        IndexItem(*kine->local);
        IndexItem(*kine->global);
      }
    }
  }

  void IndexNames() {
    for (ObjectItem* object : objects_) IndexItem(*object);
    IndexItem(*out_.scene.project);
  }

  Item* Resolve(const CString& full_name, const std::string& what) {
    auto it = names_.find(full_name.GetWideString());
    if (it == names_.end()) r_.Fail(what + " " + Quote(full_name) + " names nothing in the scene");
    if (!it->second) r_.Fail(what + " " + Quote(full_name) + " names more than one item");
    return it->second;
  }

  CRef ResolveRef(const CString& full_name, const std::string& what) {
    return CRef(std::weak_ptr<Item>(Resolve(full_name, what)->shared_from_this()));
  }

  void ResolveDeferred() {
    for (const DeferredValue& deferred : deferred_values_) {
      JsonReader::Reposition at(r_, deferred.path);
      *deferred.slot =
          DecodeValue(r_, *deferred.value, deferred.what, [this, &deferred](const CString& name) {
            return ResolveRef(name, deferred.what + " reference");
          });
    }
    for (const DeferredConstraint& deferred : deferred_constraints_) {
      JsonReader::Reposition at(r_, deferred.path);
      const Json::array_t& list = r_.Array(*deferred.constraining, "\"constraining\"");
      for (size_t i = 0; i < list.size(); ++i) {
        const std::string what = "constraining object " + std::to_string(i);
        Item* target = Resolve(r_.Text(list[i], what, kMaxTextLength), what);
        auto* object = dynamic_cast<ObjectItem*>(target);
        if (!object) r_.Fail(what + " is not a 3D object");
        if (object == deferred.constraint->constrained) r_.Fail("the object constrains itself");
        deferred.constraint->constraining.push_back(object->weak_from_this());
      }
    }
  }

  void ReadOperators(const Json::array_t& list) {
    for (size_t i = 0; i < list.size(); ++i) {
      JsonReader::Scope scope(r_, Indexed("operators", i));
      const Json& record = r_.Object(list[i], "the operator");
      const ClassID cls = ClassOf(record);
      if (cls != ClassID::CustomOperator && cls != ClassID::Operator) r_.Fail("not an operator");
      auto op = std::make_shared<OperatorItem>();
      op->cls = cls;
      op->name = r_.NameMember(record, "name");
      r_.NameCurrent(op->name);
      ReadItemBody(*op, record, 0, nullptr);
      op->op_type = r_.NameMember(record, "op_type");
      op->scripted = r_.BoolMember(record, "scripted");
      op->script = r_.TextMember(record, "script", kMaxTextLength);
      op->language = r_.TextMember(record, "language", kMaxNameLength);
      op->current_group = r_.TextMember(record, "current_group", kMaxNameLength);
      op->always_evaluate = r_.BoolMember(record, "always_evaluate");
      op->construction_mode =
          static_cast<int>(r_.IntegerMember(record, "construction_mode", INT32_MIN, INT32_MAX));
      ReadPorts(*op, r_.ArrayMember(record, "ports"));
      out_.operators.push_back(std::move(op));
    }
  }

  void ReadPorts(OperatorItem& op, const Json::array_t& list) {
    bool has_output = false;
    for (size_t i = 0; i < list.size(); ++i) {
      JsonReader::Scope scope(r_, Indexed("ports", i));
      const Json& record = r_.Object(list[i], "the port");
      PortData port;
      port.group = r_.TextMember(record, "group", kMaxNameLength);
      port.name = r_.TextMember(record, "name", kMaxNameLength);
      port.output = r_.BoolMember(record, "output");
      Item* target = Resolve(r_.TextMember(record, "target", kMaxTextLength), "the target");
      const bool connectable = target->cls == ClassID::KinematicState ||
                               target->cls == ClassID::Parameter ||
                               target->cls == ClassID::UserDataBlob || IsObjectClass(target->cls);
      if (!connectable) {
        r_.Fail("the target " + Quote(FullNameOf(*target)) + " cannot be connected to an operator");
      }
      port.target = target->weak_from_this();
      port.item = target;
      has_output = has_output || port.output;
      op.ports.push_back(std::move(port));
    }
    if (!has_output) r_.Fail("the operator has no output");
  }

  void ReadSelection(const Json::array_t& list) {
    for (size_t i = 0; i < list.size(); ++i) {
      JsonReader::Scope scope(r_, Indexed("selection", i));
      Item* item =
          Resolve(r_.Text(list[i], "the selected item", kMaxTextLength), "the selected item");
      out_.scene.selection.push_back(item->weak_from_this());
    }
  }

  const Json& doc_;
  LoadedScene& out_;
  JsonReader r_;
  std::vector<ObjectItem*> objects_;  // by index in the file
  std::vector<DeferredValue> deferred_values_;
  std::vector<DeferredConstraint> deferred_constraints_;
  std::unordered_map<std::wstring, Item*> names_;
};

}  // namespace

bool ReadSceneDocument(const Json& doc, LoadedScene* out, std::string* error) {
  try {
    SceneReader(doc, *out).Read();
  } catch (const DocumentError& e) {
    *error = e.message;
    return false;
  }
  return true;
}

}  // namespace KRX::rt::files

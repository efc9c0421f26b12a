#include "files/scene_writer.h"

#include <cmath>
#include <map>
#include <unordered_map>
#include <vector>

#include "files/scene_format.h"
#include "files/scene_params.h"
#include "files/scene_values.h"
#include "files/text_codec.h"
#include "scene/scene_edit.h"

namespace KRX::rt::files {

namespace {

std::string Utf8(const CString& text) { return WideToUtf8(text.GetWideString()); }

bool Alive(const Item* item) { return item && !item->deleted; }

class SceneWriter {
 public:
  explicit SceneWriter(const Scene& scene) : scene_(scene) {}

  OutJson Write() {
    IndexObject(*scene_.root);
    IndexItem(*scene_.project, 0);

    OutJson doc;
    doc["format"] = kSceneFormatName;
    doc["version"] = kSceneFormatVersion;
    OutJson objects = OutJson::array();
    WriteObject(*scene_.root, -1, objects);
    doc["objects"] = std::move(objects);
    doc["project"] = ItemRecord(*scene_.project, 0);
    OutJson operators = OutJson::array();
    writing_operators_ = true;
    for (const OperatorItem* op : operators_) {
      // An operator whose port lost its target cannot be connected again; the scene
      // removes such operators when the target goes, so this is only a safeguard.
      if (AllTargetsInScene(*op)) operators.push_back(OperatorRecord(*op));
    }
    doc["operators"] = std::move(operators);
    OutJson selection = OutJson::array();
    for (const std::weak_ptr<Item>& weak : scene_.selection) {
      std::shared_ptr<Item> item = weak.lock();
      if (IsInScene(item.get())) selection.push_back(NameOf(*item));
    }
    doc["selection"] = std::move(selection);
    return doc;
  }

 private:
  // First pass: every item that can be referred to, with its full name, and how many
  // items carry each name.
  void Index(const Item& item) {
    CString name = FullNameOf(item);
    ++name_counts_[name.GetWideString()];
    names_.emplace(&item, std::move(name));
  }

  void IndexItem(const Item& item, int nesting) {
    Index(item);
    for (const auto& param : item.params) Index(*param);
    for (const auto& property : item.properties) {
      if (nesting >= kMaxPropertyNesting) {
        throw DocumentError{"\"" + Utf8(FullNameOf(*property)) + "\" is nested deeper than " +
                            std::to_string(kMaxPropertyNesting) + " properties"};
      }
      IndexItem(*property, nesting + 1);
      if (auto kine = std::dynamic_pointer_cast<KinematicsItem>(property)) {
        if (kine->local) IndexItem(*kine->local, nesting + 1);
        if (kine->global) IndexItem(*kine->global, nesting + 1);
      }
    }
  }

  void IndexObject(const ObjectItem& object) {
    IndexItem(object, 0);
    for (const auto& child : object.children) {
      if (Alive(child.get())) IndexObject(*child);
    }
  }

  bool IsInScene(const Item* item) const { return Alive(item) && names_.count(item) != 0; }

  // The full name written for a reference. The name must find this one item when the file
  // is read.
  OutJson NameOf(const Item& item) {
    const CString& name = names_.at(&item);
    const int count = name_counts_.at(name.GetWideString());
    if (count != 1) {
      throw DocumentError{"\"" + Utf8(name) + "\" is the full name of " + std::to_string(count) +
                          " items; a reference to one of them could not be read back"};
    }
    return EncodeText(name);
  }

  OutJson RefRecord(const CRef& ref) {
    std::shared_ptr<Item> item = ref.Lock();
    return IsInScene(item.get()) ? NameOf(*item) : OutJson(nullptr);
  }

  OutJson Value(const CValue& value, const std::string& what) {
    return EncodeValue(
        value, [this](const CRef& ref) { return RefRecord(ref); }, what);
  }

  OutJson ParamRecord(const ParamItem& param) {
    CollectOperators(param);
    return EncodeParam(param, [this](const CRef& ref) { return RefRecord(ref); });
  }

  void CollectOperators(const Item& item) {
    if (writing_operators_) return;
    for (const auto& op : item.operators) {
      auto custom = std::dynamic_pointer_cast<OperatorItem>(op);
      if (custom && !custom->deleted) operators_.push_back(custom.get());
    }
  }

  OutJson ItemRecord(const Item& item, int nesting) {
    OutJson out;
    out["class"] = static_cast<int>(item.cls);
    out["type"] = EncodeText(CString(item.type));
    out["name"] = EncodeText(item.name);
    OutJson params = OutJson::array();
    for (const auto& param : item.params) {
      auto typed = std::dynamic_pointer_cast<ParamItem>(param);
      if (!typed) {
        throw DocumentError{"\"" + Utf8(FullNameOf(*param)) + "\" is not a parameter"};
      }
      params.push_back(ParamRecord(*typed));
    }
    out["params"] = std::move(params);
    OutJson properties = OutJson::array();
    for (const auto& property : item.properties) {
      properties.push_back(PropertyRecord(*property, nesting + 1));
    }
    out["properties"] = std::move(properties);
    CollectOperators(item);
    return out;
  }

  OutJson PropertyRecord(const Item& property, int nesting) {
    OutJson out = ItemRecord(property, nesting);
    if (const auto* kine = dynamic_cast<const KinematicsItem*>(&property)) {
      if (!kine->local || !kine->global) {
        throw DocumentError{"\"" + Utf8(FullNameOf(property)) + "\" lacks a kinematic state"};
      }
      out["local"] = ItemRecord(*kine->local, nesting + 1);
      out["global"] = ItemRecord(*kine->global, nesting + 1);
    } else if (const auto* blob = dynamic_cast<const BlobItem*>(&property)) {
      out["bytes"] = EncodeBase64(blob->bytes.data(), blob->bytes.size());
    } else if (const auto* cns = dynamic_cast<const ConstraintItem*>(&property)) {
      OutJson constraining = OutJson::array();
      for (const std::weak_ptr<Item>& weak : cns->constraining) {
        std::shared_ptr<Item> item = weak.lock();
        // A deleted constraining object no longer constrains anything.
        if (IsInScene(item.get())) constraining.push_back(NameOf(*item));
      }
      out["constraining"] = std::move(constraining);
    }
    return out;
  }

  void WriteObject(const ObjectItem& object, int parent, OutJson& objects) {
    OutJson out = ItemRecord(object, 0);
    if (parent >= 0) out["parent"] = parent;
    if (!object.curve_points.empty()) {
      const std::string what = "curve point of \"" + Utf8(FullNameOf(object)) + "\"";
      OutJson points = OutJson::array();
      for (const MATH::CVector3& p : object.curve_points) {
        OutJson point = OutJson::array();
        for (int axis = 0; axis < 3; ++axis) {
          if (!std::isfinite(p[axis])) throw DocumentError{what + " is not finite"};
          point.push_back(p[axis]);
        }
        points.push_back(std::move(point));
      }
      out["curve_points"] = std::move(points);
    }
    const int index = static_cast<int>(objects.size());
    objects.push_back(std::move(out));
    for (const auto& child : object.children) {
      if (Alive(child.get())) WriteObject(*child, index, objects);
    }
  }

  bool AllTargetsInScene(const OperatorItem& op) const {
    for (const PortData& port : op.ports) {
      if (!IsInScene(port.target.lock().get())) return false;
    }
    return true;
  }

  OutJson OperatorRecord(const OperatorItem& op) {
    OutJson out = ItemRecord(op, 0);
    out["op_type"] = EncodeText(op.op_type);
    out["scripted"] = op.scripted;
    out["script"] = EncodeText(op.script);
    out["language"] = EncodeText(op.language);
    out["current_group"] = EncodeText(op.current_group);
    out["always_evaluate"] = op.always_evaluate;
    out["construction_mode"] = op.construction_mode;
    OutJson ports = OutJson::array();
    for (const PortData& port : op.ports) {
      OutJson record;
      record["group"] = EncodeText(port.group);
      record["name"] = EncodeText(port.name);
      record["output"] = port.output;
      record["target"] = NameOf(*port.target.lock());
      ports.push_back(std::move(record));
    }
    out["ports"] = std::move(ports);
    return out;
  }

  const Scene& scene_;
  std::unordered_map<const Item*, CString> names_;
  std::map<std::wstring, int> name_counts_;
  std::vector<const OperatorItem*> operators_;
  // Operators are written after everything else; what they hold themselves is not
  // searched for more operators.
  bool writing_operators_ = false;
};

}  // namespace

bool WriteSceneDocument(const Scene& scene, OutJson* out, std::string* error) {
  if (!scene.root || !scene.project) {
    *error = "the scene has no root or no project";
    return false;
  }
  try {
    *out = SceneWriter(scene).Write();
  } catch (const DocumentError& e) {
    *error = e.message;
    return false;
  }
  return true;
}

}  // namespace KRX::rt::files

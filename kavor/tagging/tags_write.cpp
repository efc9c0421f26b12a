// Writing and removing tags.
#include <cctype>
#include <string>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/mocap_skeleton.h"
#include "kavor/maps/model_space.h"
#include "kavor/tagging/map_file.h"
#include "kavor/tagging/tags.h"

namespace kavor {

namespace {

using KRX::MATH::CVector3;

constexpr int kTagCapabilities = 6;
constexpr double kFloatLimit = 3.4028235e38;

void AddText(KRX::CustomProperty& tag, const wchar_t* name, const std::string& value) {
  tag.AddParameter(name, KRX::ValueType::String, kTagCapabilities, L"", L"", KRX::CValue(ToWide(value)));
}

// Tag directions are single-precision values on the property.
void AddDirection(KRX::CustomProperty& tag, const wchar_t* name, double value) {
  tag.AddParameter(name, KRX::ValueType::Double, kTagCapabilities, L"", L"",
                   KRX::CValue(static_cast<double>(static_cast<float>(value))),
                   KRX::CValue(-kFloatLimit), KRX::CValue(kFloatLimit), KRX::CValue(-kFloatLimit),
                   KRX::CValue(kFloatLimit));
}

void AddDirections(KRX::CustomProperty& tag, const CVector3& align, const CVector3& roll) {
  AddDirection(tag, L"alignx", align.GetX());
  AddDirection(tag, L"aligny", align.GetY());
  AddDirection(tag, L"alignz", align.GetZ());
  AddDirection(tag, L"rollx", roll.GetX());
  AddDirection(tag, L"rolly", roll.GetY());
  AddDirection(tag, L"rollz", roll.GetZ());
}

KRX::X3DObject FindObject(const KRX::X3DObject& model, const std::string& name) {
  if (name.empty()) return KRX::X3DObject();
  return model.FindChild(ToWide(name));
}

}  // namespace

void RemoveTags(const KRX::X3DObject& model) {
  for (const KRX::X3DObject& child : model.GetChildren()) {
    for (const wchar_t* name : {kTagProperty, kExtractionTagProperty}) {
      KRX::Property tag;
      if (FindPropertyByName(child, name, &tag)) DeleteByName(tag.GetFullName());
    }
    RemoveTags(child);
  }
}

bool CreateTagsFromPage(const KRX::Model& model, const ModelStructure& structure,
                        const KRX::CustomProperty& page, bool names_are_objects) {
  RemoveTags(model);
  const std::vector<KRX::Parameter> parameters = page.GetParameters();
  for (size_t i = 4; i < parameters.size(); ++i) {
    const std::string node = ToNarrow(parameters[i].GetScriptName());
    const std::string value = ToNarrow(parameters[i].GetValue().GetString());
    const std::string control = names_are_objects ? node : SplitTagValue(value, 1);
    const std::string extraction = names_are_objects ? std::string() : SplitTagValue(value, 2);
    KRX::X3DObject object = FindObject(model, control);
    if (!object.IsValid()) continue;

    KRX::Property existing;
    if (FindPropertyByName(object, kTagProperty, &existing)) {
      // An object chosen for a second node plays it as its override; "cog" never is one.
      if (node != "cog") KRX::CustomProperty(existing).PutParameterValue(L"override", KRX::CValue(ToWide(node)));
      continue;
    }
    CVector3 align, roll;
    ComputeTagAxes(node, structure, object, model, align, roll);
    KRX::CustomProperty tag = object.AddCustomProperty(kTagProperty);
    AddText(tag, L"tagname", node);
    AddText(tag, L"override", "");
    AddDirections(tag, align, roll);
    AddText(tag, L"tpose_transform",
            FormatTposeTransform(ModelSpaceTransform(
                object, ModelSpaceInverse(model, kCurrentTime), kCurrentTime)));

    KRX::X3DObject extra =
        (extraction.empty() || extraction == control) ? KRX::X3DObject() : FindObject(model, extraction);
    if (!extra.IsValid()) {
      AddText(tag, L"extractNode", "");
      continue;
    }
    AddText(tag, L"extractNode", extraction);
    CVector3 extra_align, extra_roll;
    ComputeTagAxes(node, structure, extra, model, extra_align, extra_roll);
    KRX::CustomProperty extraction_tag = extra.AddCustomProperty(kExtractionTagProperty);
    AddDirections(extraction_tag, extra_align, extra_roll);
  }
  return true;
}

bool ApplyTemplateTags(const std::vector<TemplateTag>& tags, const KRX::Model& model) {
  RemoveTags(model);
  for (auto it = tags.rbegin(); it != tags.rend(); ++it) {
    const TemplateTag& record = *it;
    const bool condition_holds =
        !record.condition_node.empty() && FindObject(model, record.condition_node).IsValid();
    const std::string& name = ChosenNodeName(record, condition_holds);
    KRX::X3DObject object = FindObject(model, name);
    if (!object.IsValid()) {
      LogWarning(ToWide("cannot apply tag " + record.tag_name + ", node not found: " + name));
      return false;
    }
    // Two records naming one object: the later record in the file (applied first) keeps
    // the object; the earlier one does not add a second tag.
    if (FindPropertyByName(object, kTagProperty, nullptr)) continue;
    KRX::CustomProperty tag = object.AddCustomProperty(kTagProperty);
    AddText(tag, L"tagname", record.tag_name);
    AddText(tag, L"override", record.override);
    AddDirections(tag, record.align, record.roll);
    // Not a transform: the rest pose is taken from the rig when the tags are read.
    AddText(tag, L"tpose_transform", record.tag_name);
  }
  return true;
}

MocapJoint* FindSkeletonJoint(MocapSkeleton& skeleton, std::string_view wanted) {
  for (MocapJoint& joint : skeleton.joints) {
    if (joint.name.size() != wanted.size()) continue;
    bool same = true;
    for (size_t i = 0; i < wanted.size() && same; ++i) {
      same = wanted[i] == '_' || std::tolower(static_cast<unsigned char>(wanted[i])) ==
                                     std::tolower(static_cast<unsigned char>(joint.name[i]));
    }
    if (same) return &joint;
  }
  return nullptr;
}

bool ApplyTagsToSkeleton(const std::vector<TemplateTag>& tags, MocapSkeleton& skeleton) {
  for (auto it = tags.rbegin(); it != tags.rend(); ++it) {
    const TemplateTag& record = *it;
    const bool condition_holds =
        !record.condition_node.empty() && FindSkeletonJoint(skeleton, record.condition_node) != nullptr;
    const std::string& name = ChosenNodeName(record, condition_holds);
    MocapJoint* joint = FindSkeletonJoint(skeleton, name);
    if (!joint) {
      LogWarning(ToWide("cannot apply tag " + record.tag_name + ", node not found: " + name));
      continue;
    }
    joint->tagged = true;
    joint->node_name = record.tag_name;
    joint->align = record.align;
    joint->roll = record.roll;
  }
  return true;
}

void WriteTagTemplate(std::ostream& out, const RetargetModel& model) { WriteMapSection(out, model); }

}  // namespace kavor

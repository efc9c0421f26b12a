// Reading a model's tags into its RetargetModel.
#include <memory>
#include <string>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/maps/model_space.h"
#include "kavor/tagging/tags.h"

namespace kavor {

namespace {

using KRX::MATH::CTransformation;
using KRX::MATH::CVector3;

CVector3 ReadDirection(const KRX::Property& tag, const wchar_t* x, const wchar_t* y, const wchar_t* z) {
  return {tag.GetParameterValue(x).GetDouble(), tag.GetParameterValue(y).GetDouble(),
          tag.GetParameterValue(z).GetDouble()};
}

std::string ReadText(const KRX::Property& tag, const wchar_t* name) {
  return ToNarrow(tag.GetParameterValue(name).GetString());
}

void ReadObjectTag(RetargetModel& model, const KRX::X3DObject& object, const KRX::Property& tag,
                   const CTransformation& model_inverse) {
  const int32_t index = FindNodeIndex(*model.structure, ReadText(tag, L"tagname"));
  if (index < 0) return;
  NodeMapEntry& node = model.Node(index);
  node.object = object;
  node.align = ReadDirection(tag, L"alignx", L"aligny", L"alignz");
  node.roll = ReadDirection(tag, L"rollx", L"rolly", L"rollz");
  node.override = ReadText(tag, L"override");
  node.global_pose = ModelSpaceTransform(object, model_inverse, kCurrentTime);
  if (!ParseTposeTransform(ReadText(tag, L"tpose_transform"), node.tpose)) node.tpose = node.global_pose;

  const std::string extraction_name = ReadText(tag, L"extractNode");
  if (extraction_name.empty()) return;
  const KRX::X3DObject extraction = model.model.FindChild(ToWide(extraction_name));
  KRX::Property extraction_tag;
  if (!extraction.IsValid() || !FindPropertyByName(extraction, kExtractionTagProperty, &extraction_tag)) {
    return;
  }
  auto entry = std::make_unique<ExtractionEntry>();
  entry->align = ReadDirection(extraction_tag, L"alignx", L"aligny", L"alignz");
  entry->roll = ReadDirection(extraction_tag, L"rollx", L"rolly", L"rollz");
  entry->object = extraction;
  node.extraction = std::move(entry);
}

// The direction from the node next to each limb end to the limb end, in that node's rest
// frame.
void ReadPlaneDirections(RetargetModel& model) {
  for (int32_t p = 0; p < model.NumPlanes(); ++p) {
    const StructurePlane& plane = model.structure->planes[static_cast<size_t>(p)];
    if (plane.chain.size() < 2 || !model.Node(plane.span).object.IsValid()) continue;
    NodeMapEntry& before_end = model.Node(plane.chain[1]);
    const CVector3 end = model.Node(plane.span).global_pose.GetTranslation();
    CVector3 direction = before_end.global_pose.GetRotationQuaternion().Conjugate().Rotate(
        end - before_end.global_pose.GetTranslation());
    direction.NormalizeInPlace();
    model.Plane(p).rest_end_direction = direction;
    if (before_end.object.IsValid()) {
      before_end.local_pose = before_end.object.GetKinematics().GetLocal().GetTransform();
    }
  }
}

// Nodes without an object leave the hierarchy: their children take their parent.
void SkipUntaggedNodes(RetargetModel& model) {
  std::vector<StructureNode>& nodes = model.structure->nodes;
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (model.Node(static_cast<int32_t>(i)).object.IsValid()) continue;
    for (size_t j = i + 1; j < nodes.size(); ++j) {
      if (nodes[j].parent == static_cast<int32_t>(i)) nodes[j].parent = nodes[i].parent;
    }
  }
}

bool TagNames(const KRX::Property& tag, const std::string& name) {
  return ReadText(tag, L"tagname") == name || ReadText(tag, L"override") == name;
}

void ReadSubControls(RetargetModel& model, const std::vector<KRX::X3DObject>& objects) {
  const ModelStructure& structure = *model.structure;
  for (const StructureDecomp& decomp : structure.decomps) {
    int32_t k = -1;
    for (int32_t i = 0; i < structure.NumNodes() && k < 0; ++i) {
      const std::string& name = structure.nodes[static_cast<size_t>(i)].name;
      LogInfo(ToWide(decomp.src_name + " vs. " + name));
      if (name == decomp.src_name) k = i;
    }
    if (k < 0) continue;
    NodeMapEntry& node = model.Node(k);
    for (const std::string& channel : decomp.channels) {
      for (const KRX::X3DObject& object : objects) {
        KRX::Property tag;
        if (!FindPropertyByName(object, kTagProperty, &tag) || !TagNames(tag, channel)) continue;
        node.sub_controls.push_back({object, 0u, channel, k});
        break;
      }
    }
    for (SubControlEntry& entry : node.sub_controls) {
      for (int s = 0; s < kDecompSlotCount; ++s) {
        if (decomp.slots[static_cast<size_t>(s)] == entry.name) entry.channels |= 1u << s;
      }
    }
  }
}

}  // namespace

bool ReadTags(RetargetModel& model) {
  if (!model.structure || !model.model.IsValid()) return model.valid;
  const CTransformation model_inverse = ModelSpaceInverse(model.model, kCurrentTime);
  const std::vector<KRX::X3DObject> objects = model.model.FindChildren();
  for (const KRX::X3DObject& object : objects) {
    KRX::Property tag;
    if (FindPropertyByName(object, kTagProperty, &tag)) ReadObjectTag(model, object, tag, model_inverse);
  }
  ReadPlaneDirections(model);
  SkipUntaggedNodes(model);
  ReadSubControls(model, objects);
  return model.valid;
}

}  // namespace kavor

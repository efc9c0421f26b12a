#include "kavor/operators/retarget_setup.h"

#include <string>
#include <vector>

#include "kavor/host/host.h"
#include "kavor/io/scene_helpers.h"
#include "kavor/operators/adjust_page.h"
#include "kavor/operators/adjust_property.h"
#include "kavor/operators/motion_blob.h"
#include "kavor/operators/operator_names.h"

namespace kavor {

namespace {

// How the operators are connected: the host's construction mode of animation.
constexpr int kConstructionMode = 4;

KRX::KinematicState LocalState(const KRX::X3DObject& object) {
  return object.GetKinematics().GetLocal();
}
KRX::KinematicState GlobalState(const KRX::X3DObject& object) {
  return object.GetKinematics().GetGlobal();
}

// A new operator of a registered type with its output and inputs, connected. Logs and
// gives false when the host cannot make or connect it.
bool Wire(const wchar_t* type, const KRX::CRef& output, const std::vector<KRX::CRef>& inputs) {
  KRX::CustomOperator op(KRX::Application().CreateObject(type));
  if (!op.IsValid()) {
    LogError(KRX::CString(L"Cannot create the operator ") + type + L".");
    return false;
  }
  op.PutAlwaysEvaluate(true);
  op.AddOutputPort(output);
  for (const KRX::CRef& input : inputs) op.AddInputPort(input);
  if (!KRX::Succeeded(op.Connect(kConstructionMode))) {
    LogError(KRX::CString(L"Cannot connect the operator ") + type + L" on " + output.GetAsText() +
             L".");
    return false;
  }
  return true;
}

// The first plane entry whose structure plane ends at `node`; -1 when none.
int32_t PlaneEndingAt(const GlueMap& glue, const ModelStructure& structure, int32_t node) {
  for (size_t p = 0; p < glue.planes.size(); ++p) {
    const int32_t index = glue.planes[p].plane_index;
    if (index >= 0 && index < structure.NumPlanes() && structure.planes[index].span == node) {
      return static_cast<int32_t>(p);
    }
  }
  return -1;
}

// A spine node is driven by its own animation when its local "rotx" has a function curve.
bool DrivenByItsCurves(const KRX::X3DObject& object) {
  return LocalState(object).GetParameter(L"rotx").IsAnimated(KRX::AnimationSource::FCurve);
}

struct Wiring {
  KRX::CustomProperty adjust;
  KRX::CRef model_local;
  KRX::CRef blob;
  bool ok = true;
};

void WireMocapEntry(Wiring& w, GlueMap& glue, RetargetModel& target, int32_t m) {
  const GlueMocapEntry& entry = glue.mocaps[m];
  if (entry.node_index < 0 || entry.node_index >= target.NumNodes()) return;
  const NodeMapEntry& node = target.Node(entry.node_index);
  if (node.source_index < 0 || !entry.object.IsValid()) return;
  const ModelStructure& structure = *target.structure;

  const int32_t p = PlaneEndingAt(glue, structure, entry.structure_node);
  if (p >= 0 && glue.planes[p].object.IsValid()) {
    const std::string name = ToNarrow(glue.planes[p].object.GetName());
    if (AddIndexParameter(w.adjust, name, p)) {
      w.ok &= Wire(kUpVectorOperator, GlobalState(glue.planes[p].object).GetRef(),
                   {w.model_local, w.adjust.GetParameter(ToWide(name)).GetRef(), w.blob});
    }
  }

  const std::string object_name = ToNarrow(entry.object.GetName());
  if (node.sub_controls.empty()) {
    if (AddIndexParameter(w.adjust, object_name, m)) {
      w.ok &= Wire(kGlobalOperator, GlobalState(entry.object).GetRef(),
                   {w.model_local, w.adjust.GetParameter(ToWide(object_name)).GetRef(), w.blob});
    }
  } else {
    for (size_t k = 0; k < node.sub_controls.size(); ++k) {
      const SubControlEntry& channel = node.sub_controls[k];
      if (!channel.object.IsValid()) continue;
      const std::string src = "src_" + object_name + channel.name;
      const std::string decomp = "decomp_" + object_name + channel.name;
      if (!AddIndexParameter(w.adjust, src, channel.node_index) ||
          !AddIndexParameter(w.adjust, decomp, static_cast<int32_t>(k))) {
        continue;
      }
      const KRX::X3DObject parent(channel.object.GetParent());
      w.ok &= Wire(kDecompOperator, LocalState(channel.object).GetRef(),
                   {GlobalState(parent).GetRef(), w.adjust.GetParameter(ToWide(src)).GetRef(),
                    w.adjust.GetParameter(ToWide(decomp)).GetRef(), w.blob});
    }
  }

  for (size_t s = 0; s < glue.spines.size(); ++s) {
    const GlueSpineEntry& spine = glue.spines[s];
    if (!(spine.anchor_object == entry.object)) continue;
    for (int32_t j = 0; j < spine.Count(); ++j) {
      const KRX::X3DObject& object = spine.nodes[j].object;
      if (!object.IsValid() || DrivenByItsCurves(object)) continue;
      const std::string name = ToNarrow(object.GetName());
      if (!AddIndexParameter(w.adjust, name + "_spine", static_cast<int32_t>(s)) ||
          !AddIndexParameter(w.adjust, name, j)) {
        continue;
      }
      const KRX::X3DObject parent(object.GetParent());
      w.ok &= Wire(
          kSpineOperator, LocalState(object).GetRef(),
          {GlobalState(parent).GetRef(), w.adjust.GetParameter(ToWide(name + "_spine")).GetRef(),
           w.adjust.GetParameter(ToWide(name)).GetRef(), w.blob});
    }
    break;
  }
}

// Deletes the item when it exists; by full name, as a script would.
void DeleteItem(const KRX::CString& full_name) {
  if (!full_name.IsEmpty()) DeleteByName(full_name);
}

void DeleteOperator(const KRX::KinematicState& state, const wchar_t* name) {
  KRX::CustomOperator op;
  if (FindOperatorByName(state.GetFullName(), name, &op)) DeleteItem(op.GetFullName());
}

}  // namespace

bool CreateRetargetOperators(GlueMap& glue, NormalizedMotion& motion, int32_t insertion_frame) {
  if (motion.target == nullptr || !motion.target->model.IsValid()) return false;
  RetargetModel& target = *motion.target;
  KRX::Model model = target.model;
  RemoveRetargetSetup(model);

  Wiring w;
  w.adjust = KRX::CustomProperty(model.AddProperty(kAdjustProperty));
  // Without the plug-in's registration (a statically linked plug-in), a plain custom
  // property of that name does the same.
  if (!w.adjust.IsValid()) w.adjust = model.AddCustomProperty(kAdjustProperty);
  if (!w.adjust.IsValid()) {
    LogError(L"Cannot add the adjustment property to " + model.GetFullName() + L".");
    return false;
  }
  if (!w.adjust.GetParameter(L"Speed").IsValid()) DefineAdjustmentParameters(w.adjust);
  AddTargetAdjustments(w.adjust, target);
  w.adjust.PutParameterValue(L"InsertionFrame", KRX::CValue(insertion_frame));

  MotionBlobContent content;
  content.motion = &motion;
  for (int32_t i = 0; i < target.NumNodes(); ++i) {
    content.source_indices.push_back(target.Node(i).source_index);
  }
  content.insertion_frame = insertion_frame;
  if (motion.source != nullptr) content.curves = motion.source->curves;
  content.scale = target.scale;
  const std::vector<uint8_t> bytes = EncodeMotionBlob(content);
  KRX::UserDataBlob blob(model.AddProperty(L"UserDataBlob", false, kMotionBlobProperty));
  if (!blob.IsValid() || !KRX::Succeeded(blob.PutValue(bytes.data(), bytes.size()))) {
    LogError(L"Cannot store the retargeted motion on " + model.GetFullName() + L".");
    return false;
  }

  w.model_local = LocalState(model).GetRef();
  w.blob = blob.GetRef();
  w.ok = Wire(kMainOperator, w.model_local,
              {w.model_local, w.blob, w.adjust.GetParameter(L"Ping").GetRef()});
  for (size_t m = 0; m < glue.mocaps.size() && w.ok; ++m) {
    WireMocapEntry(w, glue, target, static_cast<int32_t>(m));
  }
  if (!w.ok) {
    RemoveRetargetSetup(model);
    return false;
  }
  ShowAdjustPage(model, false);
  return true;
}

bool RemoveRetargetSetup(const KRX::Model& model) {
  KRX::Property adjust;
  if (!model.IsValid() || !FindPropertyByName(model, kAdjustProperty, &adjust)) return false;
  DeleteItem(adjust.GetFullName());
  DeletePropertyByName(model, kMotionBlobProperty);
  DeletePropertyByName(model, L"ZRKRefFrames");
  DeleteOperator(LocalState(model), kMainOperator);
  for (const KRX::X3DObject& object : model.FindChildren(L"", L"", true)) {
    DeleteOperator(GlobalState(object), kGlobalOperator);
    DeleteOperator(GlobalState(object), kUpVectorOperator);
    DeleteOperator(LocalState(object), kSpineOperator);
    DeleteOperator(LocalState(object), kDecompOperator);
    DeletePropertyByName(object, kRotationOffsetProperty);
  }
  return true;
}

}  // namespace kavor

// Real captures as animated, tagged rigs for the retarget tests and benchmarks: a shared
// BVH file imported with the host importer (optionally with every length scaled), tagged in
// its bind pose with a shipped tag template, its animation kept.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/app_settings.h"
#include "kavor/host/host.h"
#include "kavor/maps/glue_map.h"
#include "kavor/maps/model_map.h"
#include "kavor/maps/retarget_model.h"
#include "kavor/structure/structure_property.h"
#include "kavor/tagging/tag_templates.h"
#include "krx/krx.h"
#include "runtime/scene_state.h"

namespace kavor::capturetest {

namespace fs = std::filesystem;

inline fs::path SourceDir() {
  const char* source = std::getenv("KAVOR_SOURCE_DIR");
  return source ? fs::path(source) : fs::path();
}

// A file of the shared capture collection; empty when the collection is not there.
inline fs::path SharedCapture(const char* name) {
  if (SourceDir().empty()) return {};
  const fs::path file = SourceDir() / ".." / "shared" / "data" / "bvh" / name;
  return fs::exists(file) ? file : fs::path();
}

inline fs::path ShippedTemplate(const char* name) {
  return SourceDir() / "data" / "Addons" / "Trevalin" / "Data" / "TagTemplates" / name;
}

// An empty scene whose data folder (installation path 3) is the project's own, so that the
// shipped structures and templates are found.
inline void NewSceneWithShippedData() {
  KRX::rt::ResetScene();
  KRX::rt::SetInstallationPath(3, (SourceDir() / "data").string());
}

inline void ScaleParameter(KRX::KinematicState& local, const wchar_t* name, double scale) {
  KRX::Parameter parameter = local.GetParameter(name);
  KRX::FCurve curve = parameter.GetFCurve();
  if (curve.IsValid()) {
    std::vector<KRX::FCurveKeyData> keys = curve.GetKeys();
    for (KRX::FCurveKeyData& key : keys) {
      key.value *= scale;
      key.left_dy *= scale;
      key.right_dy *= scale;
    }
    curve.SetKeys(keys);
  } else {
    parameter.PutValue(KRX::CValue(parameter.GetValue().GetDouble() * scale));
  }
}

// Imports the capture as model `name`, every offset and root path scaled by `scale`.
inline KRX::Model ImportCapture(const fs::path& file, const wchar_t* name, double scale = 1.0) {
  KRX::CValue result;
  KRX::Application().ExecuteCommand(
      L"ImportBVH", {KRX::CValue(ToWide(file.string())), KRX::CValue(name)}, result);
  KRX::Model model(
      KRX::Application().GetActiveSceneRoot().FindChild(result.GetString(), L"", false));
  if (scale != 1.0) {
    for (KRX::X3DObject joint : model.FindChildren()) {
      KRX::KinematicState local = joint.GetKinematics().GetLocal();
      for (const wchar_t* p : {L"posx", L"posy", L"posz"}) ScaleParameter(local, p, scale);
    }
  }
  return model;
}

// A capture imported and put in its bind pose (offsets only, rotation curves removed).
inline KRX::Model ImportInBindPose(const fs::path& file, const wchar_t* name) {
  const KRX::Model model = ImportCapture(file, name);
  for (KRX::X3DObject joint : model.FindChildren()) {
    KRX::KinematicState local = joint.GetKinematics().GetLocal();
    for (const wchar_t* p : {L"rotx", L"roty", L"rotz"}) {
      local.GetParameter(p).RemoveAnimation();
      local.PutParameterValue(p, KRX::CValue(0.0));
    }
  }
  return model;
}

// The OFFSET of each joint of a BVH file, read straight from its text.
inline std::map<std::string, KRX::MATH::CVector3> JointOffsets(const fs::path& file) {
  std::ifstream in(file);
  std::map<std::string, KRX::MATH::CVector3> offsets;
  std::string word, joint;
  double x, y, z;
  while (in >> word && word != "MOTION") {
    if (word == "ROOT" || word == "JOINT") in >> joint;
    if (word == "End") joint.clear();
    if (word == "OFFSET" && in >> x >> y >> z && !joint.empty()) offsets[joint] = {x, y, z};
  }
  return offsets;
}

// Tags the rig with a template while its joints stand in the bind pose (rotations zero),
// then gives the rotation curves back. False when the template does not apply.
inline bool TagInBindPose(const KRX::Model& model, const fs::path& tag_template) {
  std::map<std::wstring, std::vector<KRX::FCurveKeyData>> saved;
  for (KRX::X3DObject joint : model.FindChildren()) {
    KRX::KinematicState local = joint.GetKinematics().GetLocal();
    for (const wchar_t* p : {L"rotx", L"roty", L"rotz"}) {
      KRX::Parameter parameter = local.GetParameter(p);
      if (parameter.GetFCurve().IsValid()) {
        saved[joint.GetFullName().GetWideString() + L"." + p] = parameter.GetFCurve().GetKeys();
      }
      parameter.RemoveAnimation();
      parameter.PutValue(KRX::CValue(0.0));
    }
  }
  const bool tagged = InheritTagTemplate(model, tag_template.string());
  for (KRX::X3DObject joint : model.FindChildren()) {
    KRX::KinematicState local = joint.GetKinematics().GetLocal();
    for (const wchar_t* p : {L"rotx", L"roty", L"rotz"}) {
      const auto found = saved.find(joint.GetFullName().GetWideString() + L"." + p);
      if (found != saved.end()) local.GetParameter(p).AddFCurve(found->second);
    }
  }
  return tagged;
}

// A shared CMU capture (the walk unless another is named) imported twice and tagged with the
// shipped CMU template, for the benchmarks: "Source" as captured and "Target" 1.2 times its size,
// padded with nulls to `target_objects` objects below its model. Nothing (with the reason in `why`)
// when the capture is not on this machine or the template does not tag it.
struct CapturePair {
  KRX::Model source;
  KRX::Model target;
};
inline std::optional<CapturePair> ImportTaggedCmuPair(int target_objects, std::string& why,
                                                      const char* capture_name = "cmu_02_01.bvh") {
  const fs::path capture = SharedCapture(capture_name);
  if (capture.empty()) {
    why = "set KAVOR_SOURCE_DIR to the source folder, beside the shared captures";
    return std::nullopt;
  }
  NewSceneWithShippedData();
  CapturePair pair{ImportCapture(capture, L"Source"), ImportCapture(capture, L"Target", 1.2)};
  for (int extra = static_cast<int>(pair.target.FindChildren().size()); extra < target_objects;
       ++extra) {
    KRX::X3DObject(pair.target)
        .AddNull(KRX::CString(L"prop") + KRX::CString(std::to_string(extra)));
  }
  const fs::path tags = ShippedTemplate("CmuJointNames.tagt");
  if (!TagInBindPose(pair.source, tags) || !TagInBindPose(pair.target, tags)) {
    why = "the shipped template did not tag the capture";
    return std::nullopt;
  }
  return pair;
}

// What a retarget flow reads from a tagged model: its structure, its RetargetModel with
// the map read and its resolved glue. Empty members when the model cannot be read.
struct TaggedModel {
  std::unique_ptr<ModelStructure> structure;
  std::unique_ptr<RetargetModel> retarget;
  std::unique_ptr<GlueMap> glue;
};

inline TaggedModel ReadTagged(const KRX::Model& model) {
  TaggedModel tagged;
  std::optional<ModelStructure> structure = ReadStructureProperty(model);
  if (!structure) return tagged;
  tagged.structure = std::make_unique<ModelStructure>(std::move(*structure));
  tagged.retarget = std::make_unique<RetargetModel>(model, tagged.structure.get());
  ReadModelMap(*tagged.retarget);
  if (!tagged.retarget->valid) tagged.retarget.reset();
  tagged.glue = ReadGlueMap(model);
  if (!tagged.retarget) return tagged;
  if (tagged.glue) ResolveGlueMap(*tagged.glue, model, *tagged.retarget);
  return tagged;
}

}  // namespace kavor::capturetest

// Host commands for getting scenes and motion in and out: NewScene, OpenScene, SaveScene
// and ExportTransforms. Each returns true or false; a failure is logged as an error and
// never stops a script (the command itself ran).
#include <cmath>
#include <string>

#include "files/bvh_import.h"
#include "files/export_transforms.h"
#include "files/scene_file.h"
#include "files/text_codec.h"
#include "plugins/scene_events.h"
#include "runtime/commands.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace KRX::rt {

namespace {

void LogError(const std::string& text) { Log(CString(text), kSeverityError); }

// A file name argument as bytes (UTF-8); empty when it was left out.
std::string PathArgument(const CValueArray& args, size_t index) {
  if (index >= args.size() || args[index].IsEmpty()) return {};
  return files::WideToUtf8(args[index].GetString().GetWideString());
}

bool NumberArgument(const CValueArray& args, size_t index, double* out) {
  if (index >= args.size()) return false;
  const ValueType type = args[index].GetType();
  if (type != ValueType::Int && type != ValueType::Double) return false;
  *out = args[index].GetDouble();
  return std::isfinite(*out);
}

CStatus NewScene(const CValueArray&, CValue& result) {
  ResetScene();
  FireSceneEvent(false);
  result = CValue(true);
  return CStatus::OK;
}

CStatus OpenScene(const CValueArray& args, CValue& result) {
  const std::string path = PathArgument(args, 0);
  result = CValue(false);
  if (path.empty()) {
    LogError("OpenScene: no file given.");
    return CStatus::OK;
  }
  FileResult opened = OpenSceneFile(path);
  if (!opened) {
    LogError("OpenScene: " + opened.message);
    return CStatus::OK;
  }
  Log(CString("Opened scene \"" + path + "\"."), kSeverityInfo);
  result = CValue(true);
  return CStatus::OK;
}

CStatus SaveScene(const CValueArray& args, CValue& result) {
  const std::string path = PathArgument(args, 0);
  result = CValue(false);
  if (path.empty()) {
    LogError("SaveScene: no file given.");
    return CStatus::OK;
  }
  FileResult saved = SaveSceneFile(path);
  if (!saved) {
    LogError("SaveScene: " + saved.message);
    return CStatus::OK;
  }
  Log(CString("Saved scene \"" + path + "\"."), kSeverityInfo);
  result = CValue(true);
  return CStatus::OK;
}

CStatus ExportTransformsCommand(const CValueArray& args, CValue& result) {
  result = CValue(false);
  if (args.empty() || args[0].IsEmpty()) {
    LogError("ExportTransforms: no model given.");
    return CStatus::OK;
  }
  const X3DObject model(args[0].GetRef());
  if (!model.IsValid()) {
    LogError("ExportTransforms: \"" + args[0].GetString().GetAsciiString() +
             "\" is not a 3D object of the scene.");
    return CStatus::OK;
  }
  const std::string path = PathArgument(args, 1);
  if (path.empty()) {
    LogError("ExportTransforms: no file given.");
    return CStatus::OK;
  }
  double start = 0.0;
  double end = 0.0;
  if (!NumberArgument(args, 2, &start) || !NumberArgument(args, 3, &end)) {
    LogError("ExportTransforms: the first and last frames must be numbers.");
    return CStatus::OK;
  }
  FileResult exported = ExportTransforms(model, path, start, end);
  if (!exported) {
    LogError("ExportTransforms: " + exported.message);
    return CStatus::OK;
  }
  result = CValue(true);
  return CStatus::OK;
}

}  // namespace

void RegisterSceneFileCommands() {
  RegisterHostCommand(L"NewScene", &NewScene);
  RegisterHostCommand(L"OpenScene", &OpenScene);
  RegisterHostCommand(L"SaveScene", &SaveScene);
  RegisterHostCommand(L"ExportTransforms", &ExportTransformsCommand);
  files::RegisterBvhImportCommand();
}

}  // namespace KRX::rt

#include "files/scene_file.h"

#include <vector>

#include "files/file_io.h"
#include "files/scene_format.h"
#include "files/scene_reader.h"
#include "files/scene_writer.h"
#include "krx/operator.h"
#include "plugins/scene_events.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace KRX::rt {

namespace {

std::string Quoted(const std::string& path) { return "\"" + path + "\""; }

// Parses and checks the whole document into `loaded`.
bool ReadScene(const uint8_t* data, size_t size, files::LoadedScene* loaded, std::string* error) {
  files::Json doc;
  if (!files::ParseJsonDocument(data, size, files::kMaxJsonDepth, &doc, error)) return false;
  return files::ReadSceneDocument(doc, loaded, error);
}

}  // namespace

FileResult SaveSceneFile(const std::string& path) {
  std::string error;
  files::OutJson doc;
  if (!files::WriteSceneDocument(ActiveScene(), &doc, &error)) {
    return FileResult::Failure("cannot save the scene to " + Quoted(path) + ": " + error);
  }
  std::string text;
  try {
    text = doc.dump(-1, ' ', false, files::OutJson::error_handler_t::strict);
  } catch (const files::OutJson::exception& e) {
    return FileResult::Failure("cannot save the scene to " + Quoted(path) + ": " + e.what());
  }
  text.push_back('\n');
  if (!ReplaceFile(path, text, &error)) {
    return FileResult::Failure("cannot save the scene: " + error);
  }
  return FileResult::Success();
}

FileResult OpenSceneFile(const std::string& path) {
  std::vector<uint8_t> bytes;
  std::string error;
  if (!files::ReadRegularFile(path, files::kMaxSceneFileBytes, &bytes, &error)) {
    return FileResult::Failure("cannot open the scene: " + error);
  }
  files::LoadedScene loaded;
  if (!ReadScene(bytes.data(), bytes.size(), &loaded, &error)) {
    return FileResult::Failure("cannot open the scene " + Quoted(path) + ": " + error);
  }
  ReplaceScene(std::move(loaded.scene));
  // Connecting runs each operator's _Init against the scene it now belongs to; the
  // operators bind again on their first evaluation.
  for (const std::shared_ptr<OperatorItem>& op : loaded.operators) {
    CustomOperator handle{CRef(std::weak_ptr<Item>(op))};
    if (handle.Connect(op->construction_mode) != CStatus::OK) {
      Log(CString("Scene " + Quoted(path) + ": the operator \"" + op->name.GetAsciiString() +
                  "\" could not be connected again"),
          kSeverityWarning);
    }
  }
  FireSceneEvent(true);
  return FileResult::Success();
}

FileResult ReadSceneFromBytes(const uint8_t* data, size_t size) {
  files::LoadedScene loaded;
  std::string error;
  if (!ReadScene(data, size, &loaded, &error)) return FileResult::Failure(error);
  return FileResult::Success();
}

}  // namespace KRX::rt

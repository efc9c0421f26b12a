#include "e2e/kavor_module.h"

#include <cstdlib>
#include <filesystem>

#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor::e2e {

namespace {

struct ModuleLoad {
  bool attempted = false;
  bool loaded = false;
  std::string error;
};

ModuleLoad& TheLoad() {
  static ModuleLoad load;
  return load;
}

// Unloads the module once every test has run, while its code is still mapped.
class UnloadAtEnd : public ::testing::Environment {
 public:
  void TearDown() override {
    if (TheLoad().loaded) KRX::rt::UnloadAllPlugins();
  }
};

[[maybe_unused]] ::testing::Environment* const kUnloadAtEnd =
    ::testing::AddGlobalTestEnvironment(new UnloadAtEnd);

const KRX::rt::LoadedPluginInfo* FindLoaded(const std::string& path) {
  for (const KRX::rt::LoadedPluginInfo& info : KRX::rt::LoadedPlugins()) {
    if (info.path == path) return &info;
  }
  return nullptr;
}

}  // namespace

std::string KavorModulePath() {
  if (const char* dir = std::getenv("KAVOR_BUILD_DIR"); dir != nullptr && dir[0] != '\0') {
    return (std::filesystem::path(dir) / "libkavor.so").string();
  }
  std::error_code ec;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return (self.parent_path() / "libkavor.so").string();
}

const KRX::rt::LoadedPluginInfo* KavorModule(std::string* error) {
  ModuleLoad& load = TheLoad();
  const std::string path = KavorModulePath();
  if (!load.attempted) {
    load.attempted = true;
    load.loaded = KRX::rt::LoadPlugin(path, &load.error);
  }
  if (!load.loaded) {
    *error = "cannot load " + path + ": " + load.error;
    return nullptr;
  }
  const KRX::rt::LoadedPluginInfo* info = FindLoaded(path);
  // Something unloaded the module behind our back; loading it again is not safe.
  if (info == nullptr) *error = path + " was unloaded by another test";
  return info;
}

void KavorModuleTest::SetUp() {
  std::string error;
  module_ = KavorModule(&error);
  ASSERT_NE(module_, nullptr) << error;
  KRX::rt::ResetScene();
  KRX::rt::ClearLog();
}

std::vector<std::string> KavorModuleTest::LoggedTexts(int severity) {
  std::vector<std::string> texts;
  for (const KRX::rt::LogLine& line : KRX::rt::LogLines()) {
    if (line.severity == severity) texts.push_back(line.text.GetAsciiString());
  }
  return texts;
}

}  // namespace kavor::e2e

#include "e2e/kavor_module.h"

#include <cstdlib>
#include <filesystem>

#include "runtime/log.h"
#include "runtime/scene_state.h"

namespace kavor::e2e {
namespace {

std::string ModulePath() {
  if (const char* dir = std::getenv("KAVOR_BUILD_DIR"); dir != nullptr && dir[0] != '\0') {
    return (std::filesystem::path(dir) / "libkavor.so").string();
  }
  std::error_code ec;
  return (std::filesystem::read_symlink("/proc/self/exe", ec).parent_path() / "libkavor.so")
      .string();
}

// Unloads the module once every test has run, while its code is still mapped.
class UnloadAtEnd : public ::testing::Environment {
 public:
  void TearDown() override { KRX::rt::UnloadAllPlugins(); }
};
[[maybe_unused]] ::testing::Environment* const kUnloadAtEnd =
    ::testing::AddGlobalTestEnvironment(new UnloadAtEnd);

}  // namespace

void KavorModuleTest::SetUp() {
  static const std::string path = ModulePath();
  static std::string error;
  static const bool loaded = KRX::rt::LoadPlugin(path, &error);
  ASSERT_TRUE(loaded) << "cannot load " << path << ": " << error;
  for (const KRX::rt::LoadedPluginInfo& info : KRX::rt::LoadedPlugins()) {
    if (info.path == path) module_ = &info;
  }
  // Loading it again after something unloaded it is not safe.
  ASSERT_NE(module_, nullptr) << path << " was unloaded by another test";
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

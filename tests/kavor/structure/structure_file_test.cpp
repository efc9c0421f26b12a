// ParseStructure: finding a structure and its base file in the data folders, the warnings
// it logs, and strict reading from the preferences.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "app/app_settings.h"
#include "kavor/host/host.h"
#include "kavor/io/data_files.h"
#include "kavor/structure/structure_parser.h"
#include "kavor/xml/preferences.h"
#include "runtime/log.h"

namespace kavor {
namespace {

namespace fs = std::filesystem;

// With no installation path configured, the data roots are empty and the data files are
// looked for relative to the working folder. The fixture works in a folder of its own.
class ParseStructureFromFolders : public testing::Test {
 protected:
  void SetUp() override {
    ResetDataRoots();
    for (const KRX::CString& root : DataRoots()) {
      if (!root.IsEmpty()) GTEST_SKIP() << "installation paths are configured";
    }
    std::string pattern = (fs::temp_directory_path() / "kavor_structure_XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    previous_ = fs::current_path();
    fs::current_path(folder_);
    KRX::rt::ClearLog();
  }
  void TearDown() override {
    if (folder_.empty()) return;
    fs::current_path(previous_);
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    ResetDataRoots();
  }
  void Write(const std::string& relative, const std::string& text) {
    fs::create_directories((folder_ / relative).parent_path());
    std::ofstream(folder_ / relative, std::ios::binary) << text;
  }
  // True when the log holds exactly this warning.
  static bool Warned(const std::string& text) {
    for (const KRX::rt::LogLine& line : KRX::rt::LogLines()) {
      if (line.severity == KRX::kSeverityWarning && line.text.GetAsciiString() == text) return true;
    }
    return false;
  }

  fs::path folder_, previous_;
};

const char* const kBase = "hips { world Hips hip 0 1 0 0 0 1 0 1 0 }";

// Structures below Structures/ and Structures/Mocap/ are read the same way; a name with a
// folder is never looked for; each failure is a warning and no structure.
TEST_F(ParseStructureFromFolders, FindsStructuresOrWarns) {
  Write("Structures/core.base", kBase);
  Write("Structures/plain.structure", "core spine { Hips Spine free 0 1 0 0 0 1 0 1 0 }");
  Write("Structures/Mocap/capture.structure", "core");
  Write("Structures/orphan.structure", "nobase");
  Write("Structures/sneaky.structure", "../core");
  Write("elsewhere.structure", "core");
  for (const auto& [name, nodes] : {std::pair{L"plain", 2}, std::pair{L"capture", 1}}) {
    std::unique_ptr<ModelStructure> s = ParseStructure(name);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->source, ToNarrow(name));
    EXPECT_EQ(s->type, "core");
    EXPECT_EQ(s->NumNodes(), nodes);
  }
  for (const KRX::rt::LogLine& line : KRX::rt::LogLines()) {
    ADD_FAILURE() << line.text.GetAsciiString();
  }
  const std::pair<const wchar_t*, const char*> cases[] = {
      {L"missing", "cannot find structure file: missing"},
      {L"../elsewhere", "cannot find structure file: ../elsewhere"},
      {L"orphan", "cannot find basefile structure file: nobase"},
      {L"sneaky", "structure sneaky line 1: the basefile name ../core is not a plain file name"}};
  for (const auto& [name, warning] : cases) {
    EXPECT_EQ(ParseStructure(name), nullptr) << warning;
    EXPECT_TRUE(Warned(warning)) << warning;
  }
}

// Strict reading is switched on for every parse by the plug-in's preferences.
TEST_F(ParseStructureFromFolders, StrictReadingFromThePreferences) {
  Write("Structures/core.base", kBase);
  Write("Structures/glued.structure", "core spine { Hips Spine free 0 1 0 0 0 1 0 1 0}");
  EXPECT_NE(ParseStructure(L"glued"), nullptr);
  KRX::rt::SetInstallationPath(1, folder_.string());
  EXPECT_NE(ParseStructure(L"glued"), nullptr);
  {  // The switch is written off the first time it is read.
    Preferences preferences;
    EXPECT_EQ(preferences.GetInteger(kReadingSection, kStrictReadingKey, 7), 0);
    preferences.SetInteger(kReadingSection, kStrictReadingKey, 1);
  }
  EXPECT_EQ(ParseStructure(L"glued"), nullptr);
  KRX::rt::SetInstallationPath(1, "");
  EXPECT_TRUE(Warned(
      "structure glued line 1: expected three numbers for the offset of node Spine, found \"0}\""));
  EXPECT_NE(ParseStructure(L"glued"), nullptr);
}

}  // namespace
}  // namespace kavor

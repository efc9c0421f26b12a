#include "kavor/xml/preferences.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "app/app_settings.h"
#include "kavor/io/io_test_support.h"
#include "kavor/xml/remembered_folder.h"
#include "runtime/interaction.h"

namespace kavor {
namespace {

using KRX::CString;
namespace rt = KRX::rt;

class PreferencesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::ResetInteraction();
    rt::SetInstallationPath(1, install_.path().string() + "/");
  }
  void TearDown() override {
    rt::SetInstallationPath(1, "");
    rt::ResetInteraction();
  }
  std::string FileText() const {
    std::ifstream in(install_ / "KAVOR.ini", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  iotest::TempFolder install_;
};

TEST_F(PreferencesTest, ValuesPersistAcrossReopening) {
  EXPECT_EQ(PreferencesFilePath(), CString(install_ / "KAVOR.ini"));
  {  // A fresh file: reads create the elements holding their defaults.
    Preferences preferences;
    EXPECT_EQ(preferences.GetString(L"FILEPATHS", L"BVH_FILES", L"/data/"), CString(L"/data/"));
    EXPECT_EQ(preferences.GetString(L"FILEPATHS", L"BVH_FILES", L"/other/"), CString(L"/data/"));
    EXPECT_EQ(preferences.GetInteger(L"STRUCTURES", L"STRUCTURE_TAG", 3), 3);
    preferences.SetString(L"FILEPATHS", L"TAGT_FILES", L"d:\\rigs\\hero.tagt");
    preferences.SetString(L"DATA", L"NOTE", L"d:\\rigs\\hero.tagt");  // kept whole elsewhere
    preferences.SetInteger(L"DATA", L"MOCAP_FILE_TYPE", -2);
    EXPECT_TRUE(preferences.Close());
  }
  const std::string text = FileText();
  EXPECT_EQ(text.rfind("\xEF\xBB\xBF<?xml", 0), 0u);
  EXPECT_NE(text.find("<ROOT>"), std::string::npos);
  EXPECT_NE(text.find("<BVH_FILES>/data/</BVH_FILES>"), std::string::npos);
  EXPECT_NE(text.find("<TAGT_FILES>d:\\rigs\\</TAGT_FILES>"), std::string::npos);
  {
    Preferences preferences;
    EXPECT_EQ(preferences.GetString(L"FILEPATHS", L"BVH_FILES", L"x"), CString(L"/data/"));
    EXPECT_EQ(preferences.GetString(L"FILEPATHS", L"TAGT_FILES", L"x"), CString(L"d:\\rigs\\"));
    EXPECT_EQ(preferences.GetString(L"DATA", L"NOTE", L"x"), CString(L"d:\\rigs\\hero.tagt"));
    EXPECT_EQ(preferences.GetInteger(L"DATA", L"MOCAP_FILE_TYPE", 0), -2);
    EXPECT_EQ(preferences.GetInteger(L"STRUCTURES", L"STRUCTURE_TAG", 9), 3);
    EXPECT_EQ(preferences.GetInteger(L"DATA", L"NOTE", 7), 7);  // not an integer
  }
  EXPECT_TRUE(rt::MessageBoxes().empty());
}

TEST_F(PreferencesTest, UnreadableFileGivesDefaultsAndOneReport) {
  iotest::WriteFile(install_ / "KAVOR.ini", "<ROOT><FILEPATHS>");
  {
    Preferences preferences;
    EXPECT_EQ(preferences.GetString(L"FILEPATHS", L"BVH_FILES", L"/d/"), CString(L"/d/"));
    EXPECT_EQ(preferences.GetInteger(L"DATA", L"MOCAP_FILE_TYPE", 1), 1);
  }
  EXPECT_EQ(rt::MessageBoxes().size(), 1u);
  EXPECT_EQ(FileText(), "<ROOT><FILEPATHS>");
  {  // No installation path: defaults, nothing written anywhere.
    rt::SetInstallationPath(1, "");
    Preferences preferences;
    EXPECT_EQ(preferences.GetString(L"FILEPATHS", L"BVH_FILES", L"/d/"), CString(L"/d/"));
    EXPECT_TRUE(preferences.Close());
  }
  EXPECT_EQ(rt::MessageBoxes().size(), 1u);
}

TEST_F(PreferencesTest, BrowsingStartsInTheRememberedFolder) {
  rt::SetInstallationPath(4, "/opt/host/");
  rt::QueueAnswer({rt::AnswerKind::File, 0, CString(L"/clips/run/fast.bvh")});
  rt::QueueAnswer({rt::AnswerKind::Cancel, 0, CString()});
  EXPECT_EQ(BrowseInRememberedFolder(L"BVH_FILES", L"*.bvh||", L"Load BVH", true),
            CString(L"/clips/run/fast.bvh"));
  EXPECT_EQ(BrowseInRememberedFolder(L"BVH_FILES", L"*.bvh||", L"Load BVH", true), CString());
  rt::SetInstallationPath(4, "");
  ASSERT_EQ(rt::FileBrowsers().size(), 2u);
  EXPECT_EQ(rt::FileBrowsers()[0].initial_directory, CString(L"/opt/host/Addons/Trevalin/Data/"));
  EXPECT_EQ(rt::FileBrowsers()[1].initial_directory, CString(L"/clips/run/"));
  EXPECT_NE(FileText().find("<BVH_FILES>/clips/run/</BVH_FILES>"), std::string::npos);
}

}  // namespace
}  // namespace kavor

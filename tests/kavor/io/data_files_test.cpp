#include "kavor/io/data_files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "kavor/io/io_test_support.h"
#include "app/app_settings.h"

namespace kavor {
namespace {

using KRX::CString;

// Three installation folders, each with its own data root; the tests choose which of them
// the host reports.
class DataFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const auto& folder : install_) ASSERT_FALSE(folder.path().empty());
  }
  void TearDown() override {
    UseInstallations({"", "", ""});
    ResetDataRoots();
  }

  // Makes the host report these installation paths (empty = none) and forgets the roots.
  void UseInstallations(const std::array<std::string, 3>& paths) {
    for (int kind = 1; kind <= 3; ++kind) KRX::rt::SetInstallationPath(kind, paths[kind - 1]);
    ResetDataRoots();
  }
  void UseAllThree() {
    UseInstallations({install_[0].path().string(), install_[1].path().string(),
                      install_[2].path().string()});
  }
  // A file below installation `i` (0..2), relative to its data root.
  std::string Data(int i, const std::string& relative) const {
    return install_[i] / ("Addons/Trevalin/Data/" + relative);
  }
  void Put(int i, const std::string& relative) { iotest::WriteFile(Data(i, relative), "x"); }

  std::array<iotest::TempFolder, 3> install_;
};

TEST_F(DataFilesTest, RootsAreTheInstallationPathsWithTheDataSuffix) {
  UseInstallations({install_[0].path().string(), "", install_[2].path().string() + "/"});
  const auto& roots = DataRoots();
  EXPECT_EQ(roots[0], CString(install_[0].path().string() + "/Addons/Trevalin/Data/"));
  EXPECT_EQ(roots[1], CString());  // no installation path: the root stays empty
  // A path that ends in a separator does not get a second one.
  EXPECT_EQ(roots[2], CString(install_[2].path().string() + "/Addons/Trevalin/Data/"));
  {  // Computed once: a changed installation path is seen only after a reset.
    KRX::rt::SetInstallationPath(2, install_[1].path().string());
    EXPECT_EQ(DataRoots()[1], CString());
    ResetDataRoots();
    EXPECT_EQ(DataRoots()[1], CString(install_[1].path().string() + "/Addons/Trevalin/Data/"));
  }
}

TEST_F(DataFilesTest, EachKindHasItsFolderAndExtension) {
  UseAllThree();
  Put(0, "Structures/human.structure");
  Put(0, "Structures/human.base");
  Put(0, "Structures/Mocap/bvh.structure");
  Put(0, "TagTemplates/t.tagt");
  const struct {
    DataFileKind kind;
    const char* name;
    const char* relative;  // expected, below root 1
  } cases[] = {
      {DataFileKind::kStructure, "human", "Structures/human.structure"},
      {DataFileKind::kStructureBase, "human", "Structures/human.base"},
      {DataFileKind::kMocapStructure, "bvh", "Structures/Mocap/bvh.structure"},
      {DataFileKind::kTagTemplate, "t", "TagTemplates/t.tagt"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.relative);
    CString path;
    EXPECT_TRUE(FindDataFile(c.kind, CString(c.name), kFirstDataRoot, &path));
    EXPECT_EQ(path, CString(Data(0, c.relative)));
  }
  {  // The same name under another kind's folder or extension is not found.
    EXPECT_FALSE(FindDataFile(DataFileKind::kMocapStructure, L"human", 1, nullptr));
    EXPECT_FALSE(FindDataFile(DataFileKind::kTagTemplate, L"human", 1, nullptr));
    EXPECT_FALSE(FindDataFile(static_cast<DataFileKind>(4), L"human", 1, nullptr));
  }
}

TEST_F(DataFilesTest, FindDataFileSearchesFromTheStartRootToRootThree) {
  UseAllThree();
  Put(1, "Structures/human.structure");
  Put(2, "Structures/human.structure");
  Put(0, "Structures/first.structure");
  Put(2, "Structures/first.structure");
  CString path;
  {  // The first root that holds it wins.
    EXPECT_TRUE(FindDataFile(DataFileKind::kStructure, L"human", 1, &path));
    EXPECT_EQ(path, CString(Data(1, "Structures/human.structure")));
    EXPECT_TRUE(FindDataFile(DataFileKind::kStructure, L"first", 1, &path));
    EXPECT_EQ(path, CString(Data(0, "Structures/first.structure")));
  }
  {  // Starting later skips the earlier roots.
    EXPECT_TRUE(FindDataFile(DataFileKind::kStructure, L"first", 2, &path));
    EXPECT_EQ(path, CString(Data(2, "Structures/first.structure")));
    EXPECT_TRUE(FindDataFile(DataFileKind::kStructure, L"human", 3, &path));
    EXPECT_EQ(path, CString(Data(2, "Structures/human.structure")));
  }
  {  // Beyond root 3 nothing is found; below root 1 is root 1.
    path = L"unchanged";
    EXPECT_FALSE(FindDataFile(DataFileKind::kStructure, L"human", 4, &path));
    EXPECT_EQ(path, CString(L"unchanged"));
    EXPECT_TRUE(FindDataFile(DataFileKind::kStructure, L"first", 0, &path));
    EXPECT_EQ(path, CString(Data(0, "Structures/first.structure")));
  }
  {  // Something that exists but is no regular file does not count.
    std::filesystem::create_directories(Data(0, "Structures/human.structure"));
    EXPECT_TRUE(FindDataFile(DataFileKind::kStructure, L"human", 1, &path));
    EXPECT_EQ(path, CString(Data(1, "Structures/human.structure")));
  }
}

TEST_F(DataFilesTest, FindDataFileRefusesNamesThatLeaveTheFolder) {
  UseAllThree();
  Put(0, "Structures/Mocap/m.structure");
  Put(0, "x.structure");
  EXPECT_FALSE(FindDataFile(DataFileKind::kStructure, L"Mocap/m", 1, nullptr));
  EXPECT_FALSE(FindDataFile(DataFileKind::kStructure, L"Mocap\\m", 1, nullptr));
  EXPECT_FALSE(FindDataFile(DataFileKind::kStructure, L"../x", 1, nullptr));
  EXPECT_TRUE(FindDataFile(DataFileKind::kMocapStructure, L"m", 1, nullptr));
}

// An empty root is searched as a path relative to the working folder, but never listed.
TEST_F(DataFilesTest, EmptyRootsAndListing) {
  UseInstallations({install_[0].path().string(), "", ""});
  Put(0, "Structures/human.structure");
  Put(0, "Structures/a.structure");
  Put(0, "Structures/b.base");
  Put(0, "Structures/x.structure.bak");
  Put(0, "Structures/Mocap/m.structure");
  std::filesystem::create_directories(Data(0, "Structures/d.structure"));
  iotest::TempFolder work;
  iotest::WriteFile(work / "Structures/rel.structure", "x");
  iotest::WriteFile(work / "Structures/human.structure", "x");
  const std::filesystem::path previous = std::filesystem::current_path();
  std::filesystem::current_path(work.path());
  CString path;
  const bool found = FindDataFile(DataFileKind::kStructure, L"rel", 1, &path);
  std::vector<CString> names = {L"stale"};
  ListDataFiles(DataFileKind::kStructure, 1, &names);
  std::vector<CString> from_two = {L"stale"};
  ListDataFiles(DataFileKind::kStructure, 2, &from_two);
  std::filesystem::current_path(previous);
  EXPECT_TRUE(found);
  EXPECT_EQ(path, CString(L"Structures/rel.structure"));
  std::sort(names.begin(), names.end());  // in the order the folder lists them
  EXPECT_EQ(names, (std::vector<CString>{L"a.structure", L"human.structure"}));
  EXPECT_TRUE(from_two.empty());
  {  // Root by root, and the other kinds.
    UseAllThree();
    Put(1, "Structures/human.structure");
    ListDataFiles(DataFileKind::kStructure, 1, &names);
    ASSERT_EQ(names.size(), 3u);
    EXPECT_EQ(names[2], CString(L"human.structure"));
    ListDataFiles(DataFileKind::kStructure, 2, &names);
    EXPECT_EQ(names, (std::vector<CString>{L"human.structure"}));
    ListDataFiles(DataFileKind::kMocapStructure, 1, &names);
    EXPECT_EQ(names, (std::vector<CString>{L"m.structure"}));
    ListDataFiles(DataFileKind::kStructureBase, 1, &names);
    EXPECT_EQ(names, (std::vector<CString>{L"b.base"}));
    ListDataFiles(DataFileKind::kTagTemplate, 1, &names);  // no folder at all
    EXPECT_TRUE(names.empty());
  }
}

}  // namespace
}  // namespace kavor

#include "kavor/io/data_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>
#include <vector>

#include "app/app_settings.h"
#include "kavor/io/io_test_support.h"

namespace kavor {
namespace {

using KRX::CString;
using Names = std::vector<CString>;

// Three installation folders, each with its own data root; the tests choose which of them
// the host reports.
class DataFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const auto& folder : install_) ASSERT_FALSE(folder.path().empty());
  }
  void TearDown() override { UseInstallations({"", "", ""}); }

  // Makes the host report these installation paths (empty = none) and forgets the roots.
  void UseInstallations(const std::array<std::string, 3>& paths) {
    for (int kind = 1; kind <= 3; ++kind) KRX::rt::SetInstallationPath(kind, paths[kind - 1]);
    ResetDataRoots();
  }
  void UseAllThree() { UseInstallations({Install(0), Install(1), Install(2)}); }
  std::string Install(int i) const { return install_[i].path().string(); }
  // A file below installation `i` (0..2), relative to its data root.
  std::string Data(int i, const std::string& relative) const {
    return install_[i] / ("Addons/Trevalin/Data/" + relative);
  }
  void Put(int i, const std::string& relative) { iotest::WriteFile(Data(i, relative), "x"); }
  // The path FindDataFile gives, or "not found".
  static CString Found(DataFileKind kind, const wchar_t* name, int start_root) {
    CString path = L"not found";
    return FindDataFile(kind, name, start_root, &path) ? path : CString(L"not found");
  }

  std::array<iotest::TempFolder, 3> install_;
};

TEST_F(DataFilesTest, RootsAreTheInstallationPathsWithTheDataSuffix) {
  UseInstallations({Install(0), "", Install(2) + "/"});
  EXPECT_EQ(DataRoots()[0], CString(Install(0) + "/Addons/Trevalin/Data/"));
  EXPECT_EQ(DataRoots()[1], CString());  // no installation path: the root stays empty
  // A path that ends in a separator does not get a second one.
  EXPECT_EQ(DataRoots()[2], CString(Install(2) + "/Addons/Trevalin/Data/"));
  {  // Computed once: a changed installation path is seen only after a reset.
    KRX::rt::SetInstallationPath(2, Install(1));
    EXPECT_EQ(DataRoots()[1], CString());
    ResetDataRoots();
    EXPECT_EQ(DataRoots()[1], CString(Install(1) + "/Addons/Trevalin/Data/"));
  }
}

TEST_F(DataFilesTest, FindDataFileSearchesFromTheStartRootToRootThree) {
  UseAllThree();
  for (const char* file :
       {"Structures/human.structure", "Structures/human.base", "Structures/Mocap/bvh.structure",
        "TagTemplates/t.tagt", "Structures/first.structure", "x.structure"}) {
    Put(0, file);
  }
  Put(1, "Structures/second.structure");
  Put(2, "Structures/second.structure");
  Put(2, "Structures/first.structure");
  {  // Each kind has its folder and extension; another kind's file is not found.
    EXPECT_EQ(Found(DataFileKind::kStructure, L"human", 1), Data(0, "Structures/human.structure"));
    EXPECT_EQ(Found(DataFileKind::kStructureBase, L"human", 1), Data(0, "Structures/human.base"));
    EXPECT_EQ(Found(DataFileKind::kMocapStructure, L"bvh", 1),
              Data(0, "Structures/Mocap/bvh.structure"));
    EXPECT_EQ(Found(DataFileKind::kTagTemplate, L"t", 1), Data(0, "TagTemplates/t.tagt"));
    EXPECT_EQ(Found(DataFileKind::kMocapStructure, L"human", 1), L"not found");
    EXPECT_EQ(Found(DataFileKind::kTagTemplate, L"human", 1), L"not found");
    EXPECT_EQ(Found(static_cast<DataFileKind>(4), L"human", 1), L"not found");
  }
  {  // The first root that holds it wins; starting later skips the earlier roots; below
     // root 1 is root 1, beyond root 3 nothing.
    EXPECT_EQ(Found(DataFileKind::kStructure, L"second", 1),
              Data(1, "Structures/second.structure"));
    EXPECT_EQ(Found(DataFileKind::kStructure, L"first", 2), Data(2, "Structures/first.structure"));
    EXPECT_EQ(Found(DataFileKind::kStructure, L"second", 3),
              Data(2, "Structures/second.structure"));
    EXPECT_EQ(Found(DataFileKind::kStructure, L"first", 0), Data(0, "Structures/first.structure"));
    EXPECT_EQ(Found(DataFileKind::kStructure, L"second", 4), L"not found");
  }
  {  // Names that leave the kind's folder are refused.
    EXPECT_EQ(Found(DataFileKind::kStructure, L"Mocap/bvh", 1), L"not found");
    EXPECT_EQ(Found(DataFileKind::kStructure, L"Mocap\\bvh", 1), L"not found");
    EXPECT_EQ(Found(DataFileKind::kStructure, L"../x", 1), L"not found");
  }
  {  // Something that exists but is no regular file does not count.
    std::filesystem::create_directories(Data(1, "Structures/first.structure"));
    EXPECT_EQ(Found(DataFileKind::kStructure, L"first", 2), Data(2, "Structures/first.structure"));
  }
}

// An empty root is searched as a path relative to the working folder, but never listed.
// Listing goes root by root, and a name below two roots is listed twice.
TEST_F(DataFilesTest, EmptyRootsAndListing) {
  UseInstallations({Install(0), "", ""});
  for (const char* file :
       {"Structures/human.structure", "Structures/a.structure", "Structures/b.base",
        "Structures/x.structure.bak", "Structures/Mocap/m.structure"}) {
    Put(0, file);
  }
  std::filesystem::create_directories(Data(0, "Structures/d.structure"));
  iotest::TempFolder work;
  iotest::WriteFile(work / "Structures/rel.structure", "x");
  iotest::WriteFile(work / "Structures/human.structure", "x");
  const std::filesystem::path previous = std::filesystem::current_path();
  std::filesystem::current_path(work.path());
  const CString relative = Found(DataFileKind::kStructure, L"rel", 1);
  Names names = {L"stale"};
  ListDataFiles(DataFileKind::kStructure, 1, &names);
  Names from_two = {L"stale"};
  ListDataFiles(DataFileKind::kStructure, 2, &from_two);
  std::filesystem::current_path(previous);
  EXPECT_EQ(relative, CString(L"Structures/rel.structure"));
  std::sort(names.begin(), names.end());  // in the order the folder lists them
  EXPECT_EQ(names, (Names{L"a.structure", L"human.structure"}));
  EXPECT_TRUE(from_two.empty());

  UseAllThree();
  Put(1, "Structures/human.structure");
  ListDataFiles(DataFileKind::kStructure, 1, &names);
  ASSERT_EQ(names.size(), 3u);
  EXPECT_EQ(names[2], CString(L"human.structure"));
  ListDataFiles(DataFileKind::kStructure, 2, &names);
  EXPECT_EQ(names, (Names{L"human.structure"}));
  ListDataFiles(DataFileKind::kMocapStructure, 1, &names);
  EXPECT_EQ(names, (Names{L"m.structure"}));
  ListDataFiles(DataFileKind::kStructureBase, 1, &names);
  EXPECT_EQ(names, (Names{L"b.base"}));
  ListDataFiles(DataFileKind::kTagTemplate, 1, &names);  // no folder at all
  EXPECT_TRUE(names.empty());
}

}  // namespace
}  // namespace kavor

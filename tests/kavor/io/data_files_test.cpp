// The data roots below the installation folders, and finding and listing data files in
// them.
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
  void TearDown() override { UseInstallations({"", "", ""}); }

  // Makes the host report these installation paths (empty = none) and forgets the roots.
  static void UseInstallations(const std::array<std::string, 3>& paths) {
    for (int kind = 1; kind <= 3; ++kind) KRX::rt::SetInstallationPath(kind, paths[kind - 1]);
    ResetDataRoots();
  }
  std::string Install(int i) const { return install_[i].path().string(); }
  // A file below installation `i` (0..2), relative to its data root.
  std::string Data(int i, const std::string& relative) const {
    return install_[i] / ("Addons/Trevalin/Data/" + relative);
  }
  void Put(int i, const std::string& relative) { iotest::WriteFile(Data(i, relative), "x"); }
  static Names List(DataFileKind kind, int start_root) {
    Names names = {L"stale"};
    ListDataFiles(kind, start_root, &names);
    return names;
  }

  std::array<iotest::TempFolder, 3> install_;
};

// A root is its installation path with the data suffix (one separator), empty without one,
// and is computed once: a changed installation path is seen only after a reset.
TEST_F(DataFilesTest, RootsAreTheInstallationPathsWithTheDataSuffix) {
  UseInstallations({Install(0), "", Install(2) + "/"});
  EXPECT_EQ(DataRoots()[0], CString(Install(0) + "/Addons/Trevalin/Data/"));
  EXPECT_EQ(DataRoots()[1], CString());
  EXPECT_EQ(DataRoots()[2], CString(Install(2) + "/Addons/Trevalin/Data/"));
  KRX::rt::SetInstallationPath(2, Install(1));
  EXPECT_EQ(DataRoots()[1], CString());
  ResetDataRoots();
  EXPECT_EQ(DataRoots()[1], CString(Install(1) + "/Addons/Trevalin/Data/"));
}

// Each kind has its folder and extension. The search runs from the start root (below 1 is
// 1) to root 3 and the first root holding a regular file of that name wins; names that
// leave the kind's folder are refused.
TEST_F(DataFilesTest, FindDataFileSearchesFromTheStartRootToRootThree) {
  UseInstallations({Install(0), Install(1), Install(2)});
  for (const char* file :
       {"Structures/human.structure", "Structures/human.base", "Structures/Mocap/bvh.structure",
        "TagTemplates/t.tagt", "Structures/first.structure", "x.structure",
        "Structures/a\\b.structure"}) {
    Put(0, file);
  }
  Put(1, "Structures/second.structure");
  Put(2, "Structures/second.structure");
  Put(2, "Structures/first.structure");
  std::filesystem::create_directories(Data(1, "Structures/first.structure"));
  constexpr DataFileKind kS = DataFileKind::kStructure;
  const struct {
    DataFileKind kind;
    const wchar_t* name;
    int start;
    int root;  // -1: not found
    std::string file;
  } cases[] = {
      {kS, L"human", 1, 0, "Structures/human.structure"},
      {DataFileKind::kStructureBase, L"human", 1, 0, "Structures/human.base"},
      {DataFileKind::kMocapStructure, L"bvh", 1, 0, "Structures/Mocap/bvh.structure"},
      {DataFileKind::kTagTemplate, L"t", 1, 0, "TagTemplates/t.tagt"},
      {DataFileKind::kMocapStructure, L"human", 1, -1, ""},
      {static_cast<DataFileKind>(4), L"human", 1, -1, ""},
      {kS, L"second", 1, 1, "Structures/second.structure"},
      {kS, L"first", 0, 0, "Structures/first.structure"},
      {kS, L"first", 2, 2, "Structures/first.structure"},  // root 2 holds a folder
      {kS, L"second", 4, -1, ""},
      {kS, L"Mocap/bvh", 1, -1, ""},
      {kS, L"a\\b", 1, -1, ""},  // the file exists
  };
  for (const auto& c : cases) {
    CString path = L"untouched";
    const bool found = FindDataFile(c.kind, c.name, c.start, &path);
    EXPECT_EQ(found ? path : CString(L"not found"),
              c.root < 0 ? CString(L"not found") : CString(Data(c.root, c.file)))
        << CString(c.name).GetAsciiString() << " from root " << c.start;
  }
}

// An empty root is searched as a path relative to the working folder, but never listed.
// Listing goes root by root (a name below two roots comes twice) and takes only regular
// files of the kind's extension.
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
  CString relative;
  EXPECT_TRUE(FindDataFile(DataFileKind::kStructure, L"rel", 1, &relative));
  Names names = List(DataFileKind::kStructure, 1);
  const Names from_two = List(DataFileKind::kStructure, 2);
  std::filesystem::current_path(previous);
  EXPECT_EQ(relative, CString(L"Structures/rel.structure"));
  std::sort(names.begin(), names.end());  // in the order the folder lists them
  EXPECT_EQ(names, (Names{L"a.structure", L"human.structure"}));
  EXPECT_TRUE(from_two.empty());

  UseInstallations({Install(0), Install(1), Install(2)});
  Put(1, "Structures/human.structure");
  names = List(DataFileKind::kStructure, 1);
  ASSERT_EQ(names.size(), 3u);
  EXPECT_EQ(names[2], CString(L"human.structure"));
  EXPECT_EQ(List(DataFileKind::kStructure, 2), (Names{L"human.structure"}));
  EXPECT_EQ(List(DataFileKind::kMocapStructure, 1), (Names{L"m.structure"}));
  EXPECT_EQ(List(DataFileKind::kStructureBase, 1), (Names{L"b.base"}));
  EXPECT_TRUE(List(DataFileKind::kTagTemplate, 1).empty());  // no folder at all
}

}  // namespace
}  // namespace kavor

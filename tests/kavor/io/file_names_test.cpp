#include "kavor/io/file_names.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "kavor/io/io_test_support.h"

namespace kavor {
namespace {

using KRX::CString;

TEST(FileNames, DirectoryOfKeepsTheLastSeparator) {
  {  // Forward slashes.
    EXPECT_EQ(DirectoryOf(L"c:/data/file.tagt"), CString(L"c:/data/"));
  }
  {  // A bare file name has no directory part.
    EXPECT_EQ(DirectoryOf(L"file.tagt"), CString());
    EXPECT_EQ(DirectoryOf(L""), CString());
  }
  {  // Backslashes, and the later of mixed separators.
    EXPECT_EQ(DirectoryOf(L"c:\\data\\file.tagt"), CString(L"c:\\data\\"));
    EXPECT_EQ(DirectoryOf(L"a/b\\c/d.x"), CString(L"a/b\\c/"));
    EXPECT_EQ(DirectoryOf(L"a\\b/c\\d.x"), CString(L"a\\b/c\\"));
  }
  {  // A path ending in a separator is its own directory.
    EXPECT_EQ(DirectoryOf(L"/home/user/"), CString(L"/home/user/"));
  }
}

TEST(FileNames, UpperExtensionIsTheTextAfterTheLastPoint) {
  {
    EXPECT_EQ(UpperExtension(L"a.b.tagt"), CString(L"TAGT"));
    EXPECT_EQ(UpperExtension(L"/data/x.Structure"), CString(L"STRUCTURE"));
  }
  {  // No point: the whole name, upper-cased.
    EXPECT_EQ(UpperExtension(L"tagt"), CString(L"TAGT"));
  }
  {  // A trailing point leaves nothing after it.
    EXPECT_EQ(UpperExtension(L"name."), CString());
  }
}

TEST(FileNames, StripStructureExtensionCutsAtTheFirstOccurrence) {
  EXPECT_EQ(StripStructureExtension(L"human.structure"), CString(L"human"));
  EXPECT_EQ(StripStructureExtension(L"human.structure.bak"), CString(L"human"));
  EXPECT_EQ(StripStructureExtension(L"a.structure.structure"), CString(L"a"));
  EXPECT_EQ(StripStructureExtension(L"human"), CString(L"human"));
  EXPECT_EQ(StripStructureExtension(L"human.struct"), CString(L"human.struct"));
  EXPECT_EQ(StripStructureExtension(L".structure"), CString());
}

TEST(FileNames, FileExistsOnlyForReadableRegularFiles) {
  iotest::TempFolder folder;
  ASSERT_FALSE(folder.path().empty());
  {  // A regular file, also an empty one.
    iotest::WriteFile(folder / "a.txt", "x");
    iotest::WriteFile(folder / "empty.txt", "");
    EXPECT_TRUE(FileExists(CString(folder / "a.txt")));
    EXPECT_TRUE(FileExists(CString(folder / "empty.txt")));
  }
  {  // Missing, a folder, no path.
    EXPECT_FALSE(FileExists(CString(folder / "missing.txt")));
    EXPECT_FALSE(FileExists(CString(folder.path().string())));
    EXPECT_FALSE(FileExists(L""));
  }
  {  // A FIFO is not a file to read, and asking must not wait for a writer.
    const std::string fifo = folder / "pipe";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_FALSE(FileExists(CString(fifo)));
  }
  {  // A NUL inside the path would cut it short to an existing file: refused.
    const std::wstring cut = CString(folder / "a.txt").GetWideString() + std::wstring(1, L'\0') +
                             L"tail";
    EXPECT_FALSE(FileExists(CString(cut)));
  }
}

}  // namespace
}  // namespace kavor

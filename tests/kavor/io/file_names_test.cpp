#include "kavor/io/file_names.h"

#include <gtest/gtest.h>

#include <string>

#include "kavor/io/io_test_support.h"

namespace kavor {
namespace {

using KRX::CString;

// Each function over (input, expected) pairs.
TEST(FileNames, NameParts) {
  const struct {
    CString (*function)(const CString&);
    std::vector<std::pair<const wchar_t*, const wchar_t*>> cases;
  } tables[] = {
      {DirectoryOf,
       {{L"c:/data/file.tagt", L"c:/data/"},
        {L"file.tagt", L""},  // a bare file name has no directory part
        {L"", L""},
        {L"c:\\data\\file.tagt", L"c:\\data\\"},
        {L"a/b\\c/d.x", L"a/b\\c/"},  // the later of mixed separators, either way round
        {L"a\\b/c\\d.x", L"a\\b/c\\"},
        {L"/home/user/", L"/home/user/"}}},  // ending in a separator: its own directory
      {UpperExtension,
       {{L"a.b.tagt", L"TAGT"},
        {L"/data/x.Structure", L"STRUCTURE"},
        {L"tagt", L"TAGT"},  // no point: the whole name, upper-cased
        {L"name.", L""}}},
      {StripStructureExtension,  // cut at the first ".structure"
       {{L"human.structure", L"human"},
        {L"human.structure.bak", L"human"},
        {L"a.structure.structure", L"a"},
        {L"human", L"human"},
        {L"human.struct", L"human.struct"},
        {L".structure", L""}}},
  };
  for (const auto& table : tables) {
    for (const auto& [input, expected] : table.cases) {
      EXPECT_EQ(table.function(input), CString(expected)) << CString(input).GetAsciiString();
    }
  }
}

TEST(FileNames, FileExistsOnlyForReadableRegularFiles) {
  iotest::TempFolder folder;
  ASSERT_FALSE(folder.path().empty());
  iotest::WriteFile(folder / "a.txt", "x");
  iotest::WriteFile(folder / "empty.txt", "");
  EXPECT_TRUE(FileExists(CString(folder / "a.txt")));
  EXPECT_TRUE(FileExists(CString(folder / "empty.txt")));
  EXPECT_FALSE(FileExists(CString(folder / "missing.txt")));
  EXPECT_FALSE(FileExists(CString(folder.path().string())));  // a folder
  EXPECT_FALSE(FileExists(L""));
  // A NUL inside the path would cut it short to an existing file: refused.
  EXPECT_FALSE(FileExists(
      CString(CString(folder / "a.txt").GetWideString() + std::wstring(1, L'\0') + L"tail")));
  // A FIFO is not a file to read, and asking must not wait for a writer.
  iotest::ExpectNoWaitOnFifo(folder / "pipe",
                             [&] { EXPECT_FALSE(FileExists(CString(folder / "pipe"))); });
}

}  // namespace
}  // namespace kavor

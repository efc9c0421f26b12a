#include "kavor/io/file_names.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "kavor/io/io_test_support.h"

namespace kavor {
namespace {

using KRX::CString;

TEST(FileNames, NameParts) {
  const std::pair<const wchar_t*, const wchar_t*> directories[] = {
      {L"c:/data/file.tagt", L"c:/data/"},
      {L"file.tagt", L""},  // a bare file name has no directory part
      {L"", L""},
      {L"c:\\data\\file.tagt", L"c:\\data\\"},
      {L"a/b\\c/d.x", L"a/b\\c/"},  // the later of mixed separators, either way round
      {L"a\\b/c\\d.x", L"a\\b/c\\"},
      {L"/home/user/", L"/home/user/"}};  // ending in a separator: its own directory
  for (const auto& [path, directory] : directories) {
    EXPECT_EQ(DirectoryOf(path), CString(directory)) << CString(path).GetAsciiString();
  }
  const std::pair<const wchar_t*, const wchar_t*> extensions[] = {
      {L"a.b.tagt", L"TAGT"},
      {L"/data/x.Structure", L"STRUCTURE"},
      {L"tagt", L"TAGT"},  // no point: the whole name, upper-cased
      {L"name.", L""}};
  for (const auto& [path, extension] : extensions) {
    EXPECT_EQ(UpperExtension(path), CString(extension)) << CString(path).GetAsciiString();
  }
  // Cut at the first ".structure".
  const std::pair<const wchar_t*, const wchar_t*> stripped[] = {
      {L"human.structure", L"human"},     {L"human.structure.bak", L"human"},
      {L"a.structure.structure", L"a"},   {L"human", L"human"},
      {L"human.struct", L"human.struct"}, {L".structure", L""}};
  for (const auto& [name, stem] : stripped) {
    EXPECT_EQ(StripStructureExtension(name), CString(stem)) << CString(name).GetAsciiString();
  }
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

#include "kavor/io/file_names.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

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

}  // namespace
}  // namespace kavor

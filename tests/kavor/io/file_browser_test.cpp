#include "kavor/io/file_browser.h"

#include <gtest/gtest.h>

#include "runtime/interaction.h"

namespace kavor {
namespace {

using KRX::CString;
namespace rt = KRX::rt;

class FileBrowserTest : public ::testing::Test {
 protected:
  void SetUp() override { rt::ResetInteraction(); }
  void TearDown() override { rt::ResetInteraction(); }
};

TEST_F(FileBrowserTest, GivesTheChosenFileOrNothing) {
  {  // An open dialog answered with a file.
    rt::QueueAnswer({rt::AnswerKind::File, 0, CString(L"/data/walk one.bvh")});
    EXPECT_EQ(BrowseForFile(L"BVH (*.bvh)|*.bvh||", L"Load BVH", L"/data/", true),
              CString(L"/data/walk one.bvh"));
    ASSERT_EQ(rt::FileBrowsers().size(), 1u);
    const rt::FileBrowserRecord& shown = rt::FileBrowsers()[0];
    EXPECT_EQ(shown.filter, CString(L"BVH (*.bvh)|*.bvh||"));
    EXPECT_EQ(shown.title, CString(L"Load BVH"));
    EXPECT_EQ(shown.initial_directory, CString(L"/data/"));
    EXPECT_FALSE(shown.save);
  }
  {  // A save dialog, cancelled.
    rt::QueueAnswer({rt::AnswerKind::Cancel, 0, CString()});
    EXPECT_EQ(BrowseForFile(L"Template (*.tagt)|*.tagt||", L"Save Template", L"/tmp/", false),
              CString());
    ASSERT_EQ(rt::FileBrowsers().size(), 2u);
    EXPECT_TRUE(rt::FileBrowsers()[1].save);
    EXPECT_EQ(rt::FileBrowsers()[1].title, CString(L"Save Template"));
  }
  {  // No answer at all: cancelled, and no earlier choice comes back.
    EXPECT_EQ(BrowseForFile(L"*.adj||", L"Load Preset", L"", true), CString());
  }
}

}  // namespace
}  // namespace kavor

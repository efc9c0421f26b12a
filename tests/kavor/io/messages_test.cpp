#include "kavor/io/messages.h"

#include <gtest/gtest.h>

#include "app/app_settings.h"
#include "kavor/io/command_logging.h"
#include "kavor/io/file_browser.h"
#include "kavor/io/io_test_support.h"
#include "kavor/io/progress_bar.h"
#include "runtime/interaction.h"
#include "runtime/log.h"

namespace kavor {
namespace {

using KRX::CString;
namespace rt = KRX::rt;

class MessagesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    rt::ResetInteraction();
    rt::ResetPreferences();
    rt::ClearLog();
  }
  void TearDown() override {
    rt::ResetInteraction();
    rt::ResetPreferences();
  }
  static bool CommandLogOn() { return rt::GetPreference(kCommandLogPreference).GetBool(); }
};

TEST_F(MessagesTest, ShowWarningLogsAndShowsAWarningBox) {
  // The OK-only box gives OK; a warning leaves nothing to decide, so it takes no queued
  // answer.
  rt::QueueAnswer({rt::AnswerKind::Button, 7, CString()});
  EXPECT_EQ(ShowWarning(L"cannot find structure file: human"), KRX::kMsgBoxResultOk);
  ASSERT_EQ(rt::MessageBoxes().size(), 1u);
  const rt::MessageBoxRecord& box = rt::MessageBoxes()[0];
  EXPECT_EQ(box.text, CString(L"cannot find structure file: human"));
  EXPECT_EQ(box.title, CString(L"ZRKRetarget"));
  EXPECT_EQ(box.style, 48);
  EXPECT_TRUE(iotest::Logged(KRX::kSeverityWarning, {"cannot find structure file: human"}));
  EXPECT_EQ(rt::PendingAnswers().size(), 1u);
}

// The switch gives back the setting before it; the guard turns the log off for its
// lifetime and restores what was there, nested guards in turn.
TEST_F(MessagesTest, CommandLoggingSwitchAndGuard) {
  ASSERT_TRUE(CommandLogOn());  // the host's default
  EXPECT_TRUE(SetCommandLogging(false));
  EXPECT_FALSE(CommandLogOn());
  EXPECT_FALSE(SetCommandLogging(true));
  EXPECT_TRUE(CommandLogOn());
  {
    ScopedCommandLoggingOff outer;
    {
      ScopedCommandLoggingOff inner;
      EXPECT_FALSE(inner.previous());
    }
    EXPECT_FALSE(CommandLogOn());
  }
  EXPECT_TRUE(CommandLogOn());
  SetCommandLogging(false);
  { ScopedCommandLoggingOff guard; }
  EXPECT_FALSE(CommandLogOn());
}

TEST_F(MessagesTest, ProgressBarGuardShowsAndHides) {
  const auto work = [](bool cancel) {
    ScopedProgressBar progress(L"Processing FCurves ...", 10, true);
    const rt::ProgressSnapshot shown = rt::CurrentProgress();
    EXPECT_TRUE(shown.visible);
    EXPECT_EQ(shown.caption, CString(L"Processing FCurves ..."));
    EXPECT_EQ(shown.maximum, 10);
    EXPECT_EQ(shown.value, 0);
    EXPECT_EQ(progress.Increment(), 1);
    EXPECT_EQ(progress.Increment(), 2);
    if (cancel) rt::PressProgressCancel();
    return !progress.IsCancelPressed();
  };
  EXPECT_TRUE(work(false));
  EXPECT_FALSE(rt::CurrentProgress().visible);
  // Hidden on an early return too, and cancel reaches the caller.
  EXPECT_FALSE(work(true));
  EXPECT_FALSE(rt::CurrentProgress().visible);
}

TEST_F(MessagesTest, FileBrowserGivesTheChosenFileOrNothing) {
  rt::QueueAnswer({rt::AnswerKind::File, 0, CString(L"/data/walk one.bvh")});
  rt::QueueAnswer({rt::AnswerKind::Cancel, 0, CString()});
  EXPECT_EQ(BrowseForFile(L"BVH (*.bvh)|*.bvh||", L"Load BVH", L"/data/", true),
            CString(L"/data/walk one.bvh"));
  EXPECT_EQ(BrowseForFile(L"Template (*.tagt)|*.tagt||", L"Save Template", L"/tmp/", false),
            CString());
  // No answer at all: cancelled, and no earlier choice comes back.
  EXPECT_EQ(BrowseForFile(L"*.adj||", L"Load Preset", L"", true), CString());
  ASSERT_EQ(rt::FileBrowsers().size(), 3u);
  const rt::FileBrowserRecord& shown = rt::FileBrowsers()[0];
  EXPECT_EQ(shown.filter, CString(L"BVH (*.bvh)|*.bvh||"));
  EXPECT_EQ(shown.title, CString(L"Load BVH"));
  EXPECT_EQ(shown.initial_directory, CString(L"/data/"));
  EXPECT_FALSE(shown.save);
  EXPECT_TRUE(rt::FileBrowsers()[1].save);
}

}  // namespace
}  // namespace kavor

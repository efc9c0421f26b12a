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
  static bool CommandLogOn() { return rt::GetPreference(L"preferences.scripting.cmdlog").GetBool(); }
};

TEST_F(MessagesTest, ShowWarningLogsAndShowsAWarningBox) {
  // Unanswered: the OK-only box gives OK. A warning leaves nothing to decide: it takes no
  // queued answer.
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

TEST_F(MessagesTest, CommandLoggingSwitchAndGuard) {
  {  // The switch gives back the setting before it.
    ASSERT_TRUE(CommandLogOn());  // the host's default
    EXPECT_TRUE(SetCommandLogging(false));
    EXPECT_FALSE(CommandLogOn());
    EXPECT_FALSE(SetCommandLogging(false));
    EXPECT_FALSE(SetCommandLogging(true));
    EXPECT_TRUE(CommandLogOn());
  }
  {  // On before: off inside, on again after; nested guards restore in turn.
    {
      ScopedCommandLoggingOff outer;
      {
        ScopedCommandLoggingOff inner;
        EXPECT_FALSE(inner.previous());
      }
      EXPECT_FALSE(CommandLogOn());
    }
    EXPECT_TRUE(CommandLogOn());
  }
  {  // Off before: stays off after.
    SetCommandLogging(false);
    { ScopedCommandLoggingOff guard; }
    EXPECT_FALSE(CommandLogOn());
    SetCommandLogging(true);
  }
}

TEST_F(MessagesTest, ProgressBarGuardShowsAndHides) {
  {
    ScopedProgressBar progress(L"Processing FCurves ...", 10);
    const rt::ProgressSnapshot shown = rt::CurrentProgress();
    EXPECT_TRUE(shown.visible);
    EXPECT_EQ(shown.caption, CString(L"Processing FCurves ..."));
    EXPECT_EQ(shown.maximum, 10);
    EXPECT_EQ(shown.value, 0);
    EXPECT_EQ(progress.Increment(), 1);
    EXPECT_EQ(progress.Increment(), 2);
  }
  EXPECT_FALSE(rt::CurrentProgress().visible);
  {  // Hidden on an early return too, and cancel reaches the caller.
    const auto work = [] {
      ScopedProgressBar progress(L"Plotting ...", 5, true);
      rt::PressProgressCancel();
      if (progress.IsCancelPressed()) return false;
      return true;
    };
    EXPECT_FALSE(work());
    EXPECT_FALSE(rt::CurrentProgress().visible);
  }
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

// What the plug-in shows the user: warning boxes, the command log switch, progress bars
// and the file browser.
#include "kavor/io/messages.h"

#include <gtest/gtest.h>

#include "app/app_settings.h"
#include "kavor/io/command_logging.h"
#include "kavor/io/file_browser.h"
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
    TearDown();
    rt::ClearLog();
  }
  void TearDown() override {
    rt::ResetInteraction();
    rt::ResetPreferences();
  }
  static bool CommandLogOn() { return rt::GetPreference(kCommandLogPreference).GetBool(); }
};

// A warning is logged and shown in an OK-only warning box, which takes no queued answer.
TEST_F(MessagesTest, ShowWarningLogsAndShowsAWarningBox) {
  rt::QueueAnswer({rt::AnswerKind::Button, 7, CString()});
  EXPECT_EQ(ShowWarning(L"cannot find structure file: human"), KRX::kMsgBoxResultOk);
  ASSERT_EQ(rt::MessageBoxes().size(), 1u);
  const rt::MessageBoxRecord& box = rt::MessageBoxes()[0];
  EXPECT_EQ(box.title + L": " + box.text,
            CString(L"ZRKRetarget: cannot find structure file: human"));
  EXPECT_EQ(box.style, 48);
  ASSERT_EQ(rt::LogLines().size(), 1u);
  EXPECT_EQ(rt::LogLines()[0].text, CString(L"cannot find structure file: human"));
  EXPECT_EQ(rt::LogLines()[0].severity, KRX::kSeverityWarning);
  EXPECT_EQ(rt::PendingAnswers().size(), 1u);
}

// The switch gives back the setting before it; the guard turns the log off for its
// lifetime and restores what was there.
TEST_F(MessagesTest, CommandLoggingSwitchAndGuard) {
  EXPECT_TRUE(SetCommandLogging(false));
  EXPECT_FALSE(SetCommandLogging(true));
  {
    ScopedCommandLoggingOff guard;
    EXPECT_TRUE(guard.previous());
    EXPECT_FALSE(CommandLogOn());
  }
  EXPECT_TRUE(CommandLogOn());
  SetCommandLogging(false);
  { ScopedCommandLoggingOff guard; }
  EXPECT_FALSE(CommandLogOn());
  rt::SetPreference(kCommandLogPreference, KRX::CValue());  // a setting that cannot be read is on
  EXPECT_TRUE(SetCommandLogging(false));
}

// The bar is shown from zero with its caption and maximum, and hidden when the guard goes;
// cancel reaches the caller.
TEST_F(MessagesTest, ProgressBarGuardShowsAndHides) {
  for (const bool cancel : {false, true}) {
    {
      ScopedProgressBar progress(L"Processing FCurves ...", 10, true);
      const rt::ProgressSnapshot shown = rt::CurrentProgress();
      EXPECT_TRUE(shown.visible);
      EXPECT_EQ(shown.caption, CString(L"Processing FCurves ..."));
      EXPECT_EQ(shown.maximum * 100 + shown.value, 1000);
      EXPECT_EQ(progress.Increment(), 1);
      if (cancel) rt::PressProgressCancel();
      EXPECT_EQ(progress.IsCancelPressed(), cancel);
    }
    EXPECT_FALSE(rt::CurrentProgress().visible);
  }
}

// The chosen file, or nothing when cancelled or not answered at all.
TEST_F(MessagesTest, FileBrowserGivesTheChosenFileOrNothing) {
  rt::QueueAnswer({rt::AnswerKind::File, 0, CString(L"/data/walk one.bvh")});
  rt::QueueAnswer({rt::AnswerKind::Cancel, 0, CString()});
  EXPECT_EQ(BrowseForFile(L"*.bvh||", L"Load BVH", L"/data/", true),
            CString(L"/data/walk one.bvh"));
  EXPECT_EQ(BrowseForFile(L"*.tagt||", L"Save Template", L"/tmp/", false), CString());
  EXPECT_EQ(BrowseForFile(L"*.adj||", L"Load Preset", L"", true), CString());
  ASSERT_EQ(rt::FileBrowsers().size(), 3u);
  const rt::FileBrowserRecord& shown = rt::FileBrowsers()[1];
  EXPECT_EQ(shown.filter + shown.title + shown.initial_directory,
            CString(L"*.tagt||Save Template/tmp/"));
  EXPECT_TRUE(shown.save && !rt::FileBrowsers()[0].save);
}

}  // namespace
}  // namespace kavor

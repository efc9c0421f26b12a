// The scripted interaction: the answer queue, message boxes, the file browser and the
// progress bar, as the plug-in reaches them through the SDK.
#include <gtest/gtest.h>

#include "krx/app/app_test_support.h"

namespace KRX::rt {
namespace {

using InteractionTest = AppFixture;

int Box(int style, const char* text = "text", const char* title = "Title") {
  int result = -1;
  EXPECT_EQ(Application().GetUIToolkit().MsgBox(text, style, title, result), CStatus::OK);
  return result;
}

ScriptingObject Browser() {
  const ScriptingObject toolkit(Application().CreateObject(L"KRX.UIToolkit"));
  return toolkit.GetObjectProperty(L"FileBrowser");
}

CString Browse(bool save) {
  ScriptingObject browser = Browser();
  browser.PutProperty(L"Filter", L"Load Template (*.tagt)|*.tagt||");
  browser.Call(save ? L"ShowSave" : L"ShowOpen");
  return browser.GetProperty(L"FilePathName").GetString();
}

TEST_F(InteractionTest, QueuedAnswersAreTakenInOrderByTheirRequests) {
  QueueAnswers({{AnswerKind::Yes, 0, CString()},
                {AnswerKind::File, 0, CString("/data/hero.tagt")},
                {AnswerKind::Ok, 0, CString()},
                {AnswerKind::Button, 4, CString()},
                {AnswerKind::Cancel, 0, CString()},
                {AnswerKind::Ok, 0, CString()}});
  EXPECT_EQ(Box(kMsgBoxYesNo | kMsgBoxIconQuestion), kMsgBoxResultYes);
  EXPECT_EQ(Browse(false), CString("/data/hero.tagt"));
  EXPECT_EQ(Browser().GetProperty(L"FileName").GetString(), CString("hero.tagt"));
  EXPECT_EQ(Box(kMsgBoxOkCancel), kMsgBoxResultOk);
  EXPECT_EQ(Box(kMsgBoxOk), kMsgBoxResultOk);  // one button: takes no answer
  EXPECT_EQ(Box(kMsgBoxYesNoCancel), 4);       // "button N" gives N as it is
  // A modal page takes cancel, then ok.
  EXPECT_EQ(NextAnswer("page"), std::optional<CValue>(CValue(false)));
  EXPECT_EQ(NextAnswer("page"), std::optional<CValue>(CValue(true)));
  EXPECT_TRUE(PendingAnswers().empty());
  EXPECT_EQ(AnswerMismatchCount(), 0);
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(InteractionTest, WithoutAnswersEveryRequestTakesItsSafeDefault) {
  // Message boxes: OK when it is the only button, else No or Cancel; cancel closes a box
  // with its safe button too.
  EXPECT_EQ(Box(kMsgBoxOkCancel), kMsgBoxResultCancel);
  EXPECT_EQ(Box(kMsgBoxYesNoCancel), kMsgBoxResultCancel);
  EXPECT_EQ(Box(kMsgBoxYesNo | kMsgBoxIconQuestion), kMsgBoxResultNo);
  QueueAnswer({AnswerKind::Cancel, 0, CString()});
  EXPECT_EQ(Box(kMsgBoxYesNo), kMsgBoxResultNo);
  ASSERT_EQ(MessageBoxes().size(), 4u);
  EXPECT_FALSE(MessageBoxes()[2].answered);
  EXPECT_TRUE(MessageBoxes()[3].answered);
  // The file browser, modal pages and picks are cancelled.
  EXPECT_EQ(Browse(true), CString());
  EXPECT_FALSE(NextAnswer("page").has_value());
  EXPECT_FALSE(NextAnswer("pick").has_value());
  EXPECT_EQ(AnswerMismatchCount(), 0);
  EXPECT_TRUE(LogLines().empty());
}

TEST_F(InteractionTest, AnAnswerOfAnotherKindIsReportedAndStaysQueued) {
  const Answer pick{AnswerKind::Pick, 1, CString("Hero.hips")};
  QueueAnswers({pick, {AnswerKind::Yes, 0, CString()}});
  {  // a box or a file browser finds a pick at the head: default, error, nothing consumed
    EXPECT_EQ(Box(kMsgBoxYesNo), kMsgBoxResultNo);
    EXPECT_TRUE(Logged(kSeverityError, "'pick Hero.hips' does not answer a message box"));
    EXPECT_EQ(Browse(false), CString());
    EXPECT_TRUE(Logged(kSeverityError, "does not answer a file browser"));
    EXPECT_EQ(AnswerMismatchCount(), 2);
    EXPECT_EQ(PendingAnswers().size(), 2u);
  }
  {  // the pick session it was meant for still finds it, and the box after it its yes
    EXPECT_EQ(NextAnswer("pick"), std::optional<CValue>(CValueArray{1, CValue("Hero.hips")}));
    EXPECT_EQ(Box(kMsgBoxYesNo), kMsgBoxResultYes);
  }
  {  // a box without the answer's button is out of step as well
    QueueAnswer({AnswerKind::Ok, 0, CString()});
    EXPECT_EQ(Box(kMsgBoxYesNo), kMsgBoxResultNo);
    EXPECT_EQ(AnswerMismatchCount(), 3);
    EXPECT_EQ(Box(kMsgBoxOkCancel), kMsgBoxResultOk);
  }
}

TEST_F(InteractionTest, BoxesReachTheObserverAndUnknownNamesAreErrors) {
  std::vector<std::string> seen;
  InteractionHooks hooks;
  hooks.message_box = [&seen](const MessageBoxRecord& box) {
    seen.push_back("[box " + box.title.GetAsciiString() + "] " + box.text.GetAsciiString());
  };
  SetInteractionHooks(hooks);
  Box(kMsgBoxIconWarning, "Select a valid model.", "ZRKRetarget");
  Box(kMsgBoxYesNo, "Overwrite?", "Save");
  EXPECT_EQ(seen, (std::vector<std::string>{"[box ZRKRetarget] Select a valid model.",
                                            "[box Save] Overwrite?"}));
  EXPECT_TRUE(Browser().Call(L"ShowFolder").IsEmpty());
  EXPECT_TRUE(Logged(kSeverityError, "no method named 'ShowFolder'"));
  EXPECT_FALSE(ScriptingObject(Application().CreateObject(L"KRX.Nothing")).IsValid());
}

TEST_F(InteractionTest, ProgressBarClampsItsValueAndRecordsChanges) {
  ProgressBar bar = Application().GetUIToolkit().GetProgressBar();
  bar.PutMaximum(5);
  bar.PutStep(2);
  bar.PutCaption(L"Processing FCurves ...");
  bar.PutVisible(true);
  EXPECT_EQ(bar.Increment(), 2);
  EXPECT_EQ(bar.Increment(), 4);
  EXPECT_EQ(bar.Increment(), 5);  // clamped to the maximum
  EXPECT_EQ(bar.Increment(-7), 0);
  bar.PutVisible(false);
  std::vector<int> values;
  std::vector<bool> shown;
  for (const ProgressSnapshot& s : ProgressHistory()) {
    if (values.empty() || values.back() != s.value) values.push_back(s.value);
    if (shown.empty() || shown.back() != s.visible) shown.push_back(s.visible);
  }
  EXPECT_EQ(values, (std::vector<int>{0, 2, 4, 5, 0}));
  EXPECT_EQ(shown, (std::vector<bool>{false, true, false}));
  // Putting what is already there records nothing.
  const size_t recorded = ProgressHistory().size();
  bar.PutCaption(L"Processing FCurves ...");
  bar.PutValue(0);
  EXPECT_EQ(ProgressHistory().size(), recorded);
}

TEST_F(InteractionTest, ScriptedCancelPressesOnceTheMarkIsReached) {
  ProgressBar bar = Application().GetUIToolkit().GetProgressBar();
  bar.PutMaximum(10);
  PressProgressCancel();  // pressing a hidden bar does nothing
  bar.PutCancelEnabled(true);
  bar.PutVisible(true);
  EXPECT_FALSE(bar.IsCancelPressed());
  {  // the order fires when the value reaches the mark, and only once
    CancelProgressAt(3);
    bar.PutValue(2);
    EXPECT_FALSE(bar.IsCancelPressed());
    bar.Increment(1);
    EXPECT_TRUE(bar.IsCancelPressed());
    bar.PutVisible(false);
    bar.PutValue(0);
    bar.PutVisible(true);  // a new job
    bar.PutValue(5);
    EXPECT_FALSE(bar.IsCancelPressed());
  }
  {  // without cancel enabled the bar never reports a press
    bar.PutCancelEnabled(false);
    PressProgressCancel();
    EXPECT_FALSE(bar.IsCancelPressed());
  }
}

TEST_F(InteractionTest, ValueHistoryIsBoundedButOtherChangesAreAlwaysKept) {
  int heard = 0;
  InteractionHooks hooks;
  hooks.progress = [&heard](const ProgressSnapshot&) { ++heard; };
  SetInteractionHooks(hooks);
  ProgressBar bar = Application().GetUIToolkit().GetProgressBar();
  const int steps = static_cast<int>(kMaxProgressValueRecords) + 100;
  bar.PutMaximum(steps);  // 1 change
  for (int i = 1; i <= steps; ++i) bar.PutValue(i);
  bar.PutCaption(L"done");  // 1 change
  EXPECT_EQ(heard, steps + 2);
  ASSERT_EQ(ProgressHistory().size(), kMaxProgressValueRecords + 2);
  EXPECT_EQ(ProgressHistory().back().caption, CString("done"));
  EXPECT_EQ(ProgressHistory().back().value, steps);
}

}  // namespace
}  // namespace KRX::rt

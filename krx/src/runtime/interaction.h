// User interaction without a screen. Every place where the host would wait for a person
// (message boxes, pick sessions, modal pages, the file browser, the progress bar's cancel
// button) goes through this one interface: it takes the answer a person would give from a
// queue of scripted answers and records what was shown, so that tests can queue answers
// and read back what the user saw, and the krx program can answer from a file.
//
// The answer queue is first in, first out. A request takes the answer at the head of the
// queue when that answer fits it:
//   message box:  button N, cancel, and ok / yes / no when the box has that button
//   modal page:   ok, cancel, yes, no     (ok / yes confirm the page)
//   pick session: pick NAME, pick2 NAME, cancel
//   file browser: file PATH, cancel
// A message box with a single button (a plain warning or note) leaves nothing to decide:
// it takes no answer, so answer scripts hold only the answers to real decisions.
// With an empty queue the request gets its default answer: a message box its safe button
// (No for a yes/no box, Cancel for any box with a Cancel button, Abort for
// abort/retry/ignore), a pick session, a modal page and the file browser are cancelled.
// "cancel" on a box gives that same safe button.
// An answer that does not fit at the head of the queue is a script out of step with what
// the program asks: the request logs an error naming both, counts the mismatch, takes its
// default answer and leaves the queued answer where it is (it is not consumed), so that
// the script's first misplaced line is the one reported and later requests of the right
// kind still find their answers.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "krx/value.h"

namespace KRX::rt {

enum class AnswerKind { Ok, Cancel, Yes, No, Button, Pick, File };

struct Answer {
  AnswerKind kind = AnswerKind::Cancel;
  // Button: the message box result to give (1 OK, 2 Cancel, 6 Yes, 7 No, or any other
  // number). Pick: the pick button used, 1 or 2.
  int number = 0;
  // Pick: the full name of the picked object. File: the chosen path.
  CString text;

  bool operator==(const Answer& o) const = default;
};

// The answer as a line of an answers file ("pick Model.hand", "button 6").
std::string FormatAnswer(const Answer& answer);

// An answers file: one answer per line as listed above, blank lines and lines starting
// with '#' ignored; "pick2 NAME" picks with the second pick button. One more line kind
// is not a queued answer but a standing order for the progress bar:
//   progress-cancel N   the user presses the progress bar's cancel button once its value
//                       reaches N (see CancelProgressAt).
// Names and paths run to the end of the line (surrounding blanks trimmed), so they may
// hold blanks. Every line that is not understood is reported with its line number and
// left out.
struct AnswerScript {
  std::vector<Answer> answers;
  std::optional<int> cancel_progress_at;
  std::vector<std::string> errors;  // "line 3: unknown answer 'maybe'"
};
[[nodiscard]] AnswerScript ParseAnswers(const std::string& text);

// ---- the queue ----
void QueueAnswer(const Answer& answer);
void QueueAnswers(const std::vector<Answer>& answers);
// Queues the script's answers and applies its progress order.
void ApplyAnswerScript(const AnswerScript& script);
std::vector<Answer> PendingAnswers();
void ClearAnswers();
// How many requests found an answer of another kind at the head of the queue.
int AnswerMismatchCount();

// ---- requests (the host's user-interface stand-ins call these) ----

// A message box: returns one of KRX::MsgBoxResult (or the number a "button N" gave).
int RequestMessageBox(const CString& text, int style, const CString& title);

// A pick session with the prompts of the first and the second pick button. `button` is
// 0 when cancelled, else the pick button used; `picked` is the picked item. An answer
// naming nothing in the scene is logged and counts as a cancel.
struct PickResult {
  int button = 0;
  CRef picked;
};
PickResult RequestPick(const CString& first_prompt, const CString& second_prompt);

// The file browser: the chosen path, or nothing when cancelled.
std::optional<CString> RequestFile(const CString& filter, const CString& title,
                                   const CString& initial_directory, bool save);

// The next answer for a request kind given by name, for the parts of the runtime that
// run their own requests (modal property pages ask for "page"):
//   "page"    true for ok / yes, false for cancel / no
//   "msgbox"  the box result as an integer (cancel: 2)
//   "pick"    an array [pick button, name as text]; false for cancel
//   "file"    the path as text; false for cancel
// None when the queue is empty or out of step (then logged and counted as above). What
// the caller shows is the caller's to record (property pages keep their own record).
std::optional<CValue> NextAnswer(const char* kind);

// ---- what was shown ----
struct MessageBoxRecord {
  CString text;
  CString title;
  int style = 0;
  int result = 0;
  bool answered = false;  // false: the default answer was used
};

struct PickRecord {
  CString first_prompt;
  CString second_prompt;
  int button = 0;
  CString picked;  // full name; empty when cancelled
};

struct FileBrowserRecord {
  CString filter;
  CString title;
  CString initial_directory;
  bool save = false;
  CString chosen;  // empty when cancelled
};

// The progress bar as the user sees it.
struct ProgressSnapshot {
  CString caption;
  CString status_text;
  int minimum = 0;
  int maximum = 100;
  int value = 0;
  int step = 1;
  bool visible = false;
  bool cancel_enabled = false;
  bool cancel_pressed = false;

  bool operator==(const ProgressSnapshot& o) const = default;
};

const std::vector<MessageBoxRecord>& MessageBoxes();
const std::vector<PickRecord>& Picks();
const std::vector<FileBrowserRecord>& FileBrowsers();

// The progress bar now, and every state it went through. Changes of the value alone are
// kept up to kMaxProgressValueRecords per process (a long job steps the bar once per
// frame and object); every other change (caption, range, shown, hidden, cancel) is always
// kept.
inline constexpr size_t kMaxProgressValueRecords = 10000;
ProgressSnapshot CurrentProgress();
const std::vector<ProgressSnapshot>& ProgressHistory();
// The user presses cancel once the bar's value reaches `value` while it is shown with
// cancel enabled; nullopt withdraws the order. Pressing is sticky until the bar is shown
// again.
void CancelProgressAt(std::optional<int> value);
// The user presses cancel now (the bar reports it while cancel is enabled).
void PressProgressCancel();

// Desktop views as recorded.
struct ViewRecord {
  CString name;
  CString type;
  CString target_content;  // the "targetcontent" attribute as text
  int state = 0;
  int x = 0, y = 0;
  int width = 0, height = 0;
};
std::vector<ViewRecord> DesktopViews();

// Other things the user saw, one line each, in order:
//   "view create Property Panel RetargetAdjust", "view move RetargetAdjust 110 419",
//   "view resize RetargetAdjust 400 370", "view state RetargetAdjust 1",
//   "view target RetargetAdjust Model.RetargetAdjustPPG", "frame all",
//   "edit file /path/to/file".
const std::vector<std::string>& InteractionNotes();
// Paths the host was asked to open in an editor ("ShowFileForEdit").
const std::vector<CString>& FilesShownForEdit();

// ---- observers (the krx program prints what is shown) ----
struct InteractionHooks {
  std::function<void(const MessageBoxRecord&)> message_box;
  // Every recorded change of the progress bar (also value changes past the history limit).
  std::function<void(const ProgressSnapshot&)> progress;
  std::function<void(const PickRecord&)> pick;
  std::function<void(const FileBrowserRecord&)> file_browser;
  // Each line added to InteractionNotes.
  std::function<void(const std::string&)> note;
};
void SetInteractionHooks(InteractionHooks hooks);

// Forgets every queued answer, every record, the progress order and the mismatch count,
// closes every desktop view and hides the progress bar. Hooks are kept.
void ResetInteraction();

}  // namespace KRX::rt

// The scripted-answer queue and the requests that take from it.
#include "runtime/interaction.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "app/app_items.h"
#include "app/interaction_state.h"
#include "krx/application.h"
#include "runtime/log.h"

namespace KRX::rt {

namespace {

enum class RequestKind { MessageBox, Page, Pick, File };

const char* RequestName(RequestKind kind) {
  switch (kind) {
    case RequestKind::MessageBox:
      return "message box";
    case RequestKind::Page:
      return "modal page";
    case RequestKind::Pick:
      return "pick session";
    case RequestKind::File:
      return "file browser";
  }
  return "request";
}

// The buttons of a message box style, as the results they give.
std::vector<int> BoxButtons(int style) {
  switch (style & 0xF) {
    case kMsgBoxOk:
      return {kMsgBoxResultOk};
    case kMsgBoxOkCancel:
      return {kMsgBoxResultOk, kMsgBoxResultCancel};
    case 2:
      return {3, 4, 5};  // abort, retry, ignore
    case kMsgBoxYesNoCancel:
      return {kMsgBoxResultYes, kMsgBoxResultNo, kMsgBoxResultCancel};
    case kMsgBoxYesNo:
      return {kMsgBoxResultYes, kMsgBoxResultNo};
    case 5:
      return {4, kMsgBoxResultCancel};  // retry, cancel
    default:
      return {kMsgBoxResultOk};
  }
}

// The button a box gives when nobody answers or the box is closed: its safe choice.
int DefaultBoxResult(int style) {
  switch (style & 0xF) {
    case kMsgBoxOk:
      return kMsgBoxResultOk;
    case kMsgBoxYesNo:
      return kMsgBoxResultNo;
    case 2:
      return 3;  // abort
    default:
      return kMsgBoxResultCancel;
  }
}

// The result an answer gives on a box of `style`; nothing when the box has no such
// button. Without a style (-1) every button answer fits.
std::optional<int> BoxResult(const Answer& answer, int style) {
  int result = 0;
  switch (answer.kind) {
    case AnswerKind::Button:
      return answer.number;
    case AnswerKind::Cancel:
      return style < 0 ? kMsgBoxResultCancel : DefaultBoxResult(style);
    case AnswerKind::Ok:
      result = kMsgBoxResultOk;
      break;
    case AnswerKind::Yes:
      result = kMsgBoxResultYes;
      break;
    case AnswerKind::No:
      result = kMsgBoxResultNo;
      break;
    default:
      return std::nullopt;
  }
  if (style < 0) return result;
  const std::vector<int> buttons = BoxButtons(style);
  if (std::find(buttons.begin(), buttons.end(), result) == buttons.end()) return std::nullopt;
  return result;
}

// Whether the answer fits the request. `style` is the message box style (-1 for none).
bool Accepts(RequestKind request, const Answer& answer, int style) {
  switch (request) {
    case RequestKind::MessageBox:
      return BoxResult(answer, style).has_value();
    case RequestKind::Page:
      return answer.kind == AnswerKind::Ok || answer.kind == AnswerKind::Yes ||
             answer.kind == AnswerKind::No || answer.kind == AnswerKind::Cancel;
    case RequestKind::Pick:
      return answer.kind == AnswerKind::Pick || answer.kind == AnswerKind::Cancel;
    case RequestKind::File:
      return answer.kind == AnswerKind::File || answer.kind == AnswerKind::Cancel;
  }
  return false;
}

// The answer at the head of the queue when it fits the request; see the header for what
// happens when it does not.
std::optional<Answer> TakeAnswer(RequestKind kind, const CString& what, int style = -1) {
  InteractionState& state = Interaction();
  if (state.queue.empty()) return std::nullopt;
  const Answer& head = state.queue.front();
  if (!Accepts(kind, head, style)) {
    ++state.mismatches;
    Log(CString("scripted answer '" + FormatAnswer(head) + "' does not answer a " +
                RequestName(kind) + " (" + what.GetAsciiString() + "); it stays queued and the " +
                RequestName(kind) + " takes its default answer"),
        kSeverityError);
    return std::nullopt;
  }
  Answer answer = head;
  state.queue.pop_front();
  return answer;
}

bool Confirms(const Answer& answer) {
  return answer.kind == AnswerKind::Ok || answer.kind == AnswerKind::Yes;
}

}  // namespace

InteractionState& Interaction() {
  static InteractionState* state = new InteractionState;
  return *state;
}

void QueueAnswer(const Answer& answer) { Interaction().queue.push_back(answer); }

void QueueAnswers(const std::vector<Answer>& answers) {
  for (const Answer& a : answers) QueueAnswer(a);
}

void ApplyAnswerScript(const AnswerScript& script) {
  QueueAnswers(script.answers);
  if (script.cancel_progress_at) CancelProgressAt(script.cancel_progress_at);
}

std::vector<Answer> PendingAnswers() {
  const std::deque<Answer>& queue = Interaction().queue;
  return std::vector<Answer>(queue.begin(), queue.end());
}

void ClearAnswers() { Interaction().queue.clear(); }

int AnswerMismatchCount() { return Interaction().mismatches; }

int RequestMessageBox(const CString& text, int style, const CString& title) {
  // A box with a single button leaves nothing to decide: it takes no answer.
  std::optional<Answer> answer;
  if (BoxButtons(style).size() > 1)
    answer = TakeAnswer(RequestKind::MessageBox, "box " + title, style);
  MessageBoxRecord record;
  record.text = text;
  record.title = title;
  record.style = style;
  record.answered = answer.has_value();
  record.result = answer ? BoxResult(*answer, style).value_or(DefaultBoxResult(style))
                         : DefaultBoxResult(style);
  InteractionState& state = Interaction();
  state.message_boxes.push_back(record);
  if (state.hooks.message_box) state.hooks.message_box(record);
  return record.result;
}

PickResult RequestPick(const CString& first_prompt, const CString& second_prompt) {
  std::optional<Answer> answer = TakeAnswer(RequestKind::Pick, "pick " + first_prompt);
  PickResult result;
  if (answer && answer->kind == AnswerKind::Pick) {
    CRef picked = CRef::FromText(answer->text);
    if (picked.IsValid()) {
      result.button = answer->number == 2 ? 2 : 1;
      result.picked = picked;
    } else {
      Log(CString("scripted pick: nothing is named '" + answer->text.GetAsciiString() +
                  "'; the pick session is cancelled"),
          kSeverityError);
    }
  }
  PickRecord record;
  record.first_prompt = first_prompt;
  record.second_prompt = second_prompt;
  record.button = result.button;
  if (result.button > 0) record.picked = result.picked.GetAsText();
  InteractionState& state = Interaction();
  state.picks.push_back(record);
  if (state.hooks.pick) state.hooks.pick(record);
  return result;
}

std::optional<CString> RequestFile(const CString& filter, const CString& title,
                                   const CString& initial_directory, bool save) {
  std::optional<Answer> answer = TakeAnswer(RequestKind::File, "browse " + title);
  FileBrowserRecord record;
  record.filter = filter;
  record.title = title;
  record.initial_directory = initial_directory;
  record.save = save;
  std::optional<CString> chosen;
  if (answer && answer->kind == AnswerKind::File && !answer->text.IsEmpty()) {
    chosen = answer->text;
    record.chosen = answer->text;
  }
  InteractionState& state = Interaction();
  state.file_browsers.push_back(record);
  if (state.hooks.file_browser) state.hooks.file_browser(record);
  return chosen;
}

std::optional<CValue> NextAnswer(const char* kind) {
  const std::string k = kind ? kind : "";
  if (k == "page") {
    std::optional<Answer> answer = TakeAnswer(RequestKind::Page, "page");
    if (!answer) return std::nullopt;
    return CValue(Confirms(*answer));
  }
  if (k == "msgbox") {
    std::optional<Answer> answer = TakeAnswer(RequestKind::MessageBox, "message box");
    if (!answer) return std::nullopt;
    return CValue(BoxResult(*answer, -1).value_or(kMsgBoxResultCancel));
  }
  if (k == "pick") {
    std::optional<Answer> answer = TakeAnswer(RequestKind::Pick, "pick");
    if (!answer) return std::nullopt;
    if (answer->kind != AnswerKind::Pick) return CValue(false);
    return CValue(CValueArray{CValue(answer->number == 2 ? 2 : 1), CValue(answer->text)});
  }
  if (k == "file") {
    std::optional<Answer> answer = TakeAnswer(RequestKind::File, "file");
    if (!answer) return std::nullopt;
    if (answer->kind != AnswerKind::File) return CValue(false);
    return CValue(answer->text);
  }
  Log(CString("scripted answers: unknown request kind '" + k + "'"), kSeverityError);
  return std::nullopt;
}

const std::vector<MessageBoxRecord>& MessageBoxes() { return Interaction().message_boxes; }
const std::vector<PickRecord>& Picks() { return Interaction().picks; }
const std::vector<FileBrowserRecord>& FileBrowsers() { return Interaction().file_browsers; }
const std::vector<std::string>& InteractionNotes() { return Interaction().notes; }
const std::vector<CString>& FilesShownForEdit() { return Interaction().files_for_edit; }

void NoteInteraction(const std::string& line) {
  InteractionState& state = Interaction();
  state.notes.push_back(line);
  if (state.hooks.note) state.hooks.note(line);
}

void SetInteractionHooks(InteractionHooks hooks) { Interaction().hooks = std::move(hooks); }

void ResetInteraction() {
  InteractionState& state = Interaction();
  InteractionHooks hooks = std::move(state.hooks);
  // Views are closed before the records go, so their closing is not kept either.
  ResetDesktop();
  ResetProgressBar();
  ResetScriptObjects();
  state = InteractionState();
  state.hooks = std::move(hooks);
}

}  // namespace KRX::rt

// The host's one progress bar: its state, its history and its scripted cancel button.
#include <algorithm>
#include <memory>
#include <optional>

#include "app/app_items.h"
#include "app/interaction_state.h"
#include "krx/application.h"

namespace KRX {

namespace rt {

namespace {

struct ProgressRecords {
  std::vector<ProgressSnapshot> history;
  size_t value_records = 0;
  std::optional<int> cancel_at;  // one press once the value reaches it
};

ProgressRecords& Records() {
  static ProgressRecords* records = new ProgressRecords;
  return *records;
}

}  // namespace

std::shared_ptr<ProgressBarItem> TheProgressBar() {
  static auto* bar = new std::shared_ptr<ProgressBarItem>(std::make_shared<ProgressBarItem>());
  return *bar;
}

void RecordProgress(const ProgressSnapshot& state, bool value_only) {
  ProgressRecords& records = Records();
  if (!value_only || records.value_records < kMaxProgressValueRecords) {
    records.history.push_back(state);
    if (value_only) ++records.value_records;
  }
  const InteractionHooks& hooks = Interaction().hooks;
  if (hooks.progress) hooks.progress(state);
}

void ResetProgressBar() {
  TheProgressBar()->state = ProgressSnapshot();
  Records() = ProgressRecords();
}

ProgressSnapshot CurrentProgress() { return TheProgressBar()->state; }

const std::vector<ProgressSnapshot>& ProgressHistory() { return Records().history; }

void CancelProgressAt(std::optional<int> value) { Records().cancel_at = value; }

void PressProgressCancel() {
  ProgressSnapshot& state = TheProgressBar()->state;
  if (!state.visible || !state.cancel_enabled || state.cancel_pressed) return;
  state.cancel_pressed = true;
  RecordProgress(state, false);
}

}  // namespace rt

namespace {

using rt::ProgressBarItem;
using rt::ProgressSnapshot;

std::shared_ptr<ProgressBarItem> BarOf(const ProgressBar& bar) {
  auto item = std::dynamic_pointer_cast<ProgressBarItem>(bar.Lock());
  return item && !item->deleted ? item : nullptr;
}

// A standing cancel order fires once the shown bar's value reaches its mark.
void CheckCancelOrder(ProgressSnapshot& state) {
  std::optional<int>& mark = rt::Records().cancel_at;
  if (!mark || !state.visible || !state.cancel_enabled || state.cancel_pressed) return;
  if (state.value < *mark) return;
  mark.reset();
  state.cancel_pressed = true;
  rt::RecordProgress(state, false);
}

// Applies `change` to the bar's state and records the result when it differs.
template <typename Change>
CStatus Update(const ProgressBar& bar, bool value_only, Change change) {
  std::shared_ptr<ProgressBarItem> item = BarOf(bar);
  if (!item) return CStatus::Fail;
  const ProgressSnapshot before = item->state;
  change(item->state);
  if (!(item->state == before)) rt::RecordProgress(item->state, value_only);
  CheckCancelOrder(item->state);
  return CStatus::OK;
}

}  // namespace

CStatus ProgressBar::PutMaximum(int v) {
  return Update(*this, false, [v](ProgressSnapshot& s) { s.maximum = v; });
}

CStatus ProgressBar::PutMinimum(int v) {
  return Update(*this, false, [v](ProgressSnapshot& s) { s.minimum = v; });
}

CStatus ProgressBar::PutValue(int v) {
  return Update(*this, true, [v](ProgressSnapshot& s) {
    s.value = std::clamp(v, std::min(s.minimum, s.maximum), std::max(s.minimum, s.maximum));
  });
}

int ProgressBar::GetValue() const {
  std::shared_ptr<ProgressBarItem> item = BarOf(*this);
  return item ? item->state.value : 0;
}

CStatus ProgressBar::PutStep(int v) {
  return Update(*this, false, [v](ProgressSnapshot& s) { s.step = v; });
}

CStatus ProgressBar::PutCaption(const CString& text) {
  return Update(*this, false, [&text](ProgressSnapshot& s) { s.caption = text; });
}

CStatus ProgressBar::PutStatusText(const CString& text) {
  return Update(*this, false, [&text](ProgressSnapshot& s) { s.status_text = text; });
}

CStatus ProgressBar::PutVisible(bool on) {
  return Update(*this, false, [on](ProgressSnapshot& s) {
    // Showing the bar starts a new job: an earlier press of cancel is forgotten.
    if (on && !s.visible) s.cancel_pressed = false;
    s.visible = on;
  });
}

bool ProgressBar::GetVisible() const {
  std::shared_ptr<ProgressBarItem> item = BarOf(*this);
  return item && item->state.visible;
}

CStatus ProgressBar::PutCancelEnabled(bool on) {
  return Update(*this, false, [on](ProgressSnapshot& s) { s.cancel_enabled = on; });
}

bool ProgressBar::IsCancelPressed() const {
  std::shared_ptr<ProgressBarItem> item = BarOf(*this);
  if (!item) return false;
  CheckCancelOrder(item->state);
  return item->state.cancel_enabled && item->state.cancel_pressed;
}

int ProgressBar::Increment(int step) {
  std::shared_ptr<ProgressBarItem> item = BarOf(*this);
  if (!item) return 0;
  const int by = step != 0 ? step : item->state.step;
  PutValue(item->state.value + by);
  return item->state.value;
}

}  // namespace KRX

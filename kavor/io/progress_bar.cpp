#include "kavor/io/progress_bar.h"

namespace kavor {

ScopedProgressBar::ScopedProgressBar(const KRX::CString& caption, int maximum,
                                     bool cancel_enabled)
    : bar_(KRX::Application().GetUIToolkit().GetProgressBar()) {
  bar_.PutMinimum(0);
  bar_.PutMaximum(maximum);
  bar_.PutValue(0);
  bar_.PutStep(1);
  bar_.PutCancelEnabled(cancel_enabled);
  bar_.PutCaption(caption);
  bar_.PutVisible(true);
}

ScopedProgressBar::~ScopedProgressBar() { bar_.PutVisible(false); }

void ScopedProgressBar::SetCaption(const KRX::CString& caption) { bar_.PutCaption(caption); }

void ScopedProgressBar::SetStatusText(const KRX::CString& text) { bar_.PutStatusText(text); }

void ScopedProgressBar::SetMaximum(int maximum) { bar_.PutMaximum(maximum); }

void ScopedProgressBar::SetValue(int value) { bar_.PutValue(value); }

int ScopedProgressBar::Increment() { return bar_.Increment(1); }

bool ScopedProgressBar::IsCancelPressed() const { return bar_.IsCancelPressed(); }

}  // namespace kavor

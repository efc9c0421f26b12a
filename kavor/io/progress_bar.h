// The host progress bar, shown for the lifetime of a guard.
#pragma once

#include "krx/application.h"

namespace kavor {

// Shows the host progress bar with a caption and hides it again when the guard goes out
// of scope, so that no early return leaves it on screen. The bar starts at 0 with a step
// of 1.
class ScopedProgressBar {
 public:
  explicit ScopedProgressBar(const KRX::CString& caption, int maximum = 100,
                             bool cancel_enabled = false);
  ~ScopedProgressBar();
  ScopedProgressBar(const ScopedProgressBar&) = delete;
  ScopedProgressBar& operator=(const ScopedProgressBar&) = delete;

  void SetCaption(const KRX::CString& caption);
  void SetStatusText(const KRX::CString& text);
  void SetMaximum(int maximum);
  void SetValue(int value);
  // Advances by one step; returns the new value.
  int Increment();
  // True once the user asked to cancel.
  bool IsCancelPressed() const;

 private:
  KRX::ProgressBar bar_;
};

}  // namespace kavor

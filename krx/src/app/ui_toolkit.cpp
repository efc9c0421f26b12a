// UIToolkit: message boxes and the progress bar.
#include <memory>

#include "app/app_items.h"
#include "krx/application.h"

namespace KRX {

CStatus UIToolkit::MsgBox(const CString& text, int style, const CString& title, int& result) {
  auto item = std::dynamic_pointer_cast<rt::ScriptObjectItem>(Lock());
  if (!item || item->deleted || item->kind != rt::ScriptObjectKind::Toolkit) {
    result = 0;
    return CStatus::Fail;
  }
  result = rt::RequestMessageBox(text, style, title);
  return CStatus::OK;
}

ProgressBar UIToolkit::GetProgressBar() const {
  auto item = std::dynamic_pointer_cast<rt::ScriptObjectItem>(Lock());
  if (!item || item->deleted) return ProgressBar();
  return ProgressBar(rt::RefToItem(rt::TheProgressBar()));
}

}  // namespace KRX

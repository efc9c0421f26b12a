#include "kavor/io/messages.h"

#include "kavor/host/host.h"
#include "krx/application.h"

namespace kavor {

int ShowWarning(const KRX::CString& text) {
  LogWarning(text);
  int result = 0;
  KRX::UIToolkit toolkit = KRX::Application().GetUIToolkit();
  if (!KRX::Succeeded(toolkit.MsgBox(text, KRX::kMsgBoxIconWarning, kWarningTitle, result))) {
    return 0;
  }
  return result;
}

}  // namespace kavor

#include "kavor/host/host.h"

namespace kavor {

std::string ToNarrow(const KRX::CString& text) { return text.GetAsciiString(); }

KRX::CString ToWide(std::string_view text) { return KRX::CString(text); }

void LogInfo(const KRX::CString& text) {
  KRX::Application().LogMessage(text, KRX::kSeverityInfo);
}

void LogWarning(const KRX::CString& text) {
  KRX::Application().LogMessage(text, KRX::kSeverityWarning);
}

void LogError(const KRX::CString& text) {
  KRX::Application().LogMessage(text, KRX::kSeverityError);
}

KRX::CValue RunCommand(const KRX::CString& name, const KRX::CValueArray& args) {
  KRX::CValue result;
  TryRunCommand(name, args, &result);
  return result;
}

bool TryRunCommand(const KRX::CString& name, const KRX::CValueArray& args,
                   KRX::CValue* result) {
  KRX::CValue value;
  const KRX::CStatus status = KRX::Application().ExecuteCommand(name, args, value);
  const bool ok = KRX::Succeeded(status);
  if (result != nullptr) *result = ok ? value : KRX::CValue();
  return ok;
}

}  // namespace kavor

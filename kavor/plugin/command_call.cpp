#include "kavor/plugin/command_call.h"

#include <exception>
#include <optional>

#include "kavor/host/host.h"

namespace kavor {

KRX::CStatus DeclareCommand(KRX::CRef& context,
                            std::initializer_list<const wchar_t*> argument_names,
                            CommandReturn return_value, int flags) {
  try {
    KRX::Command command(KRX::Context(context).GetSource());
    command.EnableReturnValue(return_value == CommandReturn::kEnabled);
    if (flags != 0) command.SetFlag(flags, true);
    KRX::ArgumentArray arguments = command.GetArguments();
    for (const wchar_t* name : argument_names) arguments.Add(name, KRX::CValue());
  } catch (const std::exception& e) {
    LogError(KRX::CString("Command initialisation failed: ") + KRX::CString(e.what()));
  }
  return KRX::CStatus::OK;
}

CommandCall::CommandCall(KRX::CRef& context, OnFailure on_failure)
    : context_(context), on_failure_(on_failure) {
  const KRX::CValue arguments = KRX::Context(context_).GetAttribute(L"Arguments");
  if (arguments.GetType() == KRX::ValueType::Array) arguments_ = arguments.GetArray();
}

bool CommandCall::Has(size_t index) const {
  return index < arguments_.size() && !arguments_[index].IsEmpty();
}

KRX::Model CommandCall::ModelAt(size_t index) const {
  if (!Has(index)) return KRX::Model();
  return KRX::Model(arguments_[index].GetRef());
}

KRX::CString CommandCall::TextAt(size_t index) const {
  return Has(index) ? arguments_[index].GetString() : KRX::CString();
}

int32_t CommandCall::IntegerAt(size_t index) const {
  return Has(index) ? arguments_[index].GetInt() : 0;
}

bool CommandCall::FlagAt(size_t index) const {
  return Has(index) ? arguments_[index].GetBool() : false;
}

int32_t CommandCall::IntegerOr(size_t index, int32_t fallback) const {
  return Has(index) ? IntegerAt(index) : fallback;
}

bool CommandCall::FlagOr(size_t index, bool fallback) const {
  return Has(index) ? FlagAt(index) : fallback;
}

KRX::CString CommandCall::TextOr(size_t index, const KRX::CString& fallback) const {
  return Has(index) ? TextAt(index) : fallback;
}

bool CommandCall::Require(size_t index, const wchar_t* missing_message) {
  return Check(Has(index), missing_message);
}

bool CommandCall::RequireModel(size_t index, KRX::Model* model, const wchar_t* missing_message,
                               const wchar_t* invalid_message) {
  if (!Require(index, missing_message)) return false;
  *model = ModelAt(index);
  return Check(model->IsValid(), invalid_message);
}

bool CommandCall::Check(bool condition, const wchar_t* message) {
  if (!condition) Fail(message);
  return condition;
}

void CommandCall::Fail(const KRX::CString& message) {
  LogWarning(message);
  if (on_failure_ == OnFailure::kStoreFalse) Return(false);
}

void CommandCall::Return(const KRX::CValue& value) {
  KRX::Context(context_).PutAttribute(L"ReturnValue", value);
}

double CommandCall::TimeFrames() const { return KRX::OperatorContext(context_).GetTime(); }

KRX::CStatus ExecuteCommandBody(KRX::CRef& context, const char* name, OnFailure on_failure,
                                CommandBody body) {
  // Nothing may leave the callback, not even from the reporting of a failure.
  try {
    std::optional<CommandCall> call;
    KRX::CString failure;
    try {
      call.emplace(context, on_failure);
      body(*call);
    } catch (const std::exception& e) {
      failure = KRX::CString(name) + KRX::CString(" command failed: ") + KRX::CString(e.what());
    } catch (...) {
      failure = KRX::CString(name) + KRX::CString(" command failed.");
    }
    if (!failure.IsEmpty()) {
      LogError(failure);
      if (call && on_failure == OnFailure::kStoreFalse) call->Return(false);
    }
  } catch (...) {
  }
  return KRX::CStatus::OK;
}

}  // namespace kavor

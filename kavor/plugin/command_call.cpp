#include "kavor/plugin/command_call.h"

#include <cassert>
#include <exception>
#include <optional>

#include "kavor/host/host.h"

namespace kavor {

namespace {

KRX::CString CheckMessage(const CommandRow& row, const char* verb, const char* words) {
  return KRX::CString(row.name) + " command " + verb + " " + words;
}

KRX::CString MissingMessage(const CommandRow& row, const ArgumentRow& argument) {
  return CheckMessage(row, "missing", argument.missing);
}

KRX::CString InvalidMessage(const CommandRow& row, const ArgumentRow& argument) {
  return CheckMessage(row, "invalid",
                      argument.invalid != nullptr ? argument.invalid : argument.missing);
}

bool IsMissing(const CommandCall& call, size_t index, ArgumentCheck check) {
  switch (check) {
    case ArgumentCheck::kOptional:
      return false;
    case ArgumentCheck::kPresent:
    case ArgumentCheck::kValidModel:
      return !call.Has(index);
    case ArgumentCheck::kPresentAfterGiven:
      return index > 0 && call.Has(index - 1) && !call.Has(index);
  }
  return false;
}

bool IsInvalid(const CommandCall& call, size_t index, ArgumentCheck check) {
  return check == ArgumentCheck::kValidModel && !call.ModelAt(index).IsValid();
}

// The message of the first check that fails, in the row's order; empty when all hold.
// Arguments after a failed check are not read.
KRX::CString FirstFailedCheck(const CommandRow& row, const CommandCall& call) {
  const size_t count = row.ArgumentCount();
  const bool validity_later = row.order == CheckOrder::kPresenceFirst;
  for (size_t i = 0; i < count; ++i) {
    const ArgumentRow& argument = row.arguments[i];
    if (IsMissing(call, i, argument.check)) return MissingMessage(row, argument);
    if (!validity_later && IsInvalid(call, i, argument.check)) {
      return InvalidMessage(row, argument);
    }
  }
  if (validity_later) {
    for (size_t i = 0; i < count; ++i) {
      const ArgumentRow& argument = row.arguments[i];
      if (IsInvalid(call, i, argument.check)) return InvalidMessage(row, argument);
    }
  }
  return KRX::CString();
}

void StoreReturnValue(KRX::CRef& context, const KRX::CValue& value) {
  KRX::Context(context).PutAttribute(L"ReturnValue", value);
}

}  // namespace

CommandCall::CommandCall(KRX::CRef& context, const CommandRow& row) : context_(context), row_(row) {
  const KRX::CValue arguments = KRX::Context(context_).GetAttribute(L"Arguments");
  if (arguments.GetType() == KRX::ValueType::Array) arguments_ = arguments.GetArray();
}

bool CommandCall::Has(size_t index) const {
  return index < arguments_.size() && !arguments_[index].IsEmpty();
}

void CommandCall::ExpectKind([[maybe_unused]] size_t index,
                             [[maybe_unused]] ArgumentKind kind) const {
  assert(index < row_.ArgumentCount() && row_.arguments[index].kind == kind);
}

KRX::Model CommandCall::ModelAt(size_t index) const {
  ExpectKind(index, ArgumentKind::kModel);
  if (!Has(index)) return KRX::Model();
  return KRX::Model(arguments_[index].GetRef());
}

KRX::CString CommandCall::TextAt(size_t index) const {
  ExpectKind(index, ArgumentKind::kText);
  return Has(index) ? arguments_[index].GetString() : KRX::CString();
}

int32_t CommandCall::IntegerAt(size_t index) const {
  ExpectKind(index, ArgumentKind::kInteger);
  return Has(index) ? arguments_[index].GetInt() : 0;
}

bool CommandCall::FlagAt(size_t index) const {
  ExpectKind(index, ArgumentKind::kFlag);
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

double CommandCall::TimeFrames() const { return KRX::OperatorContext(context_).GetTime(); }

KRX::CStatus InitCommand(KRX::CRef& context, const CommandRow& row) {
  try {
    KRX::Command command(KRX::Context(context).GetSource());
    command.EnableReturnValue(row.returns != CommandReturn::kNone);
    if (row.flags != 0) command.SetFlag(row.flags, true);
    KRX::ArgumentArray arguments = command.GetArguments();
    for (size_t i = 0; i < row.ArgumentCount(); ++i) {
      arguments.Add(row.arguments[i].name, KRX::CValue());
    }
  } catch (const std::exception& e) {
    LogError(KRX::CString("Command initialisation failed: ") + KRX::CString(e.what()));
  }
  return KRX::CStatus::OK;
}

KRX::CStatus ExecuteCommand(KRX::CRef& context, const CommandRow& row) {
  const bool stores_value = row.returns == CommandReturn::kValue;
  // Nothing may leave the callback, not even from the reporting of a failure.
  try {
    std::optional<CommandCall> call;
    KRX::CString failure;
    try {
      call.emplace(context, row);
      const KRX::CString failed_check = FirstFailedCheck(row, *call);
      if (!failed_check.IsEmpty()) {
        LogWarning(failed_check);
        if (stores_value) StoreReturnValue(context, false);
        return KRX::CStatus::OK;
      }
      const KRX::CValue result = row.hand_over(*call);
      if (stores_value) StoreReturnValue(context, result);
    } catch (const std::exception& e) {
      failure = KRX::CString(row.name) + " command failed: " + KRX::CString(e.what());
    } catch (...) {
      failure = KRX::CString(row.name) + " command failed.";
    }
    if (!failure.IsEmpty()) {
      LogError(failure);
      if (call && stores_value) StoreReturnValue(context, false);
    }
  } catch (...) {
  }
  return KRX::CStatus::OK;
}

}  // namespace kavor

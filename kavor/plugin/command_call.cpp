#include "kavor/plugin/command_call.h"

#include <cassert>
#include <exception>
#include <optional>

#include "kavor/host/host.h"

namespace kavor {

namespace {

KRX::CString CheckMessage(const CommandSpec& spec, const char* verb, const char* words) {
  return KRX::CString(spec.name) + " command " + verb + " " + words;
}

KRX::CString MissingMessage(const CommandSpec& spec, const ArgumentSpec& argument) {
  return CheckMessage(spec, "missing", argument.missing);
}

KRX::CString InvalidMessage(const CommandSpec& spec, const ArgumentSpec& argument) {
  return CheckMessage(spec, "invalid",
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
KRX::CString FirstFailedCheck(const CommandSpec& spec, const CommandCall& call) {
  const size_t count = spec.ArgumentCount();
  const bool validity_later = spec.order == CheckOrder::kPresenceFirst;
  for (size_t i = 0; i < count; ++i) {
    const ArgumentSpec& argument = spec.arguments[i];
    if (IsMissing(call, i, argument.check)) return MissingMessage(spec, argument);
    if (!validity_later && IsInvalid(call, i, argument.check)) {
      return InvalidMessage(spec, argument);
    }
  }
  if (validity_later) {
    for (size_t i = 0; i < count; ++i) {
      const ArgumentSpec& argument = spec.arguments[i];
      if (IsInvalid(call, i, argument.check)) return InvalidMessage(spec, argument);
    }
  }
  return KRX::CString();
}

void StoreReturnValue(KRX::CRef& context, const KRX::CValue& value) {
  KRX::Context(context).PutAttribute(L"ReturnValue", value);
}

}  // namespace

CommandCall::CommandCall(KRX::CRef& context, const CommandSpec& spec)
    : context_(context), spec_(spec) {
  const KRX::CValue arguments = KRX::Context(context_).GetAttribute(L"Arguments");
  if (arguments.GetType() == KRX::ValueType::Array) arguments_ = arguments.GetArray();
}

bool CommandCall::Has(size_t index) const {
  return index < arguments_.size() && !arguments_[index].IsEmpty();
}

void CommandCall::ExpectKind([[maybe_unused]] size_t index,
                             [[maybe_unused]] ArgumentKind kind) const {
  assert(index < spec_.ArgumentCount() && spec_.arguments[index].kind == kind);
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

KRX::CStatus InitCommand(KRX::CRef& context, const CommandSpec& spec) {
  try {
    KRX::Command command(KRX::Context(context).GetSource());
    command.EnableReturnValue(spec.returns != CommandReturn::kNone);
    if (spec.flags != 0) command.SetFlag(spec.flags, true);
    KRX::ArgumentArray arguments = command.GetArguments();
    for (size_t i = 0; i < spec.ArgumentCount(); ++i) {
      arguments.Add(spec.arguments[i].name, KRX::CValue());
    }
  } catch (const std::exception& e) {
    LogError(KRX::CString("Command initialisation failed: ") + KRX::CString(e.what()));
  }
  return KRX::CStatus::OK;
}

KRX::CStatus ExecuteCommand(KRX::CRef& context, const CommandSpec& spec) {
  const bool stores_value = spec.returns == CommandReturn::kValue;
  // Nothing may leave the callback, not even from the reporting of a failure.
  try {
    std::optional<CommandCall> call;
    KRX::CString failure;
    try {
      call.emplace(context, spec);
      const KRX::CString failed_check = FirstFailedCheck(spec, *call);
      if (!failed_check.IsEmpty()) {
        LogWarning(failed_check);
        if (stores_value) StoreReturnValue(context, false);
        return KRX::CStatus::OK;
      }
      const KRX::CValue result = spec.hand_over(*call);
      if (stores_value) StoreReturnValue(context, result);
    } catch (const std::exception& e) {
      failure = KRX::CString(spec.name) + " command failed: " + KRX::CString(e.what());
    } catch (...) {
      failure = KRX::CString(spec.name) + " command failed.";
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

// Command and ArgumentArray: what a command's _Init declares about it.
#include "krx/plugin.h"
#include "plugins/plugin_items.h"
#include "runtime/log.h"

namespace KRX {

CStatus Command::EnableReturnValue(bool on) {
  auto item = rt::ItemAs<rt::CommandItem>(*this);
  if (!item) return CStatus::Fail;
  item->return_value = on;
  return CStatus::OK;
}

bool Command::ReturnValueEnabled() const {
  auto item = rt::ItemAs<rt::CommandItem>(*this);
  return item && item->return_value;
}

ArgumentArray Command::GetArguments() const {
  auto item = rt::ItemAs<rt::CommandItem>(*this);
  return item ? ArgumentArray(rt::RefTo(item)) : ArgumentArray();
}

CStatus Command::SetFlag(int flag, bool on) {
  auto item = rt::ItemAs<rt::CommandItem>(*this);
  if (!item) return CStatus::Fail;
  if (on) {
    item->flags |= flag;
  } else {
    item->flags &= ~flag;
  }
  return CStatus::OK;
}

bool Command::GetFlag(int flag) const {
  auto item = rt::ItemAs<rt::CommandItem>(*this);
  return item && flag != 0 && (item->flags & flag) == flag;
}

CStatus ArgumentArray::Add(const CString& name, const CValue& default_value) {
  auto item = rt::ItemAs<rt::CommandItem>(*this);
  if (!item) return CStatus::Fail;
  if (name.IsEmpty()) return CStatus::InvalidArgument;
  for (const rt::CommandArgument& a : item->arguments) {
    if (a.name == name) {
      rt::Log(CString("Command ") + item->name + CString(": argument \"") + name +
                  CString("\" is declared twice."),
              kSeverityWarning);
      return CStatus::InvalidArgument;
    }
  }
  item->arguments.push_back({name, default_value});
  return CStatus::OK;
}

int ArgumentArray::GetCount() const {
  auto item = rt::ItemAs<rt::CommandItem>(*this);
  return item ? static_cast<int>(item->arguments.size()) : 0;
}

}  // namespace KRX

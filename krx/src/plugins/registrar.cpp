// PluginRegistrar: records what a plug-in's entry point registers, in order.
#include <string>

#include "krx/plugin.h"
#include "plugins/plugin_items.h"
#include "plugins/plugin_registry.h"
#include "runtime/log.h"

namespace KRX {

namespace {

using rt::LoadedPluginInfo;
using rt::RegistrationKind;

LoadedPluginInfo* InfoOf(const PluginRegistrar& registrar) {
  auto item = rt::ItemAs<rt::RegistrarItem>(registrar);
  return item ? item->info : nullptr;
}

void AddStep(LoadedPluginInfo& info, RegistrationKind kind, const CString& name) {
  info.steps.push_back({kind, name});
}

template <typename List, typename NameOf>
bool Contains(const List& list, const CString& name, NameOf name_of) {
  for (const auto& entry : list) {
    if (name_of(entry) == name) return true;
  }
  return false;
}

// A name already taken by this plug-in or another loaded one is refused with a warning.
template <typename ListOf, typename NameOf>
bool IsTaken(const LoadedPluginInfo& info, const CString& name, ListOf list_of, NameOf name_of,
             const char* what) {
  bool taken = Contains(list_of(info), name, name_of);
  for (const LoadedPluginInfo& other : rt::Registry().infos) {
    taken = taken || Contains(list_of(other), name, name_of);
  }
  if (taken) {
    rt::Log(CString(std::string("A ") + what + " named \"") + name +
                CString("\" is already registered; the new one is ignored."),
            kSeverityWarning);
  }
  return taken;
}

const CString& Self(const CString& s) { return s; }

}  // namespace

CStatus PluginRegistrar::PutAuthor(const CString& author) {
  LoadedPluginInfo* info = InfoOf(*this);
  if (!info) return CStatus::Fail;
  info->author = author;
  AddStep(*info, RegistrationKind::Author, author);
  return CStatus::OK;
}

CStatus PluginRegistrar::PutName(const CString& name) {
  LoadedPluginInfo* info = InfoOf(*this);
  if (!info) return CStatus::Fail;
  info->name = name;
  AddStep(*info, RegistrationKind::Name, name);
  return CStatus::OK;
}

CStatus PluginRegistrar::PutVersion(int major, int minor) {
  LoadedPluginInfo* info = InfoOf(*this);
  if (!info) return CStatus::Fail;
  info->version_major = major;
  info->version_minor = minor;
  AddStep(*info, RegistrationKind::Version,
          CString(std::to_string(major) + "." + std::to_string(minor)));
  return CStatus::OK;
}

CStatus PluginRegistrar::RegisterCommand(const CString& name, const CString& script_name) {
  LoadedPluginInfo* info = InfoOf(*this);
  if (!info) return CStatus::Fail;
  if (name.IsEmpty()) return CStatus::InvalidArgument;
  CString script = script_name.IsEmpty() ? name : script_name;
  auto commands = [](const LoadedPluginInfo& i) -> const auto& { return i.commands; };
  auto name_of = [](const rt::RegisteredCommand& c) -> const CString& { return c.name; };
  auto script_of = [](const rt::RegisteredCommand& c) -> const CString& {
    return c.script_name;
  };
  if (IsTaken(*info, name, commands, name_of, "command") ||
      IsTaken(*info, script, commands, script_of, "command")) {
    return CStatus::InvalidArgument;
  }
  info->commands.push_back({name, script});
  AddStep(*info, RegistrationKind::Command, name);
  return CStatus::OK;
}

CStatus PluginRegistrar::RegisterProperty(const CString& name) {
  LoadedPluginInfo* info = InfoOf(*this);
  if (!info) return CStatus::Fail;
  if (name.IsEmpty()) return CStatus::InvalidArgument;
  auto properties = [](const LoadedPluginInfo& i) -> const auto& { return i.properties; };
  if (IsTaken(*info, name, properties, Self, "property")) return CStatus::InvalidArgument;
  info->properties.push_back(name);
  AddStep(*info, RegistrationKind::Property, name);
  return CStatus::OK;
}

CStatus PluginRegistrar::RegisterMenu(int anchor, const CString& name, bool submenu,
                                      bool dynamic) {
  LoadedPluginInfo* info = InfoOf(*this);
  if (!info) return CStatus::Fail;
  if (name.IsEmpty()) return CStatus::InvalidArgument;
  auto menus = [](const LoadedPluginInfo& i) -> const auto& { return i.menus; };
  auto name_of = [](const rt::RegisteredMenu& m) -> const CString& { return m.name; };
  if (IsTaken(*info, name, menus, name_of, "menu")) return CStatus::InvalidArgument;
  info->menus.push_back({anchor, name, submenu, dynamic});
  AddStep(*info, RegistrationKind::Menu, name);
  return CStatus::OK;
}

CStatus PluginRegistrar::RegisterOperator(const CString& name) {
  LoadedPluginInfo* info = InfoOf(*this);
  if (!info) return CStatus::Fail;
  if (name.IsEmpty()) return CStatus::InvalidArgument;
  auto operators = [](const LoadedPluginInfo& i) -> const auto& { return i.operators; };
  if (IsTaken(*info, name, operators, Self, "operator")) return CStatus::InvalidArgument;
  info->operators.push_back(name);
  AddStep(*info, RegistrationKind::Operator, name);
  return CStatus::OK;
}

CStatus PluginRegistrar::RegisterEvent(const CString& name, int event_id) {
  LoadedPluginInfo* info = InfoOf(*this);
  if (!info) return CStatus::Fail;
  if (name.IsEmpty()) return CStatus::InvalidArgument;
  info->events.push_back({name, event_id});
  AddStep(*info, RegistrationKind::Event, name);
  return CStatus::OK;
}

}  // namespace KRX

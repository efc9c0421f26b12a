// Application: the log, command execution, the active scene and project, installation
// paths, the user-interface objects and object creation.
#include "krx/application.h"

#include <memory>
#include <string>

#include "app/app_items.h"
#include "app/app_settings.h"
#include "app/command_history.h"
#include "krx/plugin.h"
#include "runtime/callbacks.h"
#include "runtime/commands.h"
#include "runtime/log.h"
#include "runtime/scene_state.h"
#include "scene/scene_edit.h"
#include "script/command_script.h"

namespace KRX {

namespace {

constexpr const wchar_t* kPlayControl = L"Play Control";

std::shared_ptr<rt::Item> FindNamed(const std::vector<std::shared_ptr<rt::Item>>& items,
                                    const wchar_t* name) {
  for (const auto& item : items) {
    if (item && !item->deleted && item->name == CString(name)) return item;
  }
  return nullptr;
}

int& TopLevelDepth() {
  static int depth = 0;
  return depth;
}

// Commands a user ran (not those that commands run themselves) are written to the command
// history while the command-log preference is on; a plug-in command whose flags ask not
// to be logged is left out.
void NoteCommand(const CString& name, const CValueArray& args, bool plugin) {
  if (TopLevelDepth() != 1) return;
  if (!rt::GetPreference(rt::kCommandLogPreference).GetBool()) return;
  if (plugin) {
    rt::PluginCommandInfo info;
    if (rt::DescribePluginCommand(name, &info) && (info.flags & kCommandFlagNoLogging)) return;
  }
  rt::ScriptCommand command;
  command.name = name.GetAsciiString();
  command.args = args;
  rt::AppendCommandHistory(rt::FormatCommand(command));
}

struct DepthGuard {
  DepthGuard() { ++TopLevelDepth(); }
  ~DepthGuard() { --TopLevelDepth(); }
  DepthGuard(const DepthGuard&) = delete;
  DepthGuard& operator=(const DepthGuard&) = delete;
};

}  // namespace

Property Project::GetPlayControl() const {
  std::shared_ptr<rt::Item> project = Lock();
  if (!project || project->deleted || project->cls != ClassID::Project) return Property();
  std::shared_ptr<rt::Item> play_control = FindNamed(project->properties, kPlayControl);
  return play_control ? Property(rt::RefToItem(play_control)) : Property();
}

void Application::LogMessage(const CString& text, int severity) const { rt::Log(text, severity); }

CStatus Application::ExecuteCommand(const CString& name, const CValueArray& args,
                                    CValue& result) const {
  result = CValue();
  DepthGuard depth;
  if (rt::IsHostCommand(name)) {
    NoteCommand(name, args, false);
    return rt::ExecuteHostCommand(name, args, result);
  }
  if (rt::IsPluginCommand(name)) {
    NoteCommand(name, args, true);
    return rt::ExecutePluginCommand(name, args, result);
  }
  rt::Log("unknown command: " + name, kSeverityError);
  return CStatus::Fail;
}

Model Application::GetActiveSceneRoot() const {
  return Model(rt::RefToItem(rt::ActiveScene().root));
}

Project Application::GetActiveProject() const {
  return Project(rt::RefToItem(rt::ActiveScene().project));
}

CString Application::GetInstallationPath(int kind) const {
  return CString(rt::GetInstallationPathText(kind));
}

UIToolkit Application::GetUIToolkit() const {
  return UIToolkit(rt::RefToItem(rt::TheToolkitObject()));
}

Desktop Application::GetDesktop() const { return Desktop(rt::RefToItem(rt::TheDesktop())); }

std::vector<CRef> Application::GetSelection() const {
  std::vector<CRef> selection;
  for (const std::weak_ptr<rt::Item>& entry : rt::ActiveScene().selection) {
    std::shared_ptr<rt::Item> item = entry.lock();
    if (item && !item->deleted) selection.emplace_back(entry);
  }
  return selection;
}

CRef Application::CreateObject(const CString& name) const {
  if (name.IsEqualNoCase(L"KRX.UIToolkit")) return rt::RefToItem(rt::TheToolkitObject());
  if (rt::IsRegisteredOperator(name)) {
    std::shared_ptr<rt::OperatorItem> op = rt::CreateOperatorItem(name);
    if (op) return rt::RefToItem(op);
    rt::Log("cannot create an operator of type " + name, kSeverityError);
    return CRef();
  }
  rt::Log("cannot create an object named " + name, kSeverityError);
  return CRef();
}

CustomOperator Application::CreateScriptedOp(const CString& name, const CString& script,
                                             const CString& language) const {
  std::shared_ptr<rt::OperatorItem> op = rt::CreateScriptedOperator(name, script, language);
  return op ? CustomOperator(rt::RefToItem(op)) : CustomOperator();
}

double Application::GetCurrentFrame() const { return rt::CurrentFrame(); }

CStatus Application::PutCurrentFrame(double frame) const {
  if (!rt::ActiveScene().project) return CStatus::Fail;
  rt::SetCurrentFrame(frame);
  return CStatus::OK;
}

}  // namespace KRX

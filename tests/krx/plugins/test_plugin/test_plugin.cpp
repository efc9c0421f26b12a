// A small plug-in module for the host's plug-in boundary tests. It registers a few of
// every kind of item; its callbacks report what they saw through the host log (prefix
// "tp:") and through context attributes, so the tests can check what the host passed.
#include <stdexcept>
#include <string>

#include "krx/krx.h"

using namespace KRX;

namespace {

void Note(const std::string& text) { Application().LogMessage(CString("tp: " + text)); }

std::string Text(const CValue& v) { return v.GetString().GetAsciiString(); }

}  // namespace

KRX_PLUGIN_EXPORT CStatus KRXLoadPlugin(PluginRegistrar& in_reg) {
  in_reg.PutAuthor(L"krx tests");
  in_reg.PutName(L"Test Plug-in");
  in_reg.PutVersion(1, 2);
  in_reg.RegisterCommand(L"Echo Args", L"EchoArgs");
  in_reg.RegisterCommand(L"NoReturn", L"NoReturn");
  in_reg.RegisterCommand(L"ThrowUp", L"ThrowUp");
  in_reg.RegisterCommand(L"BadInit", L"BadInit");
  in_reg.RegisterCommand(L"NoExecute", L"NoExecute");
  in_reg.RegisterProperty(L"Test Page");
  in_reg.RegisterProperty(L"BareProp");
  in_reg.RegisterMenu(218, L"Test Menu", false, false);
  in_reg.RegisterMenu(7, L"Second Menu", true, true);
  in_reg.RegisterOperator(L"Test Op");
  in_reg.RegisterOperator(L"OtherOp");
  in_reg.RegisterEvent(L"Scene Watch", 5);
  return CStatus::OK;
}

// "Echo Args": three arguments with different defaults; returns the array it was given.
KRX_PLUGIN_EXPORT CStatus EchoArgs_Init(CRef& in_ctxt) {
  Command cmd(Context(in_ctxt).GetSource());
  cmd.EnableReturnValue(true);
  ArgumentArray args = cmd.GetArguments();
  args.Add(L"first");
  args.Add(L"second", 7);
  args.Add(L"third", L"three");
  return CStatus::OK;
}

KRX_PLUGIN_EXPORT CStatus EchoArgs_Execute(CRef& in_ctxt) {
  Context ctxt(in_ctxt);
  ctxt.PutAttribute(L"ReturnValue", ctxt.GetAttribute(L"Arguments"));
  return CStatus::OK;
}

// "NoReturn": no return value enabled, the no-logging flag set; stores a return value
// anyway, which the host must not pass on.
KRX_PLUGIN_EXPORT CStatus NoReturn_Init(CRef& in_ctxt) {
  Command cmd(Context(in_ctxt).GetSource());
  cmd.GetArguments().Add(L"x");
  cmd.SetFlag(kCommandFlagNoLogging, true);
  return CStatus::OK;
}

KRX_PLUGIN_EXPORT CStatus NoReturn_Execute(CRef& in_ctxt) {
  Context ctxt(in_ctxt);
  const CValueArray& args = ctxt.GetAttribute(L"Arguments").GetArray();
  Note("NoReturn x=" + (args.empty() ? std::string("?") : Text(args[0])));
  ctxt.PutAttribute(L"ReturnValue", 99);
  return CStatus::OK;
}

KRX_PLUGIN_EXPORT CStatus ThrowUp_Init(CRef& in_ctxt) {
  Command(Context(in_ctxt).GetSource()).EnableReturnValue(true);
  return CStatus::OK;
}

KRX_PLUGIN_EXPORT CStatus ThrowUp_Execute(CRef&) { throw std::runtime_error("boom"); }

KRX_PLUGIN_EXPORT CStatus BadInit_Init(CRef&) { return CStatus::Fail; }

KRX_PLUGIN_EXPORT CStatus BadInit_Execute(CRef&) {
  Note("BadInit ran");
  return CStatus::OK;
}

KRX_PLUGIN_EXPORT CStatus NoExecute_Init(CRef&) { return CStatus::OK; }

// "Test Page": _DefineLayout starts the layout with a marker group; OnInit adds the rest.
KRX_PLUGIN_EXPORT CStatus TestPage_Define(CRef&) { return CStatus::OK; }

KRX_PLUGIN_EXPORT CStatus TestPage_DefineLayout(CRef& in_ctxt) {
  PPGLayout layout(Context(in_ctxt).GetSource());
  layout.Clear();
  layout.AddGroup(L"Defined");
  layout.EndGroup();
  Note("DefineLayout");
  return CStatus::OK;
}

KRX_PLUGIN_EXPORT CStatus TestPage_PPGEvent(CRef& in_ctxt) {
  PPGEventContext ctxt(in_ctxt);
  switch (ctxt.GetEventID()) {
    case PPGEvent::OnInit: {
      PPGLayout layout = ctxt.GetLayout();
      layout.PutAttribute(L"helpfile", L"page.htm");
      layout.AddTab(L"Main");
      layout.AddGroup(L"Settings");
      layout.AddItem(L"Speed", L"Speed");
      layout.AddRow();
      layout.AddButton(L"Go", L"Go!").PutAttribute(L"width", 70);
      layout.EndRow();
      layout.AddEnumControl(L"Mode", {L"A", 0, L"B", 1}, L"Mode");
      layout.AddSpacer(0, 5);
      layout.EndGroup();
      ctxt.PutAttribute(L"Refresh", true);
      Note("init source=" + SIObject(ctxt.GetSource()).GetName().GetAsciiString());
      break;
    }
    case PPGEvent::ButtonClicked:
      Note("button " + Text(ctxt.GetAttribute(L"Button")));
      if (Text(ctxt.GetAttribute(L"Button")) == "Go") ctxt.PutAttribute(L"Refresh", true);
      break;
    case PPGEvent::ParameterChange:
      Note("changed " + Text(ctxt.GetAttribute(L"Parameter")) +
           " source=" + SIObject(ctxt.GetSource()).GetName().GetAsciiString());
      break;
    case PPGEvent::OnClosed:
      Note("closed");
      break;
    default:
      break;
  }
  return CStatus::OK;
}

// Menus: one item each for "Test Menu", two for "Second Menu" (the second throws).
KRX_PLUGIN_EXPORT CStatus TestMenu_Init(CRef& in_ctxt) {
  return Menu(Context(in_ctxt).GetSource()).AddCallbackItem(L"Do Test", L"TestMenuItem");
}

KRX_PLUGIN_EXPORT CStatus SecondMenu_Init(CRef& in_ctxt) {
  Menu menu(Context(in_ctxt).GetSource());
  menu.AddCallbackItem(L"Alpha", L"AlphaItem");
  return menu.AddCallbackItem(L"Beta", L"ThrowingItem");
}

KRX_PLUGIN_EXPORT CStatus TestMenuItem(CRef& in_ctxt) {
  Note("menu item source=" + SIObject(Context(in_ctxt).GetSource()).GetName().GetAsciiString());
  return CStatus::OK;
}

KRX_PLUGIN_EXPORT CStatus AlphaItem(CRef&) { return CStatus::Abort; }

KRX_PLUGIN_EXPORT CStatus ThrowingItem(CRef&) { throw 42; }

KRX_PLUGIN_EXPORT CStatus MyNewScene_OnEvent(CRef& in_ctxt) {
  Note(std::string("new scene, source valid=") +
       (Context(in_ctxt).GetSource().IsValid() ? "yes" : "no"));
  return CStatus::OK;
}

KRX_PLUGIN_EXPORT CStatus MyOpenScene_OnEvent(CRef&) {
  Note("open scene");
  return CStatus::OK;
}

// The application: log, commands, the active scene and project, installation paths,
// user interaction (message boxes, progress bar, desktop views, scripting objects) and
// object creation. Application is a stateless handle; construct one wherever needed.
#pragma once

#include <vector>

#include "krx/operator.h"
#include "krx/property.h"

namespace KRX {

// Message box styles (combined as a plain number) and results.
enum MsgBoxStyle : int {
  kMsgBoxOk = 0,
  kMsgBoxOkCancel = 1,
  kMsgBoxYesNoCancel = 3,
  kMsgBoxYesNo = 4,
  kMsgBoxIconError = 16,
  kMsgBoxIconQuestion = 32,
  kMsgBoxIconWarning = 48,
  kMsgBoxIconInfo = 64,
};
enum MsgBoxResult : int {
  kMsgBoxResultOk = 1,
  kMsgBoxResultCancel = 2,
  kMsgBoxResultYes = 6,
  kMsgBoxResultNo = 7,
};

class ProgressBar : public CBase {
 public:
  using CBase::CBase;
  CStatus PutMaximum(int v);
  CStatus PutMinimum(int v);
  CStatus PutValue(int v);
  int GetValue() const;
  CStatus PutStep(int v);
  CStatus PutCaption(const CString& text);
  CStatus PutStatusText(const CString& text);
  CStatus PutVisible(bool on);
  bool GetVisible() const;
  CStatus PutCancelEnabled(bool on);
  // True once the user asked to cancel (a scripted answer can do that).
  bool IsCancelPressed() const;
  // Advances by the step; returns the new value.
  int Increment(int step = 0);

 protected:
  ClassID HandleClass() const override { return ClassID::ProgressBar; }
};

class UIToolkit : public CBase {
 public:
  using CBase::CBase;
  // Shows a message box; the result is one of MsgBoxResult.
  CStatus MsgBox(const CString& text, int style, const CString& title, int& result);
  ProgressBar GetProgressBar() const;

 protected:
  ClassID HandleClass() const override { return ClassID::ScriptingObject; }
};

// A desktop view (a floating page, an explorer, ...).
class View : public CBase {
 public:
  using CBase::CBase;
  CString GetName() const;
  // "Property Panel", "Explorer", ...
  CString GetType() const;
  CValue GetAttributeValue(const CString& name) const;
  CStatus PutAttributeValue(const CString& name, const CValue& value);
  // 0 shown, 1 closed, 2 minimised.
  int GetState() const;
  CStatus PutState(int state);
  CStatus Move(int x, int y);
  CStatus Resize(int width, int height);
  void GetSize(int& width, int& height) const;

 protected:
  ClassID HandleClass() const override { return ClassID::View; }
};

class Layout : public CBase {
 public:
  using CBase::CBase;
  std::vector<View> GetViews() const;
  // A new view of the given type ("Property Panel", ...), shown.
  View CreateView(const CString& type, const CString& name);

 protected:
  ClassID HandleClass() const override { return ClassID::Layout; }
};

class Desktop : public CBase {
 public:
  using CBase::CBase;
  Layout GetActiveLayout() const;

 protected:
  ClassID HandleClass() const override { return ClassID::Desktop; }
};

// An object of the host's scripting layer, such as "KRX.UIToolkit" and its
// "FileBrowser": properties by name and methods by name.
class ScriptingObject : public CBase {
 public:
  using CBase::CBase;
  CValue GetProperty(const CString& name) const;
  CStatus PutProperty(const CString& name, const CValue& value);
  // A property that is itself a scripting object ("FileBrowser").
  ScriptingObject GetObjectProperty(const CString& name) const;
  CValue Call(const CString& method, const CValueArray& args = {});

 protected:
  ClassID HandleClass() const override { return ClassID::ScriptingObject; }
};

// The project holds the scene and the "Play Control" property (Current, In, Out, Rate).
class Project : public SceneItem {
 public:
  using SceneItem::SceneItem;
  Property GetPlayControl() const;

 protected:
  ClassID HandleClass() const override { return ClassID::Project; }
};

class Application {
 public:
  // Severity codes: 2 error, 4 warning, 8 information.
  void LogMessage(const CString& text, int severity = kSeverityInfo) const;
  // Runs a host command or a plug-in command by name. Arguments are given in order; an
  // empty value stands for an argument left out. `result` receives the return value
  // (empty when the command has none). Fails for an unknown command.
  CStatus ExecuteCommand(const CString& name, const CValueArray& args, CValue& result) const;

  Model GetActiveSceneRoot() const;
  Project GetActiveProject() const;
  // Installation paths of kinds 1 to 4; empty when not configured.
  CString GetInstallationPath(int kind) const;
  UIToolkit GetUIToolkit() const;
  Desktop GetDesktop() const;
  // The selected items, in selection order.
  std::vector<CRef> GetSelection() const;

  // "KRX.UIToolkit" gives a scripting object; the name of an operator a plug-in registered
  // gives a new, unconnected custom operator of that type.
  CRef CreateObject(const CString& name) const;
  // A host scripted operator. This host knows the scripted operators it ships natively
  // ("ConnectionLine"); the script text is kept, not run.
  CustomOperator CreateScriptedOp(const CString& name, const CString& script,
                                  const CString& language) const;

  // Frames: the current frame of "Play Control".
  double GetCurrentFrame() const;
  CStatus PutCurrentFrame(double frame) const;
};

}  // namespace KRX

// The plug-in boundary: registration, commands, menus and property pages.
//
// The host loads a plug-in module, calls its `KRXLoadPlugin(PluginRegistrar&)` once, and
// afterwards finds every callback by name: the registered name with its blanks removed,
// followed by "_Init", "_Execute", "_Define", "_DefineLayout", "_PPGEvent", "_Update" or
// "_Term". Every callback has the signature `CStatus Name(CRef& context)`; the context is
// a Context (or OperatorContext, PPGEventContext) on the reference.
#pragma once

#include <vector>

#include "krx/application.h"

#define KRX_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace KRX {

// Command flags (combined as a plain number). Recorded as given.
inline constexpr int kCommandFlagNoLogging = 0x800000;

class PluginRegistrar : public CBase {
 public:
  using CBase::CBase;
  CStatus PutAuthor(const CString& author);
  CStatus PutName(const CString& name);
  CStatus PutVersion(int major, int minor);
  CStatus RegisterCommand(const CString& name, const CString& script_name);
  CStatus RegisterProperty(const CString& name);
  CStatus RegisterMenu(int anchor, const CString& name, bool submenu, bool dynamic);
  CStatus RegisterOperator(const CString& name);
  CStatus RegisterEvent(const CString& name, int event_id);
};

class ArgumentArray : public CBase {
 public:
  using CBase::CBase;
  CStatus Add(const CString& name, const CValue& default_value = CValue());
  int GetCount() const;
};

class Command : public SIObject {
 public:
  using SIObject::SIObject;
  CStatus EnableReturnValue(bool on);
  bool ReturnValueEnabled() const;
  ArgumentArray GetArguments() const;
  CStatus SetFlag(int flag, bool on);
  bool GetFlag(int flag) const;

 protected:
  ClassID HandleClass() const override { return ClassID::Command; }
};

class Menu : public SIObject {
 public:
  using SIObject::SIObject;
  // Adds an item that runs the plug-in callback `callback` when chosen.
  CStatus AddCallbackItem(const CString& label, const CString& callback);

 protected:
  ClassID HandleClass() const override { return ClassID::Menu; }
};

// Control types for layout items.
inline constexpr const wchar_t* kControlEdit = L"edit";
inline constexpr const wchar_t* kControlCombo = L"combo";
inline constexpr const wchar_t* kControlCheck = L"check";
inline constexpr const wchar_t* kControlStatic = L"static";
inline constexpr const wchar_t* kControlGrid = L"grid";

class PPGItem : public CBase {
 public:
  using CBase::CBase;
  CStatus PutAttribute(const CString& name, const CValue& value);
  CValue GetAttribute(const CString& name) const;
  CString GetName() const;
  CString GetLabel() const;
  CStatus PutLabel(const CString& label);
};

// The layout of a property page, recorded item by item so that it can be inspected.
class PPGLayout : public CBase {
 public:
  using CBase::CBase;
  CStatus Clear();
  PPGItem AddTab(const CString& label);
  PPGItem AddGroup(const CString& label = L"", bool border = true);
  CStatus EndGroup();
  PPGItem AddRow();
  CStatus EndRow();
  // An item bound to the property's parameter `name`.
  PPGItem AddItem(const CString& name, const CString& label = L"", const CString& control = L"");
  PPGItem AddButton(const CString& name, const CString& label = L"");
  // `items` alternates label and value: {"A", 0, "B", 1}.
  PPGItem AddEnumControl(const CString& name, const CValueArray& items,
                         const CString& label = L"", const CString& control = kControlCombo);
  PPGItem AddStaticText(const CString& text);
  // Empty space of the given size (pixels) between items.
  CStatus AddSpacer(int width = 0, int height = 0);
  CStatus PutAttribute(const CString& name, const CValue& value);
  int GetCount() const;
  PPGItem GetItem(int index) const;
  PPGItem FindItem(const CString& name) const;
};

// Page event identifiers. Values are part of the module interface.
enum class PPGEvent : int {
  OnInit = 0,
  OnClosed = 1,
  ButtonClicked = 2,
  ParameterChange = 3,
  TabChange = 4,
};

class PPGEventContext : public Context {
 public:
  using Context::Context;
  PPGEvent GetEventID() const;
  // The page's layout (for "Refresh" the page re-reads it).
  PPGLayout GetLayout() const;
};

// Signatures of the module's entry point and callbacks.
using LoadPluginFn = CStatus (*)(PluginRegistrar&);
using CallbackFn = CStatus (*)(CRef&);

}  // namespace KRX

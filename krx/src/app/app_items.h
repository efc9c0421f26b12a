// Runtime items behind the application's user-interface handles: the progress bar, the
// desktop with its layout and views, and the scripting objects. They live for the whole
// process (not in a scene): a new or reopened scene keeps its views, as a host's desktop
// does.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "runtime/interaction.h"
#include "runtime/item.h"

namespace KRX::rt {

struct ProgressBarItem : Item {
  ProgressBarItem() : Item(ClassID::ProgressBar) {
    type = L"ProgressBar";
    name = L"ProgressBar";
  }
  ProgressSnapshot state;
};

struct DesktopViewItem : Item {
  DesktopViewItem() : Item(ClassID::View) { type = L"View"; }
  CString view_type;  // "Property Panel", "Explorer", ...
  std::map<std::wstring, CValue> attributes;
  int state = 0;
  int x = 0, y = 0;
  int width = 0, height = 0;
  // The property whose page this view shows ("targetcontent" naming a property).
  std::weak_ptr<Item> shown_property;
};

struct DesktopLayoutItem : Item {
  DesktopLayoutItem() : Item(ClassID::Layout) {
    type = L"Layout";
    name = L"Default";
  }
  std::vector<std::shared_ptr<DesktopViewItem>> views;  // in creation order
};

struct DesktopItem : Item {
  DesktopItem() : Item(ClassID::Desktop) {
    type = L"Desktop";
    name = L"Desktop";
  }
  std::shared_ptr<DesktopLayoutItem> active_layout;
};

// A scripting object: named properties and, by kind, methods.
enum class ScriptObjectKind { Toolkit, FileBrowser };

struct ScriptObjectItem : Item {
  ScriptObjectItem() : Item(ClassID::ScriptingObject) {}
  ScriptObjectKind kind = ScriptObjectKind::Toolkit;
  std::map<std::wstring, CValue> properties;
  std::shared_ptr<ScriptObjectItem> file_browser;  // the toolkit's "FileBrowser"
};

// The process-wide instances (created on first use).
std::shared_ptr<ProgressBarItem> TheProgressBar();
std::shared_ptr<DesktopItem> TheDesktop();
std::shared_ptr<ScriptObjectItem> TheToolkitObject();

// Tells the hooks and the history that the progress bar changed. `value_only` marks a
// change of the value alone (those are recorded up to a limit, see ProgressHistory).
void RecordProgress(const ProgressSnapshot& state, bool value_only);

// A one-line note for the interaction observers ("view RotateNode moved to 110 769").
void NoteInteraction(const std::string& line);

// Resets the desktop (closes every view) and the progress bar; used by ResetInteraction.
void ResetDesktop();
void ResetProgressBar();
void ResetScriptObjects();

// A handle's reference to an item.
inline CRef RefToItem(const std::shared_ptr<Item>& item) { return CRef(std::weak_ptr<Item>(item)); }

}  // namespace KRX::rt

// Property pages without a screen. Inspecting a property runs its page callbacks as a
// host showing the page would (_DefineLayout, then _PPGEvent with OnInit) and records what
// was shown; page events (button clicks, parameter changes, closing) are fired by name.
// A modal page takes its OK / cancel from the scripted answers (NextAnswer("page"),
// runtime/interaction.h).
#pragma once

#include <string>
#include <vector>

#include "krx/plugin.h"

namespace KRX::rt {

struct ShownPage {
  CString property;      // full name of the inspected property
  bool modal = false;
  bool accepted = true;  // modal pages: the answer given
};

// Shows the property's page: a fresh layout from its _DefineLayout (one item per parameter
// when the property has none), then OnInit. Non-modal pages stay open (ClosePage closes
// them) and give true; a modal page is closed again at once (OnClosed) and gives true when
// it was accepted. False for an invalid property.
bool InspectProperty(const CRef& property, bool modal);

// Fires a page event on the property's page. ButtonClicked puts "Button" = item_name on
// the context; ParameterChange puts "Parameter" = item_name and makes the changed
// parameter the context's source (the property otherwise); TabChange puts "Tab". While a
// handler of the page runs, parameter changes of that page do not fire again (a handler
// that writes its own parameters must not call itself back), and nesting of other events
// is bounded. A handler that puts "Refresh" = true makes the page redraw from its layout.
CStatus FirePPGEvent(const CRef& property, PPGEvent id, const CString& item_name = L"");

// For host paths that change a parameter as a user would (SetValue and the like): fires
// ParameterChange when the page of the parameter's property is open; otherwise calls the
// property class's `_ParameterChanged` (when it has one) with the parameter as the
// context's source and "Parameter" = its name, so that a plug-in reacts to every change
// exactly once, whether its page is shown or not.
void NotifyParameterChanged(const CRef& parameter);

// Fires OnClosed on an open page and closes it.
CStatus ClosePage(const CRef& property);
bool IsPageOpen(const CRef& property);

// The layout the property's page was last given (invalid before its first inspection or
// event), and how often a handler asked the page to redraw.
PPGLayout PageLayout(const CRef& property);
int PageRefreshCount(const CRef& property);

// Pages shown, in order.
const std::vector<ShownPage>& ShownPages();
void ClearShownPages();

// The registered property name whose callbacks serve this property: its name when that is
// registered, else the name without a numeric suffix added to keep names unique
// ("TagPPG1" -> "TagPPG").
CString PageClassName(const CRef& property);

// A layout as text, one line per entry, for checks:
//   tab Main | group Settings | endgroup | row | endrow | spacer 0 5
//   item StartFrame label="Start" | button Apply1 label="Apply" width=70
//   enum StructureTag label=" " items=[A:0,B:1] control="Combo"
// A first line "layout key=value ..." lists the layout's attributes when it has any.
std::vector<std::string> LayoutLines(const CRef& layout);

}  // namespace KRX::rt

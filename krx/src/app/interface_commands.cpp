// Host commands that talk to the user: pick sessions, property pages, framing the views
// and opening files in an editor. All of them go through the scripted interaction.
#include <memory>
#include <string>

#include "app/app_commands.h"
#include "app/app_items.h"
#include "app/command_args.h"
#include "app/interaction_state.h"
#include "krx/scene.h"
#include "plugins/pages.h"
#include "runtime/commands.h"

namespace KRX::rt {

namespace {

// The page mode that waits for OK or cancel; a left-out mode is modal too.
constexpr int kModalPageMode = 4;

// FrameAll(...): frames the scene in the views. Without a screen it is only recorded.
CStatus FrameAll(const CValueArray& args, CValue&) {
  NoteInteraction(args.empty() ? "frame all"
                               : "frame all " + Arg(args, 0).GetString().GetAsciiString());
  return CStatus::OK;
}

// InspectObj(property, keywords, title, mode, ...): shows the property's page. A modal
// page (mode 4 or left out) returns whether the user confirmed it; any other mode opens
// the page and leaves it open, and returns true.
CStatus InspectObj(const CValueArray& args, CValue& result) {
  result = CValue(false);
  std::shared_ptr<Item> item = ResolveItem(Arg(args, 0));
  if (!item) {
    CommandError("InspectObj",
                 "nothing is named '" + Arg(args, 0).GetString().GetAsciiString() + "'");
    return CStatus::Fail;
  }
  const CValue& mode = Arg(args, 3);
  const bool modal = mode.IsEmpty() || mode.GetInt() == kModalPageMode;
  result = CValue(InspectProperty(RefToItem(item), modal));
  return CStatus::OK;
}

// PickObject(first prompt, second prompt, ...): a pick session. Returns
// [pick button (0 when cancelled, 1 or 2), modifier keys (always 0), picked item].
CStatus PickObject(const CValueArray& args, CValue& result) {
  const PickResult pick = RequestPick(Arg(args, 0).GetString(), Arg(args, 1).GetString());
  CValueArray answer{CValue(pick.button), CValue(0),
                     pick.button > 0 ? CValue(pick.picked) : CValue()};
  result = CValue(std::move(answer));
  return CStatus::OK;
}

// ShowFileForEdit(path): opens a file in the user's editor; recorded.
CStatus ShowFileForEdit(const CValueArray& args, CValue&) {
  const CString path = Arg(args, 0).GetString();
  if (path.IsEmpty()) {
    CommandError("ShowFileForEdit", "no file given");
    return CStatus::InvalidArgument;
  }
  Interaction().files_for_edit.push_back(path);
  NoteInteraction("edit file " + path.GetAsciiString());
  return CStatus::OK;
}

}  // namespace

void RegisterInterfaceCommands() {
  RegisterHostCommand(L"FrameAll", FrameAll);
  RegisterHostCommand(L"InspectObj", InspectObj);
  RegisterHostCommand(L"PickObject", PickObject);
  RegisterHostCommand(L"ShowFileForEdit", ShowFileForEdit);
}

void RegisterAppCommands() {
  RegisterSceneCommands();
  RegisterValueCommands();
  RegisterInterfaceCommands();
}

}  // namespace KRX::rt

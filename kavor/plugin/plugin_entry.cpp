// The module's entry point: everything the plug-in adds to the host, in the order the
// host is given it. Callbacks are found by the host through these names afterwards.
#include <exception>

#include "kavor/host/host.h"
#include "kavor/plugin/command_table.h"
#include "kavor/plugin/shared_names.h"
#include "krx/plugin.h"

namespace kavor {

namespace {

constexpr const wchar_t* kAuthor = L"KAVOR team";
constexpr const wchar_t* kPluginName = L"KAVOR Plug-in";
constexpr int kVersionMajor = 3;
constexpr int kVersionMinor = 0;

constexpr const wchar_t* kMocapToRig = L"MocapToRig";

// "TagRigPPG" and "MocapToRigPPG" are registered for scenes that carry them; the plug-in
// has no callbacks for them.
constexpr const wchar_t* kProperties[] = {
    kMocapToRig,        L"TagPPG",   L"RetargetAdjustPPG", L"KavorFilePPG", L"RotationOffsetPPG",
    L"PlotRetargetPPG", L"MocapPPG", L"TagRigPPG",         L"RigToRigPPG",  L"MocapToRigPPG",
};

// All menus hang from the same host menu anchor, as plain (not sub-, not dynamic) menus.
constexpr int kMenuAnchor = 218;
constexpr const wchar_t* kMenus[] = {
    L"Tag Rig", L"Rig to Rig", L"Mocap to Rig", L"SaveKavorFileMenu", L"LoadKavorFileMenu",
};

constexpr const wchar_t* kOperators[] = {
    L"RetargetOp",         L"RetargetUpVOp",   L"RetargetGlobalOp",
    L"RetargetDecompOp",   L"RetargetSpineOp", L"RetargetSymmetrySpecialOp",
    L"RetargetSymmetryOp",
};

void RegisterEverything(KRX::PluginRegistrar& registrar) {
  registrar.PutAuthor(kAuthor);
  registrar.PutName(kPluginName);
  registrar.PutVersion(kVersionMajor, kVersionMinor);
  // Each command is registered with its script name equal to its name, in table order.
  for (const CommandRow& command : CommandTable()) {
    registrar.RegisterCommand(command.name, command.name);
  }
  for (const wchar_t* property : kProperties) registrar.RegisterProperty(property);
  for (const wchar_t* menu : kMenus) {
    registrar.RegisterMenu(kMenuAnchor, menu, /*submenu=*/false, /*dynamic=*/false);
  }
  for (const wchar_t* op : kOperators) registrar.RegisterOperator(op);
  // The scene events reach the plug-in through the exported MyNewScene_OnEvent and
  // MyOpenScene_OnEvent callbacks, so no event is registered here.
}

}  // namespace

}  // namespace kavor

KRX_PLUGIN_EXPORT KRX::CStatus KRXLoadPlugin(KRX::PluginRegistrar& registrar) {
  try {
    kavor::SetMocapToRigPropertyName(kavor::kMocapToRig);
    kavor::RegisterEverything(registrar);
  } catch (const std::exception& e) {
    kavor::LogError(KRX::CString("KAVOR Plug-in: registration failed: ") + KRX::CString(e.what()));
    return KRX::CStatus::Fail;
  }
  return KRX::CStatus::OK;
}

// The plug-in's menus: each _Init adds one item, and each item opens a workflow page.
#include <cstdlib>
#include <exception>
#include <string>

#include "kavor/host/host.h"
#include "kavor/plugin/operations.h"
#include "krx/plugin.h"

namespace {

KRX::CStatus AddMenuItem(KRX::CRef& context, const wchar_t* label, const wchar_t* callback) {
  try {
    KRX::Menu menu(KRX::Context(context).GetSource());
    return menu.AddCallbackItem(label, callback);
  } catch (const std::exception& e) {
    kavor::LogError(KRX::CString("Menu initialisation failed: ") + KRX::CString(e.what()));
    return KRX::CStatus::Fail;
  }
}

// The folder the motion file page starts in: the user's home folder, with a trailing
// separator.
KRX::CString InitialMotionFolder() {
  const char* home = std::getenv("HOME");
  std::string folder = (home != nullptr && home[0] != '\0') ? home : "/";
  if (folder.back() != '/') folder.push_back('/');
  return kavor::ToWide(folder);
}

// Runs a page opener; the item reports success whatever the page does.
template <typename Open>
KRX::CStatus RunMenuItem(Open open) {
  try {
    open();
  } catch (const std::exception& e) {
    kavor::LogError(KRX::CString("Menu item failed: ") + KRX::CString(e.what()));
  } catch (...) {
    kavor::LogError(KRX::CString("Menu item failed."));
  }
  return KRX::CStatus::OK;
}

}  // namespace

KRX_PLUGIN_EXPORT KRX::CStatus TagRig_Init(KRX::CRef& context) {
  return AddMenuItem(context, L"Tag Rig", L"TagMenuItem");
}

KRX_PLUGIN_EXPORT KRX::CStatus RigtoRig_Init(KRX::CRef& context) {
  return AddMenuItem(context, L"Rig to Rig", L"RigToRigMenuItem");
}

KRX_PLUGIN_EXPORT KRX::CStatus MocaptoRig_Init(KRX::CRef& context) {
  return AddMenuItem(context, L"Mocap to Rig", L"MocapToRigMenuItem");
}

KRX_PLUGIN_EXPORT KRX::CStatus SaveKavorFileMenu_Init(KRX::CRef& context) {
  return AddMenuItem(context, L"Save Motion", L"SaveKavorFileMenuItem");
}

KRX_PLUGIN_EXPORT KRX::CStatus LoadKavorFileMenu_Init(KRX::CRef& context) {
  return AddMenuItem(context, L"Load Motion", L"LoadKavorFileMenuItem");
}

// With no model given the tag page lets the user pick the character.
KRX_PLUGIN_EXPORT KRX::CStatus TagMenuItem(KRX::CRef&) {
  return RunMenuItem([] { kavor::ops::OpenTagPage(KRX::Model()); });
}

KRX_PLUGIN_EXPORT KRX::CStatus RigToRigMenuItem(KRX::CRef&) {
  return RunMenuItem([] { kavor::ops::OpenRigToRigPage(); });
}

KRX_PLUGIN_EXPORT KRX::CStatus MocapToRigMenuItem(KRX::CRef&) {
  return RunMenuItem([] { kavor::ops::OpenMocapToRigPage(); });
}

KRX_PLUGIN_EXPORT KRX::CStatus SaveKavorFileMenuItem(KRX::CRef&) {
  return RunMenuItem([] {
    kavor::ops::OpenKavorFilePage(kavor::ops::KavorFileMode::kSave, InitialMotionFolder(),
                                  KRX::Model());
  });
}

KRX_PLUGIN_EXPORT KRX::CStatus LoadKavorFileMenuItem(KRX::CRef&) {
  return RunMenuItem([] {
    kavor::ops::OpenKavorFilePage(kavor::ops::KavorFileMode::kLoad, InitialMotionFolder(),
                                  KRX::Model());
  });
}

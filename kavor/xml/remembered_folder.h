// Browsing for a file in the folder the preferences remember for its kind.
#pragma once

#include "krx/value.h"

namespace kavor {

// The folder a browse starts in when the preferences remember none: the plug-in's data
// folder below the host's installation path of kind 4 (".../Addons/Trevalin/Data/").
// Empty when the host has no such installation path.
KRX::CString DefaultBrowseDataFolder();

// The browse every page does: opens the preferences, shows the host file browser on the
// folder remembered under "FILEPATHS" / `key` (DefaultBrowseDataFolder() when none, which
// is then remembered), remembers the chosen file's folder, and closes the preferences.
// A non-empty `start_folder` overrides the remembered folder for this browse. Returns the
// chosen file; empty when the browse was cancelled.
KRX::CString BrowseInRememberedFolder(const KRX::CString& key, const KRX::CString& filter,
                                      const KRX::CString& title, bool open,
                                      const KRX::CString& start_folder = KRX::CString());

}  // namespace kavor

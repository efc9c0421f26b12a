// Process-wide settings of the application: installation paths and preferences.
#pragma once

#include <string>

#include "krx/value.h"

namespace KRX::rt {

// Installation paths of kinds 1 to 4. Until set, kind N defaults to the environment
// variable KRX_INSTALL_PATH_N (read on first use), empty when it is not set. Other kinds
// are ignored (set) or empty (get).
void SetInstallationPath(int kind, std::string path);
std::string GetInstallationPathText(int kind);

// Preferences by full name ("preferences.scripting.cmdlog"), not case sensitive.
// "preferences.scripting.cmdlog" (commands are written to the command history) starts
// true; any other preference exists once it was set.
inline constexpr const char* kCommandLogPreference = "preferences.scripting.cmdlog";
bool IsPreferenceName(const CString& name);
// Empty when the preference does not exist.
CValue GetPreference(const CString& name);
void SetPreference(const CString& name, const CValue& value);
// Back to the defaults.
void ResetPreferences();

}  // namespace KRX::rt

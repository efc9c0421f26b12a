#include "app/app_settings.h"

#include <array>
#include <cstdlib>
#include <map>
#include <optional>
#include <utility>

namespace KRX::rt {

namespace {

constexpr int kPathKinds = 4;

std::array<std::optional<std::string>, kPathKinds>& Paths() {
  static auto* paths = new std::array<std::optional<std::string>, kPathKinds>;
  return *paths;
}

std::map<std::wstring, CValue>& Preferences() {
  static auto* preferences = new std::map<std::wstring, CValue>;
  return *preferences;
}

std::wstring PreferenceKey(const CString& name) { return name.Lower().GetWideString(); }

void FillDefaultPreferences() {
  auto& preferences = Preferences();
  preferences.clear();
  preferences[PreferenceKey(kCommandLogPreference)] = CValue(true);
}

}  // namespace

void SetInstallationPath(int kind, std::string path) {
  if (kind < 1 || kind > kPathKinds) return;
  Paths()[kind - 1] = std::move(path);
}

std::string GetInstallationPathText(int kind) {
  if (kind < 1 || kind > kPathKinds) return std::string();
  std::optional<std::string>& slot = Paths()[kind - 1];
  if (!slot) {
    const std::string variable = "KRX_INSTALL_PATH_" + std::to_string(kind);
    const char* value = std::getenv(variable.c_str());
    slot = value ? std::string(value) : std::string();
  }
  return *slot;
}

bool IsPreferenceName(const CString& name) {
  return name.Lower().FindString(CString(L"preferences.")) == 0;
}

CValue GetPreference(const CString& name) {
  if (Preferences().empty()) FillDefaultPreferences();
  auto it = Preferences().find(PreferenceKey(name));
  return it == Preferences().end() ? CValue() : it->second;
}

void SetPreference(const CString& name, const CValue& value) {
  if (Preferences().empty()) FillDefaultPreferences();
  Preferences()[PreferenceKey(name)] = value;
}

void ResetPreferences() { FillDefaultPreferences(); }

}  // namespace KRX::rt

#include "kavor/xml/preferences.h"

#include <charconv>
#include <string>

#include "kavor/host/host.h"
#include "kavor/io/file_names.h"
#include "krx/application.h"

namespace kavor {
namespace {

bool ParseInteger(const KRX::CString& text, int* out) {
  std::string narrow = ToNarrow(text);
  const size_t first = narrow.find_first_not_of(" \t\r\n");
  const size_t last = narrow.find_last_not_of(" \t\r\n");
  if (first == std::string::npos) return false;
  narrow = narrow.substr(first, last - first + 1);
  if (narrow.size() > 1 && narrow[0] == '+' && narrow[1] != '-') narrow.erase(0, 1);
  int value = 0;
  const auto [end, error] = std::from_chars(narrow.data(), narrow.data() + narrow.size(), value);
  if (error != std::errc() || end != narrow.data() + narrow.size()) return false;
  *out = value;
  return true;
}

}  // namespace

KRX::CString PreferencesFilePath() {
  KRX::CString folder = KRX::Application().GetInstallationPath(1);
  if (folder.IsEmpty()) return KRX::CString();
  while (folder.Length() > 1 &&
         (folder[folder.Length() - 1] == L'/' || folder[folder.Length() - 1] == L'\\')) {
    folder = folder.GetSubString(0, folder.Length() - 1);
  }
  return folder + L"/" + kPreferencesFileName;
}

Preferences::Preferences() : Preferences(PreferencesFilePath()) {}

Preferences::Preferences(const KRX::CString& path) {
  // Without a file to keep them in, the preferences stay empty: reads give their defaults.
  const bool usable = IsUsablePath(path);
  document_.Open(path, usable, usable);
}

KRX::CString Preferences::GetString(const KRX::CString& section, const KRX::CString& key,
                                    const KRX::CString& fallback) {
  XmlElement* element = document_.FindOrCreatePath(section, key);
  if (element == nullptr) return fallback;
  if (ElementHasText(element)) return ElementText(element);
  SetElementText(element, fallback);
  return fallback;
}

void Preferences::SetString(const KRX::CString& section, const KRX::CString& key,
                            const KRX::CString& value) {
  const KRX::CString stored = section == kFilePathsSection ? DirectoryOf(value) : value;
  SetElementText(document_.FindOrCreatePath(section, key), stored);
}

int Preferences::GetInteger(const KRX::CString& section, const KRX::CString& key, int fallback) {
  const KRX::CString text = GetString(section, key, KRX::CString(std::to_string(fallback)));
  int value = fallback;
  return ParseInteger(text, &value) ? value : fallback;
}

void Preferences::SetInteger(const KRX::CString& section, const KRX::CString& key, int value) {
  SetString(section, key, KRX::CString(std::to_string(value)));
}

}  // namespace kavor

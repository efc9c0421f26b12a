#include "kavor/structure/read_options.h"

#include "kavor/xml/preferences.h"

namespace kavor {

bool ReadingSwitchIsOn(const wchar_t* key) {
  // Without an installation path there is no file to read: skip opening the document.
  if (PreferencesFilePath().IsEmpty()) return false;
  Preferences preferences;
  return preferences.GetInteger(kReadingSection, key, 0) != 0;
}

StructureReadOptions PreferredStructureReadOptions() {
  return StructureReadOptions{ReadingSwitchIsOn(kStrictReadingKey)};
}

}  // namespace kavor

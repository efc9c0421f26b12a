#include "kavor/xml/remembered_folder.h"

#include "kavor/io/data_files.h"
#include "kavor/io/file_browser.h"
#include "kavor/xml/preferences.h"
#include "krx/application.h"

namespace kavor {

KRX::CString DefaultBrowseDataFolder() {
  KRX::CString folder = KRX::Application().GetInstallationPath(4);
  if (folder.IsEmpty()) return folder;
  while (folder.Length() > 1 &&
         (folder[folder.Length() - 1] == L'/' || folder[folder.Length() - 1] == L'\\')) {
    folder = folder.GetSubString(0, folder.Length() - 1);
  }
  return folder + kDataFolderSuffix;
}

KRX::CString BrowseInRememberedFolder(const KRX::CString& key, const KRX::CString& filter,
                                      const KRX::CString& title, bool open,
                                      const KRX::CString& start_folder) {
  Preferences preferences;
  const KRX::CString folder = start_folder.IsEmpty()
                                  ? preferences.GetString(kFilePathsSection, key, DefaultBrowseDataFolder())
                                  : start_folder;
  const KRX::CString chosen = BrowseForFile(filter, title, folder, open);
  if (!chosen.IsEmpty()) preferences.SetString(kFilePathsSection, key, chosen);
  preferences.Close();
  return chosen;
}

}  // namespace kavor

#include "kavor/io/file_browser.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "kavor/host/host.h"
#include "krx/application.h"

namespace kavor {

KRX::CString BrowseForFile(const KRX::CString& filter, const KRX::CString& title,
                           const KRX::CString& initial_folder, bool open) {
  const KRX::Application app;
  const KRX::ScriptingObject toolkit(app.CreateObject(L"KRX.UIToolkit"));
  KRX::ScriptingObject browser = toolkit.GetObjectProperty(L"FileBrowser");
  if (!browser.IsValid()) {
    LogError(L"The file browser is not available.");
    return KRX::CString();
  }
  browser.PutProperty(L"Filter", filter);
  browser.PutProperty(L"DialogTitle", title);
  browser.PutProperty(L"InitialDirectory", initial_folder);
  browser.Call(open ? L"ShowOpen" : L"ShowSave");
  return browser.GetProperty(L"FilePathName").GetString();
}

KRX::CString DefaultBrowseFolder() {
  std::string home;
  if (const char* env = std::getenv("HOME"); env != nullptr && *env != '\0') {
    home = env;
  } else if (const passwd* user = getpwuid(getuid()); user != nullptr && user->pw_dir) {
    home = user->pw_dir;
  }
  if (home.empty()) return L"/";
  if (home.back() != '/') home.push_back('/');
  return KRX::CString(home);
}

}  // namespace kavor

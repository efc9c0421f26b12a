// Scripting objects: "KRX.UIToolkit" and its "FileBrowser". The file browser's dialogs
// are answered by the scripted interaction: "ShowOpen" / "ShowSave" take the next file
// answer and put the chosen path into "FilePathName" (empty text when cancelled).
#include <memory>
#include <optional>
#include <string>

#include "app/app_items.h"
#include "krx/application.h"
#include "runtime/log.h"

namespace KRX {

namespace rt {

namespace {

std::shared_ptr<ScriptObjectItem> MakeFileBrowser() {
  auto browser = std::make_shared<ScriptObjectItem>();
  browser->kind = ScriptObjectKind::FileBrowser;
  browser->type = L"FileBrowser";
  browser->name = L"FileBrowser";
  return browser;
}

// The browser's properties as a dialog starts them: nothing chosen, no filter.
void ClearBrowser(ScriptObjectItem& browser) {
  browser.properties.clear();
  for (const wchar_t* name :
       {L"filter", L"dialogtitle", L"initialdirectory", L"filepathname", L"filename"}) {
    browser.properties[name] = CValue(CString());
  }
}

}  // namespace

std::shared_ptr<ScriptObjectItem> TheToolkitObject() {
  static auto* toolkit = new std::shared_ptr<ScriptObjectItem>([] {
    auto item = std::make_shared<ScriptObjectItem>();
    item->kind = ScriptObjectKind::Toolkit;
    item->type = L"UIToolkit";
    item->name = L"KRX.UIToolkit";
    item->file_browser = MakeFileBrowser();
    item->file_browser->owner = item.get();
    ClearBrowser(*item->file_browser);
    return item;
  }());
  return *toolkit;
}

void ResetScriptObjects() { ClearBrowser(*TheToolkitObject()->file_browser); }

}  // namespace rt

namespace {

using rt::ScriptObjectItem;
using rt::ScriptObjectKind;

std::shared_ptr<ScriptObjectItem> ObjectOf(const ScriptingObject& object) {
  auto item = std::dynamic_pointer_cast<ScriptObjectItem>(object.Lock());
  return item && !item->deleted ? item : nullptr;
}

// Property names are not case sensitive, as in the host's script language.
std::wstring Key(const CString& name) { return name.Lower().GetWideString(); }

CString PropertyText(const ScriptObjectItem& item, const wchar_t* key) {
  auto it = item.properties.find(key);
  return it == item.properties.end() ? CString() : it->second.GetString();
}

CString FileNamePart(const CString& path) {
  const std::wstring& p = path.GetWideString();
  const size_t slash = p.find_last_of(L"/\\");
  return slash == std::wstring::npos ? path : CString(p.substr(slash + 1));
}

CValue ShowFileDialog(ScriptObjectItem& browser, bool save) {
  std::optional<CString> chosen =
      rt::RequestFile(PropertyText(browser, L"filter"), PropertyText(browser, L"dialogtitle"),
                      PropertyText(browser, L"initialdirectory"), save);
  const CString path = chosen ? *chosen : CString();
  browser.properties[L"filepathname"] = CValue(path);
  browser.properties[L"filename"] = CValue(FileNamePart(path));
  return CValue();
}

void LogUnknown(const ScriptObjectItem& item, const char* what, const CString& name) {
  rt::Log(CString(item.name.GetAsciiString() + ": no " + what + " named '" + name.GetAsciiString() +
                  "'"),
          kSeverityError);
}

}  // namespace

CValue ScriptingObject::GetProperty(const CString& name) const {
  auto item = ObjectOf(*this);
  if (!item) return CValue();
  if (item->kind == ScriptObjectKind::Toolkit && Key(name) == L"filebrowser") {
    return CValue(rt::RefToItem(item->file_browser));
  }
  auto it = item->properties.find(Key(name));
  if (it == item->properties.end()) {
    LogUnknown(*item, "property", name);
    return CValue();
  }
  return it->second;
}

CStatus ScriptingObject::PutProperty(const CString& name, const CValue& value) {
  auto item = ObjectOf(*this);
  if (!item) return CStatus::Fail;
  if (item->kind == ScriptObjectKind::Toolkit) {
    LogUnknown(*item, "writable property", name);
    return CStatus::InvalidArgument;
  }
  item->properties[Key(name)] = value;
  return CStatus::OK;
}

ScriptingObject ScriptingObject::GetObjectProperty(const CString& name) const {
  auto item = ObjectOf(*this);
  if (!item) return ScriptingObject();
  if (item->kind == ScriptObjectKind::Toolkit && Key(name) == L"filebrowser") {
    return ScriptingObject(rt::RefToItem(item->file_browser));
  }
  LogUnknown(*item, "object property", name);
  return ScriptingObject();
}

CValue ScriptingObject::Call(const CString& method, const CValueArray& args) {
  auto item = ObjectOf(*this);
  if (!item) return CValue();
  const std::wstring m = Key(method);
  if (item->kind == ScriptObjectKind::FileBrowser) {
    if (m == L"showopen") return ShowFileDialog(*item, false);
    if (m == L"showsave") return ShowFileDialog(*item, true);
  } else if (m == L"msgbox") {
    const CString text = !args.empty() ? args[0].GetString() : CString();
    const int style = args.size() > 1 ? args[1].GetInt() : kMsgBoxOk;
    const CString title = args.size() > 2 ? args[2].GetString() : CString();
    return CValue(rt::RequestMessageBox(text, style, title));
  }
  LogUnknown(*item, "method", method);
  return CValue();
}

}  // namespace KRX

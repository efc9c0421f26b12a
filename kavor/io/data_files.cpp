#include "kavor/io/data_files.h"

#include <filesystem>
#include <string>
#include <system_error>

#include "kavor/io/file_names.h"
#include "krx/application.h"

namespace kavor {
namespace {

struct DataRootTable {
  std::array<KRX::CString, kDataRootCount> roots;
  bool filled = false;  // set once the roots are computed
};

DataRootTable& RootTable() {
  static DataRootTable table;
  return table;
}

bool IsKnownKind(DataFileKind kind) {
  const int k = static_cast<int>(kind);
  return k >= 0 && k <= 3;
}

KRX::CString RootFromInstallationPath(const KRX::CString& install_path) {
  if (install_path.IsEmpty()) return KRX::CString();
  const std::wstring& text = install_path.GetWideString();
  // The suffix starts with a separator; do not double one the path already ends with.
  const wchar_t last = text.back();
  const KRX::CString suffix(kDataFolderSuffix);
  if (last == L'/' || last == L'\\') return install_path + suffix.GetSubString(1);
  return install_path + suffix;
}

int FirstRootIndex(int start_root) { return start_root < kFirstDataRoot ? 0 : start_root - 1; }

bool IsPlainName(const KRX::CString& name) {
  return name.GetWideString().find_first_of(std::wstring(L"/\\\0", 3)) == std::wstring::npos;
}

bool EndsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

KRX::CString DataFileFolder(DataFileKind kind) {
  switch (kind) {
    case DataFileKind::kStructure:
    case DataFileKind::kStructureBase:
      return L"Structures/";
    case DataFileKind::kMocapStructure:
      return L"Structures/Mocap/";
    case DataFileKind::kTagTemplate:
      return L"TagTemplates/";
  }
  return KRX::CString();
}

KRX::CString DataFileExtension(DataFileKind kind) {
  switch (kind) {
    case DataFileKind::kStructure:
    case DataFileKind::kMocapStructure:
      return L".structure";
    case DataFileKind::kStructureBase:
      return L".base";
    case DataFileKind::kTagTemplate:
      return L".tagt";
  }
  return KRX::CString();
}

const std::array<KRX::CString, kDataRootCount>& DataRoots() {
  DataRootTable& table = RootTable();
  if (!table.filled) {
    const KRX::Application app;
    for (int i = 0; i < kDataRootCount; ++i) {
      table.roots[i] = RootFromInstallationPath(app.GetInstallationPath(i + 1));
    }
    table.filled = true;
  }
  return table.roots;
}

void ResetDataRoots() {
  DataRootTable& table = RootTable();
  table.roots = {};
  table.filled = false;
}

KRX::CString DataFolderPath(DataFileKind kind, int root) {
  if (!IsKnownKind(kind) || root < kFirstDataRoot || root > kDataRootCount) return {};
  const KRX::CString& base = DataRoots()[root - 1];
  return base.IsEmpty() ? KRX::CString() : base + DataFileFolder(kind);
}

bool FindDataFile(DataFileKind kind, const KRX::CString& name, int start_root,
                  KRX::CString* path) {
  if (!IsKnownKind(kind) || !IsPlainName(name)) return false;
  const auto& roots = DataRoots();
  for (int i = FirstRootIndex(start_root); i < kDataRootCount; ++i) {
    // An empty root gives a path relative to the working folder.
    const KRX::CString candidate =
        roots[i] + DataFileFolder(kind) + name + DataFileExtension(kind);
    if (FileExists(candidate)) {
      if (path != nullptr) *path = candidate;
      return true;
    }
  }
  return false;
}

void ListDataFiles(DataFileKind kind, int start_root, std::vector<KRX::CString>* names) {
  if (names == nullptr) return;
  names->clear();
  if (!IsKnownKind(kind)) return;
  const std::string extension = DataFileExtension(kind).GetAsciiString();
  const auto& roots = DataRoots();
  for (int i = FirstRootIndex(start_root); i < kDataRootCount; ++i) {
    if (roots[i].IsEmpty()) continue;
    const KRX::CString folder = roots[i] + DataFileFolder(kind);
    if (!IsUsablePath(folder)) continue;
    std::error_code error;
    std::filesystem::directory_iterator it(folder.GetAsciiString(), error);
    if (error) continue;  // a root without this folder lists nothing
    for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
      if (error) break;
      std::error_code kind_error;
      if (!it->is_regular_file(kind_error)) continue;
      const std::string file_name = it->path().filename().string();
      if (EndsWith(file_name, extension)) names->push_back(KRX::CString(file_name));
    }
  }
}

}  // namespace kavor

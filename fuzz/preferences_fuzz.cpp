// The preferences file as a user's disk may hold it: any bytes are opened, read, changed
// and written back through Preferences exactly as the pages do, and must give values or
// one error report, never a crash or a hang. A file that was read must be written so that
// it reads back without an error, and writing what was read back must change nothing.
// Seeds: fuzz/corpus/preferences/.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

#include "app/app_settings.h"
#include "kavor/xml/preferences.h"
#include "runtime/interaction.h"
#include "runtime/log.h"

namespace {

// A private installation folder holding the preferences file, made once per process.
const std::string& PreferencesPath() {
  static const std::string path = [] {
    std::string folder = "/tmp/kavor_preferences_fuzz_XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) abort();
    KRX::rt::SetInstallationPath(1, folder);
    KRX::rt::SetLogSink({});
    return folder + "/KAVOR.ini";
  }();
  return path;
}

void WriteBytes(const std::string& path, const uint8_t* data, size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
}

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string& path = PreferencesPath();
  WriteBytes(path, data, size);
  bool was_read = false;
  {
    kavor::Preferences preferences;
    was_read = preferences.Document().Document() != nullptr;
    preferences.GetString(kavor::kFilePathsSection, kavor::kBvhFilesKey, L"/home/user/");
    preferences.SetString(kavor::kFilePathsSection, kavor::kKavorFilesKey, L"/clips/walk.kavor");
    const int type = preferences.GetInteger(kavor::kDataSection, kavor::kMocapFileTypeKey, 0);
    preferences.SetInteger(kavor::kStructuresSection, kavor::kStructureTagKey, type);
    if (preferences.Close() != was_read) __builtin_trap();
  }
  if (was_read) {
    const std::string written = ReadBytes(path);
    {
      kavor::XmlDocument document(path, true, true);
      if (document.Document() == nullptr || !document.IsValid()) __builtin_trap();
    }
    if (ReadBytes(path) != written) __builtin_trap();
  }
  KRX::rt::ResetInteraction();
  KRX::rt::ClearLog();
  return 0;
}

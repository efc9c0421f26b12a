// The XML motion file as a user's disk may hold it: any bytes are read as a motion file
// and give either a motion that holds every promise of the reader (kavor_motion_check.h)
// or false, never a crash, a hang or an outsized allocation. Errors go to the one report
// the reader shows at the end. The same bytes are also read from a file, through the
// reader's file stream: the outcome, the report and the motion must be the same.
// Seeds: fuzz/corpus/kavor_xml/.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/kavor_motion_check.h"
#include "runtime/interaction.h"
#include "runtime/log.h"

namespace {

// What a read showed, then empties the record.
std::string TakeShown() {
  std::string shown;
  for (const KRX::rt::MessageBoxRecord& box : KRX::rt::MessageBoxes()) {
    shown += box.text.GetAsciiString();
  }
  KRX::rt::ResetInteraction();
  KRX::rt::ClearLog();
  return shown;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const int fd = memfd_create("kavor_xml_fuzz", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  static const bool quiet = [] {
    KRX::rt::SetLogSink({});
    return true;
  }();
  (void)quiet;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  kavor::KavorMotion motion;
  const bool read = kavor::ParseKavorXml(motion, KRX::CString(path), bytes);
  if (read) kavor::fuzzcheck::CheckMotion(motion);
  const std::string shown = TakeShown();
  if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) {
    return 0;
  }
  kavor::KavorMotion from_file;
  if (kavor::ReadKavorXml(from_file, KRX::CString(path)) != read || TakeShown() != shown ||
      (read && !kavor::fuzzcheck::SameMotion(motion, from_file))) {
    __builtin_trap();
  }
  return 0;
}

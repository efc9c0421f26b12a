// The XML motion file as a user's disk may hold it: any bytes are read as a motion file
// and give either a motion that holds every promise of the reader (kavor_motion_check.h)
// or false, never a crash, a hang or an outsized allocation. Errors go to the one report
// the document shows when it closes.
// Seeds: fuzz/corpus/kavor_xml/.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/kavor_motion_check.h"
#include "runtime/interaction.h"
#include "runtime/log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = [] {
    KRX::rt::SetLogSink({});
    return true;
  }();
  (void)quiet;
  kavor::KavorMotion motion;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (kavor::ParseKavorXml(motion, "fuzz.kavor", bytes)) kavor::fuzzcheck::CheckMotion(motion);
  KRX::rt::ResetInteraction();
  KRX::rt::ClearLog();
  return 0;
}

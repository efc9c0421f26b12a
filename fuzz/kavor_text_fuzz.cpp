// The older text form of motion files: any bytes are read and give either a motion that
// holds every promise of the reader (kavor_motion_check.h) or false with a logged reason,
// never a crash, a hang or an outsized allocation. The input block holds exactly the
// input, so a read past the end of the text is caught.
// Seeds: fuzz/corpus/kavor_text/.
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
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (kavor::ParseKavorText(motion, text)) {
    kavor::fuzzcheck::CheckMotion(motion);
  } else if (size > 0 && KRX::rt::LogLines().empty()) {
    // Only an empty file may fail without saying why.
    __builtin_trap();
  }
  KRX::rt::ResetInteraction();
  KRX::rt::ClearLog();
  return 0;
}

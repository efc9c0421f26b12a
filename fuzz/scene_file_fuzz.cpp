// Scene file reader: any bytes give a scene or a message, never a crash. The scene read is
// built apart from the active one and discarded. Seeds: fuzz/corpus/scene_file/.
#include <cstddef>
#include <cstdint>

#include "files/scene_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const KRX::rt::FileResult result = KRX::rt::ReadSceneFromBytes(data, size);
  (void)result;
  return 0;
}

// Whole-file reads of untrusted files. Files are written through KRX::FileReplacement
// (krx/file_replace.h), the one rule for every file the host and the plug-in save.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "krx/file_replace.h"

namespace KRX::rt::files {

// Reads a regular file whole. Refuses what is not a regular file (directories, FIFOs,
// devices: checked with stat before opening, so a FIFO never blocks the caller) and files
// larger than `max_bytes`. On failure `error` says why, naming the path.
[[nodiscard]] bool ReadRegularFile(const std::string& path, uint64_t max_bytes,
                                   std::vector<uint8_t>* bytes, std::string* error);

}  // namespace KRX::rt::files

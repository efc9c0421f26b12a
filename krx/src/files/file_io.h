// Whole-file reads of untrusted files and atomic whole-file writes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace KRX::rt::files {

// Reads a regular file whole. Refuses what is not a regular file (directories, FIFOs,
// devices: checked with stat before opening, so a FIFO never blocks the caller) and files
// larger than `max_bytes`. On failure `error` says why, naming the path.
[[nodiscard]] bool ReadRegularFile(const std::string& path, uint64_t max_bytes,
                                   std::vector<uint8_t>* bytes, std::string* error);

// Writes `bytes` to `path` so that a reader never sees a half-written file: the bytes go
// to a new temporary file in the same folder, which is flushed to disk and then renamed
// over `path`. On any failure the temporary file is removed and `path` is left as it was.
// A new file gets the usual permissions (0666 less the umask); a replaced regular file
// keeps its own.
[[nodiscard]] bool WriteFileAtomically(const std::string& path, const std::string& bytes,
                                       std::string* error);

}  // namespace KRX::rt::files

// Reading a file whole into memory, for the text readers (structures, templates, maps,
// BVH, motion files) to parse from.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "krx/value.h"

namespace kavor {

// The largest file ReadWholeFile reads (512 MiB). Larger files are refused with a message.
inline constexpr size_t kMaxWholeFileBytes = size_t{512} << 20;
// The largest small text file read: tag templates, map files, structures, adjustment
// presets and pose maps (8 MiB, hundreds of times the largest real one). Their readers
// pass it to ReadWholeFile, which checks the size before reading anything, so a huge file
// given by mistake costs no memory.
inline constexpr size_t kMaxSmallTextFileBytes = size_t{8} << 20;

// A file's bytes, owned by the buffer, with a read position. One NUL byte always follows
// the data (it is not part of the data), so code that scans a number at the very end of
// the data stops there instead of reading past the buffer. Move-only: a buffer may be
// large.
class FileBuffer {
 public:
  FileBuffer() = default;
  // Takes `bytes` as the data.
  explicit FileBuffer(std::vector<char> bytes);
  FileBuffer(FileBuffer&&) = default;
  FileBuffer& operator=(FileBuffer&&) = default;
  FileBuffer(const FileBuffer&) = delete;
  FileBuffer& operator=(const FileBuffer&) = delete;

  // Start and end of the data; Begin() points at the NUL when the buffer is empty.
  const char* Begin() const { return storage_.data(); }
  const char* End() const { return storage_.data() + Size(); }
  size_t Size() const { return storage_.size() - 1; }
  bool IsEmpty() const { return Size() == 0; }
  std::string_view Text() const { return {Begin(), Size()}; }

  // The read position, an offset into the data (0..Size()).
  size_t Position() const { return position_; }
  // Moves the read position, clamped to the end of the data.
  void Seek(size_t position) { position_ = position < Size() ? position : Size(); }
  // The data from the read position to the end.
  std::string_view Remaining() const { return Text().substr(position_); }

 private:
  std::vector<char> storage_ = std::vector<char>(1, '\0');  // data, then one NUL
  size_t position_ = 0;
};

// Why a read gave an empty buffer.
enum class ReadFileStatus {
  kOk,              // the buffer holds the whole file (possibly empty)
  kEmptyPath,       // no path, or a path holding a NUL character
  kCannotOpen,      // missing, or no permission
  kNotRegularFile,  // a folder, FIFO, device, ...
  kTooLarge,        // larger than the limit; logged as a warning
  kReadError,       // the file could not be read whole; logged as a warning
};

// Reads the regular file at `path` whole, in binary, read position at the start. Anything
// else (an empty path, a missing file, a folder, a FIFO, a file larger than `max_bytes`, a
// failed read) gives an empty buffer, which readers treat as empty input. Never blocks on a
// FIFO. `status` (optional) tells which case it was.
FileBuffer ReadWholeFile(const KRX::CString& path, ReadFileStatus* status = nullptr,
                         size_t max_bytes = kMaxWholeFileBytes);

}  // namespace kavor

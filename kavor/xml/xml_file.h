// XML files as files: telling them from the older text forms, and writing them safely.
#pragma once

#include <string>
#include <string_view>

#include "krx/value.h"

namespace kavor {

// True when `path` is a regular file that opens and whose first five bytes are "<?xml"
// (exact case). A UTF-8 byte order mark before them is skipped: the documents this system
// writes start with one, and they must be recognised as XML when read back. A shorter
// file, a folder or a FIFO is not XML. Never blocks.
bool IsXmlFile(const KRX::CString& path);

// Replaces the file at `path` with `bytes`. The bytes go to a temporary file beside it,
// which is then renamed over `path`, so that a failed write leaves the old file whole.
// False with the reason in `why` (optional) when the file cannot be written.
bool ReplaceFileContents(const KRX::CString& path, std::string_view bytes,
                         KRX::CString* why = nullptr);

// A file written piece by piece that replaces the file at `path` only once it is complete:
// the pieces go through a buffer to a temporary file beside `path`, which Commit() renames
// over it. A writer destroyed before Commit() removes the temporary file and leaves the old
// file as it was. Move-only.
class ReplacingFileWriter {
 public:
  ReplacingFileWriter() = default;
  ~ReplacingFileWriter();
  ReplacingFileWriter(const ReplacingFileWriter&) = delete;
  ReplacingFileWriter& operator=(const ReplacingFileWriter&) = delete;

  // Creates the temporary file. False with the reason in `why` (optional) when it cannot be
  // created; the writer then takes no pieces.
  bool Open(const KRX::CString& path, KRX::CString* why = nullptr);
  bool IsOpen() const { return fd_ >= 0; }

  // Appends bytes. A failed write is remembered and reported by Commit().
  void Write(std::string_view bytes) {
    buffer_.append(bytes);
    if (buffer_.size() >= kBufferBytes) Flush();
  }
  void Write(char byte) {
    buffer_.push_back(byte);
    if (buffer_.size() >= kBufferBytes) Flush();
  }

  // Writes what is buffered, closes the temporary file and renames it over the path. False
  // with the reason in `why` (optional) when any of that, or an earlier write, failed; the
  // temporary file is then removed.
  bool Commit(KRX::CString* why = nullptr);

 private:
  static constexpr size_t kBufferBytes = size_t{1} << 16;
  void Flush();
  void Discard();

  int fd_ = -1;
  int write_error_ = 0;
  bool failed_ = false;
  std::string native_;
  std::string temporary_;
  std::string buffer_;
};

}  // namespace kavor

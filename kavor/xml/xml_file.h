// XML files as files: telling them from the older text forms, and writing them safely.
#pragma once

#include <string>
#include <string_view>

#include "krx/file_replace.h"
#include "krx/value.h"

namespace kavor {

// True when `path` is a regular file that opens and whose first five bytes are "<?xml"
// (exact case). A UTF-8 byte order mark before them is skipped: the documents this system
// writes start with one, and they must be recognised as XML when read back. A shorter
// file, a folder or a FIFO is not XML. Never blocks.
bool IsXmlFile(const KRX::CString& path);

// Replaces the file at `path` with `bytes`, by the host's rule for every file written
// (krx/file_replace.h): through symbolic links to the file they name, never over a folder,
// FIFO, device or socket, keeping the old file's permissions and leaving it whole when the
// write fails. False with the reason in `why` (optional, naming the path) otherwise.
bool ReplaceFileContents(const KRX::CString& path, std::string_view bytes,
                         KRX::CString* why = nullptr);

// A file written piece by piece through a buffer that replaces the file at `path` only once
// it is complete, by the same rule: Open() refuses what the rule refuses, Commit() renames
// the finished file over the target. A writer destroyed before Commit() leaves the old
// file as it was.
class ReplacingFileWriter {
 public:
  ReplacingFileWriter() = default;
  ReplacingFileWriter(const ReplacingFileWriter&) = delete;
  ReplacingFileWriter& operator=(const ReplacingFileWriter&) = delete;

  // Checks the path and creates the temporary file. False with the reason in `why`
  // (optional) when it cannot be created; the writer then takes no pieces.
  bool Open(const KRX::CString& path, KRX::CString* why = nullptr);
  bool IsOpen() const { return file_.IsOpen(); }

  // Appends bytes. A failed write is remembered and reported by Commit().
  void Write(std::string_view bytes) {
    buffer_.append(bytes);
    if (buffer_.size() >= kBufferBytes) Flush();
  }
  void Write(char byte) {
    buffer_.push_back(byte);
    if (buffer_.size() >= kBufferBytes) Flush();
  }

  // Writes what is buffered and replaces the file. False with the reason in `why`
  // (optional) when any of that, or an earlier write, failed; the old file then stays.
  bool Commit(KRX::CString* why = nullptr);

 private:
  static constexpr size_t kBufferBytes = size_t{1} << 16;
  void Flush() {
    file_.Write(buffer_);
    buffer_.clear();
  }

  KRX::FileReplacement file_;
  std::string buffer_;
};

}  // namespace kavor

// The host's rule for writing a file over another, which plug-ins follow for their own
// files too: every file the host or a plug-in saves goes through FileReplacement.
#pragma once

#include <string>
#include <string_view>

namespace KRX {

// A file written piece by piece that replaces the file at a path only once it is complete.
//
// Open() follows the path through symbolic links (a chain of them too) to the file they
// finally name, and creates a temporary file beside that file; Commit() renames the
// temporary file over it. A link therefore keeps pointing at the new contents, and a
// dangling link gets the file it names created, when that file's folder exists. A path
// that names (directly or through links) something other than a regular file - a folder,
// FIFO, device or socket - is refused by Open() and nothing is written; it is never
// opened, so a FIFO cannot block the caller. The new file keeps the permission bits of
// the file it replaces; a new file gets 0666 less the umask.
//
// On any failure (a full disk, a folder that cannot be written) the temporary file is
// removed and the old file stays as it was. Errors are one line naming the path as given
// and the reason, e.g. `cannot write "latest.krxs": it is a FIFO, not a regular file`.
// A replacement destroyed before Commit() discards what it wrote.
class FileReplacement {
 public:
  FileReplacement() = default;
  ~FileReplacement() { Discard(); }
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;

  // Resolves `path` and creates the temporary file. False with the reason in `error` when
  // the path is refused or the temporary file cannot be created.
  [[nodiscard]] bool Open(const std::string& path, std::string* error);
  bool IsOpen() const { return fd_ >= 0; }
  // The file that Commit() replaces: `path` with every link followed.
  const std::string& Target() const { return target_; }

  // Appends bytes. False once a write failed; the failure is reported again by Commit().
  bool Write(std::string_view bytes);

  // Flushes the temporary file to disk and renames it over the target. False with the
  // reason in `error` when that, or an earlier write, failed.
  [[nodiscard]] bool Commit(std::string* error);

  // Removes the temporary file, if any, leaving the old file as it was.
  void Discard();

 private:
  bool Fail(const std::string& what, int code, std::string* error);

  int fd_ = -1;
  int write_error_ = 0;
  unsigned mode_ = 0;
  bool keep_mode_ = false;
  std::string path_;
  std::string target_;
  std::string folder_;
  std::string temporary_;
};

// Open(), Write(bytes) and Commit() in one call.
[[nodiscard]] bool ReplaceFile(const std::string& path, std::string_view bytes, std::string* error);

}  // namespace KRX

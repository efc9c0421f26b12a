#include "files/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace KRX::rt::files {

namespace {

std::string Quoted(const std::string& path) { return "\"" + path + "\""; }

std::string ErrnoText(int code) { return std::strerror(code); }

// Closes the descriptor when it goes out of scope.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int Get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

bool ReadRegularFile(const std::string& path, uint64_t max_bytes, std::vector<uint8_t>* bytes,
                     std::string* error) {
  bytes->clear();
  struct stat info {};
  if (path.empty()) {
    *error = "no file name given";
    return false;
  }
  if (::stat(path.c_str(), &info) != 0) {
    *error = "cannot read " + Quoted(path) + ": " + ErrnoText(errno);
    return false;
  }
  if (!S_ISREG(info.st_mode)) {
    *error = "cannot read " + Quoted(path) + ": not a regular file";
    return false;
  }
  if (static_cast<uint64_t>(info.st_size) > max_bytes) {
    *error = "cannot read " + Quoted(path) + ": the file is larger than " +
             std::to_string(max_bytes) + " bytes";
    return false;
  }
  // O_NONBLOCK: should the path have been replaced by a FIFO since the stat, the open
  // must not wait for a writer. The descriptor is checked again below.
  FileDescriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (fd.Get() < 0) {
    *error = "cannot open " + Quoted(path) + ": " + ErrnoText(errno);
    return false;
  }
  if (::fstat(fd.Get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    *error = "cannot read " + Quoted(path) + ": not a regular file";
    return false;
  }
  if (static_cast<uint64_t>(info.st_size) > max_bytes) {
    *error = "cannot read " + Quoted(path) + ": the file is larger than " +
             std::to_string(max_bytes) + " bytes";
    return false;
  }
  bytes->reserve(static_cast<size_t>(info.st_size));
  uint8_t chunk[65536];
  for (;;) {
    const ssize_t n = ::read(fd.Get(), chunk, sizeof(chunk));
    if (n < 0) {
      if (errno == EINTR) continue;
      *error = "cannot read " + Quoted(path) + ": " + ErrnoText(errno);
      bytes->clear();
      return false;
    }
    if (n == 0) break;
    // The file can grow while it is read: the cap holds for what is read, not for the stat.
    if (bytes->size() + static_cast<size_t>(n) > max_bytes) {
      *error = "cannot read " + Quoted(path) + ": the file is larger than " +
               std::to_string(max_bytes) + " bytes";
      bytes->clear();
      return false;
    }
    bytes->insert(bytes->end(), chunk, chunk + n);
  }
  return true;
}

}  // namespace KRX::rt::files

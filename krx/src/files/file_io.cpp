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
  // Closes now and reports the result (a failed close can mean lost data on write).
  bool Close() {
    const int fd = fd_;
    fd_ = -1;
    return fd < 0 || ::close(fd) == 0;
  }

 private:
  int fd_;
};

bool WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

mode_t NewFileMode() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return 0666 & ~mask;
}

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

bool WriteFileAtomically(const std::string& path, const std::string& bytes, std::string* error) {
  if (path.empty() || path.back() == '/') {
    *error = "cannot write " + Quoted(path) + ": not a file name";
    return false;
  }
  const size_t slash = path.rfind('/');
  const std::string folder =
      slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
  const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);

  mode_t mode = NewFileMode();
  struct stat existing {};
  if (::stat(path.c_str(), &existing) == 0) {
    if (S_ISDIR(existing.st_mode)) {
      *error = "cannot write " + Quoted(path) + ": it is a folder";
      return false;
    }
    if (S_ISREG(existing.st_mode)) mode = existing.st_mode & 07777;
  }

  std::string temp = folder + "/." + base + ".tmp.XXXXXX";
  FileDescriptor fd(::mkostemp(temp.data(), O_CLOEXEC));
  if (fd.Get() < 0) {
    *error = "cannot write " + Quoted(path) + ": cannot create a file in " + Quoted(folder) + ": " +
             ErrnoText(errno);
    return false;
  }
  auto fail = [&](const std::string& what, int code) {
    *error = "cannot write " + Quoted(path) + ": " + what + ": " + ErrnoText(code);
    fd.Close();
    ::unlink(temp.c_str());
    return false;
  };
  if (!WriteAll(fd.Get(), bytes.data(), bytes.size())) return fail("write failed", errno);
  if (::fchmod(fd.Get(), mode) != 0) return fail("cannot set permissions", errno);
  if (::fsync(fd.Get()) != 0) return fail("flush to disk failed", errno);
  if (!fd.Close()) {
    const int code = errno;
    ::unlink(temp.c_str());
    *error = "cannot write " + Quoted(path) + ": close failed: " + ErrnoText(code);
    return false;
  }
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    const int code = errno;
    ::unlink(temp.c_str());
    *error = "cannot write " + Quoted(path) + ": " + ErrnoText(code);
    return false;
  }
  // Makes the rename itself durable. Best effort: the new file is complete either way.
  FileDescriptor dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dir.Get() >= 0) ::fsync(dir.Get());
  return true;
}

}  // namespace KRX::rt::files

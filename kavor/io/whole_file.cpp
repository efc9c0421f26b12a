#include "kavor/io/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "kavor/host/host.h"
#include "kavor/io/file_names.h"

namespace kavor {
namespace {

// Closes the descriptor on every way out of the reader.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

FileBuffer Fail(ReadFileStatus why, ReadFileStatus* status) {
  if (status != nullptr) *status = why;
  return FileBuffer();
}

// Reads exactly `size` bytes; false on an error or when the file ends early.
bool ReadExactly(int fd, char* out, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t got = read(fd, out + done, size - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  return true;
}

}  // namespace

FileBuffer::FileBuffer(std::vector<char> bytes) : storage_(std::move(bytes)) {
  storage_.push_back('\0');
}

FileBuffer ReadWholeFile(const KRX::CString& path, ReadFileStatus* status, size_t max_bytes) {
  if (!IsUsablePath(path)) return Fail(ReadFileStatus::kEmptyPath, status);
  const std::string native = path.GetAsciiString();
  // O_NONBLOCK keeps the open from waiting for a writer when the path is a FIFO; it has no
  // effect on regular files.
  const FileDescriptor file(open(native.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (file.get() < 0) return Fail(ReadFileStatus::kCannotOpen, status);
  struct stat info {};
  if (fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    return Fail(ReadFileStatus::kNotRegularFile, status);
  }
  // The size as the seek to the end reports it, then back to the start.
  const off_t end = lseek(file.get(), 0, SEEK_END);
  if (end < 0 || lseek(file.get(), 0, SEEK_SET) != 0) {
    LogWarning(L"Cannot read file: " + path);
    return Fail(ReadFileStatus::kReadError, status);
  }
  const auto size = static_cast<unsigned long long>(end);
  if (size > max_bytes) {
    LogWarning(L"File is too large to read (" + KRX::CString(std::to_string(size)) +
               L" bytes, the limit is " + KRX::CString(std::to_string(max_bytes)) +
               L" bytes): " + path);
    return Fail(ReadFileStatus::kTooLarge, status);
  }
  std::vector<char> bytes(static_cast<size_t>(size), '\0');
  if (!ReadExactly(file.get(), bytes.data(), bytes.size())) {
    LogWarning(L"Cannot read file: " + path);
    return Fail(ReadFileStatus::kReadError, status);
  }
  if (status != nullptr) *status = ReadFileStatus::kOk;
  return FileBuffer(std::move(bytes));
}

}  // namespace kavor

#include "kavor/xml/xml_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "kavor/io/file_names.h"

namespace kavor {
namespace {

constexpr std::string_view kXmlStart = "<?xml";
constexpr std::string_view kUtf8ByteOrderMark = "\xEF\xBB\xBF";

// Reads up to `size` bytes; the count read, -1 on an error.
ssize_t ReadSome(int fd, char* out, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t got = read(fd, out + done, size - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  return static_cast<ssize_t>(done);
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t put = write(fd, bytes.data(), bytes.size());
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(put));
  }
  return true;
}

void SetWhy(KRX::CString* why, const std::string& text) {
  if (why != nullptr) *why = KRX::CString(text);
}

}  // namespace

bool IsXmlFile(const KRX::CString& path) {
  if (!IsUsablePath(path)) return false;
  const std::string native = path.GetAsciiString();
  // O_NONBLOCK keeps the open from waiting when the path is a FIFO.
  const int fd = open(native.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat info {};
  char head[8] = {};
  ssize_t got = -1;
  if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode)) got = ReadSome(fd, head, sizeof(head));
  close(fd);
  if (got < 0) return false;
  std::string_view start(head, static_cast<size_t>(got));
  if (start.starts_with(kUtf8ByteOrderMark)) start.remove_prefix(kUtf8ByteOrderMark.size());
  return start.starts_with(kXmlStart);
}

bool ReplaceFileContents(const KRX::CString& path, std::string_view bytes, KRX::CString* why) {
  ReplacingFileWriter writer;
  if (!writer.Open(path, why)) return false;
  writer.Write(bytes);
  return writer.Commit(why);
}

ReplacingFileWriter::~ReplacingFileWriter() { Discard(); }

bool ReplacingFileWriter::Open(const KRX::CString& path, KRX::CString* why) {
  Discard();
  if (!IsUsablePath(path)) {
    SetWhy(why, "no file name");
    return false;
  }
  native_ = path.GetAsciiString();
  temporary_ = native_ + ".tmp" + std::to_string(getpid());
  fd_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd_ < 0) {
    SetWhy(why, std::string("cannot create the file: ") + std::strerror(errno));
    return false;
  }
  failed_ = false;
  write_error_ = 0;
  buffer_.reserve(kBufferBytes + 1024);
  return true;
}

void ReplacingFileWriter::Flush() {
  if (fd_ >= 0 && !failed_ && !WriteAll(fd_, buffer_)) {
    failed_ = true;
    write_error_ = errno;
  }
  buffer_.clear();
}

bool ReplacingFileWriter::Commit(KRX::CString* why) {
  if (fd_ < 0) {
    SetWhy(why, "no file is open");
    return false;
  }
  Flush();
  const int fd = fd_;
  fd_ = -1;
  const bool closed = close(fd) == 0;
  if (failed_ || !closed) {
    const int error = failed_ ? write_error_ : errno;
    unlink(temporary_.c_str());
    SetWhy(why, std::string("cannot write the file: ") + std::strerror(error));
    return false;
  }
  if (std::rename(temporary_.c_str(), native_.c_str()) != 0) {
    const int rename_error = errno;
    unlink(temporary_.c_str());
    SetWhy(why, std::string("cannot replace the file: ") + std::strerror(rename_error));
    return false;
  }
  return true;
}

void ReplacingFileWriter::Discard() {
  buffer_.clear();
  if (fd_ < 0) return;
  close(fd_);
  fd_ = -1;
  unlink(temporary_.c_str());
}

}  // namespace kavor

#include "kavor/xml/xml_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
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

bool ReplacingFileWriter::Open(const KRX::CString& path, KRX::CString* why) {
  buffer_.clear();
  file_.Discard();
  if (!IsUsablePath(path)) {
    SetWhy(why, "no file name");
    return false;
  }
  std::string error;
  if (!file_.Open(path.GetAsciiString(), &error)) {
    SetWhy(why, error);
    return false;
  }
  buffer_.reserve(kBufferBytes + 1024);
  return true;
}

bool ReplacingFileWriter::Commit(KRX::CString* why) {
  if (!file_.IsOpen()) {
    SetWhy(why, "no file is open");
    return false;
  }
  Flush();
  std::string error;
  if (!file_.Commit(&error)) {
    SetWhy(why, error);
    return false;
  }
  return true;
}

}  // namespace kavor

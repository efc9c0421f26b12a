#include "kavor/io/file_names.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace kavor {

KRX::CString StripStructureExtension(const KRX::CString& name) {
  const size_t at = name.FindString(L".structure");
  return at == KRX::CString::npos ? name : name.GetSubString(0, at);
}

KRX::CString DirectoryOf(const KRX::CString& path) {
  const std::wstring& text = path.GetWideString();
  const size_t at = text.find_last_of(L"/\\");
  return at == std::wstring::npos ? KRX::CString() : path.GetSubString(0, at + 1);
}

KRX::CString UpperExtension(const KRX::CString& path) {
  const size_t at = path.ReverseFindString(L".");
  return at == KRX::CString::npos ? path.Upper() : path.GetSubString(at + 1).Upper();
}

bool IsUsablePath(const KRX::CString& path) {
  return !path.IsEmpty() && path.GetWideString().find(L'\0') == std::wstring::npos;
}

bool FileExists(const KRX::CString& path) {
  if (!IsUsablePath(path)) return false;
  const std::string native = path.GetAsciiString();
  // O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer.
  const int fd = open(native.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  struct stat info {};
  const bool regular = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
  close(fd);
  return regular;
}

}  // namespace kavor

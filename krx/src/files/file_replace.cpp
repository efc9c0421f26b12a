#include "krx/file_replace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace KRX {

namespace {

// As the kernel's own limit on links followed while resolving one path.
constexpr int kMaxLinkHops = 40;
// A temporary file's name holds at most this much of the target's name, so that the name
// with its prefix and suffix stays within the 255 bytes a folder entry allows.
constexpr size_t kMaxTemporaryBaseBytes = 200;
// Attempts at a temporary file name before giving up on the folder.
constexpr int kMaxTemporaryNameTries = 100;

std::string Quoted(const std::string& path) { return "\"" + path + "\""; }

std::string ErrnoText(int code) { return std::strerror(code); }

// The folder part of `path` ("." for a bare name, "/" for a name at the root).
std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string BaseOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// What a file that is not a regular file is, in words.
const char* KindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  if (S_ISSOCK(mode)) return "a socket";
  if (S_ISLNK(mode)) return "a symbolic link";
  return "a special file";
}

// The text a link holds; false with errno set when it cannot be read.
bool ReadLink(const std::string& link, size_t size_hint, std::string* text) {
  std::string buffer(size_hint < 64 ? 64 : size_hint + 1, '\0');
  for (;;) {
    const ssize_t n = ::readlink(link.c_str(), buffer.data(), buffer.size());
    if (n < 0) return false;
    if (static_cast<size_t>(n) < buffer.size()) {
      buffer.resize(static_cast<size_t>(n));
      *text = std::move(buffer);
      return true;
    }
    if (buffer.size() > (size_t{1} << 16)) {
      errno = ENAMETOOLONG;
      return false;
    }
    buffer.resize(buffer.size() * 2);  // the link changed or its size was not reported
  }
}

struct ResolvedPath {
  std::string target;  // the path with every link followed
  bool exists = false;
  struct stat info {};  // of the target, when it exists
};

// Follows `path` through symbolic links to what they finally name. The target need not
// exist (a new file, or a dangling link). Only the last part of each path is followed
// here; links among the folders are followed by the system as usual. False with errno set
// when a link cannot be read, a chain is too long, or a folder on the way cannot be seen.
bool ResolveLinks(const std::string& path, ResolvedPath* resolved) {
  std::string current = path;
  for (int hops = 0;; ++hops) {
    struct stat info {};
    if (::lstat(current.c_str(), &info) != 0) {
      if (errno != ENOENT) return false;
      resolved->target = current;
      resolved->exists = false;
      return true;
    }
    if (!S_ISLNK(info.st_mode)) {
      resolved->target = current;
      resolved->exists = true;
      resolved->info = info;
      return true;
    }
    if (hops == kMaxLinkHops) {
      errno = ELOOP;
      return false;
    }
    std::string link;
    if (!ReadLink(current, static_cast<size_t>(info.st_size), &link)) return false;
    if (link.empty()) {
      errno = ENOENT;
      return false;
    }
    if (link.front() == '/') {
      current = std::move(link);
    } else {
      const std::string folder = FolderOf(current);
      current = (folder == "/" ? folder : folder + "/") + link;
    }
  }
}

// Removes the trailing slashes a link's text may end in, so the file name is its last part.
void TrimTrailingSlashes(std::string* path) {
  while (path->size() > 1 && path->back() == '/') path->pop_back();
}

std::atomic<unsigned> temporary_counter{0};

}  // namespace

bool FileReplacement::Fail(const std::string& what, int code, std::string* error) {
  *error = "cannot write " + Quoted(path_) + ": " + what;
  if (code != 0) *error += ": " + ErrnoText(code);
  Discard();
  return false;
}

bool FileReplacement::Open(const std::string& path, std::string* error) {
  Discard();
  path_ = path;
  write_error_ = 0;
  keep_mode_ = false;
  if (path.empty() || path.back() == '/' || path.find('\0') != std::string::npos) {
    return Fail("not a file name", 0, error);
  }
  ResolvedPath resolved;
  if (!ResolveLinks(path, &resolved)) return Fail("cannot follow the path", errno, error);
  target_ = std::move(resolved.target);
  TrimTrailingSlashes(&target_);
  // What the path names must be a regular file or nothing yet. Anything else is refused
  // before any file is made; it is never opened, so a FIFO cannot block here.
  if (resolved.exists) {
    if (!S_ISREG(resolved.info.st_mode)) {
      const std::string kind = KindOf(resolved.info.st_mode);
      if (target_ == path) return Fail("it is " + kind + ", not a regular file", 0, error);
      return Fail("it links to " + Quoted(target_) + ", which is " + kind + ", not a regular file",
                  0, error);
    }
    mode_ = resolved.info.st_mode & 07777;
    keep_mode_ = true;
  }
  folder_ = FolderOf(target_);
  // The temporary file sits beside the target, so the final rename stays in one file
  // system and replaces the target itself, not a link to it. O_EXCL never follows a link
  // or reuses a file someone else made; the mode 0666 is narrowed by the umask.
  const std::string stem = folder_ + (folder_ == "/" ? "." : "/.") +
                           BaseOf(target_).substr(0, kMaxTemporaryBaseBytes) + ".tmp" +
                           std::to_string(::getpid()) + "_";
  int code = 0;
  for (int attempt = 0; attempt < kMaxTemporaryNameTries; ++attempt) {
    temporary_ = stem + std::to_string(temporary_counter.fetch_add(1));
    fd_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ >= 0) return true;
    code = errno;
    if (code != EEXIST) break;
  }
  temporary_.clear();
  return Fail("cannot create a file in " + Quoted(folder_), code, error);
}

bool FileReplacement::Write(std::string_view bytes) {
  if (fd_ < 0 || write_error_ != 0) return false;
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd_, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      write_error_ = n < 0 ? errno : EIO;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

bool FileReplacement::Commit(std::string* error) {
  if (fd_ < 0) {
    *error = "cannot write " + Quoted(path_) + ": no file is open";
    return false;
  }
  if (write_error_ != 0) return Fail("write failed", write_error_, error);
  if (keep_mode_ && ::fchmod(fd_, static_cast<mode_t>(mode_)) != 0) {
    return Fail("cannot set permissions", errno, error);
  }
  if (::fsync(fd_) != 0) return Fail("flush to disk failed", errno, error);
  const int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) {
    const int code = errno;
    ::unlink(temporary_.c_str());
    temporary_.clear();
    return Fail("close failed", code, error);
  }
  // The target may have been replaced by something else since Open(): check again, so
  // that a folder or FIFO put there meanwhile is not replaced either.
  struct stat info {};
  if (::lstat(target_.c_str(), &info) == 0 && !S_ISREG(info.st_mode)) {
    ::unlink(temporary_.c_str());
    temporary_.clear();
    return Fail(Quoted(target_) + " is now " + KindOf(info.st_mode) + ", not a regular file", 0,
                error);
  }
  if (::rename(temporary_.c_str(), target_.c_str()) != 0) {
    const int code = errno;
    ::unlink(temporary_.c_str());
    temporary_.clear();
    return Fail("cannot replace the file", code, error);
  }
  temporary_.clear();
  // Makes the rename itself durable. Best effort: the new file is complete either way.
  const int dir = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
  return true;
}

void FileReplacement::Discard() {
  if (fd_ >= 0) {
    ::close(fd_);
    fd_ = -1;
  }
  if (!temporary_.empty()) {
    ::unlink(temporary_.c_str());
    temporary_.clear();
  }
}

bool ReplaceFile(const std::string& path, std::string_view bytes, std::string* error) {
  FileReplacement file;
  if (!file.Open(path, error)) return false;
  file.Write(bytes);
  return file.Commit(error);
}

}  // namespace KRX

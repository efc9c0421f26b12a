// Shared helpers of the file and folder tests: a temporary folder that removes itself, a
// file writer, a log search and a FIFO watchdog.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>

#include "runtime/log.h"

namespace kavor::iotest {

// A fresh folder below the system's temporary folder, removed with everything in it when
// the object goes.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kavor_io_XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // `relative` below the folder, as a native string.
  std::string operator/(const std::string& relative) const { return (path_ / relative).string(); }

 private:
  std::filesystem::path path_;
};

// Writes `bytes` to `path`, creating its folders.
inline void WriteFile(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

// True when a log line of this severity contains every one of `parts`.
inline bool Logged(int severity, std::initializer_list<std::string> parts) {
  for (const KRX::rt::LogLine& line : KRX::rt::LogLines()) {
    if (line.severity != severity) continue;
    const std::string text = line.text.GetAsciiString();
    bool all = true;
    for (const std::string& part : parts) all = all && text.find(part) != std::string::npos;
    if (all) return true;
  }
  return false;
}

// Makes a FIFO at `path` and runs `use` on it (reading or writing); fails the test instead
// of hanging when it waits for the other end. A reader opened here releases a waiting
// writer and takes what it writes; a writer that opens and closes releases a waiting reader.
template <typename Use>
void ExpectNoWaitOnFifo(const std::string& path, Use use) {
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  std::future<void> done = std::async(std::launch::async, use);
  if (done.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
    ADD_FAILURE() << "opening a FIFO waited for its other end";
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    const int writer = open(path.c_str(), O_WRONLY | O_NONBLOCK);
    if (writer >= 0) close(writer);
    done.wait();
    if (reader >= 0) close(reader);
  }
  done.get();
}

}  // namespace kavor::iotest

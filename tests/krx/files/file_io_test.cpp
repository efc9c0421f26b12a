#include "files/file_io.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <string>

#include "krx/files/file_test_support.h"

namespace KRX::rt::files {
namespace {

namespace fs = std::filesystem;

using FileIoTest = testing::FileTest;

std::string Contents(const std::string& path) {
  const std::vector<uint8_t> bytes = testing::FileBytes(path);
  return {bytes.begin(), bytes.end()};
}

TEST_F(FileIoTest, ReadsOnlyRegularFilesWithinTheCap) {
  std::vector<uint8_t> bytes;
  std::string error;
  ASSERT_TRUE(ReplaceFile(Path("a.txt"), "hello", &error)) << error;
  ASSERT_TRUE(ReadRegularFile(Path("a.txt"), 5, &bytes, &error)) << error;
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "hello");
  ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);  // no writer: refused, not waited on
  const std::pair<std::string, std::string> refused[] = {
      {Path("a.txt"), "larger than 4 bytes"},  // one byte over the cap
      {folder_.string(), "not a regular file"},
      {Path("fifo"), "not a regular file"},
      {Path("missing"), "missing"},
      {"", "no file name"},
  };
  for (const auto& [path, message] : refused) {
    EXPECT_FALSE(ReadRegularFile(path, 4, &bytes, &error)) << path;
    EXPECT_NE(error.find(message), std::string::npos) << error;
  }
}

TEST_F(FileIoTest, FailedWritesLeaveTheOldFile) {
  std::string error;
  const std::string target = Path("scene.json");
  ASSERT_TRUE(ReplaceFile(target, "old contents", &error)) << error;
  {  // The disk refuses the write half-way (file size limit): the old file stays whole.
    struct sigaction ignore {
    }, previous{};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(::sigaction(SIGXFSZ, &ignore, &previous), 0);
    struct rlimit old_limit {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old_limit), 0);
    struct rlimit small = old_limit;
    small.rlim_cur = 4096;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const bool written = ReplaceFile(target, std::string(100000, 'x'), &error);
    ::setrlimit(RLIMIT_FSIZE, &old_limit);
    ::sigaction(SIGXFSZ, &previous, nullptr);
    EXPECT_FALSE(written);
    EXPECT_NE(error.find("scene.json"), std::string::npos) << error;
    EXPECT_EQ(Contents(target), "old contents");
  }
  fs::create_directories(folder_ / "sub");
  EXPECT_FALSE(ReplaceFile(Path("sub"), "x", &error));  // a folder is not replaced
  EXPECT_NE(error.find("it is a folder"), std::string::npos) << error;
  EXPECT_FALSE(ReplaceFile(Path("none/scene.json"), "x", &error));
  // No temporary file is left behind; a successful write keeps the file's permissions.
  fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
  ASSERT_TRUE(ReplaceFile(target, "new contents", &error)) << error;
  EXPECT_EQ(Contents(target), "new contents");
  EXPECT_EQ(fs::status(target).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 2);
}

}  // namespace
}  // namespace KRX::rt::files

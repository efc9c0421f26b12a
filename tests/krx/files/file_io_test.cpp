#include "files/file_io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <csignal>
#include <future>
#include <string>

#include "files/scene_file.h"
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

// A write through a chain of links replaces the file at its end and leaves the links as they
// were, also for a whole scene save; a dangling link gets the file it names. A path naming
// something other than a regular file, directly or through a link, is refused with the
// path and what it is: nothing is written and nothing waits on a FIFO.
TEST_F(FileIoTest, WritesThroughLinksNeverOverSpecialFiles) {
  std::string error;
  fs::create_directories(folder_ / "shots");
  const std::string shot = Path("shots/s012.krxs");
  const auto mode = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
  ASSERT_TRUE(ReplaceFile(shot, "old", &error)) << error;
  fs::permissions(shot, mode);
  fs::create_symlink("shots/s012.krxs", folder_ / "previous");    // relative
  fs::create_symlink(Path("previous"), folder_ / "latest.krxs");  // absolute, chained
  ASSERT_TRUE(SaveSceneFile(Path("latest.krxs")).ok);
  EXPECT_TRUE(OpenSceneFile(shot).ok);
  EXPECT_EQ(fs::read_symlink(folder_ / "latest.krxs"), Path("previous"));
  EXPECT_EQ(fs::read_symlink(folder_ / "previous"), "shots/s012.krxs");
  EXPECT_EQ(fs::status(shot).permissions() & fs::perms::all, mode);
  {  // Dangling: the named file is made when its folder exists.
    fs::create_symlink("shots/s013.krxs", folder_ / "next");
    ASSERT_TRUE(ReplaceFile(Path("next"), "fresh", &error)) << error;
    EXPECT_EQ(Contents(Path("shots/s013.krxs")), "fresh");
    EXPECT_TRUE(fs::is_symlink(folder_ / "next"));
    fs::create_symlink("gone/s014.krxs", folder_ / "lost");
    EXPECT_FALSE(ReplaceFile(Path("lost"), "x", &error));
    EXPECT_NE(error.find(Path("gone") + "\": No such file"), std::string::npos) << error;
  }
  ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
  fs::create_directories(folder_ / "folder");
  fs::create_symlink("fifo", folder_ / "to_fifo");
  fs::create_symlink("loop_b", folder_ / "loop_a");
  fs::create_symlink("loop_a", folder_ / "loop_b");
  const std::pair<std::string, std::string> refused[] = {
      {"fifo", ": it is a FIFO, not a regular file"},
      {"folder", ": it is a folder, not a regular file"},
      {"to_fifo", ": it links to \"" + Path("fifo") + "\", which is a FIFO, not a regular file"},
      {"loop_a", ": cannot follow the path: Too many levels of symbolic links"},
  };
  const auto entries = std::distance(fs::directory_iterator(folder_), fs::directory_iterator());
  std::future<void> done = std::async(std::launch::async, [&] {
    for (const auto& [name, reason] : refused) {
      std::string why;
      EXPECT_FALSE(ReplaceFile(Path(name), "x", &why)) << name;
      EXPECT_EQ(why, "cannot write \"" + Path(name) + "\"" + reason);
    }
  });
  if (done.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
    ADD_FAILURE() << "writing waited on a FIFO";
    const int reader = ::open(Path("fifo").c_str(), O_RDONLY | O_NONBLOCK);  // releases it
    done.wait();
    if (reader >= 0) ::close(reader);
  }
  done.get();
  EXPECT_TRUE(fs::is_fifo(Path("fifo")));
  EXPECT_TRUE(fs::is_empty(folder_ / "folder"));
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()),
            entries);  // no temporary file left
}

}  // namespace
}  // namespace KRX::rt::files

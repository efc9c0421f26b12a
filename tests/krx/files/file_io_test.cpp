#include "files/file_io.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>

namespace KRX::rt::files {
namespace {

namespace fs = std::filesystem;

class FileIoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = fs::temp_directory_path() /
              ("krx_file_io_" + std::to_string(::getpid()) + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }
  void TearDown() override {
    fs::permissions(folder_, fs::perms::owner_all, fs::perm_options::add);
    fs::remove_all(folder_);
  }
  std::string Path(const std::string& name) const { return (folder_ / name).string(); }
  static std::string Contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  size_t EntryCount() const {
    return static_cast<size_t>(
        std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
  }
  fs::path folder_;
};

TEST_F(FileIoTest, ReadsOnlyRegularFilesWithinTheCap) {
  std::vector<uint8_t> bytes;
  std::string error;
  {  // A regular file is read whole.
    ASSERT_TRUE(WriteFileAtomically(Path("a.txt"), "hello", &error)) << error;
    ASSERT_TRUE(ReadRegularFile(Path("a.txt"), 5, &bytes, &error)) << error;
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "hello");
  }
  {  // One byte over the cap.
    EXPECT_FALSE(ReadRegularFile(Path("a.txt"), 4, &bytes, &error));
    EXPECT_NE(error.find("larger than 4 bytes"), std::string::npos) << error;
  }
  {  // A folder.
    EXPECT_FALSE(ReadRegularFile(folder_.string(), 1 << 20, &bytes, &error));
    EXPECT_NE(error.find("not a regular file"), std::string::npos) << error;
  }
  {  // A FIFO with no writer: refused at once instead of blocking.
    ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
    EXPECT_FALSE(ReadRegularFile(Path("fifo"), 1 << 20, &bytes, &error));
    EXPECT_NE(error.find("not a regular file"), std::string::npos) << error;
  }
  {  // Nothing there, and no name at all.
    EXPECT_FALSE(ReadRegularFile(Path("missing"), 1 << 20, &bytes, &error));
    EXPECT_NE(error.find("missing"), std::string::npos) << error;
    EXPECT_FALSE(ReadRegularFile("", 1 << 20, &bytes, &error));
  }
}

TEST_F(FileIoTest, FailedWritesLeaveTheOldFile) {
  std::string error;
  const std::string target = Path("scene.json");
  ASSERT_TRUE(WriteFileAtomically(target, "old contents", &error)) << error;
  ASSERT_TRUE(fs::is_regular_file(target));

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
    const bool written = WriteFileAtomically(target, std::string(100000, 'x'), &error);
    ::setrlimit(RLIMIT_FSIZE, &old_limit);
    ::sigaction(SIGXFSZ, &previous, nullptr);
    EXPECT_FALSE(written);
    EXPECT_NE(error.find("scene.json"), std::string::npos) << error;
    EXPECT_EQ(Contents(target), "old contents");
    EXPECT_EQ(EntryCount(), 1u) << "the temporary file was left behind";
  }
  {  // A folder where the file should go is refused.
    fs::create_directories(folder_ / "sub");
    EXPECT_FALSE(WriteFileAtomically(Path("sub"), "x", &error));
    EXPECT_TRUE(fs::is_directory(folder_ / "sub"));
  }
  {  // A folder that does not exist.
    EXPECT_FALSE(WriteFileAtomically(Path("none/scene.json"), "x", &error));
  }
  if (::geteuid() != 0) {  // An unwritable folder (permissions do not stop root).
    fs::permissions(folder_, fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_FALSE(WriteFileAtomically(target, "new", &error));
    fs::permissions(folder_, fs::perms::owner_all);
    EXPECT_EQ(Contents(target), "old contents");
  }
  {  // A successful write replaces the file and keeps its permissions.
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_TRUE(WriteFileAtomically(target, "new contents", &error)) << error;
    EXPECT_EQ(Contents(target), "new contents");
    EXPECT_EQ(fs::status(target).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(EntryCount(), 2u);  // scene.json and sub
  }
}

}  // namespace
}  // namespace KRX::rt::files

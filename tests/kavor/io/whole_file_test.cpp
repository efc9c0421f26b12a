#include "kavor/io/whole_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "kavor/io/io_test_support.h"
#include "runtime/log.h"

namespace kavor {
namespace {

using KRX::CString;

class WholeFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(folder_.path().empty());
    KRX::rt::ClearLog();
  }
  iotest::TempFolder folder_;
};

TEST_F(WholeFileTest, ReadsTheBytesWithOneNulAfterThem) {
  {  // Text ending in a number: the byte after the data is a NUL, not part of the data.
    iotest::WriteFile(folder_ / "n.txt", "12 3.5");
    ReadFileStatus status = ReadFileStatus::kReadError;
    const FileBuffer buffer = ReadWholeFile(CString(folder_ / "n.txt"), &status);
    EXPECT_EQ(status, ReadFileStatus::kOk);
    EXPECT_EQ(buffer.Text(), "12 3.5");
    EXPECT_EQ(buffer.Size(), 6u);
    EXPECT_EQ(buffer.End() - buffer.Begin(), 6);
    EXPECT_EQ(*buffer.End(), '\0');
    EXPECT_EQ(buffer.Position(), 0u);
  }
  {  // Binary bytes, NULs and bytes above 127 included, come through unchanged.
    const std::string bytes("a\0b\xff\x80\r\n", 7);
    iotest::WriteFile(folder_ / "bin", bytes);
    EXPECT_EQ(ReadWholeFile(CString(folder_ / "bin")).Text(), bytes);
  }
  {  // An empty file is read (and is an empty buffer), still NUL-terminated.
    iotest::WriteFile(folder_ / "empty", "");
    ReadFileStatus status = ReadFileStatus::kReadError;
    const FileBuffer buffer = ReadWholeFile(CString(folder_ / "empty"), &status);
    EXPECT_EQ(status, ReadFileStatus::kOk);
    EXPECT_TRUE(buffer.IsEmpty());
    EXPECT_EQ(*buffer.Begin(), '\0');
  }
}

TEST_F(WholeFileTest, ReadPositionStaysInsideTheData) {
  iotest::WriteFile(folder_ / "p.txt", "abcdef");
  FileBuffer buffer = ReadWholeFile(CString(folder_ / "p.txt"));
  buffer.Seek(4);
  EXPECT_EQ(buffer.Remaining(), "ef");
  buffer.Seek(100);
  EXPECT_EQ(buffer.Position(), 6u);
  EXPECT_EQ(buffer.Remaining(), "");
  // Moving the buffer keeps data and position.
  const FileBuffer moved = std::move(buffer);
  EXPECT_EQ(moved.Text(), "abcdef");
  EXPECT_EQ(moved.Position(), 6u);
}

TEST_F(WholeFileTest, AnythingButAReadableRegularFileGivesAnEmptyBuffer) {
  // No path, a missing file, and a folder (which opens on this system but is no file).
  const std::pair<std::string, ReadFileStatus> cases[] = {
      {"", ReadFileStatus::kEmptyPath},
      {folder_ / "missing", ReadFileStatus::kCannotOpen},
      {folder_.path().string(), ReadFileStatus::kNotRegularFile}};
  for (const auto& [path, expected] : cases) {
    ReadFileStatus status = ReadFileStatus::kOk;
    EXPECT_TRUE(ReadWholeFile(CString(path), &status).IsEmpty()) << path;
    EXPECT_EQ(status, expected) << path;
  }
  EXPECT_TRUE(KRX::rt::LogLines().empty());  // none of these is worth a message
}

TEST_F(WholeFileTest, AFifoIsRefusedWithoutWaitingForAWriter) {
  const std::string fifo = folder_ / "pipe";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  std::atomic<bool> done = false;
  ReadFileStatus status = ReadFileStatus::kOk;
  bool empty = false;
  std::thread reader([&] {
    empty = ReadWholeFile(CString(fifo), &status).IsEmpty();
    done = true;
  });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!done && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (!done) {
    ADD_FAILURE() << "reading a FIFO blocked";
    // Release the reader: a writer that opens and closes ends both a blocked open and a
    // blocked read.
    const int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
    if (writer >= 0) close(writer);
  }
  reader.join();
  EXPECT_TRUE(empty);
  EXPECT_EQ(status, ReadFileStatus::kNotRegularFile);
}

TEST_F(WholeFileTest, AFileOverTheLimitIsRefusedWithAMessage) {
  const std::string path = folder_ / "big";
  iotest::WriteFile(path, std::string(100, 'x'));
  {  // Exactly at the limit is read.
    ReadFileStatus status = ReadFileStatus::kReadError;
    EXPECT_EQ(ReadWholeFile(CString(path), &status, 100).Size(), 100u);
    EXPECT_EQ(status, ReadFileStatus::kOk);
    EXPECT_TRUE(KRX::rt::LogLines().empty());
  }
  {  // One byte over is refused, and the warning says why, how big and which file.
    ReadFileStatus status = ReadFileStatus::kOk;
    EXPECT_TRUE(ReadWholeFile(CString(path), &status, 99).IsEmpty());
    EXPECT_EQ(status, ReadFileStatus::kTooLarge);
    EXPECT_TRUE(iotest::Logged(KRX::kSeverityWarning, {"too large", "100", "99", path}));
  }
  {  // The default limit, with a sparse file just over it (no disk space is used).
    const std::string sparse = folder_ / "sparse";
    {
      const int fd = open(sparse.c_str(), O_CREAT | O_WRONLY, 0600);
      ASSERT_GE(fd, 0);
      ASSERT_EQ(ftruncate(fd, static_cast<off_t>(kMaxWholeFileBytes) + 1), 0);
      close(fd);
    }
    ReadFileStatus status = ReadFileStatus::kOk;
    EXPECT_TRUE(ReadWholeFile(CString(sparse), &status).IsEmpty());
    EXPECT_EQ(status, ReadFileStatus::kTooLarge);
    EXPECT_TRUE(iotest::Logged(KRX::kSeverityWarning,
                                {"too large", std::to_string(kMaxWholeFileBytes + 1), sparse}));
  }
}

}  // namespace
}  // namespace kavor

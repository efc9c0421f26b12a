#include "kavor/io/whole_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

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

// Text ending in a number, binary bytes (NULs and bytes above 127 included) and an empty
// file all come through unchanged, with one NUL after the data that is not part of it.
TEST_F(WholeFileTest, ReadsTheBytesWithOneNulAfterThem) {
  for (const std::string& bytes :
       {std::string("12 3.5"), std::string("a\0b\xff\x80\r\n", 7), std::string()}) {
    iotest::WriteFile(folder_ / "f", bytes);
    ReadFileStatus status = ReadFileStatus::kReadError;
    const FileBuffer buffer = ReadWholeFile(CString(folder_ / "f"), &status);
    EXPECT_EQ(status, ReadFileStatus::kOk);
    EXPECT_EQ(buffer.Text(), bytes);
    EXPECT_EQ(static_cast<size_t>(buffer.End() - buffer.Begin()), bytes.size());
    EXPECT_EQ(*buffer.End(), '\0');
    EXPECT_EQ(buffer.Position(), 0u);
  }
  {  // The read position stays inside the data, and moves with the buffer.
    iotest::WriteFile(folder_ / "p", "abcdef");
    FileBuffer buffer = ReadWholeFile(CString(folder_ / "p"));
    buffer.Seek(4);
    EXPECT_EQ(buffer.Remaining(), "ef");
    buffer.Seek(100);
    const FileBuffer moved = std::move(buffer);
    EXPECT_EQ(moved.Position(), 6u);
    EXPECT_EQ(moved.Remaining(), "");
  }
}

// No path, a missing file, a folder (which opens on this system) and a FIFO give an empty
// buffer, none of them worth a message; a FIFO without waiting for a writer.
TEST_F(WholeFileTest, AnythingButAReadableRegularFileGivesAnEmptyBuffer) {
  const std::pair<std::string, ReadFileStatus> cases[] = {
      {"", ReadFileStatus::kEmptyPath},
      {folder_ / "missing", ReadFileStatus::kCannotOpen},
      {folder_.path().string(), ReadFileStatus::kNotRegularFile}};
  for (const auto& [path, expected] : cases) {
    ReadFileStatus status = ReadFileStatus::kOk;
    EXPECT_TRUE(ReadWholeFile(CString(path), &status).IsEmpty()) << path;
    EXPECT_EQ(status, expected) << path;
  }
  iotest::ExpectNoWaitOnFifo(folder_ / "pipe", [&] {
    ReadFileStatus status = ReadFileStatus::kOk;
    EXPECT_TRUE(ReadWholeFile(CString(folder_ / "pipe"), &status).IsEmpty());
    EXPECT_EQ(status, ReadFileStatus::kNotRegularFile);
  });
  EXPECT_TRUE(KRX::rt::LogLines().empty());
}

TEST_F(WholeFileTest, AFileOverTheLimitIsRefusedWithAMessage) {
  const std::string path = folder_ / "big";
  iotest::WriteFile(path, std::string(100, 'x'));
  ReadFileStatus status = ReadFileStatus::kReadError;
  EXPECT_EQ(ReadWholeFile(CString(path), &status, 100).Size(), 100u);  // exactly at the limit
  EXPECT_EQ(status, ReadFileStatus::kOk);
  EXPECT_TRUE(KRX::rt::LogLines().empty());
  // One byte over is refused, and the warning says why, how big and which file.
  EXPECT_TRUE(ReadWholeFile(CString(path), &status, 99).IsEmpty());
  EXPECT_EQ(status, ReadFileStatus::kTooLarge);
  EXPECT_TRUE(iotest::Logged(KRX::kSeverityWarning, {"too large", "100", "99", path}));
  {  // The default limit, with a sparse file just over it (no disk space is used).
    const std::string sparse = folder_ / "sparse";
    const int fd = open(sparse.c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, static_cast<off_t>(kMaxWholeFileBytes) + 1), 0);
    close(fd);
    EXPECT_TRUE(ReadWholeFile(CString(sparse), &status).IsEmpty());
    EXPECT_EQ(status, ReadFileStatus::kTooLarge);
  }
}

}  // namespace
}  // namespace kavor

// Reading a whole file, and telling whether a path is a file to read.
#include "kavor/io/whole_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "kavor/io/file_names.h"
#include "kavor/io/io_test_support.h"
#include "runtime/log.h"

namespace kavor {
namespace {

using KRX::CString;

// Text, binary bytes (NULs and bytes above 127 included) and an empty file all come
// through unchanged, with one NUL after the data that is not part of it; the read position
// stays inside the data and moves with the buffer.
TEST(WholeFile, ReadsTheBytesWithOneNulAfterThem) {
  iotest::TempFolder folder;
  for (const std::string& bytes :
       {std::string("12 3.5"), std::string("a\0b\xff\x80\r\n", 7), std::string()}) {
    iotest::WriteFile(folder / "f", bytes);
    ReadFileStatus status = ReadFileStatus::kReadError;
    FileBuffer buffer = ReadWholeFile(CString(folder / "f"), &status);
    EXPECT_EQ(status, ReadFileStatus::kOk);
    EXPECT_EQ(buffer.Text(), bytes);
    EXPECT_EQ(static_cast<size_t>(buffer.End() - buffer.Begin()), bytes.size());
    EXPECT_EQ(*buffer.End(), '\0');
    EXPECT_EQ(buffer.Position(), 0u);
    buffer.Seek(4);
    EXPECT_EQ(buffer.Remaining(), bytes.substr(std::min<size_t>(4, bytes.size())));
    buffer.Seek(100);
    const FileBuffer moved = std::move(buffer);
    EXPECT_EQ(moved.Position(), bytes.size());
  }
}

// Only a readable regular file within the size limit is read; nothing else is worth a
// message but a file over the limit. A FIFO must not make either function wait for a
// writer, and a NUL inside a path would cut it short to an existing file.
TEST(WholeFile, SafeguardsOfReadingAFile) {
  iotest::TempFolder folder;
  const std::string file = folder / "big";
  iotest::WriteFile(file, std::string(100, 'x'));
  const std::string sparse = folder / "sparse";  // just over the default limit, no disk used
  const int fd = open(sparse.c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(ftruncate(fd, static_cast<off_t>(kMaxWholeFileBytes) + 1), 0);
  close(fd);
  const struct {
    CString path;
    size_t limit;
    ReadFileStatus status;
    std::string warning;
  } cases[] = {
      {CString(file), 100, ReadFileStatus::kOk, ""},
      {CString(file), 99, ReadFileStatus::kTooLarge,
       "File is too large to read (100 bytes, the limit is 99 bytes): " + file},
      {CString(sparse), kMaxWholeFileBytes, ReadFileStatus::kTooLarge, "*"},
      {L"", kMaxWholeFileBytes, ReadFileStatus::kEmptyPath, ""},
      {CString(folder / "missing"), kMaxWholeFileBytes, ReadFileStatus::kCannotOpen, ""},
      {CString(folder.path().string()), kMaxWholeFileBytes, ReadFileStatus::kNotRegularFile, ""},
      {CString(CString(file).GetWideString() + std::wstring(1, L'\0') + L"tail"),
       kMaxWholeFileBytes, ReadFileStatus::kEmptyPath, ""},
      {CString(folder / "pipe"), kMaxWholeFileBytes, ReadFileStatus::kNotRegularFile, ""},
  };
  iotest::ExpectNoWaitOnFifo(folder / "pipe", [&] {
    for (const auto& c : cases) {
      SCOPED_TRACE(c.path.GetAsciiString() + " limit " + std::to_string(c.limit));
      KRX::rt::ClearLog();
      ReadFileStatus status = ReadFileStatus::kReadError;
      EXPECT_EQ(ReadWholeFile(c.path, &status, c.limit).Size(),
                c.status == ReadFileStatus::kOk ? 100u : 0u);
      EXPECT_EQ(status, c.status);
      const auto& lines = KRX::rt::LogLines();
      EXPECT_EQ(lines.size(), c.warning.empty() ? 0u : 1u);
      if (c.warning.size() > 1 && !lines.empty()) {
        EXPECT_EQ(lines[0].text.GetAsciiString(), c.warning);
        EXPECT_EQ(lines[0].severity, KRX::kSeverityWarning);
      }
      if (c.limit == kMaxWholeFileBytes) {
        EXPECT_EQ(FileExists(c.path), c.status == ReadFileStatus::kTooLarge);
      }
    }
  });
  EXPECT_TRUE(FileExists(CString(file)));
  iotest::WriteFile(folder / "empty", "");
  EXPECT_TRUE(FileExists(CString(folder / "empty")));
}

}  // namespace
}  // namespace kavor

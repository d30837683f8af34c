#include "platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <random>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/failing_file_calls.h"
#include "support/temp_dir.h"

using morva::test::FailingFileCalls;
using morva::test::readFile;
using morva::test::TempDir;
using morva::test::writeFile;
using osmik::File;
using osmik::OpenMode;

namespace {

using Call = FailingFileCalls::Call;

constexpr std::size_t kReadAheadBytes = 64UL * 1024;
constexpr std::size_t kFirstReadAheadBytes = 16UL * 1024;

std::string randomBytes(std::size_t size) {
  std::mt19937 random(11);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

/// Up to `size` bytes; "error" when the read failed.
std::string readSome(File* file, std::size_t size) {
  std::string bytes(size, '\0');
  const std::int64_t count = file->read(bytes.data(), size);
  if (count < 0) return "error";
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

/// A file open for writing with a write buffer, in a directory of its own.
class FileWrite : public testing::Test {
 protected:
  void open(std::size_t bufferBytes) {
    file_.setWMBuffer(bufferBytes);
    ASSERT_TRUE(file_.open(path_, OpenMode::kWrite));
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "out";
  FailingFileCalls calls_;
  File file_;
};

}  // namespace

TEST(FileOpen, MissingFileFails) {
  const TempDir dir;
  File file;
  EXPECT_FALSE(file.open(dir / "none", OpenMode::kRead));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(file.isOpen());
}

TEST(FileOpen, PathWithNulByteFails) {
  const TempDir dir;
  writeFile(dir / "a", "x");
  File file;
  EXPECT_FALSE(file.open(dir / std::string("a\0b", 3), OpenMode::kRead));
  EXPECT_EQ(errno, EINVAL);
}

TEST(FileOpen, DirectoryIsRefused) {
  const TempDir dir;
  File file;
  EXPECT_FALSE(file.open(dir.path(), OpenMode::kRead));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_FALSE(file.open(dir.path(), OpenMode::kWrite));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_FALSE(file.isOpen());
}

TEST(FileOpen, PipeIsRefusedWithoutWaitingForItsOtherEnd) {
  const TempDir dir;
  ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
  File file;
  EXPECT_FALSE(file.open(dir / "pipe", OpenMode::kRead));
  EXPECT_EQ(errno, ESPIPE);
  EXPECT_FALSE(file.open(dir / "pipe", OpenMode::kWrite));
}

TEST(FileOpen, OpenObjectIsRefusedAndKeepsItsFile) {
  const TempDir dir;
  writeFile(dir / "a", "first");
  writeFile(dir / "b", "second");
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  EXPECT_FALSE(file.open(dir / "b", OpenMode::kRead));
  EXPECT_EQ(errno, EBUSY);
  EXPECT_EQ(file.path(), dir / "a");
  EXPECT_EQ(readSome(&file, 10), "first");
}

TEST(FileOpen, InterruptedCallIsRepeated) {
  const TempDir dir;
  writeFile(dir / "a", "x");
  FailingFileCalls calls;
  calls.fail(Call::kOpen, 1, 1, EINTR);
  File file;
  EXPECT_TRUE(file.open(dir / "a", OpenMode::kRead));
}

TEST(FileOpen, FailedStatusClosesTheDescriptor) {
  const TempDir dir;
  writeFile(dir / "a", "x");
  FailingFileCalls calls;
  calls.fail(Call::kFstat, 1, 1, EIO);
  File file;
  EXPECT_FALSE(file.open(dir / "a", OpenMode::kRead));
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(calls.count(Call::kClose), 1);
}

TEST(FileOpen, WriteTruncatesWhatIsThere) {
  const TempDir dir;
  writeFile(dir / "a", "something long");
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kWrite));
  ASSERT_EQ(file.write("new"), 3);
  ASSERT_TRUE(file.close());
  EXPECT_EQ(readFile(dir / "a"), "new");
}

TEST(FileOpen, WriteNewRefusesWhatIsThereAndFollowsNoLink) {
  const TempDir dir;
  writeFile(dir / "a", "kept");
  ASSERT_EQ(symlink((dir / "elsewhere").c_str(), (dir / "link").c_str()), 0);
  File file;
  EXPECT_FALSE(file.open(dir / "a", OpenMode::kWriteNew));
  EXPECT_FALSE(file.open(dir / "link", OpenMode::kWriteNew));
  EXPECT_EQ(readFile(dir / "a"), "kept");
  EXPECT_FALSE(File::exists(dir / "elsewhere"));
  EXPECT_TRUE(file.open(dir / "b", OpenMode::kWriteNew));
}

TEST(FileOpen, HugeWriteBufferTakesNoMemoryUntilItIsUsed) {
  const TempDir dir;
  File file;
  file.setWMBuffer(std::size_t{1} << 62);
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kWrite));
  EXPECT_EQ(file.write("x"), 1);
  EXPECT_TRUE(file.close());
  EXPECT_EQ(readFile(dir / "a"), "x");
}

TEST(FileOpen, ClosedFileCanBeOpenedAgainFromItsStart) {
  const TempDir dir;
  writeFile(dir / "a", "abc");
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  EXPECT_EQ(readSome(&file, 2), "ab");
  EXPECT_TRUE(file.close());
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  EXPECT_EQ(file.pos(), 0);
  EXPECT_EQ(readSome(&file, 2), "ab");
}

TEST(FileRead, GivesEveryByteInPiecesOfEverySize) {
  const TempDir dir;
  const std::string content = randomBytes(3 * kReadAheadBytes + 77);
  writeFile(dir / "a", content);
  for (const std::size_t piece :
       {std::size_t{1000}, std::size_t{4095}, std::size_t{4096}, kReadAheadBytes - 1,
        kReadAheadBytes, kReadAheadBytes + 1, content.size() + 1}) {
    File file;
    ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
    std::string all;
    for (std::string part = "x"; !part.empty(); all += part) part = readSome(&file, piece);
    EXPECT_EQ(all.size(), content.size());
    EXPECT_EQ(all, content) << piece;
  }
}

TEST(FileRead, RandomSeeksGiveTheBytesAtTheirPlace) {
  const TempDir dir;
  const std::string content = randomBytes(300'000);
  writeFile(dir / "a", content);
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  std::mt19937 random(12);
  for (int i = 0; i < 3000; ++i) {
    const std::size_t at = random() % (content.size() + 100);
    const std::size_t size = random() % (i % 10 == 0 ? 100'000 : 50);
    ASSERT_EQ(file.seek(static_cast<std::int64_t>(at)), static_cast<std::int64_t>(at));
    const std::string expected = at < content.size() ? content.substr(at, size) : std::string();
    ASSERT_EQ(readSome(&file, size), expected) << at << " " << size;
    ASSERT_EQ(file.pos(), static_cast<std::int64_t>(at + expected.size()));
  }
}

TEST(FileRead, SequentialReadsShareOneReadAhead) {
  const TempDir dir;
  writeFile(dir / "a", randomBytes(kFirstReadAheadBytes));
  FailingFileCalls calls;
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  for (int i = 0; i < 100; ++i) EXPECT_EQ(readSome(&file, 100).size(), 100U);
  EXPECT_EQ(calls.count(Call::kPread), 1);
}

TEST(FileRead, ReadAfterAJumpLooksAheadOnlyWhereReadingGoesOn) {
  const TempDir dir;
  const std::string content = randomBytes(kReadAheadBytes);
  writeFile(dir / "a", content);
  FailingFileCalls calls;
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  const auto readAt = [&](std::int64_t at) {
    EXPECT_EQ(file.seek(at), at);
    EXPECT_EQ(readSome(&file, 4), content.substr(static_cast<std::size_t>(at), 4));
    return calls.count(Call::kPread);
  };
  EXPECT_EQ(readAt(40'000), 1);
  EXPECT_EQ(readAt(20'000), 2);
  EXPECT_EQ(readAt(20'004), 3);         // goes on: 4096 bytes
  EXPECT_EQ(readAt(20'004 + 4092), 3);  // the last of them
  EXPECT_EQ(readAt(25'000), 4);         // near enough: 16384 bytes
  EXPECT_EQ(readAt(25'000 + 16'380), 4);
  EXPECT_EQ(readAt(30'000), 4);  // also backwards
  EXPECT_EQ(readAt(10'000), 5);
}

TEST(FileRead, ReadAheadGrowsUpToItsLimit) {
  const TempDir dir;
  const std::string content = randomBytes(5 * File::kMaxPeekBytes);
  writeFile(dir / "a", content);
  FailingFileCalls calls;
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  std::string all;
  for (std::string part = "x"; !part.empty(); all += part) part = readSome(&file, 1000);
  EXPECT_EQ(all, content);
  // 16, 64 and then 256 KiB at a time; the read that meets the end asks twice more.
  EXPECT_LE(calls.count(Call::kPread), 2 + 5 + 4);
}

TEST(FilePeek, GivesBytesInPlaceWithoutMoving) {
  const TempDir dir;
  const std::string content = randomBytes(700'000);
  writeFile(dir / "a", content);
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  std::mt19937 random(13);
  for (int i = 0; i < 300; ++i) {
    if (i % 3 == 0) {
      ASSERT_GE(file.seek(static_cast<std::int64_t>(random() % (content.size() + 100))), 0);
    }
    const auto at = static_cast<std::size_t>(file.pos());
    const std::string rest = at < content.size() ? content.substr(at) : std::string();
    const std::size_t size = random() % (i % 5 == 0 ? File::kMaxPeekBytes + 1 : 3000);
    std::string_view bytes;
    ASSERT_EQ(file.peek(size, &bytes), static_cast<std::int64_t>(std::min(size, rest.size())));
    ASSERT_EQ(bytes, std::string_view(rest).substr(0, size));
    ASSERT_EQ(file.pos(), static_cast<std::int64_t>(at));
    if (i % 2 == 0) continue;
    ASSERT_EQ(readSome(&file, size), std::string_view(rest).substr(0, size));
  }
}

TEST(FilePeek, GivesNoMoreThanTheLimit) {
  const TempDir dir;
  writeFile(dir / "a", randomBytes(2 * File::kMaxPeekBytes));
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  std::string_view bytes;
  EXPECT_EQ(file.peek(SIZE_MAX, &bytes), static_cast<std::int64_t>(File::kMaxPeekBytes));
  EXPECT_EQ(bytes.size(), File::kMaxPeekBytes);
}

TEST(FilePeek, SeesWhatWasAppendedAndTellsErrors) {
  const TempDir dir;
  writeFile(dir / "a", "abc");
  FailingFileCalls calls;
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  calls.fail(Call::kPread, 1, 1, EIO);
  std::string_view bytes = "x";
  EXPECT_EQ(file.peek(10, &bytes), -1);
  EXPECT_EQ(bytes, "");
  EXPECT_EQ(file.peek(10, &bytes), 3);
  EXPECT_EQ(bytes, "abc");
  File writer;
  ASSERT_TRUE(writer.open(dir / "a", OpenMode::kWrite));
  ASSERT_EQ(writer.write("abcdef"), 6);
  ASSERT_TRUE(writer.close());
  EXPECT_EQ(file.peek(10, &bytes), 6);
  EXPECT_EQ(bytes, "abcdef");
  File closed;
  EXPECT_EQ(closed.peek(1, &bytes), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(FileReadInPlace, GivesEveryByteOnce) {
  const TempDir dir;
  const std::string content = randomBytes(700'000);
  writeFile(dir / "a", content);
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  std::string all;
  std::string_view bytes;
  while (file.readInPlace(content.size() - all.size() + 1, &bytes) > 0) {
    all += bytes;
    ASSERT_EQ(file.pos(), static_cast<std::int64_t>(all.size()));
    if (all.size() < 5000) all += readSome(&file, 3);
  }
  EXPECT_EQ(all, content);
  EXPECT_EQ(file.readInPlace(1, &bytes), 0);
}

TEST(FileReadInPlace, TellsErrorsAndGoesOn) {
  const TempDir dir;
  writeFile(dir / "a", "abc");
  FailingFileCalls calls;
  calls.fail(Call::kPread, 1, 1, EIO);
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  std::string_view bytes;
  EXPECT_EQ(file.readInPlace(2, &bytes), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(file.readInPlace(2, &bytes), 2);
  EXPECT_EQ(bytes, "ab");
}

TEST(FileRead, SeesWhatWasAppendedSinceTheEndWasMet) {
  const TempDir dir;
  writeFile(dir / "a", "abc");
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  EXPECT_EQ(readSome(&file, 10), "abc");
  EXPECT_EQ(readSome(&file, 10), "");
  File writer;
  ASSERT_TRUE(writer.open(dir / "a", OpenMode::kWrite));
  ASSERT_EQ(writer.write("abcdef"), 6);
  ASSERT_TRUE(writer.close());
  EXPECT_EQ(readSome(&file, 10), "def");
}

TEST(FileRead, InterruptedAndShortCallsAreContinued) {
  const TempDir dir;
  const std::string content = randomBytes(200'000);
  writeFile(dir / "a", content);
  FailingFileCalls calls;
  calls.fail(Call::kPread, 1, 1, EINTR);
  calls.shorten(Call::kPread, 2, 7);
  calls.fail(Call::kPread, 3, 1, EINTR);
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  EXPECT_EQ(readSome(&file, 200'000), content);
}

TEST(FileRead, ErrorAtOnceGivesMinusOneAndTheNextReadWorks) {
  const TempDir dir;
  writeFile(dir / "a", "abc");
  FailingFileCalls calls;
  calls.fail(Call::kPread, 1, 1, EIO);
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  char byte = 0;
  EXPECT_EQ(file.read(&byte, 1), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(file.pos(), 0);
  EXPECT_EQ(readSome(&file, 3), "abc");
}

TEST(FileRead, ErrorAfterSomeBytesGivesThose) {
  const TempDir dir;
  const std::string content = randomBytes(2 * kReadAheadBytes);
  writeFile(dir / "a", content);
  FailingFileCalls calls;
  calls.fail(Call::kPread, 2, 1, EIO);
  File file;
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  EXPECT_EQ(readSome(&file, 10), content.substr(0, 10));
  EXPECT_EQ(readSome(&file, 2 * kReadAheadBytes), content.substr(10, kFirstReadAheadBytes - 10));
}

TEST(FileRead, ClosedAndWritingFilesRefuse) {
  const TempDir dir;
  File file;
  char byte = 0;
  EXPECT_EQ(file.read(&byte, 1), -1);
  EXPECT_EQ(errno, EBADF);
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kWrite));
  EXPECT_EQ(file.read(&byte, 1), -1);
}

TEST(FileSeek, RefusesNegativePlacesAndClosedFiles) {
  const TempDir dir;
  writeFile(dir / "a", "abc");
  File file;
  EXPECT_EQ(file.seek(0), -1);
  EXPECT_EQ(errno, EBADF);
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kRead));
  EXPECT_EQ(file.seek(-1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(file.seek(INT64_MAX), INT64_MAX);
  EXPECT_EQ(readSome(&file, 4).size() % 5, 0U);  // "" or "error", by the file system
}

TEST(FileSize, CountsTheFileAndNotTheBuffer) {
  const TempDir dir;
  File file;
  EXPECT_EQ(file.size(), -1);
  file.setWMBuffer(100);
  ASSERT_TRUE(file.open(dir / "a", OpenMode::kWrite));
  ASSERT_EQ(file.write("abc"), 3);
  EXPECT_EQ(file.size(), 0);
  EXPECT_EQ(file.pos(), 3);
  ASSERT_TRUE(file.flush());
  EXPECT_EQ(file.size(), 3);
}

TEST(FileRemove, RemovesTheLinkAndNotItsTarget) {
  const TempDir dir;
  writeFile(dir / "target", "x");
  ASSERT_EQ(symlink((dir / "target").c_str(), (dir / "link").c_str()), 0);
  EXPECT_TRUE(File::remove(dir / "link"));
  EXPECT_TRUE(File::exists(dir / "target"));
  EXPECT_TRUE(File::remove(dir / "target"));
  EXPECT_FALSE(File::exists(dir / "target"));
  EXPECT_TRUE(File::remove(dir / "target"));
  EXPECT_FALSE(File::remove(dir.path()));
}

TEST_F(FileWrite, RandomPiecesArriveInOrderWithEveryBufferSize) {
  const std::string content = randomBytes(50'000);
  for (const std::size_t buffer : {0U, 1U, 100U, 4096U, 100'000U}) {
    File file;
    file.setWMBuffer(buffer);
    ASSERT_TRUE(file.open(path_, OpenMode::kWrite));
    std::mt19937 random(13);
    for (std::size_t at = 0; at < content.size();) {
      const std::size_t size = std::min<std::size_t>(random() % 300, content.size() - at);
      ASSERT_EQ(file.write(content.data() + at, size), static_cast<std::int64_t>(size));
      at += size;
      ASSERT_EQ(file.pos(), static_cast<std::int64_t>(at));
    }
    ASSERT_TRUE(file.close());
    ASSERT_EQ(readFile(path_), content) << buffer;
  }
}

TEST_F(FileWrite, BufferGathersSmallWrites) {
  open(1000);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(file_.write("0123456789"), 10);
  EXPECT_EQ(calls_.count(Call::kPwrite), 0);
  ASSERT_EQ(file_.write("x"), 1);
  EXPECT_EQ(calls_.count(Call::kPwrite), 1);
}

TEST_F(FileWrite, LargePieceIsHandedOverWithoutACopyBehindWhatIsBuffered) {
  const std::string large = randomBytes(100'000);
  open(1'000'000);
  ASSERT_EQ(file_.write("before "), 7);
  ASSERT_EQ(file_.write(large), 100'000);
  EXPECT_EQ(readFile(path_), "before " + large);
  ASSERT_EQ(file_.write(" after"), 6);
  EXPECT_EQ(file_.pos(), 100'013);
  ASSERT_TRUE(file_.close());
  EXPECT_EQ(readFile(path_), "before " + large + " after");
}

TEST_F(FileWrite, LargePieceThatTheSystemDoesNotTakeIsKept) {
  const std::string large = randomBytes(100'000);
  open(1'000'000);
  ASSERT_EQ(file_.write("before "), 7);
  calls_.limitFileBytes(70'000);
  EXPECT_EQ(file_.write(large), 100'000) << "as any other piece";
  EXPECT_EQ(file_.write(large), 100'000) << "behind what could not be flushed";
  EXPECT_EQ(file_.pos(), 200'007);
  EXPECT_FALSE(file_.flush());
  EXPECT_EQ(readFile(path_), ("before " + large).substr(0, 70'000));
  calls_.limitFileBytes(-1);
  EXPECT_TRUE(file_.close());
  EXPECT_EQ(readFile(path_), "before " + large + large);
}

TEST_F(FileWrite, WithoutBufferEveryWriteReachesTheFile) {
  open(0);
  ASSERT_EQ(file_.writeData("abc", 3), 3);
  EXPECT_EQ(readFile(path_), "abc");
}

TEST_F(FileWrite, SeekFlushesAndOverwrites) {
  open(100);
  ASSERT_EQ(file_.write("hello world"), 11);
  ASSERT_EQ(file_.seek(0), 0);
  ASSERT_EQ(file_.write("J"), 1);
  ASSERT_TRUE(file_.close());
  EXPECT_EQ(readFile(path_), "Jello world");
}

TEST_F(FileWrite, SeekFailsWhereTheFlushFails) {
  open(100);
  ASSERT_EQ(file_.write("hello"), 5);
  calls_.fail(Call::kPwrite, 1, 1, ENOSPC);
  EXPECT_EQ(file_.seek(0), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(file_.pos(), 5);
}

TEST_F(FileWrite, InterruptedSyncAndTruncateAreRepeated) {
  calls_.fail(Call::kFsync, 1, 2, EINTR);
  calls_.fail(Call::kFtruncate, 1, 1, EINTR);
  calls_.fail(Call::kFtruncate, 3, 1, EINTR);
  File file;
  ASSERT_TRUE(file.open(path_, OpenMode::kWrite));
  ASSERT_EQ(file.write("abcdef"), 6);
  EXPECT_TRUE(file.sync());
  EXPECT_TRUE(file.truncate(6));
  EXPECT_TRUE(file.truncate(3));
  EXPECT_TRUE(file.close());
  EXPECT_EQ(readFile(path_), "abc");
}

TEST_F(FileWrite, InterruptedCloseIsDone) {
  calls_.fail(Call::kClose, 1, 1, EINTR);
  File file;
  ASSERT_TRUE(file.open(path_, OpenMode::kWrite));
  ASSERT_EQ(file.write("abc"), 3);
  EXPECT_TRUE(file.close());
  EXPECT_FALSE(file.isOpen());
  EXPECT_EQ(calls_.count(Call::kClose), 1) << "the descriptor's number may be another file's";
}

TEST_F(FileWrite, InterruptedAndShortCallsAreContinued) {
  open(0);
  calls_.fail(Call::kPwrite, 1, 1, EINTR);
  calls_.shorten(Call::kPwrite, 2, 3);
  calls_.fail(Call::kPwrite, 3, 1, EINTR);
  EXPECT_EQ(file_.write("hello world"), 11);
  EXPECT_EQ(readFile(path_), "hello world");
}

TEST_F(FileWrite, FailedFlushKeepsTheBytesForTheNext) {
  open(100);
  ASSERT_EQ(file_.write("hello"), 5);
  calls_.fail(Call::kPwrite, 1, 1, ENOSPC);
  EXPECT_FALSE(file_.flush());
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(readFile(path_), "");
  EXPECT_TRUE(file_.flush());
  EXPECT_EQ(readFile(path_), "hello");
}

TEST_F(FileWrite, HalfFailedFlushKeepsTheRest) {
  open(100);
  ASSERT_EQ(file_.write("hello world"), 11);
  calls_.limitFileBytes(4);
  EXPECT_FALSE(file_.flush());
  EXPECT_EQ(readFile(path_), "hell");
  EXPECT_EQ(file_.pos(), 11);
  calls_.limitFileBytes(-1);
  EXPECT_TRUE(file_.close());
  EXPECT_EQ(readFile(path_), "hello world");
}

TEST_F(FileWrite, RefusedWriteAcceptsNothingAndKeepsWhatWasAccepted) {
  open(8);
  ASSERT_EQ(file_.write("12345"), 5);
  calls_.fail(Call::kPwrite, 1, 1, EIO);
  EXPECT_EQ(file_.write("67890"), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(file_.pos(), 5);
  EXPECT_EQ(file_.write("67890"), 5);
  EXPECT_TRUE(file_.close());
  EXPECT_EQ(readFile(path_), "1234567890");
}

TEST_F(FileWrite, DirectWriteTellsHowMuchFitted) {
  open(0);
  calls_.limitFileBytes(4);
  EXPECT_EQ(file_.write("hello"), 4);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(file_.pos(), 4);
  EXPECT_EQ(file_.write("o"), -1);
}

TEST_F(FileWrite, CloseReportsLostBytesAndGivesTheDescriptorBack) {
  open(100);
  ASSERT_EQ(file_.write("hello"), 5);
  calls_.fail(Call::kPwrite, 1, FailingFileCalls::kForever, ENOSPC);
  EXPECT_FALSE(file_.close());
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(file_.isOpen());
  EXPECT_EQ(calls_.count(Call::kClose), 1);
  EXPECT_TRUE(file_.close());
}

TEST_F(FileWrite, CloseReportsAFailedClose) {
  open(0);
  calls_.fail(Call::kClose, 1, 1, EIO);
  EXPECT_FALSE(file_.close());
  EXPECT_EQ(errno, EIO);
  EXPECT_FALSE(file_.isOpen());
}

TEST_F(FileWrite, SyncFlushesFirstAndReportsEachFailure) {
  open(100);
  ASSERT_EQ(file_.write("hello"), 5);
  calls_.fail(Call::kPwrite, 1, 1, ENOSPC);
  EXPECT_FALSE(file_.sync());
  EXPECT_EQ(calls_.count(Call::kFsync), 0);
  calls_.fail(Call::kFsync, 1, 1, EIO);
  EXPECT_FALSE(file_.sync());
  EXPECT_EQ(readFile(path_), "hello");
  EXPECT_TRUE(file_.sync());
}

TEST_F(FileWrite, TruncateCutsBufferedBytes) {
  open(100);
  ASSERT_EQ(file_.write("hello world"), 11);
  EXPECT_TRUE(file_.truncate(5));
  EXPECT_EQ(file_.pos(), 5);
  ASSERT_EQ(file_.write("!"), 1);
  EXPECT_TRUE(file_.close());
  EXPECT_EQ(readFile(path_), "hello!");
}

TEST_F(FileWrite, TruncateCutsWrittenBytesAndTheBufferBehindThem) {
  open(100);
  ASSERT_EQ(file_.write("hello"), 5);
  ASSERT_TRUE(file_.flush());
  ASSERT_EQ(file_.write(" world"), 6);
  EXPECT_TRUE(file_.truncate(3));
  EXPECT_EQ(file_.pos(), 3);
  ASSERT_EQ(file_.write("p"), 1);
  EXPECT_TRUE(file_.close());
  EXPECT_EQ(readFile(path_), "help");
}

TEST_F(FileWrite, TruncateAfterAFailedFlushKeepsWhatWasAcceptedBefore) {
  open(8);
  ASSERT_EQ(file_.write("12345"), 5);
  calls_.limitFileBytes(2);
  EXPECT_EQ(file_.write("6789"), -1);
  EXPECT_TRUE(file_.truncate(5));
  calls_.limitFileBytes(-1);
  EXPECT_TRUE(file_.close());
  EXPECT_EQ(readFile(path_), "12345");
}

TEST_F(FileWrite, TruncateBeyondTheEndIsRefused) {
  open(100);
  ASSERT_EQ(file_.write("hello"), 5);
  EXPECT_FALSE(file_.truncate(6));
  EXPECT_FALSE(file_.truncate(-1));
  ASSERT_TRUE(file_.flush());
  EXPECT_FALSE(file_.truncate(6));
  EXPECT_TRUE(file_.close());
  EXPECT_FALSE(file_.truncate(0));
  EXPECT_EQ(readFile(path_), "hello");
}

TEST_F(FileWrite, FailedTruncateIsReported) {
  open(0);
  ASSERT_EQ(file_.write("hello"), 5);
  calls_.fail(Call::kFtruncate, 1, 1, EIO);
  EXPECT_FALSE(file_.truncate(2));
  EXPECT_EQ(errno, EIO);
}

TEST_F(FileWrite, NegativeLengthIsRefused) {
  open(0);
  EXPECT_EQ(file_.writeData("abc", -1), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(FileWrite, ClosedFileRefuses) {
  EXPECT_EQ(file_.write("abc"), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_TRUE(file_.flush());
  EXPECT_TRUE(file_.close());
}

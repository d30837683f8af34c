#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/compress.h"
#include "platform/str_util.h"
#include "storage/bag_reader.h"
#include "storage/largest_allocation.h"
#include "storage/records.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using osmik::StrUtil;

constexpr std::size_t kSmall = 128UL * 1024;  // what a lie may cost at most

const BuiltMessage kImu{.topicId = 1, .stored = "imu payload"};
const BuiltMessage kLidar{.topicId = 0, .stored = std::string(300, 'L'), .count = 7};

/// A reader of a bag with two messages, which tests may damage before they open it.
class BagReaderRead : public testing::Test {
 protected:
  BagReaderRead() {
    bag_.topic(1, "/imu").topic(0, "/lidar").message(kImu).message(kLidar);
    bytes_ = bag_.build();
    imuAt_ = bag_.chunkOffset(0);
    lidarAt_ = bag_.chunkOffset(1);
  }
  void open() { openBytes(bytes_); }
  void openBytes(const std::string& bytes) {
    reader_.close();
    writeFile(path_, bytes);
    ASSERT_LE(reader_.open(path_), 1);
    log_.clear();
  }
  std::int64_t readChunk(std::uint64_t offset) {
    chunk_ = BagFile::Chunk();
    next_ = -7;
    return reader_.read(&chunk_, static_cast<std::int64_t>(offset), &next_);
  }
  std::int64_t readHeader(std::uint64_t offset) {
    chunk_ = BagFile::Chunk();
    chunk_.headerOnly = true;
    next_ = -7;
    return reader_.read(&chunk_, static_cast<std::int64_t>(offset), &next_);
  }
  /// Reads chunk 1, which fails with `line` and moves nothing.
  void expectChunkError(const std::string& line) {
    log_.clear();
    const LargestAllocation memory;
    EXPECT_EQ(readChunk(lidarAt_), -1);
    EXPECT_EQ(next_, -7);
    EXPECT_EQ(log_.lines(), Lines{errorLine("BagReader::read", line)});
    EXPECT_LT(memory.bytes(), kSmall);
  }
  void expectMessageError(const MsgIndex& index, const std::string& line) {
    log_.clear();
    std::string data;
    const LargestAllocation memory;
    EXPECT_EQ(reader_.read(index, &data), -1);
    EXPECT_EQ(log_.lines(), Lines{errorLine("BagReader::read", line)});
    EXPECT_LT(memory.bytes(), kSmall);
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  LogCapture log_;
  BagBuilder bag_;
  std::string bytes_;
  std::uint64_t imuAt_ = 0;
  std::uint64_t lidarAt_ = 0;
  BagReader reader_;
  BagFile::Chunk chunk_;
  std::int64_t next_ = 0;
};

// Chunks

TEST_F(BagReaderRead, ChunkComesWithTypeHeaderDataAndNextOffset) {
  open();
  EXPECT_EQ(readChunk(imuAt_), 11);
  EXPECT_EQ(chunk_.type, 1);
  EXPECT_EQ(chunk_.header, messageChunk(kImu).substr(8, 36));
  EXPECT_EQ(chunk_.data, "imu payload");
  EXPECT_EQ(next_, static_cast<std::int64_t>(lidarAt_));
  EXPECT_EQ(readChunk(bag_.chunkOffset(2)), static_cast<std::int64_t>(bag_.index().size()));
  EXPECT_EQ(chunk_.type, 255);
  EXPECT_EQ(log_.lines(), Lines());
}

TEST_F(BagReaderRead, NextMayBeNull) {
  open();
  EXPECT_EQ(reader_.read(&chunk_, static_cast<std::int64_t>(imuAt_), nullptr), 11);
  chunk_.headerOnly = true;
  EXPECT_EQ(reader_.read(&chunk_, static_cast<std::int64_t>(imuAt_), nullptr), 11);
}

TEST_F(BagReaderRead, ChunkFlagsAreKeptAndOldContentsReplaced) {
  open();
  chunk_.compress = true;
  chunk_.header = std::string(100, 'h');
  chunk_.data = std::string(1000, 'd');
  EXPECT_EQ(reader_.read(&chunk_, static_cast<std::int64_t>(imuAt_), nullptr), 11);
  EXPECT_TRUE(chunk_.compress);
  EXPECT_FALSE(chunk_.headerOnly);
  EXPECT_EQ(chunk_.header.size(), 36U);
  EXPECT_EQ(chunk_.data, "imu payload");
}

TEST_F(BagReaderRead, HeaderOnlySkipsDataAndChecksum) {
  bytes_[lidarAt_ + 100] = 'x';  // the checksum no longer holds
  open();
  EXPECT_EQ(readHeader(lidarAt_), 300);
  EXPECT_EQ(chunk_.type, 1);
  EXPECT_EQ(chunk_.header, messageChunk(kLidar).substr(8, 36));
  EXPECT_EQ(chunk_.data, "");
  EXPECT_TRUE(chunk_.headerOnly);
  EXPECT_EQ(next_, static_cast<std::int64_t>(bag_.chunkOffset(2)));
  EXPECT_EQ(log_.lines(), Lines());
}

TEST_F(BagReaderRead, HeaderOnlyFailsSilentlyWhereTheFileEndsInTheChunk) {
  openBytes(bytes_.substr(0, bag_.chunkOffset(2) - 1));
  EXPECT_EQ(readHeader(lidarAt_), -1);
  EXPECT_EQ(next_, -7);
  EXPECT_EQ(log_.lines(), Lines());
}

TEST_F(BagReaderRead, ClosedReaderNullChunkAndBadOffsetsAreParamErrors) {
  EXPECT_EQ(readChunk(imuAt_), -1);
  open();
  EXPECT_EQ(reader_.read(nullptr, static_cast<std::int64_t>(imuAt_), nullptr), -1);
  for (const std::int64_t offset : {std::int64_t{0}, std::int64_t{-1}, INT64_MIN}) {
    EXPECT_EQ(reader_.read(&chunk_, offset, nullptr), -1);
    EXPECT_EQ(log_.lines().back(),
              errorLine("BagReader::read", StrUtil::format("offset: %lld, param error!", offset)));
  }
  EXPECT_EQ(log_.lines().front(),
            errorLine("BagReader::read", StrUtil::format("offset: %lld, param error!", imuAt_)));
  reader_.close();
  EXPECT_EQ(readChunk(imuAt_), -1);
}

TEST_F(BagReaderRead, EndOfFileInEachFieldHasItsOwnLine) {
  struct Case {
    std::size_t bytesLeft;
    std::string line;
  };
  const std::string at = std::to_string(lidarAt_);
  for (const Case& cut :
       {Case{0, "read chunk size error, offset: " + at + ", ret: 0!"},
        Case{3, "read chunk size error, offset: " + at + ", ret: 3!"},
        Case{4, "read chunk type error, ret: 0!"}, Case{5, "read chunk type error, ret: 1!"},
        Case{6, "read chunk header size error, ret: 0!"},
        Case{7, "read chunk header size error, ret: 1!"},
        Case{8, "read chunk header error, ret: 0!"}, Case{43, "read chunk header error, ret: 35!"},
        Case{44, "read data size error, ret: 0!"}, Case{47, "read data size error, ret: 3!"},
        Case{48, "read data(300) error, ret: 0!"}, Case{347, "read data(300) error, ret: 299!"},
        Case{348, "read crc32 error, ret: 0!"}, Case{351, "read crc32 error, ret: 3!"}}) {
    openBytes(bytes_.substr(0, lidarAt_ + cut.bytesLeft));
    expectChunkError(cut.line);
  }
}

TEST_F(BagReaderRead, FailedSystemCallsAreReported) {
  bytes_.replace(lidarAt_, std::string::npos,
                 messageChunk({.stored = std::string(2'000'000, 'x')}));
  open();
  FailingFileCalls calls;
  calls.fail(FailingFileCalls::Call::kPread, 1, 1, EIO);
  EXPECT_EQ(readChunk(1'500'000), -1);
  EXPECT_EQ(log_.lines(), Lines{errorLine("BagReader::read",
                                          "read chunk size error, offset: 1500000, ret: -1!")});
  // The framing comes from a call of its own, which looks ahead to some of the data.
  calls.fail(FailingFileCalls::Call::kPread, 2, 1, EIO);
  log_.clear();
  EXPECT_EQ(readChunk(lidarAt_), -1);
  EXPECT_EQ(log_.lines(),
            Lines{errorLine("BagReader::read", "read data(2000000) error, ret: 4048!")});
  EXPECT_EQ(readChunk(lidarAt_), 2'000'000);  // the reader goes on
}

TEST_F(BagReaderRead, ChunkHeaderBelowTwelveBytesIsRefused) {
  for (const std::uint16_t size : std::to_array<std::uint16_t>({0, 1, 11})) {
    patch<std::uint16_t>(&bytes_, lidarAt_ + 6, size);
    open();
    expectChunkError("chunk header size(" + std::to_string(size) + " < 12) error!");
  }
}

TEST_F(BagReaderRead, ChunkHeaderOfTwelveBytesIsAccepted) {
  bytes_.replace(lidarAt_, std::string::npos, chunkBytes(77, timedChunkHeader(5), "hello"));
  open();
  EXPECT_EQ(readChunk(lidarAt_), 5);
  EXPECT_EQ(chunk_.type, 77);
}

TEST_F(BagReaderRead, LargestChunkHeaderIsBoundedByTheFile) {
  patch<std::uint16_t>(&bytes_, lidarAt_ + 6, 0xFFFF);
  open();
  expectChunkError("read chunk header error, ret: " + std::to_string(bytes_.size() - lidarAt_ - 8) +
                   "!");
}

TEST_F(BagReaderRead, ChunkSizeWordIsNotUsed) {
  for (const std::uint32_t size : {0U, 1U, 0xFFFFFFFFU}) {
    patch<std::uint32_t>(&bytes_, lidarAt_, size);
    open();
    EXPECT_EQ(readChunk(lidarAt_), 300);
    EXPECT_EQ(next_, static_cast<std::int64_t>(bag_.chunkOffset(2)));
  }
}

TEST_F(BagReaderRead, LyingDataSizeCostsALineAndNoMemory) {
  const std::size_t left = bytes_.size() - lidarAt_ - 48;
  for (const std::uint32_t size :
       {static_cast<std::uint32_t>(left + 1), 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    patch<std::uint32_t>(&bytes_, lidarAt_ + 44, size);
    open();
    expectChunkError("read data(" + std::to_string(size) + ") error, ret: " + std::to_string(left) +
                     "!");
    EXPECT_EQ(readHeader(lidarAt_), -1);
  }
}

TEST_F(BagReaderRead, DataSizeThatLeavesNoRoomForTheChecksumIsRefused) {
  const std::size_t left = bytes_.size() - lidarAt_ - 48;
  for (const std::size_t missing : {0U, 1U, 3U}) {
    patch<std::uint32_t>(&bytes_, lidarAt_ + 44, static_cast<std::uint32_t>(left - missing));
    open();
    expectChunkError("read crc32 error, ret: " + std::to_string(missing) + "!");
  }
}

TEST_F(BagReaderRead, WrongDataSizeWithinTheFileIsAChecksumError) {
  for (const std::uint32_t size : {0U, 299U, 301U}) {
    patch<std::uint32_t>(&bytes_, lidarAt_ + 44, size);
    open();
    const std::string data = bytes_.substr(lidarAt_ + 48, size);
    const auto stored = numberAt<std::uint32_t>(bytes_, lidarAt_ + 48 + size);
    expectChunkError(StrUtil::format(
        "crc32 error(0x%08X : 0x%08X), chunk offset: 0x%016llX, crc32 offset: 0x%016llX, "
        "crc data len: %d!",
        referenceCrc32(data), stored, lidarAt_, lidarAt_ + 52 + size, size));
  }
}

TEST_F(BagReaderRead, EmptyDataNeedsItsChecksum) {
  bytes_.replace(lidarAt_, std::string::npos, chunkBytes(1, timedChunkHeader(0), ""));
  open();
  EXPECT_EQ(readChunk(lidarAt_), 0);
  EXPECT_EQ(chunk_.data, "");
  openBytes(bytes_.substr(0, lidarAt_ + 24));
  expectChunkError("read crc32 error, ret: 0!");
}

TEST_F(BagReaderRead, RawSizeIsIgnoredWithoutACodec) {
  patch<std::uint32_t>(&bytes_, lidarAt_ + 16, 0xFFFFFFFF);
  open();
  EXPECT_EQ(readChunk(lidarAt_), 300);
  EXPECT_EQ(chunk_.data, kLidar.stored);
}

TEST_F(BagReaderRead, OffsetsUpToTheLargestAreHarmless) {
  open();
  for (const std::int64_t offset : {static_cast<std::int64_t>(bytes_.size()), std::int64_t{1} << 40,
                                    INT64_MAX - 4, INT64_MAX}) {
    log_.clear();
    EXPECT_EQ(reader_.read(&chunk_, offset, &next_), -1);
    EXPECT_EQ(log_.lines().size(), 1U);
    EXPECT_EQ(reader_.readNextChunk(&chunk_, offset, &next_), -1);
    EXPECT_EQ(log_.lines().size(), 1U);
  }
}

TEST_F(BagReaderRead, ChunkAppendedAfterOpenIsRead) {
  openBytes(bag_.buildUnclosed());
  const std::uint64_t end = bag_.chunkOffset(2);
  EXPECT_EQ(readChunk(end), -1);
  std::ofstream file(path_, std::ios::binary | std::ios::app);
  file << messageChunk({.stored = std::string(5000, 'n')});
  file.close();
  EXPECT_EQ(readChunk(end), 5000);
  EXPECT_EQ(readHeader(end), 5000);
}

// Compressed chunks

class BagReaderCodec : public BagReaderRead, public testing::WithParamInterface<const char*> {
 protected:
  BagReaderCodec() {
    raw_ = std::string(20'000, 'r') + "end";
    if (isLz4()) {
      stored_ = compressed(basalt::Lz4Compress(), raw_);
    } else {
      stored_ = compressed(basalt::ZstdCompress(), raw_);
    }
    bag_ = BagBuilder();
    bag_.header.compression = isLz4() ? 2 : 3;
    bag_.topic(1, "/imu");
    message_ = {
        .topicId = 1, .stored = stored_, .rawSize = static_cast<std::uint32_t>(raw_.size())};
    bag_.message(message_).message(message_);
    lidarAt_ = bag_.chunkOffset(1);
    bytes_ = bag_.build();
  }
  static bool isLz4() { return std::string(GetParam()) == "lz4"; }

  std::string raw_;
  std::string stored_;
  BuiltMessage message_;
};

INSTANTIATE_TEST_SUITE_P(Codecs, BagReaderCodec, testing::Values("lz4", "zstd"),
                         [](const auto& codec) { return std::string(codec.param); });

TEST_P(BagReaderCodec, ChunkAndMessageAreRestored) {
  open();
  EXPECT_EQ(readChunk(lidarAt_), 20'003);
  EXPECT_EQ(chunk_.data, raw_);
  EXPECT_EQ(next_, static_cast<std::int64_t>(bag_.chunkOffset(2)));
  std::string data;
  EXPECT_EQ(reader_.read(messageIndex(message_, lidarAt_), &data), 20'003);
  EXPECT_EQ(data, raw_);
  EXPECT_EQ(readHeader(lidarAt_), static_cast<std::int64_t>(stored_.size()));
}

TEST_P(BagReaderCodec, EqualSizesAreTakenForUncompressed) {
  // The format cannot tell a payload whose compressed length happens to be its raw length.
  message_.rawSize = static_cast<std::uint32_t>(stored_.size());
  patch<std::uint32_t>(&bytes_, lidarAt_ + 16, message_.rawSize);
  open();
  EXPECT_EQ(readChunk(lidarAt_), static_cast<std::int64_t>(stored_.size()));
  EXPECT_EQ(chunk_.data, stored_);
  std::string data;
  EXPECT_EQ(reader_.read(messageIndex(message_, lidarAt_), &data),
            static_cast<std::int64_t>(stored_.size()));
  EXPECT_EQ(data, stored_);
}

TEST_P(BagReaderCodec, LyingRawSizeCostsALineAndNoMemory) {
  for (const std::uint32_t lie : {0U, 1U, 0x7E000000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    if (lie == stored_.size()) continue;
    patch<std::uint32_t>(&bytes_, lidarAt_ + 16, lie);
    open();
    const LargestAllocation memory;
    EXPECT_EQ(readChunk(lidarAt_), -1);
    EXPECT_LT(memory.bytes(), kSmall);
    EXPECT_EQ(log_.lines(),
              Lines{errorLine("BagReader::read",
                              StrUtil::format("decompress error, chunk offset: 0x%016llX, msg "
                                              "size: %d!",
                                              lidarAt_, lie))});
    if (lie < stored_.size()) continue;  // a message index says so by itself
    message_.rawSize = lie;
    expectMessageError(messageIndex(message_, lidarAt_),
                       StrUtil::format("decompress error, chunk offset: 0x%016llX!", lidarAt_));
  }
}

TEST_P(BagReaderCodec, DataThatIsNoCompressedDataFails) {
  const std::string noise(stored_.size(), '\xEE');
  message_.stored = noise;
  bytes_.replace(lidarAt_, messageChunk(message_).size(), messageChunk(message_));
  open();
  EXPECT_EQ(readChunk(lidarAt_), -1);
  EXPECT_EQ(next_, static_cast<std::int64_t>(bag_.chunkOffset(2)));  // the chunk itself is sound
  EXPECT_EQ(log_.lines(),
            Lines{errorLine("BagReader::read",
                            StrUtil::format("decompress error, chunk offset: 0x%016llX, msg size: "
                                            "20003!",
                                            lidarAt_))});
  expectMessageError(messageIndex(message_, lidarAt_),
                     StrUtil::format("decompress error, chunk offset: 0x%016llX!", lidarAt_));
}

TEST_P(BagReaderCodec, EmptyStoredDataWithARawSizeFails) {
  message_.stored = "";
  bytes_.replace(lidarAt_, std::string::npos, messageChunk(message_));
  open();
  EXPECT_EQ(readChunk(lidarAt_), -1);
  expectMessageError(messageIndex(message_, lidarAt_),
                     StrUtil::format("decompress error, chunk offset: 0x%016llX!", lidarAt_));
}

// Messages

TEST_F(BagReaderRead, MessageIsReadWithoutItsFraming) {
  for (std::size_t at = lidarAt_; at < lidarAt_ + 48; ++at) bytes_[at] = '\xFF';
  open();
  std::string data;
  EXPECT_EQ(reader_.read(messageIndex(kLidar, lidarAt_), &data), 300);
  EXPECT_EQ(data, kLidar.stored);
}

TEST_F(BagReaderRead, MessageIndexThatCannotBeIsRefused) {
  open();
  const MsgIndex good = messageIndex(kLidar, lidarAt_);
  const auto line = [](int topicId, std::int64_t offset) {
    return StrUtil::format("topicId: %d, offset: %lld, index error!", topicId, offset);
  };
  const auto at = static_cast<std::int64_t>(lidarAt_);

  MsgIndex bad = good;
  bad.topicId = 0x80000000;
  expectMessageError(bad, line(INT32_MIN, at));
  bad = good;
  bad.topicId = 0xFFFFFFFF;
  expectMessageError(bad, line(-1, at));
  bad = good;
  bad.storedSize = bad.rawSize + 1;
  expectMessageError(bad, line(0, at));
  bad = good;
  bad.count = 0;
  expectMessageError(bad, line(0, at));
  bad = good;
  bad.rawSize = bad.storedSize = 0;
  expectMessageError(bad, line(0, at));
  bad = good;
  bad.chunkOffset = 4095;
  expectMessageError(bad, line(0, 4095));
  reader_.close();
  expectMessageError(good, line(0, at));
}

TEST_F(BagReaderRead, MessageIndexErrorDoesNotTouchTheFile) {
  open();
  const FailingFileCalls calls;
  MsgIndex bad = messageIndex(kLidar, lidarAt_);
  bad.chunkOffset = 4095;
  std::string data;
  EXPECT_EQ(reader_.read(bad, &data), -1);
  EXPECT_EQ(calls.count(FailingFileCalls::Call::kPread), 0);
  EXPECT_EQ(calls.count(FailingFileCalls::Call::kFstat), 0);
}

TEST_F(BagReaderRead, MessageWithoutOutputIsRefused) {
  open();
  EXPECT_EQ(reader_.read(messageIndex(kLidar, lidarAt_), nullptr), -1);
}

TEST_F(BagReaderRead, MessageOffsetsThatDoNotFitAreRefused) {
  open();
  for (const std::uint64_t offset : {std::uint64_t{INT64_MAX} - 47, std::uint64_t{INT64_MAX} + 1,
                                     ~std::uint64_t{0} - 48, ~std::uint64_t{0}}) {
    expectMessageError(
        messageIndex(kLidar, offset),
        StrUtil::format("set offset(%lld) error!", static_cast<std::int64_t>(offset + 48)));
  }
  expectMessageError(messageIndex(kLidar, std::uint64_t{INT64_MAX} - 48),
                     "read data(300) error, ret: 0!");
}

TEST_F(BagReaderRead, LyingStoredSizeCostsALineAndNoMemory) {
  open();
  const std::size_t left = bytes_.size() - lidarAt_ - 48;
  for (const std::uint32_t size :
       {static_cast<std::uint32_t>(left + 1), 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
    MsgIndex index = messageIndex(kLidar, lidarAt_);
    index.storedSize = index.rawSize = size;
    expectMessageError(
        index, "read data(" + std::to_string(size) + ") error, ret: " + std::to_string(left) + "!");
  }
  MsgIndex index = messageIndex(kLidar, lidarAt_);
  index.storedSize = index.rawSize = static_cast<std::uint32_t>(left - 1);
  expectMessageError(index, "read crc32 error, ret: 1!");
}

TEST_F(BagReaderRead, MessageBehindTheEndIsRefused) {
  open();
  expectMessageError(messageIndex(kLidar, 1U << 30), "read data(300) error, ret: 0!");
}

TEST_F(BagReaderRead, DamagedMessageFailsItsChecksumAndTheOthersAreRead) {
  bytes_[lidarAt_ + 60] = 'x';
  open();
  const auto computed = referenceCrc32(bytes_.substr(lidarAt_ + 48, 300));
  const auto stored = numberAt<std::uint32_t>(bytes_, lidarAt_ + 348);
  expectMessageError(
      messageIndex(kLidar, lidarAt_),
      StrUtil::format("crc32 error(0x%08X : 0x%08X), chunk offset: 0x%016llX, msg data size: %u!",
                      computed, stored, lidarAt_, 300));
  std::string data;
  EXPECT_EQ(reader_.read(messageIndex(kImu, imuAt_), &data), 11);
}

TEST_F(BagReaderRead, MessageIsStoredAsItStandsWithoutACodec) {
  open();
  MsgIndex index = messageIndex(kLidar, lidarAt_);
  index.rawSize = 0xFFFFFFFF;
  std::string data;
  EXPECT_EQ(reader_.read(index, &data), 300);
  EXPECT_EQ(data, kLidar.stored);
}

TEST_F(BagReaderRead, MessageReadCostsOneSystemCall) {
  BagBuilder bag;
  const BuiltMessage big{.stored = std::string(1'000'000, 'b')};
  bag.topic(0, "/a").message(big).message(big);
  openBytes(bag.build());
  const FailingFileCalls calls;
  for (const std::size_t i : {1U, 0U, 1U}) {
    const int before = calls.count(FailingFileCalls::Call::kPread);
    std::string data;
    EXPECT_EQ(reader_.read(messageIndex(big, bag.chunkOffset(i)), &data), 1'000'000);
    EXPECT_EQ(calls.count(FailingFileCalls::Call::kPread), before + 1);
  }
  EXPECT_EQ(calls.count(FailingFileCalls::Call::kFstat), 0);
}

}  // namespace
}  // namespace morva::test

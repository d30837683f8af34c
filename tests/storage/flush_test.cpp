// What brings a recording to the storage device, and when.
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/crc32.h"
#include "platform/ignore_result.h"
#include "storage/bag_reader.h"
#include "storage/bag_writer.h"
#include "storage/header_image.h"
#include "storage/loss_gauge.h"
#include "storage/records.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using Call = FailingFileCalls::Call;

constexpr std::size_t kPayloadBytes = 100;
constexpr std::size_t kChunkBytes = layout::chunkBytes(layout::kTopicHeaderBytes, kPayloadBytes);

class Flush : public testing::Test {
 protected:
  void open(const LossBound& bound, std::uint32_t bufferBytes = 0) {
    writer_ = std::make_unique<BagWriter>(CompressionType::kNone, bufferBytes, "private");
    writer_->setLossBound(bound);
    ASSERT_EQ(writer_->open(path_), 0);
    ASSERT_TRUE(writer_->setTopics({"/a"}));
  }

  [[nodiscard]] bool write() {
    const std::string payload(kPayloadBytes, 'x');
    return writer_->write(entryOf(payload, false), "/a", payload) >= 0;
  }

  /// Messages that the closed file's index holds; each must be readable.
  [[nodiscard]] std::size_t readable() const {
    BagReader reader;
    EXPECT_EQ(reader.open(path_), 0);
    const auto topic = reader.topicIndex("/a");
    const std::size_t count = topic ? topic->entries.size() : 0;
    for (std::size_t i = 0; i < count; ++i) {
      std::string payload;
      EXPECT_GT(reader.read(messageIndex(*topic, i), &payload), 0);
    }
    return count;
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  FailingFileCalls disk_;
  std::unique_ptr<BagWriter> writer_;
};

TEST_F(Flush, NothingIsSyncedWithoutABound) {
  open({});
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(write());
  EXPECT_TRUE(writer_->close());
  EXPECT_EQ(disk_.count(Call::kFsync), 0);
  EXPECT_EQ(disk_.count(Call::kOpen), 1);
}

TEST_F(Flush, ABoundSyncsTheNewFileAndItsNameAtOnce) {
  open({.bytes = 1'000'000});
  EXPECT_EQ(disk_.count(Call::kFsync), 2);
  ASSERT_TRUE(write());
  EXPECT_EQ(disk_.count(Call::kFsync), 2);
}

TEST_F(Flush, BoundInBytesSyncsAtTheWriteThatReachesIt) {
  for (const std::uint32_t buffer : {0U, 64U, 1'000'000U}) {
    std::filesystem::remove(path_);
    open({.bytes = 3 * kChunkBytes}, buffer);
    const int before = disk_.count(Call::kFsync);
    for (int i = 1; i <= 10; ++i) {
      ASSERT_TRUE(write());
      ASSERT_EQ(disk_.count(Call::kFsync) - before, i / 3) << i << " " << buffer;
    }
  }
}

TEST_F(Flush, BoundOfOneByteSyncsEveryMessage) {
  open({.bytes = 1}, 1'000'000);
  const int before = disk_.count(Call::kFsync);
  for (int i = 1; i <= 5; ++i) {
    ASSERT_TRUE(write());
    EXPECT_EQ(disk_.count(Call::kFsync) - before, i);
    EXPECT_EQ(std::filesystem::file_size(path_) % kChunkBytes,
              (layout::kHeaderBytes + layout::chunkBytes(12, 64)) % kChunkBytes);
  }
}

TEST_F(Flush, BoundInTimeSyncsWhenTheOldestMessageIsThatOld) {
  LossGauge gauge({.bytes = 0, .intervalUs = 1000});
  EXPECT_FALSE(gauge.isReachedWith(100, 5000));  // the message itself is new
  gauge.add(100, 5000);
  EXPECT_FALSE(gauge.isReachedWith(100, 5999));
  gauge.add(100, 5999);
  EXPECT_TRUE(gauge.isReachedWith(100, 6000));
  gauge.clear();
  EXPECT_FALSE(gauge.isReachedWith(100, 9000));
}

TEST_F(Flush, WriterLooksAtTheClockOfItsBound) {
  open({.bytes = 0, .intervalUs = 1});
  ASSERT_TRUE(write());
  const int before = disk_.count(Call::kFsync);
  const auto start = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - start < std::chrono::microseconds(3)) {
  }
  ASSERT_TRUE(write());
  EXPECT_EQ(disk_.count(Call::kFsync) - before, 1);
}

TEST_F(Flush, ExplicitFlushHandsOverTheBufferAndSyncs) {
  open({}, 1'000'000);
  ASSERT_TRUE(write());
  const auto before = std::filesystem::file_size(path_);
  ASSERT_TRUE(writer_->flush());
  EXPECT_EQ(std::filesystem::file_size(path_), before + kChunkBytes);
  EXPECT_EQ(disk_.count(Call::kFsync), 2);
  ASSERT_TRUE(writer_->flush());
  EXPECT_EQ(disk_.count(Call::kFsync), 3);  // the name is there already
}

TEST_F(Flush, ClosedWriterRefusesIt) {
  open({});
  ASSERT_TRUE(writer_->close());
  const LogCapture log;
  EXPECT_FALSE(writer_->flush());
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(Flush, FailedBoundRefusesTheMessageAndAllLaterOnes) {
  open({.bytes = 2 * kChunkBytes});
  ASSERT_TRUE(write());
  ASSERT_TRUE(write());
  ASSERT_TRUE(write());
  disk_.fail(Call::kFsync, 1, 1, EIO);  // once: what the device lost stays lost
  const LogCapture log;
  EXPECT_FALSE(write());
  EXPECT_FALSE(write());
  EXPECT_FALSE(writer_->flush());
  EXPECT_FALSE(log.lines().empty());
  EXPECT_FALSE(writer_->close());
  EXPECT_EQ(readable(), 3U);
}

TEST_F(Flush, BoundThatFailsForWantOfRoomIsTriedAgain) {
  open({.bytes = 2 * kChunkBytes}, 1'000'000);
  ASSERT_TRUE(write());
  disk_.fail(Call::kPwrite, 1, 2, ENOSPC);
  EXPECT_FALSE(write());
  EXPECT_FALSE(write());
  EXPECT_TRUE(write());
  EXPECT_TRUE(writer_->close());
  EXPECT_EQ(readable(), 2U);
}

TEST_F(Flush, DeviceThatFailsTheNewFileRefusesTheRecording) {
  for (const int nth : {1, 2}) {  // the file, the name
    std::filesystem::remove(path_);
    writer_ = std::make_unique<BagWriter>(CompressionType::kNone, 0, "");
    writer_->setLossBound({.bytes = 1000});
    ASSERT_EQ(writer_->open(path_), 0);
    disk_.fail(Call::kFsync, nth, 1, EIO);
    EXPECT_FALSE(writer_->setTopics({"/a"}));
    EXPECT_FALSE(write());
    ignoreResult(writer_->close());  // whatever can be said of it
  }
}

TEST_F(Flush, InterruptedSyncIsRepeated) {
  open({.bytes = 1});
  disk_.fail(Call::kFsync, 1, 3, EINTR);
  EXPECT_TRUE(write());
}

TEST_F(Flush, FailedSyncAtTheCloseIsReported) {
  for (const int nth : {1, 2}) {  // before the header, behind it
    std::filesystem::remove(path_);
    open({.bytes = 1'000'000});
    ASSERT_TRUE(write());
    disk_.fail(Call::kFsync, nth, 1, EIO);
    EXPECT_FALSE(writer_->close());
  }
}

TEST_F(Flush, CloseChangesNoOtherSectorOfTheHeader) {
  for (const std::size_t privateBytes : {0U, 7U, 472U}) {
    std::filesystem::remove(path_);
    BagWriter writer(CompressionType::kNone, 0, std::string(privateBytes, 'p'));
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/a"}));
    ASSERT_TRUE(writer.flush());
    const std::string before = readFile(path_);
    ASSERT_TRUE(writer.close());
    const std::string after = readFile(path_);
    constexpr std::size_t kSector = HeaderImage::kSectorBytes;
    EXPECT_EQ(before.substr(kSector, 4096 - kSector), after.substr(kSector, 4096 - kSector));
    EXPECT_NE(before.substr(0, kSector), after.substr(0, kSector));
    EXPECT_EQ(BagReader().open(path_), 0) << privateBytes;
  }
}

TEST_F(Flush, LongPrivateDataAreWrittenWithAWholeHeader) {
  for (const std::size_t privateBytes : {473U, 4056U}) {
    std::filesystem::remove(path_);
    BagWriter writer(CompressionType::kNone, 0, std::string(privateBytes, 'p'));
    writer.setLossBound({.bytes = 1});
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/a"}));
    ASSERT_TRUE(writer.close());
    EXPECT_EQ(BagReader().open(path_), 0) << privateBytes;
  }
}

}  // namespace
}  // namespace morva::test

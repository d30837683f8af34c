// The ".index" side file beside a bag.
#include <array>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "platform/compress.h"
#include "storage/bag_reader.h"
#include "storage/largest_allocation.h"
#include "storage/records.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

constexpr std::size_t kChunkAt = 4096;
constexpr std::size_t kRawSizeAt = kChunkAt + 16;
constexpr std::size_t kDataSizeAt = kChunkAt + 20;
constexpr std::size_t kDataAt = kChunkAt + 24;

BagBuilder smallBag() {
  BagBuilder builder;
  builder.topic(0, "/imu").message({.topicId = 0, .stored = "one"});
  builder.message({.topicId = 0, .stored = "three"});
  return builder;
}

/// A bag with a side file beside it.
class SideIndex : public testing::Test {
 protected:
  int open(const std::string& bag, const std::string& side) {
    writeFile(path_, bag);
    writeFile(sidePath_, side);
    return reader_.open(path_);
  }
  /// Opens an unclosed bag with a side file that is no good, for which the reader says `line`.
  void expectRefused(const std::string& side, const std::string& line) {
    reader_.close();
    log_.clear();
    EXPECT_EQ(open(smallBag().buildUnclosed(), side), 1);
    EXPECT_EQ(log_.lines(),
              (Lines{warningLine("BagReader::open", "file(" + path_ + ") has no index chunk!"),
                     errorLine("BagReader::createTopicIndexFromFile", line),
                     warningLine("BagReader::open", "load index file error!")}));
    EXPECT_TRUE(reader_.topicIndexes().empty());
    EXPECT_TRUE(reader_.hasIndex());
  }
  [[nodiscard]] std::size_t messages() const {
    const auto topic = reader_.topicIndex("/imu");
    return topic ? topic->entries.size() : 0;
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  const std::string sidePath_ = path_ + ".index";
  LogCapture log_;
  BagReader reader_;
};

TEST_F(SideIndex, RescuesABagWithoutIndex) {
  EXPECT_EQ(open(smallBag().buildUnclosed(), smallBag().buildSideFile()), 0);
  EXPECT_EQ(messages(), 2U);
  std::string data;
  EXPECT_EQ(reader_.read(messageIndex(*reader_.topicIndex("/imu"), 1), &data), 5);
  EXPECT_EQ(data, "three");
}

TEST_F(SideIndex, IsPreferredToTheIndexChunk) {
  BagBuilder fewer = smallBag();
  BagBuilder side;
  side.topic(0, "/imu").message({.topicId = 0, .stored = "one"});
  EXPECT_EQ(open(fewer.build(), side.buildSideFile()), 0);
  EXPECT_EQ(messages(), 1U);
  EXPECT_EQ(log_.lines(), Lines());
}

TEST_F(SideIndex, BadOneHidesTheIndexChunk) {
  EXPECT_EQ(open(smallBag().build(), "bad"), 1);
  EXPECT_EQ(log_.lines(), (Lines{errorLine("BagReader::createTopicIndexFromFile",
                                           "read index file(" + sidePath_ + ") error!"),
                                 warningLine("BagReader::open", "create index from file error!")}));
  EXPECT_EQ(messages(), 0U);
}

TEST_F(SideIndex, ThatCannotBeOpenedIsRefused) {
  writeFile(path_, smallBag().build());
  ASSERT_EQ(mkdir(sidePath_.c_str(), 0700), 0);
  EXPECT_EQ(reader_.open(path_), 1);
  EXPECT_EQ(log_.lines(), (Lines{errorLine("BagReader::createTopicIndexFromFile",
                                           "open index file(" + sidePath_ + ") error!"),
                                 warningLine("BagReader::open", "create index from file error!")}));
}

TEST_F(SideIndex, CutAtEveryLengthIsRefused) {
  const std::string side = smallBag().buildSideFile();
  for (std::size_t size = 0; size < side.size(); size += size == 1 ? 4090 : 1) {
    SCOPED_TRACE(size);
    const std::size_t dataEnd = side.size() - 4;
    expectRefused(side.substr(0, size), size < 4096 ? "read index file(" + sidePath_ + ") error!"
                                        : size < kDataAt ? "read chunk header error!"
                                        : size < dataEnd ? "read chunk data error!"
                                                         : "read chunk crc32 error!");
  }
}

TEST_F(SideIndex, OfAnotherBagIsRefused) {
  const std::string line = "index file(" + sidePath_ + ") not match!";
  for (std::size_t at = 0; at < 24; ++at) {
    std::string side = smallBag().buildSideFile();
    side[at] = static_cast<char>(side[at] ^ 1);
    expectRefused(side, line);
  }
  BagBuilder later = smallBag();
  later.header.creationTimeUs += 1;
  expectRefused(later.buildSideFile(), line);
  BagBuilder moreTopics = smallBag();
  moreTopics.topic(1, "/z");
  expectRefused(moreTopics.buildSideFile(), line);
}

TEST_F(SideIndex, ItsOwnChecksumChunkTypeAndHeaderSizeAreNotLookedAt) {
  std::string side = smallBag().buildSideFile();
  patch<std::uint32_t>(&side, 4092, 0);
  patch<std::uint32_t>(&side, 24 + 8, 77);  // private data size
  patch<std::uint32_t>(&side, kChunkAt, 0xFFFFFFFF);
  patch<std::uint16_t>(&side, kChunkAt + 4, 9);
  patch<std::uint16_t>(&side, kChunkAt + 6, 9);
  EXPECT_EQ(open(smallBag().buildUnclosed(), side), 0);
  EXPECT_EQ(messages(), 2U);
}

TEST_F(SideIndex, BytesBehindItsChunkAreIgnored) {
  EXPECT_EQ(open(smallBag().buildUnclosed(), smallBag().buildSideFile() + std::string(999, ' ')),
            0);
}

TEST_F(SideIndex, WrongIndexChunkOffsetIsRefused) {
  std::string side = smallBag().buildSideFile();
  patch<std::uint64_t>(&side, 24, 4097);
  expectRefused(side, "index chunk offset(0x00001001) error!");
  patch<std::uint64_t>(&side, 24, 0);
  expectRefused(side, "index chunk offset(0x00000000) error!");
}

TEST_F(SideIndex, ZeroSizesAreRefused) {
  for (const std::size_t at : {kRawSizeAt, kDataSizeAt}) {
    std::string side = smallBag().buildSideFile();
    patch<std::uint32_t>(&side, at, 0);
    expectRefused(side, "read chunk header error!");
  }
}

TEST_F(SideIndex, LyingDataSizeIsRefusedWithoutMemoryForIt) {
  for (const std::uint32_t size : {0xFFFFFFFFU, 0x80000000U, 5000U}) {
    std::string side = smallBag().buildSideFile();
    patch<std::uint32_t>(&side, kDataSizeAt, size);
    const LargestAllocation memory;
    expectRefused(side, "read chunk data error!");
    EXPECT_LT(memory.bytes(), 1U << 20);
  }
}

TEST_F(SideIndex, DamagedDataIsRefusedWithBothChecksums) {
  std::string side = smallBag().buildSideFile();
  side[kDataAt + 1] = static_cast<char>(side[kDataAt + 1] ^ 1);
  const std::string data = side.substr(kDataAt, side.size() - kDataAt - 4);
  const auto stored = numberAt<std::uint32_t>(side, side.size() - 4);
  expectRefused(side, osmik::StrUtil::format("chunk crc32 check error: 0x%08X -> 0x%08X!", stored,
                                             referenceCrc32(data)));
}

TEST_F(SideIndex, ThatCannotBeParsedIsRefused) {
  HeaderFields fields;
  fields.dataStart = smallBag().dataStart();
  fields.indexChunkOffset = 4096;
  const std::string side = headerBytes(fields) + chunkBytes(255, timedChunkHeader(2), "\xFF\xFF");
  EXPECT_EQ(open(smallBag().build(), side), 1);
  const std::string place = "BagReader::createTopicIndexFromFile";
  EXPECT_EQ(log_.lines(),
            (Lines{errorLine("BagReader::createTopicIndex", "PBChunkIndexData unpack error!"),
                   errorLine(place, "create index error!"),
                   warningLine("BagReader::open", "create index from file error!")}));
}

TEST_F(SideIndex, CompressedOneIsRestored) {
  // Many messages, so that the index shrinks.
  BagBuilder bag;
  bag.header.compression = 3;
  bag.topic(0, "/imu");
  for (int i = 0; i < 50; ++i) bag.message({.topicId = 0, .stored = "payload"});
  const std::string data = bag.index();
  const std::string stored = compressed(basalt::ZstdCompress(), data);
  const std::string header = bag.buildSideFile().substr(0, 4096);
  const std::string side = header + chunkBytes(255, timedChunkHeader(data.size()), stored);
  EXPECT_EQ(open(bag.buildUnclosed(), side), 0);
  EXPECT_EQ(messages(), 50U);
}

TEST_F(SideIndex, ThatRestoresToMoreThanTheBagCanHoldIsRefused) {
  BagBuilder bag = smallBag();
  bag.header.compression = 3;
  const std::string header = bag.buildSideFile().substr(0, 4096);
  const std::string index = indexOfEmptyEntries(500'000);
  const std::string side = header + chunkBytes(255, timedChunkHeader(index.size()),
                                               compressed(basalt::ZstdCompress(), index));
  ASSERT_LT(side.size(), 8192U);
  const LargestAllocation memory;
  EXPECT_EQ(open(bag.buildUnclosed(), side), 1);
  EXPECT_LT(memory.bytes(), 1U << 19);
}

TEST_F(SideIndex, ThatCannotBeRestoredIsRefused) {
  const Lines expected = {
      warningLine("BagReader::open", "file(" + path_ + ") has no index chunk!"),
      errorLine("BagReader::createTopicIndex", "PBChunkIndexData unpack error!"),
      errorLine("BagReader::createTopicIndexFromFile", "create index error!"),
      warningLine("BagReader::open", "load index file error!")};
  for (const std::uint8_t compression : std::to_array<std::uint8_t>({0, 2, 3})) {
    BagBuilder bag = smallBag();
    bag.header.compression = compression;
    for (const std::uint32_t rawSize : {1U, 1'000'000'000U, 0xFFFFFFFFU}) {
      std::string side = bag.buildSideFile();
      patch<std::uint32_t>(&side, kRawSizeAt, rawSize);
      reader_.close();
      log_.clear();
      const LargestAllocation memory;
      EXPECT_EQ(open(bag.buildUnclosed(), side), 1);
      EXPECT_EQ(log_.lines(), expected);
      EXPECT_LT(memory.bytes(), 1U << 20);
    }
  }
}

}  // namespace
}  // namespace morva::test

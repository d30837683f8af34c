#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/str_util.h"
#include "storage/bag_reader.h"
#include "storage/bag_writer.h"
#include "storage/largest_allocation.h"
#include "storage/records.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

const BuiltMessage kImu{.topicId = 1, .stored = "imu payload"};
const BuiltMessage kLidar{.topicId = 0, .stored = std::string(300, 'L'), .count = 7};

BagBuilder smallBag() {
  BagBuilder builder;
  builder.header.privateData = "device";
  builder.topic(1, "/imu").topic(0, "/lidar").message(kImu).message(kLidar).message(kImu);
  return builder;
}

/// Puts bytes into a file and opens it.
class BagReaderOpen : public testing::Test {
 protected:
  int open(const std::string& bytes) {
    reader_.close();
    writeFile(path_, bytes);
    return reader_.open(path_);
  }
  /// Error line of the open as a whole, on a reader that has opened nothing before.
  static std::string refusal(int code) {
    return errorLine("BagReader::open", "open file() error: " + std::to_string(code) + "!");
  }
  static std::string openError(const std::string& text) {
    return errorLine("BagReader::open", text);
  }
  static std::string openWarning(const std::string& text) {
    return warningLine("BagReader::open", text);
  }
  std::string payload(const BuiltMessage& message, std::uint64_t offset) {
    std::string data;
    return reader_.read(messageIndex(message, offset), &data) < 0 ? "error" : data;
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  const std::string sidePath_ = path_ + ".index";
  LogCapture log_;
  BagReader reader_;
};

TEST_F(BagReaderOpen, BagWrittenByHandOpensWithItsIndex) {
  const BagBuilder bag = smallBag();
  ASSERT_EQ(open(bag.build()), 0);
  EXPECT_TRUE(reader_.hasIndex());
  EXPECT_EQ(log_.lines(), Lines());
  EXPECT_EQ(reader_.header().privateData(), "device");
  EXPECT_EQ(reader_.header().creationTime(), bag.header.creationTimeUs);
  EXPECT_EQ(reader_.header().dataStart(), bag.dataStart());
  EXPECT_EQ(reader_.header().indexChunkOffset(), bag.chunkOffset(3));
  EXPECT_EQ(reader_.topicIds(), (BagFile::TopicIds{{"/imu", 1}, {"/lidar", 0}}));
  EXPECT_EQ(reader_.topicNames(), (BagReader::TopicNames{{0, "/lidar"}, {1, "/imu"}}));

  const auto imu = reader_.topicIndex("/imu");
  ASSERT_TRUE(imu);
  EXPECT_EQ(imu->chunkOffsets,
            (std::vector<std::uint64_t>{bag.chunkOffset(0), bag.chunkOffset(2)}));
  EXPECT_EQ(imu->countSum, 2U);
  EXPECT_EQ(imu->rawSizeSum, 22U);
  EXPECT_EQ(imu->startTime, kImu.firstTimeUs);
  EXPECT_EQ(imu->endTime, kImu.secondTimeUs);
  EXPECT_EQ(imu->entries.at(0).time, kImu.timeUs);
  EXPECT_EQ(imu->entries.at(0).topicId, 1);
  EXPECT_EQ(imu->entries.at(0).storedSize, 11U);
  EXPECT_EQ(payload(kLidar, reader_.topicIndex("/lidar")->chunkOffsets.at(0)), kLidar.stored);
}

TEST_F(BagReaderOpen, MissingFileReturnsFour) {
  EXPECT_EQ(reader_.open(path_), 4);
  EXPECT_EQ(log_.lines(), Lines{openError("open file(" + path_ + ") error!")});
  EXPECT_FALSE(reader_.hasIndex());
}

TEST_F(BagReaderOpen, DirectoryReturnsFour) {
  EXPECT_EQ(reader_.open(dir_.path()), 4);
  EXPECT_EQ(log_.lines(), Lines{openError("open file(" + dir_.path() + ") error!")});
}

TEST_F(BagReaderOpen, OpenReaderIsLeftAlone) {
  ASSERT_EQ(open(smallBag().build()), 0);
  EXPECT_EQ(reader_.open(dir_ / "none"), 0);
  EXPECT_EQ(payload(kImu, smallBag().chunkOffset(0)), "imu payload");
}

TEST_F(BagReaderOpen, ShortHeaderReturnsSeven) {
  const std::string bytes = smallBag().build();
  for (const std::size_t size : {0U, 1U, 36U, 4095U}) {
    log_.clear();
    EXPECT_EQ(open(bytes.substr(0, size)), 7);
    EXPECT_EQ(
        log_.lines(),
        (Lines{openError("file(" + path_ + ") header error, ret: " + std::to_string(size) + "!"),
               refusal(7)}));
  }
}

TEST_F(BagReaderOpen, UnreadableHeaderReturnsSeven) {
  FailingFileCalls calls;
  calls.fail(FailingFileCalls::Call::kPread, 1, 1, EIO);
  EXPECT_EQ(open(smallBag().build()), 7);
  EXPECT_EQ(log_.lines(),
            (Lines{openError("file(" + path_ + ") header error, ret: -1!"), refusal(7)}));
}

TEST_F(BagReaderOpen, WrongTagReturnsSevenWithTheHeaderAsText) {
  BagBuilder bag = smallBag();
  bag.header.tag = "QBAG";
  EXPECT_EQ(open(bag.build()), 7);
  EXPECT_EQ(log_.lines(), (Lines{openError("file(" + path_ + ") tag[QBAG] error!"), refusal(7)}));
}

TEST_F(BagReaderOpen, ForeignFileReturnsSevenAndIsPrintedNoFurtherThanTheHeader) {
  const std::string foreign(10'000, 'f');
  EXPECT_EQ(open(foreign), 7);
  EXPECT_EQ(log_.lines().at(0),
            openError("file(" + path_ + ") tag[" + foreign.substr(0, 4096) + "] error!"));
}

TEST_F(BagReaderOpen, FlippedFillerByteReturnsSix) {
  std::string bytes = smallBag().build();
  bytes[3000] = '\x5B';
  EXPECT_EQ(open(bytes), 6);
  EXPECT_EQ(log_.lines(), (Lines{openError("header checksum error!"), refusal(6)}));
}

TEST_F(BagReaderOpen, FailedOpenNamesThePathThatWasOpenBefore) {
  ASSERT_EQ(open(smallBag().build()), 0);
  reader_.close();
  writeFile(dir_ / "bad.kbag", "bad");
  EXPECT_EQ(reader_.open(dir_ / "bad.kbag"), 7);
  EXPECT_EQ(log_.lines().back(), openError("open file(" + path_ + ") error: 7!"));
}

TEST_F(BagReaderOpen, FailedOpenCanBeTriedAgain) {
  EXPECT_EQ(open("bad"), 7);
  EXPECT_FALSE(reader_.hasIndex());
  EXPECT_EQ(open(smallBag().build()), 0);
  EXPECT_EQ(payload(kImu, smallBag().chunkOffset(0)), "imu payload");
}

TEST_F(BagReaderOpen, NextBagBringsItsOwnTopics) {
  ASSERT_EQ(open(smallBag().build()), 0);
  BagBuilder other;
  other.topic(1, "/gnss").message({.topicId = 1, .stored = "gnss"});
  ASSERT_EQ(open(other.build()), 0);
  EXPECT_EQ(reader_.topicIds(), (BagFile::TopicIds{{"/gnss", 1}}));
  EXPECT_EQ(reader_.topicNames(), (BagReader::TopicNames{{1, "/gnss"}}));
  EXPECT_EQ(reader_.topicIndexes().size(), 1U);
  EXPECT_EQ(reader_.topicIndex("/gnss")->chunkOffsets.size(), 1U);
}

TEST_F(BagReaderOpen, UnclosedBagReturnsOneAndHasIndexIsTrue) {
  const BagBuilder bag = smallBag();
  EXPECT_EQ(open(bag.buildUnclosed()), 1);
  EXPECT_TRUE(reader_.hasIndex());
  EXPECT_EQ(log_.lines(), (Lines{openWarning("file(" + path_ + ") has no index chunk!"),
                                 openWarning("load index file error!")}));
  EXPECT_TRUE(reader_.topicIndexes().empty());
  EXPECT_EQ(reader_.header().dataStart(), bag.dataStart());
  EXPECT_EQ(payload(kLidar, bag.chunkOffset(1)), kLidar.stored);
}

TEST_F(BagReaderOpen, CloseForgetsTheIndexFlagAndKeepsTheTopics) {
  ASSERT_EQ(open(smallBag().build()), 0);
  EXPECT_TRUE(reader_.close());
  EXPECT_FALSE(reader_.hasIndex());
  EXPECT_EQ(reader_.topicIds().size(), 2U);
  EXPECT_TRUE(reader_.topicIndex("/imu"));
  EXPECT_TRUE(reader_.close());
}

TEST_F(BagReaderOpen, WriteKeepsTheBaseBehaviour) {
  ASSERT_EQ(open(smallBag().build()), 0);
  EXPECT_EQ(reader_.write(entryOf("x", false), "/imu", "x"), -1);
}

TEST_F(BagReaderOpen, OtherVersionKeepsItsPrivateData) {
  BagBuilder bag = smallBag();
  bag.header.version = 2;
  EXPECT_EQ(open(bag.build()), 0);
  EXPECT_EQ(reader_.header().version(), 2);
  EXPECT_EQ(reader_.header().privateData(), "device");
}

TEST_F(BagReaderOpen, LyingPrivateDataSizeIsCut) {
  for (const std::uint16_t version : std::to_array<std::uint16_t>({1, 2})) {
    BagBuilder builder = smallBag();
    builder.header.version = version;
    std::string bytes = builder.build();
    patch<std::uint32_t>(&bytes, 32, 0xFFFFFFFF);
    fixHeaderCrc(&bytes);
    EXPECT_EQ(open(bytes), 0);
    EXPECT_EQ(reader_.header().privateData().size(), 4056U);
    EXPECT_EQ(reader_.header().privateData(), bytes.substr(36, 4056));
  }
}

TEST_F(BagReaderOpen, UnreadableDefinitionChunkReturnsSeven) {
  const std::string bytes = smallBag().build();
  EXPECT_EQ(open(bytes.substr(0, 4096)), 7);
  EXPECT_EQ(log_.lines(),
            (Lines{errorLine("BagReader::read", "read chunk size error, offset: 4096, ret: 0!"),
                   openError("read definition chunk error!"), refusal(7)}));
}

TEST_F(BagReaderOpen, FirstChunkOfAnotherTypeReturnsSeven) {
  std::string bytes = smallBag().build();
  patch<std::uint16_t>(&bytes, 4096 + 4, 1);
  EXPECT_EQ(open(bytes), 7);
  EXPECT_EQ(log_.lines(), (Lines{openError("definition chunk error!"), refusal(7)}));
}

TEST_F(BagReaderOpen, DefinitionChunkOfSixtyFiveBytesReturnsSeven) {
  const std::string records = topicRecord(0, "/imu") + "x";
  EXPECT_EQ(open(headerBytes({}) + chunkBytes(0, timedChunkHeader(65), records)), 7);
  EXPECT_EQ(log_.lines(), (Lines{openWarning("file(" + path_ + ") has no index chunk!"),
                                 openError("definition chunk data(size: 65) error!"), refusal(7)}));
}

TEST_F(BagReaderOpen, EmptyDefinitionChunkIsAccepted) {
  EXPECT_EQ(open(BagBuilder().buildUnclosed()), 1);
  EXPECT_TRUE(reader_.topicIds().empty());
}

TEST_F(BagReaderOpen, NameWithoutNulEndsWithItsRecord) {
  const std::string record = le<std::uint32_t>(5) + std::string(60, 'n');
  const std::string records = record + topicRecord(6, "/z");
  EXPECT_EQ(open(headerBytes({}) + chunkBytes(0, timedChunkHeader(128), records)), 1);
  EXPECT_EQ(reader_.topicIds(), (BagFile::TopicIds{{std::string(60, 'n'), 5}, {"/z", 6}}));
}

TEST_F(BagReaderOpen, FirstOfTwoEqualNamesOrIdsIsKept) {
  BagBuilder bag;
  bag.topic(1, "/a").topic(2, "/a").topic(2, "/b");
  EXPECT_EQ(open(bag.buildUnclosed()), 1);
  EXPECT_EQ(reader_.topicIds(), (BagFile::TopicIds{{"/a", 1}, {"/b", 2}}));
  EXPECT_EQ(reader_.topicNames(), (BagReader::TopicNames{{1, "/a"}, {2, "/a"}}));
}

TEST_F(BagReaderOpen, NamesOfOneTopicAreTakenUpToTheSixteenthAndOneLineTells) {
  BagBuilder builder;
  for (int i = 10; i < 60; ++i) builder.topic(3, "/same" + std::to_string(i));
  builder.topic(4, "/other").topic(5, "/same10");
  EXPECT_EQ(open(builder.build()), 0);
  EXPECT_EQ(reader_.topicIds().size(), 17U);
  EXPECT_TRUE(reader_.topicIds().contains("/same25"));
  EXPECT_FALSE(reader_.topicIds().contains("/same26"));
  EXPECT_EQ(reader_.topicIds().at("/other"), 4U);
  EXPECT_EQ(log_.errors(),
            (Lines{errorLine("BagReader::addTopics", "topic(3) has too many names!")}));
}

TEST_F(BagReaderOpen, LidarModelsCanBeLookedUpAsLidar) {
  for (const char* model : {"/hesai/pandar", "/livox/lidar"}) {
    BagBuilder bag;
    bag.topic(4, model).message({.topicId = 4, .stored = "points"});
    ASSERT_EQ(open(bag.build()), 0);
    EXPECT_EQ(reader_.topicIds(), (BagFile::TopicIds{{model, 4}, {"/lidar", 4}}));
    EXPECT_EQ(reader_.topicNames(), (BagReader::TopicNames{{4, model}}));
    EXPECT_TRUE(reader_.topicIndex("/lidar"));
    EXPECT_EQ(reader_.topicIndex("/lidar"), reader_.topicIndex(model));
  }
}

TEST_F(BagReaderOpen, PandarTakesTheLidarNameFromARealLidarTopic) {
  BagBuilder bag;
  bag.topic(1, "/hesai/pandar").topic(0, "/lidar");
  ASSERT_EQ(open(bag.buildUnclosed()), 1);
  EXPECT_EQ(reader_.topicIds(), (BagFile::TopicIds{{"/hesai/pandar", 1}, {"/lidar", 1}}));
  EXPECT_EQ(reader_.topicNames(), (BagReader::TopicNames{{0, "/lidar"}, {1, "/hesai/pandar"}}));
}

TEST_F(BagReaderOpen, RealLidarTopicKeepsItsNameFromLivox) {
  BagBuilder bag;
  bag.topic(0, "/lidar").topic(1, "/livox/lidar");
  ASSERT_EQ(open(bag.buildUnclosed()), 1);
  EXPECT_EQ(reader_.topicIds(), (BagFile::TopicIds{{"/lidar", 0}, {"/livox/lidar", 1}}));
}

TEST_F(BagReaderOpen, DataStartIsMeasuredAndNotBelieved) {
  std::string bytes = smallBag().build();
  patch<std::uint64_t>(&bytes, 16, 0xFFFFFFFFFFFFFFFF);
  fixHeaderCrc(&bytes);
  ASSERT_EQ(open(bytes), 0);
  EXPECT_EQ(reader_.header().dataStart(), smallBag().dataStart());
}

TEST_F(BagReaderOpen, IndexChunkOffsetThatLeadsNowhereReturnsOne) {
  struct Case {
    std::uint64_t offset;
    std::string line;
  };
  for (const Case& lie : {Case{1U << 30, "read chunk size error, offset: 1073741824, ret: 0!"},
                          Case{0x8000000000000000, "offset: -9223372036854775808, param error!"},
                          Case{0xFFFFFFFFFFFFFFFF, "offset: -1, param error!"}}) {
    std::string bytes = smallBag().build();
    patch<std::uint64_t>(&bytes, 24, lie.offset);
    fixHeaderCrc(&bytes);
    log_.clear();
    EXPECT_EQ(open(bytes), 1);
    EXPECT_EQ(log_.lines(), (Lines{errorLine("BagReader::read", lie.line),
                                   openWarning("read index chunk error!")}));
  }
  EXPECT_TRUE(reader_.hasIndex());
}

TEST_F(BagReaderOpen, LargestIndexChunkOffsetReturnsOne) {
  std::string bytes = smallBag().build();
  patch<std::uint64_t>(&bytes, 24, 0x7FFFFFFFFFFFFFFF);
  fixHeaderCrc(&bytes);
  EXPECT_EQ(open(bytes), 1);  // what the read says there is the file system's to decide
  EXPECT_EQ(log_.lines().back(), openWarning("read index chunk error!"));
}

TEST_F(BagReaderOpen, IndexChunkOfAnotherTypeReturnsOne) {
  const BagBuilder bag = smallBag();
  std::string bytes = bag.build();
  patch<std::uint16_t>(&bytes, bag.chunkOffset(3) + 4, 0xABC);
  EXPECT_EQ(open(bytes), 1);
  EXPECT_EQ(log_.lines(), Lines{openWarning("extend chunk type(0x0ABC) error!")});
}

TEST_F(BagReaderOpen, IndexThatCannotBeParsedReturnsOne) {
  BagBuilder bag = smallBag();
  for (const std::string& data : {std::string("\xFF\xFF\xFF", 3), std::string()}) {
    bag.header.indexChunkOffset = bag.chunkOffset(3);
    log_.clear();
    EXPECT_EQ(open(bag.buildUnclosed() + chunkBytes(255, timedChunkHeader(data.size()), data)), 1);
    EXPECT_EQ(log_.lines(),
              (Lines{errorLine("BagReader::createTopicIndex", "PBChunkIndexData unpack error!"),
                     openWarning("create index error!")}));
    EXPECT_TRUE(reader_.topicIndexes().empty());
  }
}

TEST_F(BagReaderOpen, IndexThatRestoresToMoreThanTheBagCanHoldReturnsOne) {
  // A few kilobytes that would cost a megabyte, and many times that once it is decoded.
  for (const std::uint8_t compression : std::to_array<std::uint8_t>({2, 3})) {
    BagBuilder bag = smallBag();
    bag.header.compression = compression;
    bag.header.indexChunkOffset = bag.chunkOffset(3);
    const std::string index = indexOfEmptyEntries(500'000);
    const std::string stored = compression == 2 ? compressed(basalt::Lz4Compress(), index)
                                                : compressed(basalt::ZstdCompress(), index);
    log_.clear();
    const std::string bytes =
        bag.buildUnclosed() + chunkBytes(255, timedChunkHeader(index.size()), stored);
    const LargestAllocation memory;
    EXPECT_EQ(open(bytes), 1);
    EXPECT_LT(memory.bytes(), 1U << 19);
    EXPECT_EQ(log_.lines(),
              (Lines{errorLine("BagReader::read",
                               osmik::StrUtil::format(
                                   "decompress error, chunk offset: 0x%016llX, msg size: %d!",
                                   bag.chunkOffset(3), index.size())),
                     openWarning("read index chunk error!")}));
  }
}

TEST_F(BagReaderOpen, IndexOfTheSmallestMessagesIsAccepted) {
  // Entries as long as they can be, chunks as short as they can be, all alike.
  BagFile::TopicHeader entry;
  entry.time = entry.headerTimes[0] = entry.headerTimes[1] = -1;
  entry.count = 0xFFFFFFFF;
  BagWriter writer(CompressionType::kZstd, 1 << 16, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  for (int i = 0; i < 20'000; ++i) ASSERT_EQ(writer.write(entry, "/a", ""), 0);
  ASSERT_TRUE(writer.close());
  ASSERT_EQ(reader_.open(path_), 0);
  EXPECT_EQ(reader_.topicIndex("/a")->entries.size(), 20'000U);
}

TEST_F(BagReaderOpen, BagWithoutTopicsReturnsOne) {
  BagWriter writer(CompressionType::kNone, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({}));
  ASSERT_TRUE(writer.close());
  EXPECT_EQ(reader_.open(path_), 1);  // its index is empty
}

}  // namespace
}  // namespace morva::test

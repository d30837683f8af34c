// The bytes that the writer leaves, taken apart by hand: the reader has no part in these tests.
#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/compress.h"
#include "platform/date_time.h"
#include "storage/bag_writer.h"
#include "storage/raw_bag.h"
#include "storage/records.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

/// Writes bags in a directory of its own and takes them apart.
class BagWriterLayout : public testing::Test {
 protected:
  [[nodiscard]] std::string read() const { return readFile(path_); }
  [[nodiscard]] RawBag parts() const { return takeApart(read()); }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
};

const BuiltMessage kImu{.topicId = 1,
                        .stored = "imu payload",
                        .count = 4,
                        .timeUs = 1'700'000'000'000'100,
                        .firstTimeUs = 1'700'000'000'000'001,
                        .secondTimeUs = 1'700'000'000'000'090};
const BuiltMessage kLidar{.topicId = 0,
                          .stored = std::string(300, 'L'),
                          .count = 2,
                          .timeUs = 1'700'000'000'000'200,
                          .firstTimeUs = 1'600'000'000'000'000,
                          .secondTimeUs = 1'600'000'000'000'009};

BagFile::TopicHeader entryFor(const BuiltMessage& message) {
  BagFile::TopicHeader entry;
  entry.time = message.timeUs;
  entry.rawSize = static_cast<std::uint32_t>(message.stored.size());
  entry.count = message.count;
  entry.headerTimes = {message.firstTimeUs, message.secondTimeUs};
  entry.storedSize = entry.rawSize;
  return entry;
}

TEST_F(BagWriterLayout, ClosedBagHasEveryByteInItsPlace) {
  const auto before = static_cast<std::uint64_t>(osmik::Time::now().toMicroSec());
  BagWriter writer(CompressionType::kNone, 1000, "private");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/lidar", "/imu", "/gnss"}));
  ASSERT_EQ(writer.write(entryFor(kImu), "/imu", kImu.stored), 11);
  ASSERT_EQ(writer.write(entryFor(kLidar), "/lidar", kLidar.stored), 300);
  ASSERT_EQ(writer.write(entryFor(kImu), "/imu", kImu.stored), 11);
  ASSERT_TRUE(writer.close());
  const auto after = static_cast<std::uint64_t>(osmik::Time::now().toMicroSec());

  BagBuilder builder;
  builder.topic(2, "/gnss").topic(1, "/imu").topic(0, "/lidar");
  builder.message(kImu).message(kLidar).message(kImu);
  const RawBag bag = parts();
  const std::string& header = bag.header;
  EXPECT_EQ(header.substr(0, 4), "KBAG");
  EXPECT_EQ(header[4], 0);
  EXPECT_EQ(header[5], 0);
  EXPECT_EQ(numberAt<std::uint16_t>(header, 6), 1);
  EXPECT_GE(numberAt<std::uint64_t>(header, 8), before);
  EXPECT_LE(numberAt<std::uint64_t>(header, 8), after);
  EXPECT_EQ(numberAt<std::uint64_t>(header, 16), builder.dataStart());
  EXPECT_EQ(numberAt<std::uint64_t>(header, 24), builder.chunkOffset(3));
  EXPECT_EQ(numberAt<std::uint32_t>(header, 32), 7U);
  EXPECT_EQ(header.substr(36, 7), "private");
  EXPECT_EQ(numberAt<std::uint32_t>(header, 4092), referenceCrc32(header.substr(0, 4092)));

  ASSERT_EQ(bag.chunks.size(), 5U);
  const RawChunk& definition = bag.chunks[0];
  EXPECT_EQ(definition.data,
            topicRecord(2, "/gnss") + topicRecord(1, "/imu") + topicRecord(0, "/lidar"));
  EXPECT_EQ(definition.type, 0);
  EXPECT_EQ(definition.size, 12U + 16 + 192);
  EXPECT_EQ(definition.crc, referenceCrc32(definition.data));
  EXPECT_EQ(definition.header.size(), 12U);
  EXPECT_GE(numberAt<std::uint64_t>(definition.header, 0), before);
  EXPECT_LE(numberAt<std::uint64_t>(definition.header, 0), after);
  EXPECT_EQ(numberAt<std::uint32_t>(definition.header, 8), 192U);

  const std::string bytes = read();
  EXPECT_EQ(bytes.substr(builder.dataStart(), builder.chunkOffset(3) - builder.dataStart()),
            messageChunk(kImu) + messageChunk(kLidar) + messageChunk(kImu));

  const RawChunk& index = bag.chunks[4];
  EXPECT_EQ(index.type, 255);
  EXPECT_EQ(index.data, builder.index());
  EXPECT_EQ(index.crc, referenceCrc32(index.data));
  EXPECT_EQ(index.header.size(), 12U);
  EXPECT_GE(numberAt<std::uint64_t>(index.header, 0), before);
  EXPECT_LE(numberAt<std::uint64_t>(index.header, 0), after);
  EXPECT_EQ(numberAt<std::uint32_t>(index.header, 8), index.data.size());
  EXPECT_EQ(bag.rest, std::string(bag.rest.size(), ' '));
  EXPECT_EQ(bytes.size(), 8192U);
}

TEST_F(BagWriterLayout, FirstHeaderHasNoOffsetsYet) {
  BagWriter writer(CompressionType::kZstd, 1 << 20, "p");
  ASSERT_EQ(writer.open(path_), 0);
  const std::string header = read();
  ASSERT_EQ(header.size(), 4096U);
  EXPECT_EQ(header[5], 3);
  EXPECT_EQ(numberAt<std::uint64_t>(header, 16), 0U);
  EXPECT_EQ(numberAt<std::uint64_t>(header, 24), 0U);
  EXPECT_EQ(numberAt<std::uint32_t>(header, 4092), referenceCrc32(header.substr(0, 4092)));
}

TEST_F(BagWriterLayout, DefinitionChunkIsInTheFileBeforeTheFirstMessage) {
  BagWriter writer(CompressionType::kNone, 1 << 20, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/imu"}));
  EXPECT_EQ(parts().chunks.at(0).data, topicRecord(0, "/imu"));
}

TEST_F(BagWriterLayout, TwoBagsOfTheSameInputsDifferInTheirHeaders) {
  std::vector<std::string> headers;
  for (int i = 0; i < 2; ++i) {
    BagWriter writer(CompressionType::kNone, 0, "same");
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/imu"}));
    ASSERT_TRUE(writer.close());
    headers.push_back(read().substr(0, 4096));
  }
  EXPECT_NE(headers[0].substr(8, 8), headers[1].substr(8, 8));
  EXPECT_NE(headers[0].substr(40, 4052), headers[1].substr(40, 4052));
  EXPECT_NE(headers[0].substr(4092), headers[1].substr(4092));
  EXPECT_EQ(headers[0].substr(16, 24), headers[1].substr(16, 24));
  EXPECT_GT(std::ranges::count_if(headers[0], [](char byte) { return byte != 0; }), 3800);
}

TEST_F(BagWriterLayout, EachHeaderOfABagHasItsOwnFiller) {
  BagWriter writer(CompressionType::kNone, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/imu"}));
  const std::string first = read().substr(36, 4056);
  ASSERT_TRUE(writer.close());
  EXPECT_NE(read().substr(36, 4056), first);
}

TEST_F(BagWriterLayout, LargestPrivateDataLeavesNoFiller) {
  const std::string data(4056, 'p');
  BagWriter writer(CompressionType::kNone, 0, data);
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/imu"}));
  ASSERT_TRUE(writer.close());
  const RawBag bag = parts();
  EXPECT_EQ(numberAt<std::uint32_t>(bag.header, 32), 4056U);
  EXPECT_EQ(bag.header.substr(36, 4056), data);
  EXPECT_EQ(numberAt<std::uint32_t>(bag.header, 4092), referenceCrc32(bag.header.substr(0, 4092)));
}

TEST_F(BagWriterLayout, EmptyTopicListWritesEmptyDefinitionAndIndex) {
  BagWriter writer(CompressionType::kZstd, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({}));
  ASSERT_TRUE(writer.close());
  const RawBag bag = parts();
  ASSERT_EQ(bag.chunks.size(), 2U);
  for (const RawChunk& chunk : bag.chunks) {
    EXPECT_EQ(chunk.size, 28U);
    EXPECT_EQ(numberAt<std::uint32_t>(chunk.header, 8), 0U);
    EXPECT_EQ(chunk.data, "");
    EXPECT_EQ(chunk.crc, 0U);
  }
  EXPECT_EQ(numberAt<std::uint64_t>(bag.header, 16), 4096U + 28);
  EXPECT_EQ(numberAt<std::uint64_t>(bag.header, 24), 4096U + 28);
}

TEST_F(BagWriterLayout, LongTopicNameIsCutToFiftyNineCharacters) {
  const std::string fits(59, 'a');
  const std::string cut(60, 'b');
  const std::string longer(500, 'c');
  BagWriter writer(CompressionType::kNone, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({cut, longer, fits}));
  EXPECT_EQ(writer.write(entryOf("x", false), cut, "x"), 1);
  ASSERT_TRUE(writer.close());
  EXPECT_EQ(parts().chunks.at(0).data, le<std::uint32_t>(2) + fits + '\0' + le<std::uint32_t>(0) +
                                           std::string(59, 'b') + '\0' + le<std::uint32_t>(1) +
                                           std::string(59, 'c') + '\0');
}

TEST_F(BagWriterLayout, TopicNameEndsAtANulByte) {
  BagWriter writer(CompressionType::kNone, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({std::string("/a\0b", 4)}));
  EXPECT_EQ(parts().chunks.at(0).data, topicRecord(0, "/a"));
}

TEST_F(BagWriterLayout, RecordsAreInByteOrderOfNamesWithIdsInTheGivenOrder) {
  BagWriter writer(CompressionType::kNone, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/z", "\xC3\xA9", "/Z", "", "/a"}));
  EXPECT_EQ(parts().chunks.at(0).data, topicRecord(3, "") + topicRecord(2, "/Z") +
                                           topicRecord(4, "/a") + topicRecord(0, "/z") +
                                           topicRecord(1, "\xC3\xA9"));
}

TEST_F(BagWriterLayout, RepeatedTopicNameKeepsItsFirstId) {
  BagWriter writer(CompressionType::kNone, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a", "/b", "/a", "/c"}));
  EXPECT_EQ(parts().chunks.at(0).data,
            topicRecord(0, "/a") + topicRecord(1, "/b") + topicRecord(2, "/c"));
  ASSERT_EQ(writer.write(entryOf("x", false), "/c", "x"), 1);
  ASSERT_TRUE(writer.close());
  EXPECT_EQ(numberAt<std::uint32_t>(parts().chunks.at(1).header, 32), 2U);
}

TEST_F(BagWriterLayout, TopicsWithoutMessagesHaveTheirPlaceInTheIndex) {
  BagWriter writer(CompressionType::kNone, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/z", "/a"}));
  ASSERT_TRUE(writer.close());
  EXPECT_EQ(parts().chunks.at(1).data, std::string("\x0A\x00\x0A\x02\x08\x01", 6));
}

TEST_F(BagWriterLayout, IndexThatEndsOnABoundaryGetsNoPadding) {
  // One message; its length moves the end of the index chunk byte by byte.
  std::size_t length = 1000;
  std::string bytes;
  for (int round = 0; round < 3; ++round) {
    BagWriter writer(CompressionType::kNone, 0, "");
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/a"}));
    const std::string payload(length, 'x');
    ASSERT_GT(writer.write(entryOf(payload, false), "/a", payload), 0);
    ASSERT_TRUE(writer.close());
    bytes = read();
    ASSERT_EQ(bytes.size() % 4096, 0U);
    const std::size_t padding = takeApart(bytes).rest.size();
    ASSERT_LT(padding, 4096U);
    if (padding == 0) break;
    length += padding;
  }
  const RawBag bag = takeApart(bytes);
  EXPECT_EQ(bag.rest, "");
  EXPECT_EQ(bag.chunks.back().offset + bag.chunks.back().size, bytes.size());
}

TEST_F(BagWriterLayout, CloseLogsWhereTheIndexLies) {
  const LogCapture log;
  BagWriter writer(CompressionType::kNone, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  ASSERT_TRUE(writer.close());
  EXPECT_EQ(log.lines(), Lines{infoLine("BagWriter::writeIndexChunk",
                                        "chunk pos:4188 size:30 end:4218, aligned:8192.")});
}

struct CodecCase {
  CompressionType type;
  bool compresses;
  int headerByte;
};

class BagWriterCodec : public BagWriterLayout, public testing::WithParamInterface<CodecCase> {};

INSTANTIATE_TEST_SUITE_P(Codecs, BagWriterCodec,
                         testing::Values(CodecCase{CompressionType::kNone, false, 0},
                                         CodecCase{static_cast<CompressionType>(1), false, 1},
                                         CodecCase{CompressionType::kLz4, true, 2},
                                         CodecCase{CompressionType::kZstd, true, 3},
                                         CodecCase{static_cast<CompressionType>(4), false, 4},
                                         CodecCase{static_cast<CompressionType>(0xFF), false, 0xFF},
                                         CodecCase{static_cast<CompressionType>(0x102), true, 2}));

TEST_P(BagWriterCodec, ChunksAreCompressedWhereTheLowByteNamesACodec) {
  const std::string payload(5000, 'x');
  BagWriter writer(GetParam().type, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a", "/b", "/c", "/d", "/e", "/f"}));
  ASSERT_EQ(writer.write(entryOf(payload, true), "/a", payload), 5000);
  for (int i = 0; i < 20; ++i) ASSERT_EQ(writer.write(entryOf("", true), "/b", ""), 0);
  ASSERT_TRUE(writer.close());

  const RawBag bag = parts();
  EXPECT_EQ(static_cast<unsigned char>(bag.header[5]), GetParam().headerByte);
  const RawChunk& message = bag.chunks.at(1);
  for (const RawChunk* chunk : {&bag.chunks.front(), &message, &bag.chunks.back()}) {
    const auto rawSize = numberAt<std::uint32_t>(chunk->header, 8);
    EXPECT_EQ(chunk->data.size() < rawSize, GetParam().compresses) << chunk->type;
    EXPECT_EQ(chunk->data.size() != rawSize, GetParam().compresses) << chunk->type;
    EXPECT_EQ(chunk->crc, referenceCrc32(chunk->data));
  }
  if (!GetParam().compresses) return;
  std::string restored;
  const bool isLz4 = GetParam().headerByte == 2;
  const std::string& stored = message.data;
  EXPECT_EQ(isLz4
                ? basalt::Lz4Compress().decompress(stored.data(), stored.size(), 5000, &restored)
                : basalt::ZstdCompress().decompress(stored.data(), stored.size(), 5000, &restored),
            5000);
  EXPECT_EQ(restored, payload);
}

TEST_P(BagWriterCodec, MessageWithStoredSizeOfItsRawSizeIsStoredAsItStands) {
  const std::string payload(5000, 'x');
  BagWriter writer(GetParam().type, 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  ASSERT_EQ(writer.write(entryOf(payload, false), "/a", payload), 5000);
  EXPECT_EQ(parts().chunks.at(1).data, payload);
  EXPECT_EQ(writer.topicIndex("/a")->entries.at(0).storedSize, 5000U);
}

TEST_P(BagWriterCodec, PayloadThatDoesNotShrinkIsStoredAsItStands) {
  std::string noise;
  for (unsigned i = 0; i < 3000; ++i) noise += static_cast<char>(i * i * 2654435761U >> 19);
  for (const std::string& payload : {noise, std::string("a"), std::string("abcdefghijkl")}) {
    BagWriter writer(GetParam().type, 0, "");
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/a"}));
    ASSERT_GT(writer.write(entryOf(payload, true), "/a", payload), 0);
    EXPECT_EQ(parts().chunks.at(1).data, payload);
    EXPECT_EQ(writer.topicIndex("/a")->entries.at(0).storedSize, payload.size());
  }
}

}  // namespace
}  // namespace morva::test

#include "storage/bag_file.h"

#include <string>

#include <gtest/gtest.h>

#include "support/bag_builder.h"

namespace morva::test {
namespace {

/// A storage object that adds nothing.
class PlainFile final : public BagFile {
 public:
  TopicIds& ids() { return topicIds_; }
  TopicIndexes& indexes() { return topicIndexes_; }
  using BagFile::makeCompressor;
};

TEST(BagFileBase, EveryOperationFails) {
  PlainFile file;
  BagFile::Chunk chunk;
  std::int64_t next = 0;
  std::string data;
  EXPECT_EQ(file.open("x"), 4);
  EXPECT_EQ(file.read(&chunk, 4096, &next), -1);
  EXPECT_EQ(file.read(MsgIndex(), &data), -1);
  EXPECT_EQ(file.readNextChunk(&chunk, 4096, &next), -1);
  EXPECT_EQ(file.write(BagFile::TopicHeader(), "/imu", "x"), -1);
  EXPECT_TRUE(file.close());
}

TEST(BagFileTopicIndex, IsFoundByNameThroughTheId) {
  PlainFile file;
  const auto index = std::make_shared<BagFile::TopicIndex>();
  file.ids() = {{"/imu", 7}, {"/empty", 8}};
  file.indexes() = {{7, index}};
  EXPECT_EQ(file.topicIndex("/imu"), index);
  EXPECT_EQ(file.topicIndex("/empty"), nullptr);
  EXPECT_EQ(file.topicIndex("/unknown"), nullptr);
}

TEST(BagFileMakeCompressor, OnlyLz4AndZstdHaveOne) {
  for (int type = 0; type < 256; ++type) {
    const auto codec = PlainFile::makeCompressor(static_cast<std::uint8_t>(type));
    EXPECT_EQ(codec != nullptr, type == 2 || type == 3) << type;
  }
  EXPECT_NE(dynamic_cast<const basalt::Lz4Compress*>(PlainFile::makeCompressor(2).get()), nullptr);
  EXPECT_NE(dynamic_cast<const basalt::ZstdCompress*>(PlainFile::makeCompressor(3).get()), nullptr);
}

TEST(BagFileHeader, FieldsStandAtTheirOffsets) {
  BagFile::Header header;
  header.setCompression(3);
  header.setVersion(0x0102);
  header.setCreationTime(0x1112131415161718);
  header.setDataStart(0x2122232425262728);
  header.setIndexChunkOffset(0x3132333435363738);
  header.setPrivateSize(5);
  header.setPrivateData("hello");
  const std::string bytes(header.bytes.begin(), header.bytes.end());
  std::string expected = std::string(5, '\0') + '\x03' + le<std::uint16_t>(0x0102) +
                         le<std::uint64_t>(0x1112131415161718) +
                         le<std::uint64_t>(0x2122232425262728) +
                         le<std::uint64_t>(0x3132333435363738) + le<std::uint32_t>(5) + "hello";
  expected.resize(4096, '\0');
  EXPECT_EQ(bytes, expected);
  EXPECT_EQ(header.compression(), 3);
  EXPECT_EQ(header.version(), 0x0102);
  EXPECT_EQ(header.creationTime(), 0x1112131415161718U);
  EXPECT_EQ(header.dataStart(), 0x2122232425262728U);
  EXPECT_EQ(header.indexChunkOffset(), 0x3132333435363738U);
  EXPECT_EQ(header.privateData(), "hello");
}

TEST(BagFileHeader, PrivateDataIsCutToWhatTheHeaderHolds) {
  BagFile::Header header;
  header.bytes[4092] = 'c';  // the checksum stays out of reach
  header.setPrivateData(std::string(5000, 'p'));
  EXPECT_EQ(header.bytes[4091], 'p');
  EXPECT_EQ(header.bytes[4092], 'c');
  header.setPrivateSize(0xFFFFFFFF);
  EXPECT_EQ(header.privateData(), std::string(4056, 'p'));
}

TEST(BagFileTopicIndexAppend, KeepsSumsAndExtremes) {
  BagFile::TopicIndex index;
  BagFile::TopicHeader entry;
  entry.rawSize = 0xFFFFFFFF;
  entry.count = 0xFFFFFFFF;
  entry.headerTimes = {50, 60};
  index.append(entry, 5000);
  EXPECT_EQ(index.startTime, 50);
  entry.count = 3;
  entry.headerTimes = {40, 70};
  index.append(entry, 6000);
  entry.headerTimes = {90, 10};
  index.append(entry, 7000);
  EXPECT_EQ(index.startTime, 40);
  EXPECT_EQ(index.endTime, 70);
  EXPECT_EQ(index.countSum, 5U);  // modulo 2^32
  EXPECT_EQ(index.rawSizeSum, 3ULL * 0xFFFFFFFF);
  EXPECT_EQ(index.chunkOffsets, (std::vector<std::uint64_t>{5000, 6000, 7000}));
  EXPECT_EQ(index.entries.size(), 3U);
}

TEST(BagLayoutFitsChunk, WholeChunkStaysBelowFourGibibytes) {
  constexpr std::size_t kMax = 0xFFFFFFFF;
  EXPECT_TRUE(layout::fitsChunk(36, 0));
  EXPECT_TRUE(layout::fitsChunk(36, kMax - 36 - 16));
  EXPECT_FALSE(layout::fitsChunk(36, kMax - 36 - 15));
  EXPECT_FALSE(layout::fitsChunk(36, kMax + 1));
  EXPECT_FALSE(layout::fitsChunk(36, ~std::size_t{0}));
  EXPECT_EQ(layout::chunkBytes(36, kMax - 36 - 16), kMax);
}

}  // namespace
}  // namespace morva::test

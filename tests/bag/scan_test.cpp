#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bag/bag_bytes.h"
#include "bag/recording.h"
#include "kbag_msgs.pb.h"
#include "morva/bag.h"
#include "support/bag_builder.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using protix::kbag_msgs::ChunkIndex;
using protix::kbag_msgs::ChunkIndexData;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const Topics kTopics = {{0, "/a"}, {1, "/b"}};
constexpr std::size_t kDataStart = 4096 + 16 + 12 + 2 * 64;

ChunkIndexData parse(const std::string& index) {
  ChunkIndexData message;
  EXPECT_TRUE(message.ParseFromString(index));
  return message;
}

class GetAllView : public testing::Test {
 protected:
  void write(const std::string& bag) { writeFile(path_, bag); }
  View scan() { return MorvaBag::getAllView(path_, &index_); }

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  std::string index_;
};

TEST_F(GetAllView, MissingFileIsAnErrorAndEmpty) {
  const LogCapture log;
  EXPECT_THAT(scan().indexes, IsEmpty());
  EXPECT_THAT(log.lines(),
              ElementsAre("<E>TIME [getAllView,L0] bag file(" + path_ + ") not exists!"));
}

TEST_F(GetAllView, UnreadableHeaderIsAnErrorAndEmpty) {
  std::string bag = unclosedBag(kTopics, {});
  bag[100] ^= 1;
  write(bag);
  const LogCapture log;
  EXPECT_THAT(scan().indexes, IsEmpty());
  EXPECT_THAT(log.lines(),
              Contains("<E>TIME [getAllView,L0] open bag file(" + path_ + ") error(6)!"));
  EXPECT_EQ(index_, "");
}

TEST_F(GetAllView, FindsTheMessagesOfAllTopicsInFileOrder) {
  record(path_, {"/b", "/a"},
         {{.topic = "/a", .firstTimeUs = 30},
          {.topic = "/b", .firstTimeUs = 10, .data = std::string(2000, 'x'), .compress = true},
          {.topic = "/a", .firstTimeUs = 20}},
         {.compression = CompressionType::kLz4});
  const View view = scan();
  EXPECT_THAT(timesOf(view), ElementsAre(30, 10, 20));
  EXPECT_EQ(nameOf(view.indexes[0]), "/a");
  EXPECT_EQ(nameOf(view.indexes[1]), "/b");
}

TEST_F(GetAllView, RecordsAreThoseOfTheIndex) {
  record(path_, {"/imu"},
         {{.topic = "/imu", .firstTimeUs = 1, .count = 3, .secondTimeUs = 9},
          {.topic = "/imu", .firstTimeUs = 2, .data = std::string(900, 'y'), .compress = true}},
         {.compression = CompressionType::kZstd});
  MorvaBag bag;
  ASSERT_EQ(bag.open(path_, BagMode::kRead), 0);
  const View indexed = bag.getView("/imu", 0, 0);
  const View scanned = MorvaBag::getAllView(path_, nullptr);
  ASSERT_EQ(scanned.indexes.size(), 2U);
  for (std::size_t i = 0; i < 2; ++i) {
    const MsgIndex& a = indexed.indexes[i];
    const MsgIndex& b = scanned.indexes[i];
    EXPECT_EQ(b.topicId, a.topicId);
    EXPECT_EQ(b.count, a.count);
    EXPECT_EQ(b.rawSize, a.rawSize);
    EXPECT_EQ(b.storedSize, a.storedSize);
    EXPECT_EQ(b.headerTimes, a.headerTimes);
    EXPECT_EQ(b.writeTime, a.writeTime);
    EXPECT_EQ(b.chunkOffset, a.chunkOffset);
    EXPECT_EQ(b.topicName, a.topicName);
  }
}

TEST_F(GetAllView, RebuildsTheIndexThatTheWriterMade) {
  record(path_, {"/b", "/empty", "/a"},
         {{.topic = "/a", .firstTimeUs = 30, .count = 2, .secondTimeUs = 35},
          {.topic = "/b", .firstTimeUs = 10},
          {.topic = "/a", .firstTimeUs = 20, .count = 5, .secondTimeUs = 21}});
  ASSERT_EQ(scan().indexes.size(), 3U);
  const std::vector<RawChunk> chunks = walkBytes(readFile(path_));
  EXPECT_EQ(index_, chunks.back().data);

  const ChunkIndexData index = parse(index_);
  ASSERT_EQ(index.indexes_size(), 3);
  const ChunkIndex& last = index.indexes(2);
  EXPECT_EQ(last.topic_id(), 2U);
  EXPECT_EQ(last.count_sum(), 7U);
  EXPECT_EQ(last.raw_size_sum(), 14U);
  EXPECT_EQ(last.start_time(), 20);
  EXPECT_EQ(last.end_time(), 35);
  EXPECT_THAT(last.chunk_offsets(), ElementsAre(chunks[1].offset, chunks[3].offset));
  EXPECT_EQ(last.infos(1).stored_size(), 7U);
}

TEST_F(GetAllView, NeedsNoIndex) {
  record(path_, {"/imu"}, {{.topic = "/imu", .firstTimeUs = 1}});
  write(withoutClose(readFile(path_)));
  EXPECT_THAT(timesOf(scan()), ElementsAre(1));
}

TEST_F(GetAllView, TruncatedChunkEndsTheScanWithAWarning) {
  std::string bag = unclosedBag(kTopics, {messageChunk({.topicId = 1, .stored = "first"}),
                                          messageChunk({.topicId = 1, .stored = "second"})});
  bag.pop_back();
  write(bag);
  const LogCapture log;
  EXPECT_EQ(scan().indexes.size(), 1U);
  // The second chunk begins at 4252 + 16 + 36 + 5 = 4309.
  EXPECT_THAT(log.lines(), Contains("<W>TIME [getAllView,L0] read chunk "
                                    "offset(0x00000000000010d5:4309) error!"));
  ASSERT_EQ(parse(index_).indexes_size(), 2);
  EXPECT_THAT(parse(index_).indexes(1).chunk_offsets(), ElementsAre(kDataStart));
}

TEST_F(GetAllView, DamagedDataEndsTheScan) {
  std::string bag = unclosedBag(kTopics, {messageChunk({.stored = "first", .firstTimeUs = 1}),
                                          messageChunk({.stored = "second", .firstTimeUs = 2}),
                                          messageChunk({.stored = "third", .firstTimeUs = 3})});
  bag[bag.find("second")] ^= 1;
  write(bag);
  EXPECT_THAT(timesOf(scan()), ElementsAre(1));
}

TEST_F(GetAllView, UnknownChunkTypeEndsTheScanWithAWarning) {
  write(unclosedBag(kTopics, {chunkBytes(0x1234, std::string(36, '\0'), "data"),
                              messageChunk({.stored = "behind"})}));
  const LogCapture log;
  EXPECT_THAT(scan().indexes, IsEmpty());
  EXPECT_THAT(log.lines(), Contains("<W>TIME [getAllView,L0] invalid chunk type: 0x1234, offset: "
                                    "0x000000000000109c, reindex abort!"));
}

TEST_F(GetAllView, SecondDefinitionChunkEndsTheScan) {
  write(unclosedBag(kTopics, {definitionChunk(kTopics), messageChunk({.stored = "behind"})}));
  EXPECT_THAT(scan().indexes, IsEmpty());
}

TEST_F(GetAllView, IndexChunkEndsTheScan) {
  write(unclosedBag(kTopics, {messageChunk({.stored = "before"}), indexChunk("any data"),
                              messageChunk({.stored = "behind"})}));
  const LogCapture log;
  EXPECT_EQ(scan().indexes.size(), 1U);
  EXPECT_THAT(log.lines(), testing::Not(Contains(testing::HasSubstr("getAllView"))));
}

TEST_F(GetAllView, MessageChunkWithAnotherHeaderSizeIsAReadFailure) {
  for (const std::size_t size : {12U, 35U, 37U}) {
    write(unclosedBag(kTopics, {chunkBytes(1, std::string(size, '\0'), "data")}));
    const LogCapture log;
    EXPECT_THAT(scan().indexes, IsEmpty()) << size;
    EXPECT_THAT(log.lines(), Contains("<W>TIME [getAllView,L0] read chunk "
                                      "offset(0x000000000000109c:4252) error!"));
  }
}

TEST_F(GetAllView, UnknownTopicIdStaysWithoutAName) {
  write(unclosedBag(kTopics, {messageChunk({.topicId = 77, .stored = "data"}),
                              messageChunk({.topicId = 0xFFFFFFFF, .stored = "data"})}));
  const View view = scan();
  ASSERT_EQ(view.indexes.size(), 2U);
  EXPECT_EQ(view.indexes[0].topicId, 77U);
  EXPECT_EQ(nameOf(view.indexes[0]), "");
  const ChunkIndexData index = parse(index_);
  ASSERT_EQ(index.indexes_size(), 4);
  EXPECT_EQ(index.indexes(2).topic_id(), 77U);
  EXPECT_EQ(index.indexes(2).infos_size(), 1);
  EXPECT_EQ(index.indexes(3).topic_id(), 0xFFFFFFFFU);
}

TEST_F(GetAllView, LidarModelsKeepTheirOwnNames) {
  write(unclosedBag(
      {{0, "/hesai/pandar"}, {1, "/livox/lidar"}},
      {messageChunk({.topicId = 0, .stored = "a"}), messageChunk({.topicId = 1, .stored = "b"})}));
  EXPECT_EQ(nameOf(scan().indexes.at(0)), "/hesai/pandar");
  EXPECT_EQ(nameOf(scan().indexes.at(1)), "/livox/lidar");
  write(unclosedBag({{1, "/livox/lidar"}}, {messageChunk({.topicId = 1, .stored = "b"})}));
  EXPECT_EQ(nameOf(scan().indexes.at(0)), "/livox/lidar");
}

TEST_F(GetAllView, MessagesThatCannotBeReadAreKept) {
  write(
      unclosedBag(kTopics, {messageChunk({.stored = "uncounted", .count = 0}), messageChunk({})}));
  EXPECT_EQ(scan().indexes.size(), 2U);
}

TEST_F(GetAllView, SizeWordThatLiesEndsTheScan) {
  for (const std::size_t field : {6U, 44U}) {  // header size, data size
    std::string bag =
        unclosedBag(kTopics, {messageChunk({.stored = "data"}), messageChunk({.stored = "data"})});
    bag.replace(kDataStart + field, field == 6 ? 2 : 4, field == 6 ? 2 : 4, '\xFF');
    write(bag);
    EXPECT_THAT(scan().indexes, IsEmpty()) << field;
  }
}

TEST_F(GetAllView, RawSizeThatLiesEndsTheScanOfACompressedBag) {
  for (const std::uint8_t codec : {std::uint8_t{2}, std::uint8_t{3}}) {
    std::string bag = unclosedBag(kTopics, {messageChunk({.stored = "data"})}, codec);
    bag.replace(kDataStart + 8 + 8, 4, 4, '\xFF');
    write(bag);
    EXPECT_THAT(scan().indexes, IsEmpty()) << int{codec};
  }
}

}  // namespace
}  // namespace morva::test

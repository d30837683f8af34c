#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bag/bag_bytes.h"
#include "bag/msg_index.h"
#include "bag/recording.h"
#include "kbag_msgs.pb.h"
#include "morva/bag.h"
#include "support/bag_builder.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::int64_t kSecondUs = 1000000;
constexpr std::int64_t kYear2100Us = 4102444800000000;

/// A bag whose topic "/imu" has one message for each of the given first header times.
class GetView : public testing::Test {
 protected:
  void recordTimes(const std::vector<std::int64_t>& times) {
    std::vector<Message> messages;
    for (const std::int64_t time : times)
      messages.push_back({.topic = "/imu", .firstTimeUs = time});
    record(dir_ / "a.kbag", {"/imu", "/empty"}, messages);
    ASSERT_EQ(bag_.open(dir_ / "a.kbag", BagMode::kRead), 0);
  }

  std::vector<std::int64_t> select(std::int64_t startUs, std::int64_t durationS) {
    return timesOf(bag_.getView("/imu", startUs, durationS));
  }

  const TempDir dir_;
  MorvaBag bag_;
};

TEST_F(GetView, RecordHoldsEverythingAboutTheMessage) {
  record(dir_ / "b.kbag", {"/gnss", "/imu"},
         {{.topic = "/gnss", .firstTimeUs = 1},
          {.topic = "/imu",
           .firstTimeUs = 2000,
           .data = std::string(3000, 'x'),
           .count = 17,
           .secondTimeUs = 2900,
           .compress = true}},
         {.compression = CompressionType::kZstd});
  ASSERT_EQ(bag_.open(dir_ / "b.kbag", BagMode::kRead), 0);
  const View view = bag_.getView("/imu", 0, 0);
  ASSERT_EQ(view.indexes.size(), 1U);
  const MsgIndex& index = view.indexes[0];
  const RawChunk chunk = walkBytes(readFile(dir_ / "b.kbag")).at(2);
  EXPECT_EQ(index.topicId, 1U);
  EXPECT_EQ(index.count, 17U);
  EXPECT_EQ(index.rawSize, 3000U);
  EXPECT_EQ(index.storedSize, chunk.data.size());
  EXPECT_EQ(index.headerTimes[0], 2000);
  EXPECT_EQ(index.headerTimes[1], 2900);
  EXPECT_EQ(index.writeTime, 1993);
  EXPECT_EQ(index.chunkOffset, chunk.offset);
  EXPECT_EQ(nameOf(index), "/imu");
}

TEST_F(GetView, UnknownTopicLogsALineAndIsEmpty) {
  recordTimes({1});
  const LogCapture log;
  EXPECT_THAT(bag_.getView("/none", 0, 0).indexes, IsEmpty());
  EXPECT_THAT(log.lines(), ElementsAre("<E>TIME [MorvaBag::getView,L0] not found topic [/none]!"));
}

TEST_F(GetView, TopicWithoutMessagesIsEmptyWithoutALine) {
  recordTimes({1});
  const LogCapture log;
  EXPECT_THAT(bag_.getView("/empty", 0, 0).indexes, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(GetView, ClosedHandleAndWritingHandleAreEmptyWithoutALine) {
  const LogCapture log;
  EXPECT_THAT(select(0, 0), IsEmpty());
  bag_.topics = {"/imu"};
  ASSERT_EQ(bag_.open(dir_ / "b.kbag", BagMode::kWrite), 0);
  ASSERT_TRUE(write(bag_, {.topic = "/imu", .firstTimeUs = 1}));
  EXPECT_THAT(select(0, 0), IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(GetView, StartOfZeroIgnoresTheDuration) {
  recordTimes({1, 100 * kSecondUs});
  EXPECT_THAT(select(0, 10), ElementsAre(1, 100 * kSecondUs));
}

TEST_F(GetView, NegativeStartIgnoresTheDurationAndSelectsFromThere) {
  recordTimes({-20, -10, 1, 100 * kSecondUs});
  EXPECT_THAT(select(-10, 1), ElementsAre(-10, 1, 100 * kSecondUs));
}

TEST_F(GetView, NoDurationSelectsEverythingFromTheStart) {
  recordTimes({9, 10, 11, 100 * kSecondUs});
  EXPECT_THAT(select(10, 0), ElementsAre(10, 11, 100 * kSecondUs));
  EXPECT_THAT(select(10, -5), ElementsAre(10, 11, 100 * kSecondUs));
}

TEST_F(GetView, BothBoundsAreIncluded) {
  recordTimes({99, 100, 101, 100 + 2 * kSecondUs, 101 + 2 * kSecondUs});
  EXPECT_THAT(select(100, 2), ElementsAre(100, 101, 100 + 2 * kSecondUs));
}

TEST_F(GetView, UpperBoundIsTheYear2100) {
  recordTimes({kYear2100Us, kYear2100Us + 1});
  EXPECT_THAT(select(0, 0), ElementsAre(kYear2100Us));
  EXPECT_THAT(select(1, 0), ElementsAre(kYear2100Us));
}

TEST_F(GetView, DurationMayReachBeyondTheYear2100) {
  recordTimes({kYear2100Us, kYear2100Us + 1});
  EXPECT_THAT(select(kYear2100Us, 1), ElementsAre(kYear2100Us, kYear2100Us + 1));
}

TEST_F(GetView, SumThatDoesNotFitSaturates) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  recordTimes({5, kMax});
  EXPECT_THAT(select(5, kMax), ElementsAre(5, kMax));
  EXPECT_THAT(select(5, kMax / kSecondUs + 1), ElementsAre(5, kMax));
  EXPECT_THAT(select(kMax, 1), ElementsAre(kMax));
}

TEST_F(GetView, SelectsOnTheFirstHeaderTime) {
  record(dir_ / "b.kbag", {"/imu"},
         {{.topic = "/imu", .firstTimeUs = 99, .secondTimeUs = 100},
          {.topic = "/imu", .firstTimeUs = 100, .secondTimeUs = 50}});
  ASSERT_EQ(bag_.open(dir_ / "b.kbag", BagMode::kRead), 0);
  EXPECT_THAT(select(100, 0), ElementsAre(100));
}

TEST_F(GetView, KeepsTheOrderOfWriting) {
  recordTimes({30, 10, 20, 10});
  EXPECT_THAT(select(0, 0), ElementsAre(30, 10, 20, 10));
}

TEST_F(GetView, OutlivesTheBag) {
  recordTimes({1});
  const View view = bag_.getView("/imu", 0, 0);
  ASSERT_TRUE(bag_.close());
  MorvaBag other;
  ASSERT_EQ(other.open(dir_ / "a.kbag", BagMode::kRead), 0);
  EXPECT_THAT(readAll(other, view), ElementsAre("payload"));
}

TEST_F(GetView, GenericLidarNameSelectsTheLidarModelsTopic) {
  record(dir_ / "b.kbag", {"/imu", "/livox/lidar"}, {{.topic = "/livox/lidar", .firstTimeUs = 3}});
  ASSERT_EQ(bag_.open(dir_ / "b.kbag", BagMode::kRead), 0);
  const View view = bag_.getView("/lidar", 0, 0);
  ASSERT_EQ(view.indexes.size(), 1U);
  EXPECT_EQ(nameOf(view.indexes[0]), "/lidar");
  EXPECT_EQ(view.indexes[0].topicId, 1U);
  EXPECT_EQ(nameOf(bag_.getView("/livox/lidar", 0, 0).indexes.at(0)), "/livox/lidar");
}

TEST_F(GetView, TopicOfNoIdIsNotFound) {
  protix::kbag_msgs::ChunkIndexData index;
  protix::kbag_msgs::ChunkIndex* const topic = index.add_indexes();
  topic->set_topic_id(0xFFFFFFFF);
  topic->add_chunk_offsets(5000);
  topic->add_infos()->set_first_header_time(1);
  HeaderFields fields;
  const std::string definition = definitionChunk({{0xFFFFFFFF, "/imu"}});
  fields.dataStart = fields.indexChunkOffset = 4096 + definition.size();
  writeFile(dir_ / "b.kbag",
            headerBytes(fields) + definition + indexChunk(index.SerializeAsString()));
  ASSERT_EQ(bag_.open(dir_ / "b.kbag", BagMode::kRead), 0);
  const LogCapture log;
  EXPECT_THAT(select(0, 0), IsEmpty());
  EXPECT_THAT(log.lines(), ElementsAre("<E>TIME [MorvaBag::getView,L0] not found topic [/imu]!"));
}

class GetViewOfList : public GetView {
 protected:
  void SetUp() override {
    record(dir_ / "a.kbag", {"/a", "/b"},
           {{.topic = "/a", .firstTimeUs = 1},
            {.topic = "/b", .firstTimeUs = 2},
            {.topic = "/a", .firstTimeUs = 3}});
    ASSERT_EQ(bag_.open(dir_ / "a.kbag", BagMode::kRead), 0);
  }

  std::vector<std::int64_t> selectFrom(const std::vector<std::string>& topics,
                                       std::int64_t startUs = 0, std::int64_t durationS = 0) {
    return timesOf(bag_.getView(topics, startUs, durationS));
  }
};

TEST_F(GetViewOfList, FollowsTheOrderOfTheList) {
  EXPECT_THAT(selectFrom({"/b", "/a"}), ElementsAre(2, 1, 3));
}

TEST_F(GetViewOfList, EmptyListIsEmpty) { EXPECT_THAT(selectFrom({}), IsEmpty()); }

TEST_F(GetViewOfList, RepeatedTopicContributesTwice) {
  EXPECT_THAT(selectFrom({"/b", "/b"}), ElementsAre(2, 2));
}

TEST_F(GetViewOfList, UnknownTopicLeavesTheOthers) {
  const LogCapture log;
  EXPECT_THAT(selectFrom({"/a", "/none", "/b"}), ElementsAre(1, 3, 2));
  EXPECT_THAT(log.lines(), ElementsAre("<E>TIME [MorvaBag::getView,L0] not found topic [/none]!"));
}

TEST_F(GetViewOfList, TimesSelectFromEveryTopic) {
  EXPECT_THAT(selectFrom({"/b", "/a"}, 2, 0), ElementsAre(2, 3));
}

TEST(MakeMsgIndex, LongTopicNameIsCutTo63Characters) {
  const std::string name63(63, 'n');
  for (const std::string& name : {name63, name63 + "x", name63 + "xyz"}) {
    EXPECT_EQ(nameOf(makeMsgIndex(0, {}, 4096, name)), name63);
  }
}

}  // namespace
}  // namespace morva::test

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

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> namesOf(const BagInfo& info) {
  std::vector<std::string> names;
  for (const TopicInfo& topic : info.topics) names.push_back(topic.name);
  return names;
}

class GetInfo : public testing::Test {
 protected:
  BagInfo infoOf(const std::vector<std::string>& topics, const std::vector<Message>& messages) {
    record(dir_ / "a.kbag", topics, messages);
    EXPECT_EQ(bag_.open(dir_ / "a.kbag", BagMode::kRead), 0);
    return bag_.getInfo();
  }

  const TempDir dir_;
  MorvaBag bag_;
};

TEST_F(GetInfo, SumsUpFileAndTopics) {
  const BagInfo info = infoOf({"/imu", "/gnss"},
                              {{.topic = "/imu", .firstTimeUs = 30, .count = 2, .secondTimeUs = 39},
                               {.topic = "/imu", .firstTimeUs = 20, .count = 3, .secondTimeUs = 29},
                               {.topic = "/gnss", .firstTimeUs = 50, .data = "four"}});
  const std::vector<RawChunk> chunks = walkBytes(readFile(dir_ / "a.kbag"));
  EXPECT_EQ(info.versionByte0, 1U);
  EXPECT_EQ(info.versionByte1, 0U);
  EXPECT_EQ(info.topicCount, 2U);
  EXPECT_EQ(info.chunkCount, 3U);
  EXPECT_EQ(info.dataStart, chunks[1].offset);
  EXPECT_EQ(info.indexChunkOffset, chunks[4].offset);

  ASSERT_THAT(namesOf(info), ElementsAre("/gnss", "/imu"));
  const TopicInfo& imu = info.topics[1];
  EXPECT_EQ(imu.topicId, 0U);
  EXPECT_EQ(imu.messageCount, 5U);
  EXPECT_EQ(imu.total, 14U);
  EXPECT_EQ(imu.startTime, 20);
  EXPECT_EQ(imu.endTime, 39);
  const TopicInfo& gnss = info.topics[0];
  EXPECT_EQ(gnss.topicId, 1U);
  EXPECT_EQ(gnss.messageCount, 1U);
  EXPECT_EQ(gnss.total, 4U);
}

TEST_F(GetInfo, HandleOpenedForInfoGivesTheSameAndNoViews) {
  const BagInfo whole = infoOf({"/imu", "/gnss"}, {{.topic = "/imu", .firstTimeUs = 30, .count = 2},
                                                   {.topic = "/gnss", .firstTimeUs = 50}});
  MorvaBag bag;
  ASSERT_EQ(bag.openForInfo(dir_ / "a.kbag"), 0);
  const BagInfo info = bag.getInfo();
  EXPECT_EQ(info.topicCount, whole.topicCount);
  EXPECT_EQ(info.chunkCount, whole.chunkCount);
  EXPECT_EQ(info.indexChunkOffset, whole.indexChunkOffset);
  ASSERT_EQ(namesOf(info), namesOf(whole));
  EXPECT_EQ(info.topics[1].messageCount, 2U);
  EXPECT_EQ(info.topics[1].startTime, 30);
  EXPECT_TRUE(bag.getView("/imu", 0, -1).indexes.empty());
  EXPECT_EQ(bag.openForInfo(dir_ / "missing.kbag"), MorvaBag::kOpenMissing);
}

TEST_F(GetInfo, TopicWithoutMessagesCountsButIsNotListed) {
  const BagInfo info = infoOf({"/imu", "/empty"}, {{.topic = "/imu", .firstTimeUs = 1}});
  EXPECT_EQ(info.topicCount, 2U);
  EXPECT_EQ(info.chunkCount, 1U);
  EXPECT_THAT(namesOf(info), ElementsAre("/imu"));
}

TEST_F(GetInfo, TopicOfUncountedMessagesIsNotListed) {
  const BagInfo info = infoOf({"/imu", "/odd"}, {{.topic = "/imu", .firstTimeUs = 1},
                                                 {.topic = "/odd", .firstTimeUs = 2, .count = 0},
                                                 {.topic = "/odd", .firstTimeUs = 3, .count = 0}});
  EXPECT_EQ(info.topicCount, 2U);
  EXPECT_EQ(info.chunkCount, 1U);
  EXPECT_THAT(namesOf(info), ElementsAre("/imu"));
}

TEST_F(GetInfo, TopicsComeInTheOrderOfTheirNames) {
  const BagInfo info =
      infoOf({"/imu", "/camera_left/h264", "/Z"}, {{.topic = "/imu", .firstTimeUs = 1},
                                                   {.topic = "/camera_left/h264", .firstTimeUs = 2},
                                                   {.topic = "/Z", .firstTimeUs = 3}});
  EXPECT_THAT(namesOf(info), ElementsAre("/Z", "/camera_left/h264", "/imu"));
}

TEST_F(GetInfo, GenericLidarNameIsAnEntryOfItsOwn) {
  const BagInfo info = infoOf({"/hesai/pandar"}, {{.topic = "/hesai/pandar", .firstTimeUs = 1}});
  EXPECT_EQ(info.topicCount, 2U);
  EXPECT_EQ(info.chunkCount, 2U);
  EXPECT_THAT(namesOf(info), ElementsAre("/hesai/pandar", "/lidar"));
}

TEST_F(GetInfo, ClosedHandleAndWritingHandleGiveNothing) {
  const LogCapture log;
  EXPECT_EQ(bag_.getInfo().topicCount, 0U);
  bag_.topics = {"/imu"};
  ASSERT_EQ(bag_.open(dir_ / "b.kbag", BagMode::kWrite), 0);
  ASSERT_TRUE(write(bag_, {.topic = "/imu"}));
  const BagInfo info = bag_.getInfo();
  EXPECT_EQ(info.versionByte0, 0U);
  EXPECT_EQ(info.topicCount, 0U);
  EXPECT_EQ(info.dataStart, 0U);
  EXPECT_THAT(info.topics, IsEmpty());
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(GetInfo, VersionBytesAndOffsetsComeFromTheHeader) {
  protix::kbag_msgs::ChunkIndexData index;
  index.add_indexes();
  const std::string definition = definitionChunk({{0, "/imu"}});
  HeaderFields fields;
  fields.version = 0x0302;
  fields.dataStart = 1;  // the reader measures it
  fields.indexChunkOffset = 4096 + definition.size();
  writeFile(dir_ / "a.kbag",
            headerBytes(fields) + definition + indexChunk(index.SerializeAsString()));
  ASSERT_EQ(bag_.open(dir_ / "a.kbag", BagMode::kRead), 0);
  const BagInfo info = bag_.getInfo();
  EXPECT_EQ(info.versionByte0, 2U);
  EXPECT_EQ(info.versionByte1, 3U);
  EXPECT_EQ(info.dataStart, 4096 + definition.size());
  EXPECT_EQ(info.indexChunkOffset, 4096 + definition.size());
  EXPECT_EQ(info.topicCount, 1U);
  EXPECT_EQ(info.chunkCount, 0U);
  EXPECT_THAT(info.topics, IsEmpty());
}

TEST_F(GetInfo, BagWithoutTopicsHasNone) {
  protix::kbag_msgs::ChunkIndexData index;
  index.add_indexes();
  const std::string definition = definitionChunk({});
  HeaderFields fields;
  fields.indexChunkOffset = 4096 + definition.size();
  writeFile(dir_ / "a.kbag",
            headerBytes(fields) + definition + indexChunk(index.SerializeAsString()));
  ASSERT_EQ(bag_.open(dir_ / "a.kbag", BagMode::kRead), 0);
  EXPECT_EQ(bag_.getInfo().topicCount, 0U);
  EXPECT_EQ(bag_.getInfo().versionByte0, 1U);
}

}  // namespace
}  // namespace morva::test

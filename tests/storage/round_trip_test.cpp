#include <string>

#include <gtest/gtest.h>

#include "storage/bag_reader.h"
#include "storage/bag_writer.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

BagFile::TopicHeader entryOf(const std::string& data, bool compress) {
  BagFile::TopicHeader entry;
  entry.time = 1'700'000'000'000'000;
  entry.rawSize = static_cast<std::uint32_t>(data.size());
  entry.count = 3;
  entry.headerTimes = {1'700'000'000'000'001, 1'700'000'000'000'002};
  entry.storedSize = compress ? 0 : entry.rawSize;
  return entry;
}

MsgIndex indexOf(const BagFile::TopicIndex& topic, std::size_t i) {
  MsgIndex index;
  const BagFile::TopicHeader& entry = topic.entries[i];
  index.topicId = static_cast<std::uint32_t>(entry.topicId);
  index.count = entry.count;
  index.rawSize = entry.rawSize;
  index.storedSize = entry.storedSize;
  index.chunkOffset = topic.chunkOffsets[i];
  return index;
}

class RoundTrip : public testing::TestWithParam<CompressionType> {};

TEST_P(RoundTrip, GivesBackEveryMessageOfEveryTopic) {
  const TempDir dir;
  const LogCapture log;
  const std::string path = dir / "a.kbag";
  const std::string text(100'000, 'x');
  BagWriter writer(GetParam(), 64 * 1024, "device");
  ASSERT_EQ(writer.open(path), 0);
  ASSERT_TRUE(writer.setTopics({"/imu", "/camera", "/imu"}));
  ASSERT_EQ(writer.write(entryOf(text, true), "/imu", text), 100'000);
  ASSERT_EQ(writer.write(entryOf("abc", false), "/camera", "abc"), 3);
  ASSERT_EQ(writer.write(entryOf("abc", true), "/imu", "abc"), 3);
  ASSERT_TRUE(writer.close());

  BagReader reader;
  ASSERT_EQ(reader.open(path), 0);
  EXPECT_EQ(reader.header().privateData(), "device");
  ASSERT_TRUE(reader.topicIndex("/imu"));
  std::string data;
  EXPECT_EQ(reader.read(indexOf(*reader.topicIndex("/imu"), 0), &data), 100'000);
  EXPECT_EQ(data, text);
  EXPECT_EQ(reader.read(indexOf(*reader.topicIndex("/imu"), 1), &data), 3);
  EXPECT_EQ(data, "abc");
  EXPECT_EQ(reader.read(indexOf(*reader.topicIndex("/camera"), 0), &data), 3);
  EXPECT_EQ(data, "abc");
  EXPECT_EQ(log.errors(), std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Codecs, RoundTrip,
                         testing::Values(CompressionType::kNone, CompressionType::kLz4,
                                         CompressionType::kZstd));

}  // namespace
}  // namespace morva::test

#include "storage/index_codec.h"

#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "support/bag_builder.h"

namespace morva::test {
namespace {

const BuiltMessage kMessage{.topicId = 2,
                            .stored = std::string(70, 's'),
                            .rawSize = 300,
                            .count = 9,
                            .timeUs = 1'700'000'000'000'000,
                            .firstTimeUs = -5,
                            .secondTimeUs = 1'800'000'000'000'000};

BuiltIndex topicOf(std::uint32_t id, const std::vector<std::uint64_t>& offsets) {
  BuiltIndex topic;
  topic.topicId = id;
  topic.countSum = 9;
  topic.rawSizeSum = 300;
  topic.startTimeUs = -5;
  topic.endTimeUs = 1'800'000'000'000'000;
  topic.offsets = offsets;
  topic.messages.assign(offsets.size(), kMessage);
  return topic;
}

BagFile::TopicIndexes decoded(const std::string& bytes) {
  BagFile::TopicIndexes indexes;
  EXPECT_TRUE(decodeTopicIndexes(bytes, &indexes));
  return indexes;
}

TEST(TopicHeaderCodec, GivesTheBytesOfAChunkHeader) {
  BagFile::TopicHeader entry;
  entry.time = kMessage.timeUs;
  entry.rawSize = kMessage.rawSize;
  entry.count = kMessage.count;
  entry.headerTimes = {kMessage.firstTimeUs, kMessage.secondTimeUs};
  entry.topicId = 2;
  entry.storedSize = 70;
  const std::string header = encodeTopicHeader(entry);
  EXPECT_EQ(header, messageChunk(kMessage).substr(8, 36));

  BagFile::TopicHeader back;
  back.storedSize = 1;
  ASSERT_TRUE(decodeTopicHeader(header, &back));
  EXPECT_EQ(back.time, entry.time);
  EXPECT_EQ(back.rawSize, entry.rawSize);
  EXPECT_EQ(back.count, entry.count);
  EXPECT_EQ(back.headerTimes, entry.headerTimes);
  EXPECT_EQ(back.topicId, entry.topicId);
  EXPECT_EQ(back.storedSize, 1U);
}

TEST(TopicHeaderCodec, RefusesShortHeaders) {
  BagFile::TopicHeader entry;
  for (std::size_t size = 0; size < 36; ++size) {
    EXPECT_FALSE(decodeTopicHeader(std::string(size, '\xFF'), &entry)) << size;
  }
  EXPECT_EQ(entry.topicId, -1);
  EXPECT_TRUE(decodeTopicHeader(std::string(37, '\xFF'), &entry));
}

TEST(TopicIndexCodec, ReadsAnIndexWrittenByHand) {
  const auto indexes = decoded(indexBytes({topicOf(2, {4196})}));
  ASSERT_EQ(indexes.size(), 1U);
  const BagFile::TopicIndex& index = *indexes.at(2);
  EXPECT_EQ(index.countSum, 9U);
  EXPECT_EQ(index.rawSizeSum, 300U);
  EXPECT_EQ(index.startTime, -5);
  EXPECT_EQ(index.endTime, 1'800'000'000'000'000);
  EXPECT_EQ(index.chunkOffsets, std::vector<std::uint64_t>{4196});
  ASSERT_EQ(index.entries.size(), 1U);
  const BagFile::TopicHeader& entry = index.entries[0];
  EXPECT_EQ(entry.time, kMessage.timeUs);
  EXPECT_EQ(entry.rawSize, 300U);
  EXPECT_EQ(entry.count, 9U);
  EXPECT_EQ(entry.headerTimes[0], -5);
  EXPECT_EQ(entry.headerTimes[1], 1'800'000'000'000'000);
  EXPECT_EQ(entry.topicId, 2);
  EXPECT_EQ(entry.storedSize, 70U);
}

TEST(TopicIndexCodec, WritesTheSameBytes) {
  const std::string bytes = indexBytes(
      {topicOf(0, {1U << 20, 1ULL << 40}), topicOf(3, {4096}), topicOf(0xFFFFFFFF, {7})});
  std::string back;
  ASSERT_TRUE(encodeTopicIndexes(decoded(bytes), &back));
  EXPECT_EQ(back, bytes);
}

/// A number of any size, and often one at which its length in bytes changes.
std::uint64_t anyNumber(std::mt19937_64* random) {
  const auto bits = static_cast<unsigned>((*random)() % 65);
  if (bits == 0) return 0;
  const std::uint64_t number = (*random)() >> (64 - bits);
  return (*random)() % 3 == 0 ? std::uint64_t{1} << (bits - 1) : number;
}

BagFile::TopicIndex anyIndex(std::mt19937_64* random) {
  const auto number = [random] { return anyNumber(random); };
  const auto narrow = [random] { return static_cast<std::uint32_t>(anyNumber(random)); };
  const auto time = [random] { return static_cast<std::int64_t>(anyNumber(random)); };
  BagFile::TopicIndex index;
  index.countSum = narrow();
  index.rawSizeSum = number();
  index.startTime = time();
  index.endTime = time();
  for (std::uint64_t left = (*random)() % 40; left > 0; --left) {
    index.chunkOffsets.push_back(number());
    BagFile::TopicHeader& entry = index.entries.emplace_back();
    entry.time = time();
    entry.rawSize = narrow();
    entry.count = narrow();
    entry.headerTimes = {time(), time()};
    entry.storedSize = narrow();
  }
  return index;
}

std::string serialized(const BagFile::TopicIndexes& indexes) {
  protix::kbag_msgs::ChunkIndexData message;
  for (const auto& [id, index] : indexes) {
    auto* const topic = message.add_indexes();
    topic->set_topic_id(id);
    topic->set_count_sum(index->countSum);
    topic->set_raw_size_sum(index->rawSizeSum);
    topic->set_start_time(index->startTime);
    topic->set_end_time(index->endTime);
    for (const std::uint64_t offset : index->chunkOffsets) topic->add_chunk_offsets(offset);
    for (const BagFile::TopicHeader& entry : index->entries) {
      auto* const info = topic->add_infos();
      info->set_time(entry.time);
      info->set_count(entry.count);
      info->set_raw_size(entry.rawSize);
      info->set_first_header_time(entry.headerTimes[0]);
      info->set_second_header_time(entry.headerTimes[1]);
      info->set_stored_size(entry.storedSize);
    }
  }
  return message.SerializeAsString();
}

TEST(TopicIndexCodec, WritesWhatTheGeneralSerializerWrites) {
  std::mt19937_64 random(71);
  for (int i = 0; i < 2000; ++i) {
    BagFile::TopicIndexes indexes;
    for (std::uint64_t topics = random() % 4; topics > 0; --topics) {
      indexes[static_cast<std::uint32_t>(anyNumber(&random))] =
          std::make_shared<BagFile::TopicIndex>(anyIndex(&random));
    }
    std::string bytes;
    ASSERT_TRUE(encodeTopicIndexes(indexes, &bytes));
    ASSERT_EQ(bytes, serialized(indexes)) << i;
  }
}

TEST(TopicIndexCodec, IndexThatNoChunkCanHoldIsRefused) {
  BagFile::TopicIndexes indexes;
  const auto index = std::make_shared<BagFile::TopicIndex>();
  index->chunkOffsets.assign(2'000'000, ~std::uint64_t{0});  // 10 bytes each
  for (std::uint32_t id = 0; id < 107; ++id) indexes[id] = index;
  std::string bytes = "left over";
  indexes[107] = index;  // 20 MB for each of 108
  EXPECT_FALSE(encodeTopicIndexes(indexes, &bytes));
  EXPECT_EQ(bytes, "");
}

TEST(TopicIndexCodec, TopicWithoutMessagesIsWrittenAndIgnoredWhenRead) {
  BagFile::TopicIndexes indexes;
  indexes[0] = std::make_shared<BagFile::TopicIndex>();
  indexes[5] = std::make_shared<BagFile::TopicIndex>();
  std::string bytes = "left over";
  ASSERT_TRUE(encodeTopicIndexes(indexes, &bytes));
  EXPECT_EQ(bytes, std::string("\x0A\x00\x0A\x02\x08\x05", 6));
  EXPECT_EQ(decoded(bytes).size(), 0U);
}

TEST(TopicIndexCodec, IndexWithoutTopicsIsEmptyAndRefusedWhenRead) {
  std::string bytes = "left over";
  ASSERT_TRUE(encodeTopicIndexes({}, &bytes));
  EXPECT_EQ(bytes, "");
  BagFile::TopicIndexes indexes;
  EXPECT_FALSE(decodeTopicIndexes(bytes, &indexes));
}

TEST(TopicIndexCodec, TopicWhoseCountsDifferIsIgnored) {
  BuiltIndex moreOffsets = topicOf(1, {4096, 5000});
  moreOffsets.messages.pop_back();
  BuiltIndex moreMessages = topicOf(2, {4096});
  moreMessages.messages.push_back(kMessage);
  BuiltIndex noOffsets = topicOf(3, {});
  noOffsets.messages.push_back(kMessage);
  const auto indexes =
      decoded(indexBytes({moreOffsets, moreMessages, noOffsets, topicOf(4, {4096})}));
  ASSERT_EQ(indexes.size(), 1U);
  EXPECT_EQ(indexes.count(4), 1U);
}

TEST(TopicIndexCodec, FirstIndexOfATopicIsKept) {
  auto indexes = decoded(indexBytes({topicOf(1, {4096}), topicOf(1, {5000, 6000})}));
  EXPECT_EQ(indexes.at(1)->chunkOffsets, std::vector<std::uint64_t>{4096});
  ASSERT_TRUE(decodeTopicIndexes(indexBytes({topicOf(1, {7000}), topicOf(2, {8000})}), &indexes));
  EXPECT_EQ(indexes.at(1)->chunkOffsets, std::vector<std::uint64_t>{4096});
  EXPECT_EQ(indexes.at(2)->chunkOffsets, std::vector<std::uint64_t>{8000});
}

TEST(TopicIndexCodec, DamagedBytesLeaveTheIndexesUnchanged) {
  const std::string bytes = indexBytes({topicOf(1, {4096})});
  BagFile::TopicIndexes indexes;
  for (std::size_t size = 1; size < bytes.size(); ++size) {
    EXPECT_FALSE(decodeTopicIndexes(bytes.substr(0, size), &indexes)) << size;
  }
  EXPECT_FALSE(decodeTopicIndexes("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", &indexes));
  EXPECT_TRUE(indexes.empty());
}

TEST(TopicIndexCodec, SurvivesFlippedBytes) {
  const std::string bytes = indexBytes({topicOf(1, {4096, 5000}), topicOf(2, {6000})});
  std::mt19937 random(5);
  for (int i = 0; i < 3000; ++i) {
    std::string damaged = bytes;
    for (int flips = 0; flips < 3; ++flips) {
      damaged[random() % damaged.size()] = static_cast<char>(random());
    }
    BagFile::TopicIndexes indexes;
    if (!decodeTopicIndexes(damaged, &indexes)) continue;
    for (const auto& [id, index] : indexes) {
      ASSERT_EQ(index->entries.size(), index->chunkOffsets.size());
      ASSERT_GT(index->entries.size(), 0U);
    }
  }
}

}  // namespace
}  // namespace morva::test

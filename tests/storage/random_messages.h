#ifndef MORVA_TESTS_STORAGE_RANDOM_MESSAGES_H_
#define MORVA_TESTS_STORAGE_RANDOM_MESSAGES_H_

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/byte_order.h"
#include "storage/bag_reader.h"
#include "storage/bag_writer.h"
#include "storage/records.h"

namespace morva::test {

struct RandomMessage {
  std::string topic;
  BagFile::TopicHeader header;
  std::string payload;
};

/// `size` bytes that compress well, a little, or not at all.
inline std::string randomPayload(std::mt19937* random, std::size_t size) {
  constexpr std::uint64_t kMasks[] = {0, 0x0303030303030303, 0xFFFFFFFFFFFFFFFF};
  const std::uint64_t mask = kMasks[(*random)() % 3];
  std::uint64_t state = (*random)();
  std::string bytes(size + sizeof state, '\0');
  for (std::size_t at = 0; at < size; at += sizeof state) {
    state = state * 6364136223846793005 + 1442695040888963407;
    const std::uint64_t mixed = (state ^ state >> 29) * 0x9E3779B97F4A7C15;
    storeLe<std::uint64_t>(&bytes[at], (mixed ^ mixed >> 32) & mask);
  }
  bytes.resize(size);
  return bytes;
}

inline RandomMessage randomMessage(std::mt19937* random, const std::vector<std::string>& topics,
                                   std::size_t size) {
  RandomMessage message;
  message.topic = topics[(*random)() % topics.size()];
  message.payload = randomPayload(random, size);
  message.header.rawSize = static_cast<std::uint32_t>(size);
  message.header.storedSize = (*random)() % 4 == 0 ? message.header.rawSize : 0;
  message.header.count = static_cast<std::uint32_t>((*random)());
  if (message.header.count == 0) message.header.count = 1;
  message.header.time = static_cast<std::int64_t>((*random)()) << 20;
  // Negative times too: nothing in the format forbids them.
  message.header.headerTimes = {static_cast<std::int64_t>((*random)()) - (1 << 30),
                                static_cast<std::int64_t>((*random)()) - (1 << 30)};
  return message;
}

/// Names of every kind: usual ones, empty, the longest that is not cut, bytes that are no text.
inline std::vector<std::string> randomTopics(std::mt19937* random) {
  std::vector<std::string> topics = {"/imu", "", std::string(59, 'n'), "\xC3\xA9\xFF", "/a/b c"};
  for (auto i = (*random)() % 6; i > 0; --i) topics.push_back("/t" + std::to_string(i));
  std::shuffle(topics.begin(), topics.end(), *random);
  return topics;
}

inline void expectSameEntry(const BagFile::TopicHeader& entry, const RandomMessage& message) {
  EXPECT_EQ(entry.time, message.header.time);
  EXPECT_EQ(entry.rawSize, message.header.rawSize);
  EXPECT_EQ(entry.count, message.header.count);
  EXPECT_EQ(entry.headerTimes, message.header.headerTimes);
  EXPECT_LE(entry.storedSize, entry.rawSize);
  if (message.header.storedSize != 0) {
    EXPECT_EQ(entry.storedSize, entry.rawSize);
  }
}

/// Checks that the bag at `path` gives back `messages`, by index and by a walk over its chunks.
inline void expectMessages(const std::string& path, const std::vector<RandomMessage>& messages) {
  BagReader reader;
  ASSERT_EQ(reader.open(path), 0);
  std::map<std::string, std::size_t> read;
  auto offset = static_cast<std::int64_t>(reader.header().dataStart());
  for (const RandomMessage& message : messages) {
    const auto topic = reader.topicIndex(message.topic);
    ASSERT_TRUE(topic);
    const std::size_t i = read[message.topic]++;
    ASSERT_LT(i, topic->entries.size());
    expectSameEntry(topic->entries[i], message);
    ASSERT_EQ(topic->chunkOffsets[i], static_cast<std::uint64_t>(offset));
    std::string payload;
    ASSERT_EQ(reader.read(messageIndex(*topic, i), &payload),
              static_cast<std::int64_t>(message.payload.size()));
    ASSERT_TRUE(payload == message.payload);
    BagFile::Chunk chunk;
    ASSERT_EQ(reader.read(&chunk, offset, &offset),
              static_cast<std::int64_t>(message.payload.size()));
    ASSERT_TRUE(chunk.data == message.payload);
  }
  for (const auto& [topic, count] : read) {
    EXPECT_EQ(reader.topicIndex(topic)->entries.size(), count);
  }
}

/// Writes a bag of `count` messages, of sizes that `nextSize` gives, and reads it back.
template <typename NextSize>
void roundTrip(const std::string& path, CompressionType codec, unsigned seed, int count,
               NextSize nextSize) {
  std::mt19937 random(seed);
  const std::vector<std::string> topics = randomTopics(&random);
  const std::uint32_t buffers[] = {0, 1000, 1 << 20};
  BagWriter writer(codec, buffers[random() % 3], randomPayload(&random, random() % 4057));
  ASSERT_EQ(writer.open(path), 0);
  ASSERT_TRUE(writer.setTopics(topics));
  std::vector<RandomMessage> messages;
  for (int i = 0; i < count; ++i) {
    messages.push_back(randomMessage(&random, topics, nextSize(&random)));
    const RandomMessage& message = messages.back();
    ASSERT_EQ(writer.write(message.header, message.topic, message.payload),
              static_cast<std::int64_t>(message.payload.size()));
  }
  ASSERT_TRUE(writer.close());
  expectMessages(path, messages);
}

}  // namespace morva::test

#endif  // MORVA_TESTS_STORAGE_RANDOM_MESSAGES_H_

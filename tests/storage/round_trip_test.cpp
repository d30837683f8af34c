#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "storage/bag_reader.h"
#include "storage/bag_writer.h"
#include "storage/random_messages.h"
#include "storage/records.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

class RoundTrip : public testing::TestWithParam<CompressionType> {
 protected:
  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
};

INSTANTIATE_TEST_SUITE_P(Codecs, RoundTrip,
                         testing::Values(CompressionType::kNone, CompressionType::kLz4,
                                         CompressionType::kZstd));

TEST_P(RoundTrip, SixHundredRandomMessagesComeBack) {
  const LogCapture log;
  for (unsigned seed = 0; seed < 6; ++seed) {
    SCOPED_TRACE(seed);
    roundTrip(path_, GetParam(), seed, 100, [](std::mt19937* random) {
      const std::size_t limits[] = {2, 40, 3000, 20'000};
      return 1 + (*random)() % limits[(*random)() % 4];
    });
  }
  EXPECT_EQ(log.errors(), Lines());
}

TEST_P(RoundTrip, IncompressiblePayloadComesBack) {
  std::mt19937 random(3);
  std::string noise(100'000, '\0');
  for (char& byte : noise) byte = static_cast<char>(random());
  BagWriter writer(GetParam(), 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  ASSERT_EQ(writer.write(entryOf(noise, true), "/a", noise), 100'000);
  ASSERT_TRUE(writer.close());
  BagReader reader;
  ASSERT_EQ(reader.open(path_), 0);
  EXPECT_EQ(reader.topicIndex("/a")->entries[0].storedSize, 100'000U);
  std::string data;
  EXPECT_EQ(reader.read(messageIndex(*reader.topicIndex("/a"), 0), &data), 100'000);
  EXPECT_EQ(data, noise);
}

TEST_P(RoundTrip, EmptyMessageAndCountZeroAreWrittenAndRefusedWhenRead) {
  BagWriter writer(GetParam(), 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  ASSERT_EQ(writer.write(entryOf("", true), "/a", ""), 0);
  ASSERT_EQ(writer.write(entryOf("counts nothing", true, 0), "/a", "counts nothing"), 14);
  ASSERT_EQ(writer.write(entryOf("fine", true), "/a", "fine"), 4);
  ASSERT_TRUE(writer.close());

  const LogCapture log;
  BagReader reader;
  ASSERT_EQ(reader.open(path_), 0);
  const auto topic = reader.topicIndex("/a");
  ASSERT_EQ(topic->entries.size(), 3U);
  std::string data;
  for (const std::size_t i : {0U, 1U}) {
    EXPECT_EQ(reader.read(messageIndex(*topic, i), &data), -1);
    EXPECT_EQ(log.lines().at(i),
              errorLine("BagReader::read",
                        "topicId: 0, offset: " + std::to_string(topic->chunkOffsets[i]) +
                            ", index error!"));
  }
  EXPECT_EQ(reader.read(messageIndex(*topic, 2), &data), 4);
  // Their chunks are sound.
  BagFile::Chunk chunk;
  auto offset = static_cast<std::int64_t>(topic->chunkOffsets[0]);
  EXPECT_EQ(reader.read(&chunk, offset, &offset), 0);
  EXPECT_EQ(reader.read(&chunk, offset, &offset), 14);
}

TEST_P(RoundTrip, ManyThreadsReadOneReader) {
  std::mt19937 random(9);
  std::vector<std::string> payloads;
  BagWriter writer(GetParam(), 1 << 16, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  for (int i = 0; i < 60; ++i) {
    payloads.push_back(randomPayload(&random, 1 + random() % 30'000));
    ASSERT_GT(writer.write(entryOf(payloads.back(), true), "/a", payloads.back()), 0);
  }
  ASSERT_TRUE(writer.close());

  BagReader reader;
  ASSERT_EQ(reader.open(path_), 0);
  const auto topic = reader.topicIndex("/a");
  std::vector<std::jthread> threads;
  for (unsigned seed = 0; seed < 4; ++seed) {
    threads.emplace_back([&, seed] {
      std::mt19937 order(seed);
      for (int n = 0; n < 100; ++n) {
        const std::size_t i = order() % payloads.size();
        std::string data;
        ASSERT_EQ(reader.read(messageIndex(*topic, i), &data),
                  static_cast<std::int64_t>(payloads[i].size()));
        ASSERT_TRUE(data == payloads[i]);
        BagFile::Chunk chunk;
        ASSERT_GT(reader.read(&chunk, static_cast<std::int64_t>(topic->chunkOffsets[i]), nullptr),
                  0);
        ASSERT_TRUE(chunk.data == payloads[i]);
        ASSERT_EQ(reader.verify(&chunk, static_cast<std::int64_t>(topic->chunkOffsets[i]), nullptr),
                  static_cast<std::int64_t>(payloads[i].size()));
      }
    });
  }
}

TEST_P(RoundTrip, CloseWhileOthersReadFailsTheirReadsCleanly) {
  BagWriter writer(GetParam(), 0, "");
  ASSERT_EQ(writer.open(path_), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  const std::string payload(5000, 'p');
  ASSERT_EQ(writer.write(entryOf(payload, true), "/a", payload), 5000);
  ASSERT_TRUE(writer.close());

  BagReader reader;
  ASSERT_EQ(reader.open(path_), 0);
  const MsgIndex index = messageIndex(*reader.topicIndex("/a"), 0);
  std::vector<std::jthread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      std::string data;
      while (reader.read(index, &data) >= 0) ASSERT_TRUE(data == payload);
    });
  }
  EXPECT_TRUE(reader.close());
}

}  // namespace
}  // namespace morva::test

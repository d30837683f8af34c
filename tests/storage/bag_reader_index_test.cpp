// What a reader keeps of an index, and when it decodes it.
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "storage/bag_layout.h"
#include "storage/bag_reader.h"
#include "storage/bag_writer.h"
#include "storage/largest_allocation.h"
#include "storage/random_messages.h"
#include "support/bag_builder.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

class BagReaderIndex : public testing::TestWithParam<CompressionType> {
 protected:
  void write(int messages) {
    BagWriter writer(GetParam(), 1 << 16, "");
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/a", "/none", "/b"}));
    for (int i = 0; i < messages; ++i) {
      const RandomMessage message = randomMessage(&random_, {"/a", "/b"}, 1 + random_() % 40);
      ASSERT_GT(writer.write(message.header, message.topic, message.payload), 0);
    }
    ASSERT_TRUE(writer.close());
    bytes_ = readFile(path_);
  }

  std::mt19937 random_{41};
  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  LogCapture log_;
  std::string bytes_;
};

INSTANTIATE_TEST_SUITE_P(Codecs, BagReaderIndex,
                         testing::Values(CompressionType::kNone, CompressionType::kLz4,
                                         CompressionType::kZstd));

TEST_P(BagReaderIndex, TotalsAreThoseOfTheDecodedTopics) {
  write(200);
  BagReader reader;
  ASSERT_EQ(reader.open(path_), 0);
  for (const char* topic : {"/a", "/b"}) {
    const auto totals = reader.topicTotals(topic);
    ASSERT_TRUE(totals);
    const BagFile::TopicTotals decoded = reader.topicIndex(topic)->totals();
    EXPECT_EQ(totals->countSum, decoded.countSum);
    EXPECT_EQ(totals->rawSizeSum, decoded.rawSizeSum);
    EXPECT_EQ(totals->startTime, decoded.startTime);
    EXPECT_EQ(totals->endTime, decoded.endTime);
    EXPECT_EQ(totals->chunks, decoded.chunks);
    EXPECT_GT(totals->chunks, 50U);
  }
  EXPECT_FALSE(reader.topicTotals("/none"));
  EXPECT_FALSE(reader.topicTotals("/unknown"));
}

TEST_P(BagReaderIndex, TotalsAreTheSameWhereNothingElseIsKept) {
  write(200);
  BagReader whole;
  ASSERT_EQ(whole.open(path_), 0);
  BagReader reader;
  reader.keepOfIndex(BagReader::Keep::kTotals);
  ASSERT_EQ(reader.open(path_), 0);
  for (const char* topic : {"/a", "/b"}) {
    const auto totals = reader.topicTotals(topic);
    ASSERT_TRUE(totals);
    EXPECT_EQ(totals->countSum, whole.topicTotals(topic)->countSum);
    EXPECT_EQ(totals->rawSizeSum, whole.topicTotals(topic)->rawSizeSum);
    EXPECT_EQ(totals->startTime, whole.topicTotals(topic)->startTime);
    EXPECT_EQ(totals->endTime, whole.topicTotals(topic)->endTime);
    EXPECT_EQ(totals->chunks, whole.topicTotals(topic)->chunks);
  }
  EXPECT_FALSE(reader.topicTotals("/none"));
}

TEST_P(BagReaderIndex, VisitGivesTheEntriesDecodedOrNot) {
  write(200);
  BagReader reader;
  ASSERT_EQ(reader.open(path_), 0);
  std::vector<BagFile::TopicHeader> entries;
  std::vector<std::uint64_t> offsets;
  const auto collect = [&](const BagFile::TopicHeader& entry, std::uint64_t offset) {
    entries.push_back(entry);
    offsets.push_back(offset);
  };
  ASSERT_TRUE(reader.visitTopic("/a", collect));
  const auto index = reader.topicIndex("/a");  // decoded from here on
  EXPECT_EQ(offsets, index->chunkOffsets);
  ASSERT_TRUE(reader.visitTopic("/a", collect));
  const std::size_t count = index->entries.size();
  ASSERT_EQ(entries.size(), 2 * count);
  for (std::size_t i = 0; i < 2 * count; ++i) {
    const BagFile::TopicHeader& entry = index->entries[i % count];
    EXPECT_EQ(offsets[i], index->chunkOffsets[i % count]);
    EXPECT_EQ(entries[i].time, entry.time);
    EXPECT_EQ(entries[i].rawSize, entry.rawSize);
    EXPECT_EQ(entries[i].count, entry.count);
    EXPECT_EQ(entries[i].headerTimes, entry.headerTimes);
    EXPECT_EQ(entries[i].topicId, entry.topicId);
    EXPECT_EQ(entries[i].storedSize, entry.storedSize);
  }
  EXPECT_FALSE(reader.visitTopic("/none", collect));
  EXPECT_FALSE(reader.visitTopic("/unknown", collect));
}

TEST_P(BagReaderIndex, TopicIsDecodedOnceByManyThreads) {
  write(300);
  BagReader reader;
  ASSERT_EQ(reader.open(path_), 0);
  std::vector<std::shared_ptr<BagFile::TopicIndex>> found(4);
  {
    std::vector<std::jthread> threads;
    for (auto& index : found) {
      threads.emplace_back([&reader, &index] {
        index = reader.topicIndex("/a");
        EXPECT_TRUE(reader.topicTotals("/b"));
        EXPECT_TRUE(reader.topicIndex("/b"));
      });
    }
  }
  for (const auto& index : found) EXPECT_EQ(index, found[0]);
  EXPECT_EQ(reader.topicIndexes().size(), 2U);
}

TEST_P(BagReaderIndex, IndexThatIsNotKeptGetsTheSameVerdictAndLines) {
  write(60);
  BagReader whole;
  ASSERT_EQ(whole.open(path_), 0);
  const auto indexAt = static_cast<std::size_t>(whole.header().indexChunkOffset());
  whole.close();
  int refused = 0;
  for (std::size_t i = 0; i < 150; ++i) {
    std::string damaged = bytes_;
    const std::size_t at = indexAt + (i < 30 ? i : random_() % (bytes_.size() - indexAt));
    if (i % 5 == 4) {
      damaged.resize(at);
    } else if (i > 0) {
      damaged[at] = static_cast<char>(damaged[at] ^ (1 << random_() % 8));
    }
    writeFile(path_, damaged);
    log_.clear();
    BagReader keeping;
    const int code = keeping.open(path_);
    const std::vector<std::string> lines = log_.lines();
    for (const BagReader::Keep keep : {BagReader::Keep::kNothing, BagReader::Keep::kTotals}) {
      log_.clear();
      BagReader reader;
      reader.keepOfIndex(keep);
      ASSERT_EQ(reader.open(path_), code) << at;
      ASSERT_EQ(log_.lines(), lines) << at;
      EXPECT_FALSE(reader.topicIndex("/a"));
      EXPECT_FALSE(reader.visitTopic("/a", [](const auto&, std::uint64_t) { FAIL(); }));
      EXPECT_TRUE(reader.topicIndexes().empty());
      EXPECT_EQ(reader.topicTotals("/a").has_value(),
                code == 0 && keep == BagReader::Keep::kTotals && keeping.topicTotals("/a"));
    }
    if (code != 0) ++refused;
  }
  EXPECT_GT(refused, 30);
}

TEST(BagReaderPlainIndex, TakesNoMemoryWhereItIsNotKept) {
  const TempDir dir;
  BagWriter writer(CompressionType::kNone, 1 << 20, "");
  ASSERT_EQ(writer.open(dir / "a.kbag"), 0);
  ASSERT_TRUE(writer.setTopics({"/a"}));
  BagFile::TopicHeader header;
  header.rawSize = header.storedSize = 1;
  header.count = 1;
  for (int i = 0; i < 20'000; ++i) {
    header.time = header.headerTimes[0] = header.headerTimes[1] = 1'700'000'000'000'000 + i;
    ASSERT_EQ(writer.write(header, "/a", "x"), 1);
  }
  ASSERT_TRUE(writer.close());
  BagReader reader;
  reader.keepOfIndex(BagReader::Keep::kNothing);
  const LargestAllocation memory;
  ASSERT_EQ(reader.open(dir / "a.kbag"), 0);
  EXPECT_LE(memory.bytes(), osmik::File::kMaxPeekBytes + 64);
}

/// A bag with one message of `bytes` bytes, and `entries` entries of the index for it.
/// @param more  Behind the index's topics.
std::string repeatingBag(std::size_t bytes, std::size_t entries, std::uint64_t step,
                         const std::string& more = {}) {
  BagBuilder builder;
  BuiltMessage message;
  message.stored = std::string(bytes, 'x');
  builder.topic(0, "/imu").message(message);
  std::string bag = builder.buildUnclosed();
  BuiltIndex index;
  index.countSum = 1;
  index.rawSizeSum = bytes;
  for (std::size_t i = 0; i < entries; ++i) {
    index.offsets.push_back(builder.chunkOffset(0) + i * step);
    index.messages.push_back(message);
    if (i * step < bytes) index.messages.back().stored.resize(bytes - i * step);
  }
  const std::string data = indexBytes({index}) + more;
  patch<std::uint64_t>(&bag, layout::kIndexChunkOffsetOffset, bag.size());
  fixHeaderCrc(&bag);
  return bag + chunkBytes(layout::kIndexChunk, timedChunkHeader(data.size()), data);
}

TEST(BagReaderHostileIndex, EntriesThatShareBytesAreRefusedOnce) {
  const TempDir dir;
  const LogCapture log;
  for (const std::uint64_t step : {std::uint64_t{0}, std::uint64_t{10}}) {
    writeFile(dir / "a.kbag", repeatingBag(10'000, 300, step));
    BagReader reader;
    ASSERT_EQ(reader.open(dir / "a.kbag"), 0);
    EXPECT_TRUE(reader.topicIndex("/imu")->entries.empty());
    EXPECT_TRUE(reader.topicIndex("/imu")->entries.empty());
  }
  EXPECT_EQ(log.errors().size(), 2U);
}

TEST(BagReaderHostileIndex, TotalsOfRefusedTopicsAreTheIndexesInEveryForm) {
  const TempDir dir;
  const LogCapture log;
  const std::string unknownField("\x7A\0", 2);  // not the form that is scanned
  for (const std::string& more : {std::string{}, unknownField}) {
    writeFile(dir / "a.kbag", repeatingBag(10'000, 300, 0, more));
    for (const auto keep : {BagReader::Keep::kEntries, BagReader::Keep::kTotals}) {
      BagReader reader;
      reader.keepOfIndex(keep);
      ASSERT_EQ(reader.open(dir / "a.kbag"), 0);
      for (int round = 0; round < 2; ++round) {
        const auto totals = reader.topicTotals("/imu");
        ASSERT_TRUE(totals);
        EXPECT_EQ(totals->chunks, 300U);
        EXPECT_EQ(totals->rawSizeSum, 10'000U);
        const auto index = reader.topicIndex("/imu");
        EXPECT_EQ(index != nullptr, keep == BagReader::Keep::kEntries);
        EXPECT_TRUE(index == nullptr || index->entries.empty());
        EXPECT_EQ(reader.topicIndexes().size(), index == nullptr ? 0U : 1U);
      }
    }
  }
}

TEST(BagReaderHostileIndex, EntriesBehindTheEndCountForNothing) {
  const TempDir dir;
  const LogCapture log;
  writeFile(dir / "a.kbag", repeatingBag(10'000, 1, 0));
  BagReader reader;
  ASSERT_EQ(reader.open(dir / "a.kbag"), 0);
  EXPECT_EQ(reader.topicIndex("/imu")->entries.size(), 1U);
  writeFile(dir / "a.kbag", repeatingBag(10'000, 50, 1'000'000));
  BagReader cut;
  ASSERT_EQ(cut.open(dir / "a.kbag"), 0);
  EXPECT_EQ(cut.topicIndex("/imu")->entries.size(), 50U);
  EXPECT_TRUE(log.errors().empty());
}

}  // namespace
}  // namespace morva::test

// The scan of an index against the general parser.
#include "storage/index_scan.h"

#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <kbag_msgs.pb.h>

#include "storage/index_codec.h"

namespace morva::test {
namespace {

namespace pb = protix::kbag_msgs;

bool operator==(const BagFile::TopicHeader& a, const BagFile::TopicHeader& b) {
  return a.time == b.time && a.rawSize == b.rawSize && a.count == b.count &&
         a.headerTimes == b.headerTimes && a.topicId == b.topicId && a.storedSize == b.storedSize;
}

void expectSame(const BagFile::TopicIndexes& actual, const BagFile::TopicIndexes& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (const auto& [id, topic] : expected) {
    ASSERT_TRUE(actual.contains(id));
    const BagFile::TopicIndex& other = *actual.at(id);
    EXPECT_EQ(other.countSum, topic->countSum);
    EXPECT_EQ(other.rawSizeSum, topic->rawSizeSum);
    EXPECT_EQ(other.startTime, topic->startTime);
    EXPECT_EQ(other.endTime, topic->endTime);
    EXPECT_EQ(other.chunkOffsets, topic->chunkOffsets);
    ASSERT_EQ(other.entries.size(), topic->entries.size());
    for (std::size_t i = 0; i < topic->entries.size(); ++i) {
      ASSERT_TRUE(other.entries[i] == topic->entries[i]) << id << " " << i;
    }
  }
}

/// Scans in pieces of at most `piece` bytes. @return False where the form is not the usual.
bool scanInPieces(const std::string& data, std::size_t piece, std::vector<EncodedTopic>* topics) {
  IndexScan scan(data.size());
  std::size_t at = 0;
  while (at < data.size()) {
    const std::int64_t count = scan.feed(std::string_view(data).substr(at, piece));
    if (count < 0) return false;
    if (count == 0) ADD_FAILURE() << "no progress";
    if (count == 0) return false;
    at += static_cast<std::size_t>(count);
  }
  *topics = scan.topics();
  return scan.isComplete();
}

/// Compares everything that reads an index. @return Whether the scan took it.
bool compare(const std::string& data) {
  BagFile::TopicIndexes expected;
  const bool isParsed = parseTopicIndexes(data, &expected);
  BagFile::TopicIndexes decoded;
  EXPECT_EQ(decodeTopicIndexes(data, &decoded), isParsed);
  expectSame(decoded, expected);

  std::vector<EncodedTopic> topics;
  const bool isUsual = !data.empty() && scanTopicIndexes(data, &topics);
  EXPECT_TRUE(isParsed || !isUsual);
  for (const std::size_t piece : {IndexScan::kTailBytes + 1, std::size_t{1000}}) {
    std::vector<EncodedTopic> same;
    EXPECT_EQ(!data.empty() && scanInPieces(data, piece, &same), isUsual);
    if (!isUsual) continue;
    EXPECT_EQ(same.size(), topics.size());
    for (std::size_t i = 0; i < topics.size() && i < same.size(); ++i) {
      EXPECT_EQ(same[i].topicId, topics[i].topicId);
      EXPECT_EQ(same[i].totals.chunks, topics[i].totals.chunks);
      EXPECT_EQ(same[i].offsetsAt, topics[i].offsetsAt);
      EXPECT_EQ(same[i].entriesEnd, topics[i].entriesEnd);
    }
  }
  return isUsual;
}

/// Random numbers of every length, with the limits among them.
class Numbers {
 public:
  std::uint64_t wide() { return random_() >> (random_() % 64); }
  std::uint32_t narrow() { return static_cast<std::uint32_t>(wide()); }
  std::int64_t time() {
    constexpr std::int64_t kNowUs = 1'700'000'000'000'000;
    switch (random_() % 8) {
      case 0:
        return static_cast<std::int64_t>(wide());
      case 1:
        return -static_cast<std::int64_t>(random_() % 1000);
      default:
        return kNowUs + static_cast<std::int64_t>(random_() % 1'000'000'000);
    }
  }
  std::size_t below(std::size_t limit) { return random_() % limit; }

 private:
  std::mt19937_64 random_{31};
};

void fillInfo(Numbers* numbers, pb::ChunkInfo* info) {
  info->set_time(numbers->time());
  info->set_count(numbers->below(3) == 0 ? numbers->narrow() : 1);
  info->set_raw_size(static_cast<std::uint32_t>(numbers->below(400)));
  info->set_first_header_time(numbers->time());
  info->set_second_header_time(numbers->time());
  info->set_stored_size(numbers->below(9) == 0 ? numbers->narrow() : 77);
}

pb::ChunkIndexData randomIndex(Numbers* numbers) {
  pb::ChunkIndexData data;
  for (std::size_t t = numbers->below(4); t > 0; --t) {
    pb::ChunkIndex* const topic = data.add_indexes();
    topic->set_topic_id(numbers->below(5) == 0 ? numbers->narrow()
                                               : static_cast<std::uint32_t>(numbers->below(4)));
    topic->set_count_sum(numbers->narrow());
    topic->set_raw_size_sum(numbers->wide());
    topic->set_start_time(numbers->time());
    topic->set_end_time(numbers->time());
    const std::size_t count = numbers->below(60);
    for (std::size_t i = 0; i < count; ++i) {
      topic->add_chunk_offsets(numbers->wide());
      fillInfo(numbers, topic->add_infos());
    }
    if (numbers->below(10) == 0) topic->add_chunk_offsets(1);
  }
  return data;
}

TEST(IndexScan, RandomIndexesGiveWhatTheParserGives) {
  Numbers numbers;
  for (int i = 0; i < 300; ++i) {
    const std::string data = randomIndex(&numbers).SerializeAsString();
    ASSERT_EQ(compare(data), !data.empty()) << i;
    ASSERT_FALSE(HasFailure()) << i;
  }
}

TEST(IndexScan, DamagedIndexesGiveWhatTheParserGives) {
  Numbers numbers;
  int usual = 0;
  int unusual = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string data = randomIndex(&numbers).SerializeAsString();
    if (data.empty()) continue;
    for (std::size_t n = 1 + numbers.below(2); n > 0; --n) {
      const std::size_t at = numbers.below(data.size());
      switch (numbers.below(5)) {
        case 0:
          data[at] = static_cast<char>(data[at] ^ (1 << numbers.below(8)));
          break;
        case 1:
          data[at] = static_cast<char>(numbers.below(0x40));  // often a tag
          break;
        case 2:
          data[at] = static_cast<char>(0x80 | numbers.below(0x80));
          break;
        case 3:
          data.erase(at, 1);
          break;
        default:
          data.insert(at, 1, static_cast<char>(numbers.below(256)));
      }
      if (data.empty()) break;
    }
    (compare(data) ? usual : unusual)++;
    ASSERT_FALSE(HasFailure()) << i;
  }
  EXPECT_GT(usual, 300);
  EXPECT_GT(unusual, 300);
}

TEST(IndexScan, CutOffIndexesGiveWhatTheParserGives) {
  Numbers numbers;
  std::string data;
  while (data.size() < 1500) data = randomIndex(&numbers).SerializeAsString();
  for (std::size_t size = 0; size < data.size(); ++size) {
    compare(data.substr(0, size));
    ASSERT_FALSE(HasFailure()) << size;
  }
}

/// An index of one topic with one message, whose entry and topic have these further bytes.
std::string indexWith(const std::string& entry, const std::string& topicFields) {
  const auto counted = [](char tag, const std::string& bytes) {
    return tag + std::string(1, static_cast<char>(bytes.size())) + bytes;
  };
  return counted('\x0A', topicFields + counted('\x3A', entry));
}

TEST(IndexScan, FormsThatNoWriterMakesGoToTheParser) {
  const std::string offsets("\x32\x01\x50", 3);
  const std::string entry("\x08\x05\x10\x01", 4);
  EXPECT_TRUE(compare(indexWith(entry, offsets)));
  struct Case {
    const char* what;
    std::string data;
  };
  const std::vector<Case> cases = {
      {"unknown field of an entry", indexWith(entry + "\x38\x01", offsets)},
      {"unknown field of a topic", indexWith(entry, offsets) + std::string("\x12\x01\x30", 3)},
      {"repeated field", indexWith("\x08\x05\x08\x06", offsets)},
      {"fields out of order", indexWith("\x10\x01\x08\x05", offsets)},
      {"offsets one by one", indexWith(entry, "\x30\x50")},
      {"offsets in two parts", indexWith(entry, offsets + offsets)},
      {"wrong wire type", indexWith("\x0D\x05\x06\x07\x08", offsets)},
      {"group", indexWith("\x0B\x0C", offsets)},
      {"tag of two bytes", indexWith(std::string("\x88\x00\x05", 3), offsets)},
      {"number beyond its field", indexWith("\x10\xFF\xFF\xFF\xFF\x1F", offsets)},
      {"number of 65 bits", indexWith("\x08\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x02", offsets)},
      {"number without end",
       indexWith("\x08\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01", offsets)},
      {"length of six bytes",
       std::string("\x0A\x89\x80\x80\x80\x80\x00", 7) + indexWith(entry, offsets).substr(2)},
      {"entry's length of two bytes",
       std::string("\x0A\x0A", 2) + offsets + std::string("\x3A\x84\x00", 3) + entry},
      {"length beyond the topic", std::string("\x0A\x09", 2) + offsets + "\x3A\x05" + entry + "z"},
      {"tag without a number", indexWith("\x08", offsets)},
      {"field 0", indexWith(std::string("\x00\x01", 2), offsets)},
  };
  for (const Case& oneCase : cases) {
    EXPECT_FALSE(compare(oneCase.data)) << oneCase.what;
  }
}

TEST(IndexScan, LongFormsThatTheParserTakesAreTaken) {
  const std::string offsets("\x32\x02\xD0\x00", 4);
  EXPECT_TRUE(
      compare(indexWith(std::string("\x08\x85\x80\x00\x10\x81\x80\x80\x80\x00", 10), offsets)));
  EXPECT_TRUE(compare(indexWith("", offsets)));
  EXPECT_TRUE(compare(indexWith("\x08\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x01", offsets)));
}

TEST(IndexScan, ShapeOfAnEntryIsNotTakenForItsLimits) {
  // Many alike teach the shape; then one byte differs so that a number no longer fits its field.
  pb::ChunkIndexData data;
  pb::ChunkIndex* const topic = data.add_indexes();
  for (int i = 0; i < 20; ++i) {
    topic->add_chunk_offsets(4196);
    pb::ChunkInfo* const info = topic->add_infos();
    info->set_time(-1);
    info->set_count(0xFFFFFFFF);
    info->set_raw_size(0xFFFFFFFF);
    info->set_stored_size(0xFFFFFFFF);
  }
  const std::string sound = data.SerializeAsString();
  ASSERT_TRUE(compare(sound));
  int unusual = 0;
  for (std::size_t at = 0; at < sound.size(); ++at) {
    for (const char byte : {'\x00', '\x02', '\x10', '\x1F', '\x7F', '\x80', '\xFF'}) {
      std::string damaged = sound;
      damaged[at] = byte;
      if (!compare(damaged)) ++unusual;
      ASSERT_FALSE(HasFailure()) << at;
    }
  }
  EXPECT_GT(unusual, 1000);
}

}  // namespace
}  // namespace morva::test

// A thousand recordings damaged at random, against an account that the damaging program keeps: what
// is intact is salvaged, once; what is not is not; what cannot be confirmed is marked.
#include <cstdint>
#include <cstdio>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "kit/doctor/damaging.h"
#include "kit/doctor/salvage.h"
#include "kit/doctor/sample_recording.h"
#include "morva/bag.h"
#include "platform/file.h"
#include "storage/bag_reader.h"
#include "storage/index_codec.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using doctor::Proof;

/// Which index a recording has before it is damaged.
enum class Index : std::uint8_t { kOwn, kSideFile, kNone };

struct OutputMessage {
  std::string topic;
  BagFile::TopicHeader header;
  std::string payload;
};

std::vector<OutputMessage> readOutput(const std::string& path) {
  std::vector<OutputMessage> messages;
  BagReader reader;
  EXPECT_EQ(reader.open(path), BagFile::kOpenOk);
  BagFile::Chunk chunk;
  auto offset = static_cast<std::int64_t>(reader.header().dataStart());
  while (reader.read(&chunk, offset, &offset) >= 0 && chunk.type == layout::kTopicDataChunk) {
    OutputMessage message;
    EXPECT_TRUE(decodeTopicHeader(chunk.header, &message.header));
    message.topic = reader.topicNames().at(static_cast<std::uint32_t>(message.header.topicId));
    message.payload = chunk.data;
    messages.push_back(message);
  }
  EXPECT_EQ(chunk.type, layout::kIndexChunk);
  return messages;
}

bool isAsRecorded(const OutputMessage& message, const SampleMessage& sample) {
  return message.topic == sample.topic && message.header.time == sample.timeUs &&
         message.header.count == sample.count && message.header.rawSize == sample.payload.size() &&
         message.header.headerTimes[0] == sample.firstTimeUs &&
         message.header.headerTimes[1] == sample.secondTimeUs;
}

/// What came of many recordings.
struct Totals {
  std::size_t recordings = 0, messages = 0, intact = 0, salvaged = 0, restored = 0, copies = 0,
              changed = 0, unreadable = 0;
};

class Trial {
 public:
  Trial(const SampleRecording& sample, Index index, Totals* totals)
      : sample_(sample), index_(index), totals_(*totals) {
    for (std::uint32_t i = 0; i < sample.topics.size(); ++i) names_[i] = sample.topics[i];
  }

  void run(std::uint32_t seed, std::size_t damages) {
    Damaging damaging(sample_, seed);
    for (std::size_t i = 0; i < damages; ++i) damaging.damage();
    SCOPED_TRACE("seed " + std::to_string(seed) + ": " + damaging.story());
    writeInput(damaging.bytes());
    const doctor::SalvageResult result = doctor::salvage(
        {.inPath = in_, .outPath = out_, .names = names_, .likePath = "", .force = true},
        [](double) { return true; });
    EXPECT_EQ(readFile(in_), damaging.bytes());
    ++totals_.recordings;
    totals_.messages += sample_.messages.size();
    if (!result.isDone) {
      ++totals_.unreadable;
      expectNothingIntact(damaging, result.problem);
      return;
    }
    compare(damaging, result);
  }

 private:
  void writeInput(const std::string& bytes) {
    osmik::File::remove(in_ + ".index");
    osmik::File::remove(out_);
    if (index_ == Index::kSideFile) {
      writeFile(in_, sample_.bytes);
      ASSERT_EQ(MorvaBag::reindex(in_), 0);
    }
    writeFile(in_, bytes);
  }

  void expectNothingIntact(const Damaging& damaging, const std::string& problem) {
    for (const SampleMessage& message : sample_.messages) {
      EXPECT_EQ(damaging.whereIntact(message.begin, message.end), std::string::npos) << problem;
    }
  }

  void compare(const Damaging& damaging, const doctor::SalvageResult& result) {
    std::map<std::string, std::size_t> byPayload;
    for (std::size_t i = 0; i < sample_.messages.size(); ++i) {
      byPayload[sample_.messages[i].payload] = i;
    }
    const std::vector<Proof> proofs = proofsOf(result);
    const std::vector<OutputMessage> output = readOutput(out_);
    ASSERT_EQ(output.size(), proofs.size());
    std::vector<std::size_t> times(sample_.messages.size());
    for (std::size_t i = 0; i < output.size(); ++i) {
      const auto known = byPayload.find(output[i].payload);
      ASSERT_NE(known, byPayload.end()) << "a payload that was never recorded";
      const SampleMessage& sample = sample_.messages[known->second];
      if (proofs[i] == Proof::kRestored) ++totals_.restored;
      // Without an index, a copy whose header is damaged cannot be told from another message.
      const bool isChanged = !isAsRecorded(output[i], sample);
      if (!isChanged || result.account.hasIndex) ++times[known->second];
      const bool isIntact = damaging.whereIntact(sample.begin, sample.end) != std::string::npos;
      const bool isIndexWhole = result.account.indexEntries == sample_.messages.size();
      if (isIntact && isIndexWhole) {
        EXPECT_EQ(proofs[i], Proof::kConfirmed) << "message " << known->second;
      }
      if (!isChanged) continue;
      EXPECT_FALSE(isIndexWhole) << "message " << known->second;
      ++totals_.changed;
      EXPECT_EQ(proofs[i], Proof::kUnverified) << "message " << known->second;
    }
    for (std::size_t i = 0; i < times.size(); ++i) compareMessage(damaging, i, times[i]);
    if (result.account.indexEntries == sample_.messages.size()) {
      EXPECT_EQ(result.account.lost.size() + output.size(), sample_.messages.size());
    }
  }

  void compareMessage(const Damaging& damaging, std::size_t i, std::size_t times) {
    const SampleMessage& message = sample_.messages[i];
    EXPECT_LE(times, 1U) << "message " << i;
    totals_.salvaged += times;
    if (damaging.whereIntact(message.begin, message.end) != std::string::npos) {
      EXPECT_EQ(times, 1U) << "message " << i << " at " << message.begin;
      ++totals_.intact;
      return;
    }
    const bool isPayloadIntact =
        damaging.isAnywhere(message.begin + layout::kTopicDataOffset, message.end);
    EXPECT_TRUE(times == 0 || isPayloadIntact) << "message " << i;
    if (damaging.isAnywhere(message.begin, message.end)) totals_.copies += times;
  }

  /// Of the messages of the output, in its order.
  [[nodiscard]] std::vector<Proof> proofsOf(const doctor::SalvageResult& result) const {
    std::vector<Proof> proofs;
    for (const doctor::Message& message : result.account.messages) {
      const auto id = static_cast<std::uint32_t>(message.header.topicId);
      if (names_.contains(id)) proofs.push_back(message.proof);
    }
    return proofs;
  }

  const SampleRecording& sample_;
  const Index index_;
  Totals& totals_;
  doctor::TopicNames names_;
  TempDir dir_;
  std::string in_ = dir_ / "in.kbag";
  std::string out_ = dir_ / "out.kbag";
};

struct Case {
  const char* name;
  CompressionType compression;
  Index index;
  bool carriesBag;
};

std::ostream& operator<<(std::ostream& out, const Case& value) { return out << value.name; }

class RandomDamage : public testing::TestWithParam<Case> {};

}  // namespace

TEST_P(RandomDamage, EveryIntactMessageIsSalvagedOnceAndNoOther) {
  constexpr std::uint32_t kRecordings = 125;
  Totals totals;
  for (std::uint32_t i = 0; i < kRecordings; ++i) {
    SampleRecording sample = makeSample(
        {.seed = i, .compression = GetParam().compression, .carriesBag = GetParam().carriesBag});
    if (GetParam().index != Index::kOwn) sample = unclosed(std::move(sample));
    Trial(sample, GetParam().index, &totals).run(i, 1 + i % 8);
    if (testing::Test::HasFatalFailure()) return;
  }
  const auto record = [](const char* what, std::size_t count) {
    RecordProperty(what, std::to_string(count));
    std::printf("%-12s %zu\n", what, count);
  };
  record("recordings", totals.recordings);
  record("messages", totals.messages);
  record("intact", totals.intact);
  record("salvaged", totals.salvaged);
  record("restored", totals.restored);
  record("copies", totals.copies);
  record("changed", totals.changed);
  record("unreadable", totals.unreadable);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, RandomDamage,
    testing::Values(Case{"Plain", CompressionType::kNone, Index::kOwn, false},
                    Case{"Lz4", CompressionType::kLz4, Index::kOwn, false},
                    Case{"Zstd", CompressionType::kZstd, Index::kOwn, false},
                    Case{"PlainWithSideFile", CompressionType::kNone, Index::kSideFile, false},
                    Case{"ZstdWithSideFile", CompressionType::kZstd, Index::kSideFile, false},
                    Case{"PlainUnclosed", CompressionType::kNone, Index::kNone, false},
                    Case{"Lz4Unclosed", CompressionType::kLz4, Index::kNone, false},
                    Case{"CarriesRecordings", CompressionType::kNone, Index::kSideFile, true}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace morva::test

// Verifying a chunk says and returns what reading it does.
#include <cerrno>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/str_util.h"
#include "storage/bag_reader.h"
#include "storage/bag_writer.h"
#include "storage/largest_allocation.h"
#include "storage/random_messages.h"
#include "storage/records.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

/// What one call has given.
struct Outcome {
  std::int64_t length = 0;
  std::int64_t next = -7;
  std::uint16_t type = 0;
  std::string header;
  std::vector<std::string> lines;

  bool operator==(const Outcome&) const = default;
};

class BagReaderVerify : public testing::TestWithParam<CompressionType> {
 protected:
  /// Writes payloads of these sizes that shrink well, by half or not at all.
  void write(const std::vector<std::size_t>& sizes) {
    std::vector<std::string> payloads;
    for (const std::size_t size : sizes) {
      payloads.push_back(randomPayload(&random_, size / 2) +
                         randomPayload(&random_, size - size / 2));
    }
    write(payloads);
  }
  void write(const std::vector<std::string>& payloads) {
    BagWriter writer(GetParam(), 0, "");
    ASSERT_EQ(writer.open(path_), 0);
    ASSERT_TRUE(writer.setTopics({"/a"}));
    for (const std::string& payload : payloads) {
      ASSERT_EQ(writer.write(entryOf(payload, true), "/a", payload),
                static_cast<std::int64_t>(payload.size()));
    }
    ASSERT_TRUE(writer.close());
    bytes_ = readFile(path_);
  }

  Outcome outcomeOf(bool verify, std::int64_t offset) {
    Outcome outcome;
    BagFile::Chunk chunk;
    log_.clear();
    outcome.length = verify ? reader_.verify(&chunk, offset, &outcome.next)
                            : reader_.read(&chunk, offset, &outcome.next);
    outcome.type = chunk.type;
    outcome.header = chunk.header;
    outcome.lines = log_.lines();
    return outcome;
  }

  /// Walks the file in both ways. @return Chunks that were sound.
  int compareWalks() {
    auto offset = static_cast<std::int64_t>(reader_.header().dataStart());
    for (int sound = 0;; ++sound) {
      const Outcome read = outcomeOf(false, offset);
      const Outcome verified = outcomeOf(true, offset);
      EXPECT_EQ(verified.length, read.length);
      EXPECT_EQ(verified.lines, read.lines);
      EXPECT_EQ(verified, read) << offset;
      if (read.next < 0 || verified != read) return sound;
      offset = read.next;
    }
  }

  std::mt19937 random_{21};
  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
  LogCapture log_;
  std::string bytes_;
  BagReader reader_;
};

INSTANTIATE_TEST_SUITE_P(Codecs, BagReaderVerify,
                         testing::Values(CompressionType::kNone, CompressionType::kLz4,
                                         CompressionType::kZstd));

TEST_P(BagReaderVerify, SoundChunksOfEverySizeGiveWhatReadingGives) {
  // Around the longest stretch that can be looked at in place, and far beyond it.
  const std::size_t limit = osmik::File::kMaxPeekBytes;
  write(std::vector<std::size_t>{0, 1, 200, limit - 5, limit - 4, limit - 3, limit, limit + 1,
                                 16'384, 3'000'000, 60});
  ASSERT_EQ(reader_.open(path_), 0);
  // An empty payload of raw size 0 is stored as it stands: every chunk is sound, the index too.
  EXPECT_EQ(compareWalks(), 12);
}

TEST_P(BagReaderVerify, DamagedFilesGiveWhatReadingGives) {
  write(std::vector<std::size_t>{100, 3000, 40, 700, 20'000, 64});
  ASSERT_EQ(reader_.open(path_), 0);
  const auto start = static_cast<std::size_t>(reader_.header().dataStart());
  int failures = 0;
  for (int i = 0; i < 150; ++i) {
    std::string damaged = bytes_;
    const std::size_t at = start + random_() % (damaged.size() - start);
    if (i % 3 == 0) damaged[at] = static_cast<char>(damaged[at] ^ (1 << random_() % 8));
    if (i % 3 == 1) damaged.resize(at);
    if (i % 3 == 2) damaged.replace(at, 4, 4, static_cast<char>(random_()));
    reader_.close();
    writeFile(path_, damaged);
    ASSERT_LE(reader_.open(path_), 1);
    if (compareWalks() < 7) ++failures;
    ASSERT_FALSE(HasFailure()) << i << " at " << at;
  }
  EXPECT_GT(failures, 100);
}

TEST_P(BagReaderVerify, FramingDamageGivesWhatReadingGives) {
  write(std::vector<std::size_t>{100, 3000});
  ASSERT_EQ(reader_.open(path_), 0);
  const auto start = static_cast<std::size_t>(reader_.header().dataStart());
  for (std::size_t at = start; at < start + 48; ++at) {
    for (const char byte : {'\0', '\x01', '\x7F', '\xFF'}) {
      std::string damaged = bytes_;
      damaged[at] = byte;
      reader_.close();
      writeFile(path_, damaged);
      ASSERT_LE(reader_.open(path_), 1);
      compareWalks();
      ASSERT_FALSE(HasFailure()) << at;
    }
  }
}

TEST_P(BagReaderVerify, FailedSystemCallIsReportedAndTheReaderGoesOn) {
  std::string payload(1'000'000, 'z');
  for (int i = 0; i < 1'000'000; ++i) payload += static_cast<char>(random_());
  write(std::vector<std::string>{payload, "x"});
  ASSERT_EQ(reader_.open(path_), 0);
  const auto start = static_cast<std::int64_t>(reader_.header().dataStart());
  FailingFileCalls calls;
  calls.fail(FailingFileCalls::Call::kPread, 2, 1, EIO);
  EXPECT_EQ(outcomeOf(true, start).length, -1);
  ASSERT_EQ(log_.lines().size(), 1U);
  const BagFile::TopicIndex& index = *reader_.topicIndex("/a");
  EXPECT_TRUE(log_.lines()[0].starts_with(osmik::StrUtil::format(
      "<E>TIME [BagReader::read,L0] read data(%u) error, ret: ", index.entries[0].storedSize)))
      << log_.lines()[0];
  EXPECT_EQ(outcomeOf(true, start).length, 2'000'000);
}

class BagReaderVerifyPlain : public BagReaderVerify {};

INSTANTIATE_TEST_SUITE_P(Codecs, BagReaderVerifyPlain, testing::Values(CompressionType::kNone));

TEST_P(BagReaderVerifyPlain, DataTakesNoMemory) {
  write(std::vector<std::size_t>{4'000'000});
  ASSERT_EQ(reader_.open(path_), 0);
  const LargestAllocation memory;
  const auto start = static_cast<std::int64_t>(reader_.header().dataStart());
  EXPECT_EQ(outcomeOf(true, start).length, 4'000'000);
  EXPECT_LE(memory.bytes(), osmik::File::kMaxPeekBytes + 64);
}

TEST(BagReaderVerifyParameters, AreCheckedAsThoseOfRead) {
  BagReader reader;
  const LogCapture log;
  BagFile::Chunk chunk;
  EXPECT_EQ(reader.verify(&chunk, 4096, nullptr), -1);
  EXPECT_EQ(reader.verify(nullptr, 4096, nullptr), -1);
  EXPECT_EQ(log.lines(), (std::vector<std::string>(
                             2, errorLine("BagReader::read", "offset: 4096, param error!"))));
}

}  // namespace
}  // namespace morva::test

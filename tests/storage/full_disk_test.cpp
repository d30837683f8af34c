// A recording on a disk that fails or fills up, at every single system call and at every length.
#include <cerrno>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "storage/bag_reader.h"
#include "storage/bag_writer.h"
#include "storage/records.h"
#include "support/failing_file_calls.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using Call = FailingFileCalls::Call;
using Payloads = std::vector<std::string>;

constexpr std::size_t kMessages = 10;

/// What a recording program was told.
struct Outcome {
  bool opened = false;
  bool closed = false;
  Payloads accepted;
};

Outcome record(const std::string& path, CompressionType codec, std::uint32_t bufferBytes) {
  Outcome outcome;
  BagWriter writer(codec, bufferBytes, "private");
  if (writer.open(path) != 0) return outcome;
  outcome.opened = writer.setTopics({"/a"});
  for (std::size_t i = 0; i < kMessages; ++i) {
    const std::string payload(1 + i * i * 30, static_cast<char>('a' + i));
    if (writer.write(entryOf(payload, true), "/a", payload) >= 0) {
      outcome.accepted.push_back(payload);
    }
  }
  outcome.closed = writer.close();
  return outcome;
}

/// Payloads through the index; a message that the index has must be readable.
Payloads readByIndex(const std::string& path) {
  BagReader reader;
  EXPECT_EQ(reader.open(path), 0);
  const auto topic = reader.topicIndex("/a");
  Payloads payloads;
  for (std::size_t i = 0; topic && i < topic->entries.size(); ++i) {
    payloads.emplace_back();
    EXPECT_GE(reader.read(messageIndex(*topic, i), &payloads.back()), 0);
  }
  return payloads;
}

/// Payloads chunk by chunk, up to the first that is not there.
Payloads readByScan(const std::string& path) {
  Payloads payloads;
  BagReader reader;
  const int code = reader.open(path);
  if (code > 1) return payloads;
  auto offset = static_cast<std::int64_t>(reader.header().dataStart());
  BagFile::Chunk chunk;
  while (reader.read(&chunk, offset, &offset) >= 0 && chunk.type == 1) {
    payloads.push_back(chunk.data);
  }
  return payloads;
}

/// True when `found` is the beginning of `all`.
bool isBeginning(const Payloads& found, const Payloads& all) {
  return found.size() <= all.size() && std::equal(found.begin(), found.end(), all.begin());
}

void expectNothingLost(const std::string& path, const Outcome& outcome, bool isBuffered) {
  if (!outcome.opened) {
    EXPECT_TRUE(outcome.accepted.empty());
    return;
  }
  if (outcome.closed) {
    EXPECT_EQ(readByIndex(path), outcome.accepted);
  }
  const Payloads inFile = readByScan(path);
  if (isBuffered) {
    EXPECT_TRUE(isBeginning(inFile, outcome.accepted));
  } else {
    EXPECT_EQ(inFile, outcome.accepted);
  }
}

class FullDisk : public testing::TestWithParam<std::tuple<CompressionType, std::uint32_t>> {
 protected:
  [[nodiscard]] Outcome recordNow() const {
    return record(path_, std::get<0>(GetParam()), std::get<1>(GetParam()));
  }
  [[nodiscard]] bool isBuffered() const { return std::get<1>(GetParam()) > 0; }
  /// Records once for each write that a recording makes, while it and the next `times` - 1 fail.
  void forEachFailure(int times, int error, bool canCut,
                      const std::function<void(const Outcome&)>& check) const;

  const TempDir dir_;
  const std::string path_ = dir_ / "a.kbag";
};

INSTANTIATE_TEST_SUITE_P(Writer, FullDisk,
                         testing::Combine(testing::Values(CompressionType::kNone,
                                                          CompressionType::kZstd),
                                          testing::Values(0U, 300U, 100'000U)));

void FullDisk::forEachFailure(int times, int error, bool canCut,
                              const std::function<void(const Outcome&)>& check) const {
  const FailingFileCalls counting;
  EXPECT_TRUE(recordNow().closed);
  const int total = counting.count(Call::kPwrite);
  ASSERT_GT(total, 2);
  for (int n = 1; n <= total; ++n) {
    SCOPED_TRACE(n);
    Outcome outcome;
    {
      FailingFileCalls calls;
      calls.fail(Call::kPwrite, n, times, error);
      if (!canCut) calls.fail(Call::kFtruncate);
      outcome = recordNow();
    }
    check(outcome);
  }
}

TEST_P(FullDisk, SingleFailedWriteLosesNothingThatWasAccepted) {
  forEachFailure(1, ENOSPC, true, [this](const Outcome& outcome) {
    // The last header fails only at close, which says so; every chunk is in the file by then.
    expectNothingLost(path_, outcome, isBuffered());
  });
}

TEST_P(FullDisk, LastingFailureIsNeverReportedAsSuccess) {
  forEachFailure(FailingFileCalls::kForever, EIO, true, [this](const Outcome& outcome) {
    EXPECT_FALSE(outcome.closed);
    expectNothingLost(path_, outcome, isBuffered());
  });
}

TEST_P(FullDisk, FileThatCannotGrowKeepsWhatWasAccepted) {
  EXPECT_TRUE(recordNow().closed);
  const auto total = static_cast<std::int64_t>(readFile(path_).size());
  // Closely around the header and the definition chunk, where every length matters.
  for (std::int64_t limit = 0; limit < total; limit += limit < 4000   ? 2000
                                                       : limit < 4300 ? 7
                                                                      : 203) {
    SCOPED_TRACE(limit);
    Outcome outcome;
    {
      FailingFileCalls calls;
      calls.limitFileBytes(limit);
      outcome = recordNow();
    }
    // Where a message was refused there may be room for the index.
    EXPECT_FALSE(outcome.closed && outcome.accepted.size() == kMessages);
    expectNothingLost(path_, outcome, isBuffered());
  }
}

TEST_P(FullDisk, FailedCutsAddNothingWrong) {
  forEachFailure(2, ENOSPC, false, [this](const Outcome& outcome) {
    if (outcome.closed) {
      EXPECT_EQ(readByIndex(path_), outcome.accepted);
    }
    EXPECT_TRUE(isBeginning(readByScan(path_), outcome.accepted));
  });
}

}  // namespace
}  // namespace morva::test

// What a recording program that is killed leaves behind.

#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <random>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>

#include <gtest/gtest.h>

#include "bag/bag_bytes.h"
#include "bag/endless_messages.h"
#include "bag/recording.h"
#include "morva/bag.h"
#include "platform/byte_order.h"
#include "support/bag_builder.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

using Clock = std::chrono::steady_clock;

std::uintmax_t sizeOf(const std::string& path) {
  std::error_code missing;
  const std::uintmax_t size = std::filesystem::file_size(path, missing);
  return missing ? 0 : size;
}

/// The program that records without end, as a child.
class Recorder {
 public:
  Recorder(const std::string& path, std::uint64_t seed, CompressionType compression,
           std::uint32_t writeBuffer, std::uint32_t boundBytes, std::uint32_t flushEvery) {
    std::array<std::string, 7> words = {ENDLESS_RECORDER,
                                        path,
                                        std::to_string(seed),
                                        std::to_string(static_cast<std::uint32_t>(compression)),
                                        std::to_string(writeBuffer),
                                        std::to_string(boundBytes),
                                        std::to_string(flushEvery)};
    std::array<char*, 8> argv{};
    for (std::size_t i = 0; i < words.size(); ++i) argv.at(i) = words.at(i).data();
    EXPECT_EQ(::posix_spawn(&pid_, ENDLESS_RECORDER, nullptr, nullptr, argv.data(), environ), 0);
  }
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
  ~Recorder() {
    if (pid_ > 0) kill();
  }

  [[nodiscard]] bool isRunning() const { return ::waitpid(pid_, nullptr, WNOHANG) == 0; }

  /// @return True when it was the kill that ended it.
  bool kill() {
    int status = 0;
    ::kill(pid_, SIGKILL);
    const pid_t ended = ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return ended > 0 && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  }

 private:
  pid_t pid_ = -1;
};

class KilledRecorder : public testing::TestWithParam<std::uint32_t> {
 protected:
  /// Records until the file has a random size, and a random moment longer.
  void recordAndKill() {
    Recorder recorder(path_, GetParam(), compression_, writeBuffer_, boundBytes_, flushEvery_);
    // Some before or among the first bytes, most of them anywhere.
    const std::uintmax_t maxSize = GetParam() % 5 == 0 ? 5000 : 1'500'000;
    const std::uintmax_t size = std::uniform_int_distribution<std::uintmax_t>(0, maxSize)(random_);
    const auto moment = std::chrono::microseconds(std::uniform_int_distribution(0, 2000)(random_));
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(30);
    while (sizeOf(path_) < size) {
      ASSERT_TRUE(recorder.isRunning());
      ASSERT_LT(Clock::now(), deadline);
      std::this_thread::yield();
    }
    const Clock::time_point end = Clock::now() + moment;
    while (Clock::now() < end) std::this_thread::yield();
    ASSERT_TRUE(recorder.kill());
  }

  /// Every message that the handle finds, by chunk offset.
  std::map<std::uint64_t, MsgIndex> findAll(const MorvaBag& bag) {
    std::map<std::uint64_t, MsgIndex> found;
    for (const MsgIndex& index : bag.getView(EndlessMessages::topics(), 0, 0).indexes) {
      found.emplace(index.chunkOffset, index);
    }
    return found;
  }

  /// Messages of which the recorder knew that they survive it.
  [[nodiscard]] std::uint64_t promised() const {
    const std::string told =
        sizeOf(path_ + ".promised") == 8 ? readFile(path_ + ".promised") : std::string(8, '\0');
    return loadLe<std::uint64_t>(told.data());
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "killed.kbag";
  std::mt19937 random_{GetParam()};
  const CompressionType compression_ =
      std::array{CompressionType::kNone, CompressionType::kLz4, CompressionType::kZstd}.at(
          GetParam() % 3);
  const std::uint32_t writeBuffer_ =
      std::array<std::uint32_t, 4>{0, 5000, 1U << 16U, 1U << 20U}.at(GetParam() / 3 % 4);
  // From 20 on: every message on the storage device, or some on demand.
  const std::uint32_t boundBytes_ = GetParam() > 20 && GetParam() % 2 == 0 ? 1 : 0;
  const std::uint32_t flushEvery_ = GetParam() > 20 && GetParam() % 2 == 1 ? 10 : 0;
};

TEST_P(KilledRecorder, EveryMessageThatReachedTheFileIsReadBackAfterReindex) {
  recordAndKill();
  const std::vector<RawChunk> chunks = walkBytes(sizeOf(path_) > 4096 ? readFile(path_) : "");
  if (chunks.empty()) {
    EXPECT_EQ(promised(), 0U);
    EXPECT_EQ(MorvaBag::reindex(path_),
              sizeOf(path_) == 0 && !std::filesystem::exists(path_) ? 3 : 7);
    return;
  }

  ASSERT_EQ(MorvaBag::reindex(path_), 0);
  MorvaBag bag;
  ASSERT_EQ(bag.open(path_, BagMode::kRead), 0);
  const std::map<std::uint64_t, MsgIndex> found = findAll(bag);
  ASSERT_EQ(found.size(), chunks.size() - 1);
  ASSERT_GE(found.size(), promised());
  const EndlessMessages messages(GetParam());
  for (std::size_t i = 0; i + 1 < chunks.size(); ++i) {
    ASSERT_TRUE(chunks[i + 1].isSound);
    const auto index = found.find(chunks[i + 1].offset);
    ASSERT_NE(index, found.end()) << i;
    const Message expected = messages.at(i);
    std::string payload;
    ASSERT_TRUE(bag.readMessage(index->second, &payload)) << i;
    ASSERT_EQ(payload, expected.data) << i;
    ASSERT_EQ(nameOf(index->second), expected.topic) << i;
    ASSERT_EQ(index->second.headerTimes[0], expected.firstTimeUs) << i;
  }
  std::printf("killed with %zu messages in the file, %ju promised\n", found.size(),
              static_cast<std::uintmax_t>(promised()));
}

INSTANTIATE_TEST_SUITE_P(Seed, KilledRecorder, testing::Range(1U, 41U));

}  // namespace
}  // namespace morva::test

// What reindex and salvage find of a recording when the power fails, or the process is killed, at
// any of its file calls. Each state that a cut may leave is random; the seed is fixed.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "bag/bag_bytes.h"
#include "bag/recording.h"
#include "kit/doctor/salvage.h"
#include "morva/bag.h"
#include "platform/ignore_result.h"
#include "power/cut_disk.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

constexpr std::size_t kMessages = 40;
constexpr std::size_t kStates = 10;  // of each cut

struct Plan {
  CompressionType codec = CompressionType::kNone;
  std::uint32_t buffer = 0;
  LossBound bound{};
  std::size_t flushEvery = 0;  ///< messages; 0: never
  std::size_t privateBytes = 200;
};

bool goOn(double /*done*/) { return true; }

/// What a recording program knew when one of its calls had returned.
struct Moment {
  std::size_t calls = 0;     ///< file calls so far
  std::size_t accepted = 0;  ///< messages
  std::size_t promised = 0;  ///< of these, by a flush or the bound
  bool isBagPromised = false;
  bool isClosed = false;
};

const std::vector<std::string>& topics() {
  static const std::vector<std::string> kTopics = {"/imu", "/lidar", "/gnss"};
  return kTopics;
}

/// Up to 1,200 bytes that compress by half, many of them zeros; some messages are empty.
Message makeMessage(std::size_t i) {
  std::mt19937 random(static_cast<unsigned>(i) + 1);
  Message message{.topic = topics()[i % 3], .firstTimeUs = static_cast<std::int64_t>(1000 + i)};
  message.count = static_cast<std::uint32_t>(i + 1);
  message.compress = i % 2 == 0;
  message.data.resize(i % 13 == 12 ? 0 : 1 + random() % 1200);
  for (char& c : message.data) c = static_cast<char>(random() % 3 == 0 ? 0 : 'a' + random() % 4);
  return message;
}

const Message& messageAt(std::size_t i) {
  static const std::vector<Message> kAll = [] {
    std::vector<Message> all;
    for (std::size_t number = 0; number < kMessages; ++number) all.push_back(makeMessage(number));
    return all;
  }();
  return kAll.at(i);
}

/// A recording that was made on a disk whose power may fail.
class Recorded {
 public:
  explicit Recorded(const Plan& plan) : plan_(plan) {
    MorvaBag bag;
    bag.topics = topics();
    bag.compressionType = plan.codec;
    bag.writeBufferSize = plan.buffer;
    bag.lossBound = plan.bound;
    EXPECT_EQ(bag.open(path_, BagMode::kWrite, std::string(plan.privateBytes, 'p')), 0);
    note({.isBagPromised = plan.bound.isSet()});
    for (std::size_t i = 0; i < kMessages; ++i) {
      EXPECT_TRUE(write(bag, messageAt(i)));
      const bool flushes = plan.flushEvery != 0 && i % plan.flushEvery == plan.flushEvery - 1;
      note({.accepted = i + 1});
      if (!flushes) continue;
      EXPECT_TRUE(bag.flush());
      note({.accepted = i + 1, .promised = i + 1, .isBagPromised = true});
    }
    EXPECT_TRUE(bag.close());
    disk_.stop();
    content_ = readFile(path_);
    chunks_ = walkBytes(content_);
    addWhatTheBoundPromises();
    if (isSynced()) {
      note({.accepted = kMessages, .promised = kMessages, .isBagPromised = true, .isClosed = true});
    }
  }

  [[nodiscard]] const Plan& plan() const { return plan_; }
  [[nodiscard]] const CutDisk& disk() const { return disk_; }
  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const std::string& content() const { return content_; }
  [[nodiscard]] bool isSynced() const { return plan_.bound.isSet() || plan_.flushEvery != 0; }
  /// The chunk of a message.
  [[nodiscard]] const RawChunk& chunk(std::size_t i) const { return chunks_.at(i + 1); }

  /// What was promised when the first `calls` calls had been made.
  [[nodiscard]] Moment promisedAt(std::size_t calls) const {
    Moment all;
    for (const Moment& moment : moments_) {
      if (moment.calls > calls) break;
      all.accepted = moment.accepted;
      all.promised = std::max(all.promised, moment.promised);
      all.isBagPromised = all.isBagPromised || moment.isBagPromised;
      all.isClosed = all.isClosed || moment.isClosed;
    }
    return all;
  }

 private:
  void note(Moment moment) {
    moment.calls = disk_.calls();
    moments_.push_back(moment);
  }

  /// Fewer bytes than the bound may be missing once a write has returned.
  void addWhatTheBoundPromises() {
    if (plan_.bound.bytes == 0) return;
    for (Moment& moment : moments_) {
      if (moment.accepted == 0) continue;
      const std::size_t end = chunk(moment.accepted - 1).end();
      while (moment.promised < moment.accepted &&
             end - chunk(moment.promised).offset >= plan_.bound.bytes) {
        ++moment.promised;
      }
    }
  }

  const Plan plan_;
  const TempDir dir_;
  const std::string path_ = dir_ / "cut.kbag";
  CutDisk disk_;
  std::vector<Moment> moments_;
  std::string content_;
  std::vector<RawChunk> chunks_;
};

std::vector<Plan> allPlans() {
  std::vector<Plan> plans;
  for (const auto codec : {CompressionType::kNone, CompressionType::kLz4, CompressionType::kZstd}) {
    for (const std::uint32_t buffer : {0U, 3000U, 1U << 20U}) {
      if (codec != CompressionType::kNone && buffer != 3000) continue;
      plans.push_back({.codec = codec, .buffer = buffer});
      plans.push_back({.codec = codec, .buffer = buffer, .flushEvery = 7});
      plans.push_back({.codec = codec, .buffer = buffer, .bound = {.bytes = 1}});
      plans.push_back({.codec = codec, .buffer = buffer, .bound = {.bytes = 4000}});
      plans.push_back(
          {.codec = codec, .buffer = buffer, .bound = {.bytes = 9000}, .flushEvery = 11});
    }
  }
  return plans;
}

class PowerLoss : public testing::Test {
 protected:
  /// Puts the files of a state into place. @return Whether the bag is there.
  bool place(const CutDisk::Files& files) {
    ++states_;
    std::filesystem::remove(path_);
    std::filesystem::remove(path_ + ".index");
    for (const auto& [path, content] : files) {
      writeFile(path.ends_with(".index") ? path_ + ".index" : path_, content);
    }
    return std::filesystem::exists(path_);
  }

  /// Reads all that the bag's index holds; each must be a message of the recording, whole, and none
  /// of those before it may be missing. @return How many they are.
  /// @param promised  An empty message behind these may have wrong times: nothing protects a header
  ///                  without data, and nobody can read it.
  std::size_t readAllFound(const Recorded& recorded, std::size_t promised = 0) {
    MorvaBag bag;
    EXPECT_EQ(bag.open(path_, BagMode::kRead), 0);
    std::map<std::uint64_t, MsgIndex> found;
    for (const MsgIndex& index : bag.getView(topics(), 0, 0).indexes) {
      EXPECT_TRUE(found.emplace(index.chunkOffset, index).second);
    }
    std::size_t i = 0;
    for (const auto& [offset, index] : found) {
      if (i == kMessages) {
        ADD_FAILURE() << "a message that was not written at " << offset;
        break;
      }
      const Message& expected = messageAt(i);
      EXPECT_EQ(offset, recorded.chunk(i).offset);
      const bool isProtected = !expected.data.empty() || i < promised;
      if (++i; !isProtected) continue;
      EXPECT_EQ(nameOf(index), expected.topic);
      EXPECT_EQ(index.count, expected.count);
      EXPECT_EQ(index.writeTime, writeTimeOf(expected));
      EXPECT_EQ(index.headerTimes[0], expected.firstTimeUs);
      EXPECT_EQ(index.rawSize, expected.data.size());
      std::string payload;
      if (!expected.data.empty()) {  // those are never read
        EXPECT_TRUE(bag.readMessage(index, &payload));
        EXPECT_EQ(payload, expected.data);
      }
    }
    return i;
  }

  /// Judges what lies in place after a cut.
  void judge(const Recorded& recorded, const Moment& moment, bool isThere) {
    if (!isThere) {
      EXPECT_FALSE(moment.isBagPromised);
      return;
    }
    const LogCapture quiet;
    if (moment.isClosed) {
      EXPECT_EQ(MorvaBag::checkAll(path_), 0);
      EXPECT_EQ(readAllFound(recorded, kMessages), kMessages);
    }
    const int code = MorvaBag::reindex(path_);
    if (code != 0) {
      EXPECT_FALSE(moment.isBagPromised) << code;
      return;
    }
    const std::size_t found = readAllFound(recorded, moment.promised);
    EXPECT_GE(found, moment.promised);
    EXPECT_LE(found, kMessages);
    promised_ += moment.promised;
    found_ += found;
  }

  void report(const char* what) const {
    std::printf("%s: %zu cuts, %zu states, %zu messages promised, %zu found\n", what, cuts_,
                states_, promised_, found_);
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "left.kbag";
  std::mt19937 random_{20261121};
  std::size_t cuts_ = 0;
  std::size_t states_ = 0;
  std::size_t promised_ = 0;
  std::size_t found_ = 0;
};

TEST_F(PowerLoss, WhatWasPromisedIsFoundByReindexWhereverThePowerFails) {
  for (const Plan& plan : allPlans()) {
    const Recorded recorded(plan);
    for (std::size_t calls = 0; calls <= recorded.disk().calls(); ++calls) {
      const Moment moment = recorded.promisedAt(calls);
      const std::size_t blockBytes = calls % 2 == 0 ? 512 : 4096;
      ++cuts_;
      for (const auto& files : recorded.disk().afterCut(calls, blockBytes, kStates, &random_)) {
        judge(recorded, moment, place(files));
        ASSERT_FALSE(HasFailure())
            << "codec " << static_cast<int>(plan.codec) << ", buffer " << plan.buffer << ", bound "
            << plan.bound.bytes << ", flush " << plan.flushEvery << ", " << calls << " of "
            << recorded.disk().calls() << " calls, blocks of " << blockBytes;
      }
    }
  }
  report("power loss, reindex");
  EXPECT_GT(promised_, 100'000U);
}

TEST_F(PowerLoss, SomethingIsLostWithoutAFlush) {  // or the test above would show nothing
  const Recorded recorded({});
  std::size_t lost = 0;
  for (const auto& files : recorded.disk().afterCut(recorded.disk().calls(), 512, 50, &random_)) {
    const LogCapture quiet;
    if (!place(files) || MorvaBag::reindex(path_) != 0 || readAllFound(recorded) < kMessages)
      ++lost;
  }
  EXPECT_GT(lost, 20U);
}

TEST_F(PowerLoss, KilledProcessLosesNothingThatItHadHandedOver) {
  for (const Plan& plan : allPlans()) {
    const Recorded recorded(plan);
    for (std::size_t calls = 0; calls <= recorded.disk().calls(); ++calls) {
      ++cuts_;
      const CutDisk::Files files = recorded.disk().afterKill(calls, &random_);
      const bool isThere = place(files);
      const std::vector<RawChunk> chunks = walkBytes(isThere ? readFile(path_) : "");
      Moment moment = recorded.promisedAt(calls);
      const auto messages = std::count_if(chunks.begin(), chunks.end(),
                                          [](const RawChunk& chunk) { return chunk.type == 1; });
      moment.promised = static_cast<std::size_t>(messages);
      if (plan.buffer == 0) {
        ASSERT_GE(moment.promised, moment.accepted);
      }
      judge(recorded, moment, isThere);
      ASSERT_FALSE(HasFailure()) << calls;
    }
  }
  report("killed at a file call, reindex");
}

TEST_F(PowerLoss, CutReindexIsMendedByAnother) {
  const Recorded recorded({.codec = CompressionType::kLz4, .flushEvery = 3});
  const std::string unclosed = withoutClose(recorded.content());
  writeFile(path_, unclosed);
  CutDisk disk;
  {
    const LogCapture quiet;
    ASSERT_EQ(MorvaBag::reindex(path_), 0);
    ASSERT_EQ(MorvaBag::reindex(path_), 0);  // over the first one's side file
  }
  disk.stop();
  for (std::size_t calls = 0; calls <= disk.calls(); ++calls) {
    ++cuts_;
    for (CutDisk::Files& files : disk.afterCut(calls, 512, 20, &random_)) {
      files[path_] = unclosed;
      place(files);
      const LogCapture quiet;
      MorvaBag bag;
      const int code = bag.open(path_, BagMode::kRead);
      ASSERT_TRUE(code == 0 || code == MorvaBag::kOpenNoIndex) << code;
      if (code == 0) {
        ASSERT_EQ(readAllFound(recorded), kMessages);
      }
      judge(recorded, {.promised = kMessages, .isBagPromised = true}, true);
      ASSERT_FALSE(HasFailure()) << calls;
    }
  }
  report("power loss in a reindex, reindex");
}

TEST_F(PowerLoss, LongPrivateDataEndangerTheHeaderAtTheCloseAlone) {
  // No room for filler in the first sector: a header of 512-byte sectors may be torn.
  const Recorded recorded({.bound = {.bytes = 1}, .privateBytes = 473});
  std::size_t torn = 0;
  for (std::size_t calls = 0; calls <= recorded.disk().calls(); ++calls) {
    const Moment moment = recorded.promisedAt(calls);
    for (const std::size_t blockBytes : {512U, 4096U}) {
      ++cuts_;
      for (const auto& files : recorded.disk().afterCut(calls, blockBytes, 5, &random_)) {
        ASSERT_TRUE(place(files) || !moment.isBagPromised);
        const LogCapture quiet;
        if (moment.isBagPromised && MorvaBag::reindex(path_) == MorvaBag::kOpenChecksum) {
          ++torn;
          ASSERT_EQ(blockBytes, 512U);
          ASSERT_EQ(moment.promised, kMessages);
          const std::string out = dir_ / "out.kbag";
          const auto result = doctor::salvage(
              {.inPath = path_, .outPath = out, .names = {}, .likePath = {}, .force = true}, goOn);
          ASSERT_TRUE(result.isDone) << result.problem;
          ASSERT_EQ(result.written, kMessages);
        } else {
          judge(recorded, moment, std::filesystem::exists(path_));
        }
        ASSERT_FALSE(HasFailure()) << calls;
      }
    }
  }
  EXPECT_GT(torn, 0U);
  report("power loss, long private data, reindex or salvage");
}

/// A chunk that lies in a state as it was written.
bool isIntact(const Recorded& recorded, const RawChunk& chunk, const std::string& state) {
  const std::size_t size = chunk.end() - chunk.offset;
  return state.size() >= chunk.end() &&
         state.compare(chunk.offset, size, recorded.content(), chunk.offset, size) == 0;
}

TEST_F(PowerLoss, SalvageFindsWhatLiesBehindHoles) {
  const std::string out = dir_ / "out.kbag";
  std::size_t behind = 0;
  for (const auto codec : {CompressionType::kNone, CompressionType::kZstd}) {
    const Recorded recorded({.codec = codec, .flushEvery = 20});
    for (std::size_t calls = 20; calls <= recorded.disk().calls(); calls += 3) {
      ++cuts_;
      const Moment moment = recorded.promisedAt(calls);
      if (!moment.isBagPromised) continue;
      for (const auto& files : recorded.disk().afterCut(calls, 512, 2, &random_)) {
        ASSERT_TRUE(place(files));
        const LogCapture quiet;
        const std::string state = readFile(path_);
        std::map<std::string, std::size_t> intact;
        for (std::size_t i = 0; i < kMessages; ++i) {
          if (isIntact(recorded, recorded.chunk(i), state)) ++intact[messageAt(i).data];
        }
        ASSERT_EQ(MorvaBag::reindex(path_), 0);
        const std::size_t inFront = readAllFound(recorded);
        std::filesystem::remove(path_ + ".index");
        const auto result = doctor::salvage(
            {.inPath = path_, .outPath = out, .names = {}, .likePath = {}, .force = true}, goOn);
        ASSERT_TRUE(result.isDone) << result.problem;
        MorvaBag bag;
        ASSERT_EQ(bag.open(out, BagMode::kRead), 0);
        for (const MsgIndex& index : bag.getView(topics(), 0, 0).indexes) {
          std::string payload;
          if (index.rawSize == 0 || !bag.readMessage(index, &payload)) continue;
          const auto entry = intact.find(payload);
          if (entry != intact.end()) intact.erase(entry);
        }
        intact.erase("");
        EXPECT_TRUE(intact.empty()) << intact.size() << " messages, " << calls << " calls";
        behind += result.written - std::min<std::size_t>(result.written, inFront);
        found_ += result.written;
      }
    }
  }
  EXPECT_GT(behind, 0U);
  report("power loss, salvage");
  std::printf("  %zu of them behind holes\n", behind);
}

}  // namespace
}  // namespace morva::test

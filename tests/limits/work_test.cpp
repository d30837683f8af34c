// What a command reads is a small multiple of the file, and what else it does with files grows no
// faster than the file, whatever the file claims. Counted, not timed.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "limits/commands.h"
#include "limits/loose_bag.h"
#include "morva/export.h"
#include "storage/bag_layout.h"
#include "support/temp_dir.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

/// How many times the file a command may read.
struct Passes {
  const char* command;
  std::uint64_t once;        ///< of a recording of up to three topics
  std::uint64_t manyTopics;  ///< of any
};

/// A pass goes over the messages, or over the topic list and the index. `reindex` opens the
/// recording twice. `doctor` looks for chunks first and reads payloads then; `salvage` looks at its
/// output besides. `export` and `unpack` open the recording for each topic, `export --images` reads
/// the messages of a camera twice; of topics without an output they open it for the first 32.
constexpr Passes kPasses[] = {
    {"check", 2, 2},  {"reindex", 3, 3},          {"info", 1, 1},         {"pinfo", 1, 1},
    {"view", 1, 1},   {"export --images", 7, 64}, {"unpack -t 1", 4, 64}, {"unpack -t 8", 4, 64},
    {"doctor", 3, 3}, {"salvage", 5, 5},          {"batch", 3, 16},       {"batch --device", 3, 16},
};

/// Reading ahead.
constexpr std::uint64_t kSlackBytes = 64UL * 1024;

BuiltMessage messageOf(std::uint32_t topicId, const std::string& payload, std::int64_t timeUs) {
  return {.topicId = topicId,
          .stored = payload,
          .timeUs = timeUs,
          .firstTimeUs = timeUs,
          .secondTimeUs = timeUs};
}

enum class Kind { kFewTopics, kManyTopics };

void expectFewPasses(const std::string& bag, Kind kind, int callsForEach, std::size_t count) {
  for (const Passes& passes : kPasses) {
    SCOPED_TRACE(passes.command);
    const TempDir dir;
    const Cost cost = costOf(command(passes.command), bag, dir / "a");
    const std::uint64_t most = kind == Kind::kFewTopics ? passes.once : passes.manyTopics;
    EXPECT_LE(cost.bytesRead, most * bag.size() + kSlackBytes)
        << static_cast<double>(cost.bytesRead) / static_cast<double>(bag.size());
    EXPECT_LE(cost.calls, 500 + callsForEach * static_cast<int>(count));
    EXPECT_LE(cost.printed.size(), 16 * bag.size()) << "printed";
  }
}

TEST(HostileWork, ThousandsOfTopicsAreNotThousandsOfPasses) {
  constexpr std::uint32_t kTopics = 3000;
  LooseBag::Topics topics;
  for (std::uint32_t id = 0; id < kTopics; ++id) topics.emplace_back(id, "/t" + std::to_string(id));
  LooseBag bag(CompressionType::kNone, topics);
  for (std::uint32_t id = 0; id < kTopics; ++id) bag.message(messageOf(id, "x", kStartUs));
  expectFewPasses(bag.build(), Kind::kManyTopics, 4, kTopics);
}

TEST(HostileWork, ThousandsOfNamesOfOneTopicAreFew) {
  constexpr std::uint32_t kNames = 3000;
  LooseBag::Topics topics;
  for (std::uint32_t i = 0; i < kNames; ++i) topics.emplace_back(7, "/t" + std::to_string(i));
  LooseBag bag(CompressionType::kNone, topics);
  for (std::uint32_t i = 0; i < kNames; ++i) bag.message(messageOf(7, "x", kStartUs));
  expectFewPasses(bag.build(), Kind::kManyTopics, 4, kNames);
}

/// All topics that have an output.
std::vector<std::string> topicsWithOutput() {
  std::vector<std::string> names = {"/imu",          "/magnetic",      "/hesai/pandar",
                                    "/livox/lidar",  "/lidar",         "/lidar_to_platform",
                                    "/gnss_data",    "/config_file",   "/project_data",
                                    "/raw_gnss_log", "/raw_ntrip_log", "/raw_ppk_log"};
  for (const char* camera :
       {"left", "center", "right", "left_main", "left_seco", "right_main", "right_seco"}) {
    for (const char* type : {"jpeg", "h264"}) {
      names.push_back("/camera_" + std::string(camera) + "/" + type);
    }
  }
  return names;
}

TEST(HostileWork, TopicsThatAllNameOneLargeChunkAreOnePassEach) {
  LooseBag::Topics topics;
  for (const std::string& name : topicsWithOutput()) {
    ASSERT_FALSE(exportFile(ExportLayout::kTables, name).empty()) << name;
    topics.emplace_back(static_cast<std::uint32_t>(topics.size()), name);
  }
  ASSERT_EQ(topics.size(), 26U);
  for (std::uint32_t id = 26; id < 2000; ++id) topics.emplace_back(id, "/a" + std::to_string(id));
  LooseBag bag(CompressionType::kNone, topics);
  const BuiltMessage large = messageOf(0, std::string(50'000, 'x'), kStartUs);
  const std::uint64_t offset = bag.message(large);
  for (std::uint32_t id = 1; id < topics.size(); ++id) {
    BuiltMessage claim = large;
    claim.topicId = id;
    bag.entry(claim, offset);
  }
  expectFewPasses(bag.build(), Kind::kManyTopics, 4, topics.size());
}

TEST(HostileWork, EntriesThatAllNameOneLargeChunkAreRefused) {
  LooseBag bag(CompressionType::kNone, {{0, "/imu"}});
  const BuiltMessage large = messageOf(0, std::string(50'000, 'x'), kStartUs);
  const std::uint64_t offset = bag.message(large);
  for (int i = 0; i < 2000; ++i) bag.entry(large, offset);
  expectFewPasses(bag.build(), Kind::kFewTopics, 0, 0);
}

/// Framing that claims to be a message's, which goes on to the end of the file.
std::string claimUpTo(std::size_t bytesLeft) {
  const std::size_t dataBytes = bytesLeft - layout::kTopicDataOffset - layout::kCrcBytes;
  const std::string framing = le<std::uint32_t>(static_cast<std::uint32_t>(bytesLeft)) +
                              le<std::uint16_t>(1) + le<std::uint16_t>(36) +
                              std::string(36, '\x01');
  return framing + le<std::uint32_t>(static_cast<std::uint32_t>(dataBytes));
}

TEST(HostileWork, ClaimsUponTheWholeFileAreOnePass) {
  constexpr std::size_t kClaims = 10'000;
  LooseBag bag(CompressionType::kNone, {{0, "/imu"}});
  bag.message(messageOf(0, imuMessage(kStartUs).payload, kStartUs));
  std::string claims;
  for (std::size_t i = 0; i < kClaims; ++i) {
    claims += claimUpTo((kClaims - i) * layout::kTopicDataOffset + 100);
  }
  bag.raw(claims + std::string(100, '\0'));
  expectFewPasses(bag.build(), Kind::kFewTopics, 4, kClaims);
}

TEST(HostileWork, CarriedFilesOfEqualNamesTakeAFewCallsEach) {
  constexpr std::size_t kFiles = 800;
  const std::vector<std::string> names = {"a", "A", "a.", "a/a", "./a", "../a", "a..", " a"};
  LooseBag bag(CompressionType::kNone, {{0, "/project_data"}, {1, "/config_file"}});
  for (std::size_t i = 0; i < kFiles; ++i) {
    const std::string& name = names[i % names.size()];
    const std::string content = std::to_string(i);
    for (std::uint32_t id = 0; id < 2; ++id) {
      bag.message(messageOf(id, fileMessage("", name, content).payload, kStartUs));
    }
  }
  const std::string bytes = bag.build();
  expectFewPasses(bytes, Kind::kFewTopics, 12, 2 * kFiles);

  const TempDir dir;
  static_cast<void>(costOf(command("unpack -t 8"), bytes, dir / "a"));
  EXPECT_EQ(readFile(dir / "a/out/project_data/a"), "797");
  EXPECT_EQ(readFile(dir / "a/out/project_data/A"), "793");
  EXPECT_EQ(readFile(dir / "a/out/project_data/a."), "794");
  EXPECT_EQ(treeOf(dir / "a/out/project_data"),
            (std::vector<std::string>{" a", ".gitkeep", "A", "a", "a.", "a.."}));
}

TEST(HostileWork, ScansAndPicturesOfOneTimeTakeAFewCallsEach) {
  constexpr int kSamples = 100;
  LooseBag bag(CompressionType::kNone,
               {{0, "/lidar"}, {1, "/camera_left/h264"}, {2, "/camera_right/jpeg"}});
  const std::string picture = imageMessage("", kStartUs, h264Picture()).payload;
  const std::string scan = lidarMessage("", kStartUs).payload;
  for (int i = 0; i < kSamples; ++i) {
    bag.message(messageOf(0, scan, kStartUs));
    bag.message(messageOf(1, picture, kStartUs));
    bag.message(messageOf(2, picture, kStartUs));
  }
  const std::string bytes = bag.build();
  expectFewPasses(bytes, Kind::kFewTopics, 24, 3 * kSamples);

  const TempDir dir;
  for (const char* name : {"unpack -t 1", "unpack -t 8"}) {
    static_cast<void>(costOf(command(name), bytes, dir / name));
    EXPECT_EQ(treeOf(dir / name + "/out/lidar_points"),
              (std::vector<std::string>{".gitkeep", "1700000000.000000.pcd"}));
    EXPECT_EQ(treeOf(dir / name + "/out/images/camera_0"),
              (std::vector<std::string>{".gitkeep", "1700000000.000000.jpg"}));
  }
}

}  // namespace
}  // namespace morva::test

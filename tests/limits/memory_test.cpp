// A recording of some kilobytes that restores, or claims, to be gigabytes: each command takes a
// bounded amount of memory, with one worker as with eight, says what it refuses, and exports the
// rest.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "limits/commands.h"
#include "limits/loose_bag.h"
#include "platform/compress.h"
#include "support/bombs.h"
#include "support/temp_dir.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

constexpr std::size_t kMib = 1024UL * 1024;

/// The write buffer of a table, and as much again for all else.
constexpr std::size_t kLargestAllocation = 32 * kMib;
/// What may be live at once: for each of eight workers a megabyte that is believed of any message,
/// while it grows, and for each of ten topics the beginning of a write buffer.
constexpr std::size_t kMostLive = 40 * kMib;

std::vector<RecordedMessage> soundMessages() {
  return {imuMessage(kStartUs),
          magneticMessage(kStartUs),
          lidarMessage("/lidar", kStartUs),
          motorMessage(kStartUs - 10000, 60000),
          gnssMessage(kStartUs),
          imageMessage("/camera_left/h264", kStartUs, h264Picture()),
          imageMessage("/camera_right/jpeg", kStartUs, "\xFF\xD8 a picture"),
          fileMessage("/config_file", "camera.yaml", "model: pinhole\n"),
          fileMessage("/project_data", "project.json", "{}"),
          logMessage("/raw_gnss_log", "$GNGGA\n")};
}

LooseBag::Topics topicsOf(const std::vector<RecordedMessage>& messages) {
  LooseBag::Topics topics;
  for (const RecordedMessage& message : messages) {
    topics.emplace_back(static_cast<std::uint32_t>(topics.size()), message.topic);
  }
  return topics;
}

BuiltMessage built(std::uint32_t topicId, const std::string& stored, std::uint64_t rawSize) {
  return {.topicId = topicId,
          .stored = stored,
          .rawSize = static_cast<std::uint32_t>(rawSize),
          .timeUs = kStartUs,
          .firstTimeUs = kStartUs,
          .secondTimeUs = kStartUs};
}

/// A sound message of every kind, and behind each `count` of what `hostile` makes for its topic.
template <typename Hostile>
std::string bagWith(CompressionType compression, int count, const Hostile& hostile) {
  const std::vector<RecordedMessage> sound = soundMessages();
  LooseBag bag(compression, topicsOf(sound));
  for (std::uint32_t id = 0; id < sound.size(); ++id) {
    const std::string& payload = sound[id].payload;
    bag.message(built(id, payload, payload.size()));
    for (int i = 0; i < count; ++i) bag.message(hostile(id));
  }
  return bag.build();
}

/// The output, but for the logs of tasks.
std::map<std::string, std::string> outputIn(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder + "/out")) {
    const std::string name = entry.path().lexically_relative(folder).string();
    if (entry.is_regular_file() && !name.starts_with("out/log/"))
      files[name] = readFile(entry.path());
  }
  return files;
}

std::size_t countWith(const std::vector<std::string>& lines, const std::string& part) {
  return static_cast<std::size_t>(std::ranges::count_if(
      lines, [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

void expectBounded(const Cost& cost) {
  EXPECT_LE(cost.largest, kLargestAllocation);
  EXPECT_LE(cost.live, kMostLive);
}

/// How often a command reads the messages of all topics, and of cameras besides.
struct Reading {
  const char* command;
  std::size_t refused;  ///< of one message of each of the ten topics
};

/// `export --images` reads both cameras twice. The jpeg camera has no form in `unpack`, and the
/// device's task needs neither that one nor, without scans within the motor's times, the motor's.
constexpr Reading kExporting[] = {
    {"export --images", 12}, {"unpack -t 1", 9}, {"unpack -t 8", 9}, {"batch", 9}};

class HostileMemory : public testing::Test {
 protected:
  /// Runs everything on `bag`, and expects of those that export so many lines for each of the
  /// `count` messages refused of each topic, one of which says why, and the output of `harmless`.
  static void expectRefused(const std::string& bag, const std::string& harmless, std::size_t count,
                            const std::string& why, std::size_t lines) {
    for (const Command& command : commands()) {
      SCOPED_TRACE(command.name);
      const TempDir dir;
      const Cost cost = costOf(command, bag, dir / "a");
      expectBounded(cost);
      for (const auto& [name, refused] : kExporting) {
        if (command.name != std::string(name)) continue;
        EXPECT_EQ(countWith(cost.errors, why), count * refused);
        const Cost usual = costOf(command, harmless, dir / "b");
        EXPECT_EQ(cost.errors.size(), usual.errors.size() + lines * count * refused);
        EXPECT_TRUE(outputIn(dir / "a") == outputIn(dir / "b")) << "not the same output";
      }
    }
  }

  static std::string harmless(CompressionType compression) {
    return bagWith(compression, 0, [](std::uint32_t) { return BuiltMessage(); });
  }
};

TEST_F(HostileMemory, ZstandardBombsCostALineEach) {
  const std::string bomb = zstdBomb(513);  // just over 64 MiB
  const auto hostile = [&](std::uint32_t id) { return built(id, bomb, 513 * kBombBlockBytes); };
  expectRefused(bagWith(CompressionType::kZstd, 2, hostile), harmless(CompressionType::kZstd), 2,
                "decompress error, chunk offset", 2);
}

TEST_F(HostileMemory, SizesThatLieCostALineEach) {
  for (const CompressionType compression : {CompressionType::kLz4, CompressionType::kZstd}) {
    const std::uint32_t lie = compression == CompressionType::kLz4 ? 0x7E000000 : 0xFFFFFFFF;
    const auto hostile = [&](std::uint32_t id) {
      BuiltMessage message = built(id, "few bytes", lie);
      message.count = 0xFFFFFFFF;
      return message;
    };
    expectRefused(bagWith(compression, 2, hostile), harmless(compression), 2,
                  "decompress error, chunk offset", 2);
  }
}

TEST_F(HostileMemory, SamplesWithoutContentCostALineForEachMessage) {
  const std::string payload = emptySamples(kMib / 2);
  for (const CompressionType compression : {CompressionType::kLz4, CompressionType::kZstd}) {
    const basalt::Lz4Compress lz4;
    const basalt::ZstdCompress zstd;
    const basalt::Compressor& codec =
        compression == CompressionType::kLz4 ? static_cast<const basalt::Compressor&>(lz4) : zstd;
    std::string stored(payload.size(), '\0');
    const std::int64_t size =
        codec.compress(payload.data(), payload.size(), stored.data(), stored.size());
    ASSERT_GT(size, 0);
    stored.resize(static_cast<std::size_t>(size));
    const auto hostile = [&](std::uint32_t id) { return built(id, stored, payload.size()); };
    expectRefused(bagWith(compression, 2, hostile), harmless(compression), 2,
                  "holds too many samples", 1);
  }
}

TEST_F(HostileMemory, PointsWithoutContentCostALineForEachScan) {
  const std::string payload = scanOfEmptyPoints(3'000'000);
  const basalt::Lz4Compress codec;
  std::string stored(payload.size(), '\0');
  const std::int64_t size =
      codec.compress(payload.data(), payload.size(), stored.data(), stored.size());
  ASSERT_GT(size, 0);
  stored.resize(static_cast<std::size_t>(size));
  LooseBag bag(CompressionType::kLz4, {{0, "/lidar"}, {1, "/hesai/pandar"}, {2, "/livox/lidar"}});
  for (std::uint32_t id = 0; id < 3; ++id) bag.message(built(id, stored, payload.size()));
  for (const Command& command : commands()) {
    SCOPED_TRACE(command.name);
    const TempDir dir;
    const Cost cost = costOf(command, bag.build(), dir / "a");
    expectBounded(cost);
    if (command.name != std::string("unpack -t 8")) continue;
    EXPECT_EQ(countWith(cost.errors, "holds too many samples"), 3U);
  }
}

TEST_F(HostileMemory, DefinitionsAndIndexesThatAreBombsAreRefused) {
  LooseBag definition(CompressionType::kZstd, {});
  definition.replaceDefinition(zstdBomb(513), 513 * kBombBlockBytes);
  LooseBag index(CompressionType::kZstd, {{0, "/imu"}});
  index.message(built(0, imuMessage(kStartUs).payload, 0));
  index.replaceIndex(zstdBomb(513), 513 * kBombBlockBytes);
  for (const Command& command : commands()) {
    SCOPED_TRACE(command.name);
    const TempDir dir;
    expectBounded(costOf(command, definition.build(), dir / "a"));
    expectBounded(costOf(command, index.build(), dir / "b"));
  }
}

TEST_F(HostileMemory, DeviceRecordsOfAnyDepthAndNumberAreSurvived) {
  const std::string nested(4000, '\x0B');
  std::string many;
  while (many.size() < 4000) many += std::string("\x42\x00", 2);  // empty sensors
  for (const std::string& record : {nested, many}) {
    LooseBag bag(CompressionType::kNone, {{0, "/imu"}}, record);
    bag.message(built(0, imuMessage(kStartUs).payload, 0));
    for (const char* name : {"info", "pinfo", "doctor", "salvage"}) {
      SCOPED_TRACE(name);
      const TempDir dir;
      const Cost cost = costOf(command(name), bag.build(), dir / "a");
      expectBounded(cost);
      EXPECT_LE(cost.printed.size(), 20 * record.size());
    }
  }
}

}  // namespace
}  // namespace morva::test

// bench_inputs DIRECTORY [NAME...]: makes the bags that the benchmarks read; all of them, where
// none is named. One that is there already stays. Beside each lies what the benchmarks have to know
// of it, as JSON: a bag counts as made when that file is there.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "bench/input_messages.h"
#include "kit/simulate/simulate.h"
#include "messages/frames.h"
#include "morva/bag.h"

namespace morva::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kLidarPeriodUs = 100'000;

/// What the goals need to know of a bag.
struct Facts {
  std::uint64_t messages = 0;
  std::uint64_t payloadBytes = 0;
  std::uint64_t largestMessage = 0;  ///< bytes before compression
  std::uint64_t largestDecoded = 0;  ///< bytes of the largest point cloud
  std::uint64_t index = 0;           ///< bytes of the index in memory, about
};

/// A bag being written.
class Output {
 public:
  Output(const std::string& path, CompressionType codec, std::vector<std::string> topics) {
    bag_.topics = std::move(topics);
    bag_.compressionType = codec;
    bag_.writeBufferSize = 1U << 20U;
    isGood_ = bag_.open(path, BagMode::kWrite) == MorvaBag::kOpenOk;
  }

  void write(const std::string& topic, std::int64_t timeUs, const std::string& payload) {
    const std::string header = MorvaBag::makeMessageHeader(true, 1, timeUs, timeUs);
    isGood_ = isGood_ && bag_.writeMessage(topic, timeUs, header, payload);
  }

  [[nodiscard]] bool close() { return bag_.close() && isGood_; }

 private:
  MorvaBag bag_;
  bool isGood_ = false;
};

/// The scans are costly to make: once for all bags.
LidarMessages& lidar() {
  static LidarMessages messages;
  return messages;
}

/// @param scans       Lidar messages, 10 a second.
/// @param imuSamples  IMU messages, spread over the same time.
bool makeMixed(const std::string& path, CompressionType codec, std::uint32_t scans,
               std::size_t imuSamples) {
  const std::int64_t imuPeriodUs =
      kLidarPeriodUs * scans / static_cast<std::int64_t>(std::max<std::size_t>(imuSamples, 1));
  Output bag(path, codec, {"/imu", "/lidar"});
  ImuMessages imu(imuSamples, imuPeriodUs);
  std::size_t imuWritten = 0;
  for (std::uint32_t i = 0; i < scans; ++i) {
    for (; imuWritten < imuSamples * (i + 1) / scans; ++imuWritten) {
      const ImuMessages::Message message = imu.next();
      bag.write("/imu", message.timeUs, message.payload);
    }
    const std::int64_t timeUs = kFirstUs + i * kLidarPeriodUs;
    bag.write("/lidar", timeUs, lidar().payload(i, timeUs));
  }
  return bag.close();
}

/// Opaque messages, 100 a second, spread evenly over topics.
bool makeSmall(const std::string& path, std::size_t messages, std::size_t bytes,
               std::size_t topics) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < topics; ++i) names.push_back("/small_" + std::to_string(i));
  Output bag(path, CompressionType::kNone, names);
  for (std::size_t i = 0; i < messages; ++i) {
    bag.write(names[i % topics], kFirstUs + static_cast<std::int64_t>(i) * 10'000,
              noise(static_cast<std::uint32_t>(i), bytes));
  }
  return bag.close();
}

/// Each topic gets its own scans, whose times lie between those of the others.
bool makeLidar(const std::string& path, const std::vector<std::string>& topics) {
  constexpr std::uint32_t kScans = 40;
  Output bag(path, CompressionType::kNone, topics);
  for (std::uint32_t i = 0; i < kScans; ++i) {
    std::int64_t timeUs = kFirstUs + i * kLidarPeriodUs;
    for (const std::string& topic : topics) {
      bag.write(topic, timeUs, lidar().payload(i, timeUs));
      timeUs += kLidarPeriodUs / static_cast<std::int64_t>(topics.size());
    }
  }
  return bag.close();
}

bool makeImu(const std::string& path) {
  constexpr std::size_t kSamples = 200'000;
  Output bag(path, CompressionType::kNone, {"/imu"});
  ImuMessages imu(kSamples, 5'000);
  for (std::size_t i = 0; i < kSamples; ++i) {
    const ImuMessages::Message message = imu.next();
    bag.write("/imu", message.timeUs, message.payload);
  }
  return bag.close();
}

bool makeCamera(const std::string& path, PictureNoise noise) {
  constexpr std::size_t kPictures = 40;
  const std::vector<std::string> payloads = cameraPayloads(kPictures, noise);
  Output bag(path, CompressionType::kNone, {"/camera_left/h264"});
  std::int64_t timeUs = kFirstUs;
  for (const std::string& payload : payloads) {
    bag.write("/camera_left/h264", timeUs, payload);
    timeUs += 100'000;
  }
  return bag.close() && payloads.size() == kPictures;
}

using MakePayload = std::string (*)(std::uint32_t number, std::int64_t timeUs, std::size_t size);

bool makeOpaque(const std::string& path, const std::string& topic, MakePayload makePayload) {
  constexpr std::uint32_t kPayloads = 6'000;
  constexpr std::size_t kPayloadBytes = 150'000;
  Output bag(path, CompressionType::kNone, {topic});
  for (std::uint32_t i = 0; i < kPayloads; ++i) {
    const std::int64_t timeUs = kFirstUs + i * 100'000;
    bag.write(topic, timeUs, makePayload(i, timeUs, kPayloadBytes));
  }
  return bag.close();
}

bool makeSimulated(const std::string& path, sim::Options options) {
  options.bagPath = path;
  std::vector<sim::TopicSummary> topics;
  return sim::simulate(options, {}, &topics);
}

bool makeRecording(const std::string& path) {
  sim::Options options;
  options.seconds = 60.0;
  return makeSimulated(path, options);
}

/// Scans with the motor records and the calibration that their correction needs.
bool makeTurning(const std::string& path) {
  sim::Options options;
  options.seconds = 4.0;
  options.pointsPerFrame = kPointsPerScan;
  options.cameras = 0;
  options.elevationErrorRad = 0.01;
  options.compression = CompressionType::kNone;
  return makeSimulated(path, options);
}

struct Input {
  const char* name;
  std::function<bool(const std::string& path)> make;
};

std::vector<Input> inputs() {
  using enum CompressionType;
  const auto mixed = [](CompressionType codec, std::uint32_t scans, std::size_t imuSamples) {
    return [=](const std::string& path) { return makeMixed(path, codec, scans, imuSamples); };
  };
  const auto small = [](std::size_t messages, std::size_t bytes, std::size_t topics) {
    return [=](const std::string& path) { return makeSmall(path, messages, bytes, topics); };
  };
  const auto lidarOf = [](std::vector<std::string> topics) {
    return [=](const std::string& path) { return makeLidar(path, topics); };
  };
  return {
      {"mixed-none", mixed(kNone, 600, 200'000)},
      {"mixed-lz4", mixed(kLz4, 600, 200'000)},
      {"mixed-zstd", mixed(kZstd, 600, 200'000)},
      {"mixed-1", mixed(kNone, 1, 333)},
      {"mixed-10", mixed(kNone, 6, 2'000)},
      {"mixed-100", mixed(kNone, 63, 21'000)},
      {"small", small(200'000, 200, 1)},
      {"topics-10", small(200'000, 200, 10)},
      {"topics-100", small(200'000, 200, 100)},
      {"start", small(100, 200, 1)},
      {"lidar", lidarOf({"/lidar"})},
      {"lidar-two", lidarOf({"/hesai/pandar", "/livox/lidar"})},
      {"imu", makeImu},
      {"turning", makeTurning},
      {"camera-natural",
       [](const std::string& path) { return makeCamera(path, PictureNoise::kNatural); }},
      {"camera-noisy",
       [](const std::string& path) { return makeCamera(path, PictureNoise::kStrong); }},
      {"pictures",
       [](const std::string& path) {
         return makeOpaque(path, "/camera_left/h264", opaquePicture);
       }},
      {"logs",
       [](const std::string& path) { return makeOpaque(path, "/raw_gnss_log", opaqueLog); }},
      {"recording", makeRecording},
  };
}

/// Bytes of the point cloud that a payload holds.
std::uint64_t cloudBytes(const std::string& payload) {
  pb::LidarPointMsgArray array;
  if (!array.ParseFromString(payload) || array.msgs_size() == 0) return 0;
  return static_cast<std::uint64_t>(array.msgs(0).points_size()) * sizeof(PointIRT);
}

bool isLidar(const std::string& topic) { return topic == "/lidar" || topic == "/hesai/pandar"; }

/// What the bag at `path` holds. @return False where it cannot be opened or read.
bool learn(const std::string& path, Facts* facts) {
  MorvaBag bag;
  if (bag.open(path, BagMode::kRead) != MorvaBag::kOpenOk) return false;
  for (const TopicInfo& topic : bag.getInfo().topics) {
    const View view = bag.getView(topic.name, 0, -1);
    for (const MsgIndex& message : view.indexes) facts->payloadBytes += message.rawSize;
    const auto largest = std::ranges::max_element(view.indexes, {}, &MsgIndex::rawSize);
    facts->messages += view.indexes.size();
    facts->largestMessage = std::max<std::uint64_t>(facts->largestMessage, largest->rawSize);
    std::string payload;
    if (!isLidar(topic.name)) continue;
    if (!bag.readMessage(*largest, &payload)) return false;
    facts->largestDecoded = cloudBytes(payload);
  }
  facts->index = facts->messages * sizeof(MsgIndex);
  return true;
}

bool writeFacts(const fs::path& path, const Facts& facts) {
  std::ofstream file(path);
  file << "{\"messages\": " << facts.messages << ", \"payload_bytes\": " << facts.payloadBytes
       << ", \"largest_message\": " << facts.largestMessage
       << ", \"largest_decoded\": " << facts.largestDecoded << ", \"index\": " << facts.index
       << "}\n";
  file.close();
  return file.good();
}

/// Makes one bag, unless it is there.
bool provide(const fs::path& directory, const Input& input) {
  const fs::path bag = directory / (std::string(input.name) + ".kbag");
  const fs::path factsPath = directory / (std::string(input.name) + ".json");
  if (fs::exists(bag) && fs::exists(factsPath)) return true;
  std::fprintf(stderr, "making %s\n", bag.c_str());
  fs::remove(bag);
  Facts facts;
  return input.make(bag.string()) && learn(bag.string(), &facts) && writeFacts(factsPath, facts);
}

}  // namespace
}  // namespace morva::bench

int main(int count, char** arguments) {
  if (count < 2) {
    std::fprintf(stderr, "usage: bench_inputs DIRECTORY [NAME...]\n");
    return 1;
  }
  std::error_code error;
  const std::filesystem::path directory = arguments[1];
  std::filesystem::create_directories(directory, error);
  std::set<std::string> wanted(arguments + 2, arguments + count);
  const bool wantsAll = wanted.empty();
  for (const morva::bench::Input& input : morva::bench::inputs()) {
    if (!wantsAll && wanted.erase(input.name) == 0) continue;
    if (!morva::bench::provide(directory, input)) {
      std::fprintf(stderr, "bench_inputs: %s was not made\n", input.name);
      return 1;
    }
  }
  for (const std::string& name : wanted)
    std::fprintf(stderr, "bench_inputs: no '%s'\n", name.c_str());
  return wanted.empty() ? 0 : 1;
}

// Writes the bags that the golden runs of the command-line tool take as input. They are the same
// bytes at every run, but for the creation time and the random bytes of a bag's header.
//
// usage: make_cases DIRECTORY           the bags of the golden runs
//        make_cases --large FILE        one bag with all topics, 200 s of messages
#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "cli/payloads.h"
#include "cli/recording.h"
#include "morva/bag.h"

namespace morva::test {
namespace {

constexpr std::int64_t kSecondUs = 1000000;

struct Topic {
  std::string name;
  Kind kind;
};

// Every topic that `export` knows, and one that it does not.
std::vector<Topic> allTopics() {
  std::vector<Topic> topics = {
      {"/imu", Kind::kImu},
      {"/magnetic", Kind::kMagnetic},
      {"/hesai/pandar", Kind::kLidar},
      {"/livox/lidar", Kind::kLidar},
      {"/lidar", Kind::kLidar},
      {"/lidar_to_platform", Kind::kMotor},
      {"/gnss_data", Kind::kGnss},
      {"/config_file", Kind::kFile},
      {"/project_data", Kind::kFile},
      {"/raw_gnss_log", Kind::kLog},
      {"/raw_ntrip_log", Kind::kLog},
      {"/raw_ppk_log", Kind::kLog},
      {"/other", Kind::kLog},
  };
  for (const char* camera :
       {"left", "center", "right", "left_main", "left_seco", "right_main", "right_seco"}) {
    for (const char* type : {"jpeg", "h264"}) {
      topics.push_back({std::string("/camera_") + camera + "/" + type, Kind::kImage});
    }
  }
  return topics;
}

std::vector<std::string> namesOf(const std::vector<Topic>& topics) {
  std::vector<std::string> names;
  std::ranges::transform(topics, std::back_inserter(names), &Topic::name);
  return names;
}

std::string readAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeAll(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) fail("cannot write " + path);
}

// ---------------------------------------------------- sound bags

// Two messages of two samples for each topic.
void writeAllTopics(const std::string& path) {
  const std::vector<Topic> topics = allTopics();
  Recording recording(path, namesOf(topics), CompressionType::kZstd, makeDevice());
  for (std::uint32_t message = 0; message < 2; ++message) {
    const std::int64_t timeUs = kStartUs + message * kSecondUs / 2;
    std::uint32_t seq = 2 * message + 1;
    for (const Topic& topic : topics) {
      recording.write(topic.name, timeUs, timeUs + 10000, makePayload(topic.kind, seq, timeUs, 2),
                      2);
      seq += 10;  // no two topics hold the same
    }
  }
  recording.close();
}

// "/b" comes before "/a" in the file and in the topic table; "/c" has no messages.
void writeOrder(const std::string& path) {
  Recording recording(path, {"/b", "/c", "/a"});
  for (int second = 0; second < 4; ++second) {
    const std::int64_t timeUs = kStartUs + second * kSecondUs;
    recording.write("/b", timeUs, timeUs + 500000, "payload of b");
    if (second < 2) recording.write("/a", timeUs + 250000, "payload of a");
  }
  recording.close();
}

// Topics of a given total size over a given time.
void writeSpeeds(const std::string& path) {
  struct Row {
    const char* topic;
    std::size_t bytes;
    std::int64_t durationUs;
    std::uint32_t count;
  };
  constexpr Row kRows[] = {
      {"/bytes_per_us_250", 25000, 100, 7},
      {"/bytes_per_us_12.3456", 123456, 10000, 30},
      {"/bytes_per_us_100", 10000, 100, 1},
      {"/bytes_per_us_just_above_100", 10001, 100, 1},
      {"/one_instant", 10, 0, 5},
      {"/one_instant_no_bytes", 0, 0, 5},
      {"/ends_before_it_starts", 1000, -1000, 2},
      {"/slow", 1, 3600 * kSecondUs, 4000000000},
      {"/count_zero", 10, 10, 0},
  };
  std::vector<std::string> topics{"/no_messages"};
  for (const Row& row : kRows) topics.emplace_back(row.topic);
  Recording recording(path, topics);
  for (const Row& row : kRows) {
    recording.write(row.topic, kStartUs, kStartUs + row.durationUs, std::string(row.bytes, 'x'),
                    row.count);
  }
  recording.close();
}

void writeNoMessages(const std::string& path) {
  Recording(path, {"/imu", "/gnss_data"}, CompressionType::kNone, makeDevice()).close();
}

// The two names of one model's topic.
void writeLidarModel(const std::string& path) {
  Recording recording(path, {"/hesai/pandar"});
  recording.write("/hesai/pandar", kStartUs, makePayload(Kind::kLidar, 1, kStartUs, 2));
  recording.close();
}

// Files whose names lead elsewhere, or nowhere.
void writeHostileNames(const std::string& path) {
  Recording recording(path, {"/config_file", "/project_data"});
  for (const char* topic : {"/config_file", "/project_data"}) {
    recording.write(topic, kStartUs,
                    makeFiles(kStartUs, {{"../../above", "a"},
                                         {"/tmp/kbag-cli-test", "b"},
                                         {"..", "c"},
                                         {".", "d"},
                                         {"", "e"},
                                         {"folder/", "f"},
                                         {"sound.yaml", "g"}}));
  }
  recording.close();
}

// ---------------------------------------------------- damaged bags

// From the start of a chunk to the size of its data: past prefix and header.
constexpr std::size_t kMessageDataSizeOffset = 8 + 36;
constexpr std::size_t kIndexDataSizeOffset = 8 + 12;

std::size_t secondChunkOf(const std::string& path, const std::string& topic) {
  MorvaBag bag;
  if (bag.open(path, BagMode::kRead) != MorvaBag::kOpenOk) fail("cannot read " + path);
  return bag.getView(topic, 0, -1).indexes.at(1).chunkOffset;
}

std::size_t indexChunkOf(const std::string& path) {
  MorvaBag bag;
  if (bag.open(path, BagMode::kRead) != MorvaBag::kOpenOk) fail("cannot read " + path);
  return bag.getInfo().indexChunkOffset;
}

std::string withLyingWord(std::string bytes, std::size_t offset) {
  return bytes.replace(offset, 4, "\xFF\xFF\xFF\xFF");
}

void writeDamagedBags(const std::string& dir) {
  const std::string sound = readAll(dir + "/order.kbag");
  writeAll(dir + "/zero_bytes.kbag", "");
  writeAll(dir + "/short_header.kbag", sound.substr(0, 100));
  writeAll(dir + "/foreign.kbag", "PNG" + std::string(8192, '\0'));

  std::string bytes = sound;
  bytes[40] = static_cast<char>(bytes[40] ^ 1);
  writeAll(dir + "/bad_checksum.kbag", bytes);

  // In the middle of the last message.
  const std::size_t lastPayload = sound.rfind("payload of b");
  writeAll(dir + "/truncated.kbag", std::string_view(sound).substr(0, lastPayload + 5));

  // In the second of four messages.
  bytes = sound;
  bytes[bytes.find("payload of a")] = 'P';
  writeAll(dir + "/damaged_message.kbag", bytes);

  const std::string log = readAll(dir + "/log.kbag");
  bytes = log;
  bytes[bytes.find("$GPGGA,2")] = 'X';
  writeAll(dir + "/damaged_log.kbag", bytes);

  // Size words that promise 4 GiB: of a message's chunk, of its data, of the index.
  const std::size_t message = secondChunkOf(dir + "/log.kbag", "/raw_gnss_log");
  const std::size_t index = indexChunkOf(dir + "/log.kbag");
  writeAll(dir + "/lying_chunk_size.kbag", withLyingWord(log, message));
  writeAll(dir + "/lying_data_size.kbag", withLyingWord(log, message + kMessageDataSizeOffset));
  writeAll(dir + "/lying_index_size.kbag", withLyingWord(log, index + kIndexDataSizeOffset));
}

void writeLog(const std::string& path) {
  Recording recording(path, {"/raw_gnss_log"});
  for (std::uint32_t message = 1; message <= 3; ++message) {
    const std::int64_t timeUs = kStartUs + message * kSecondUs;
    recording.write("/raw_gnss_log", timeUs, makePayload(Kind::kLog, message, timeUs, 1));
  }
  recording.close();
}

// What is in the file while a bag is still being written: all messages, no index, no final header.
void writeUnclosed(const std::string& dir) {
  const std::string path = dir + "/being_written.kbag";
  Recording recording(path, {"/raw_gnss_log", "/imu"});
  recording.write("/raw_gnss_log", kStartUs, makePayload(Kind::kLog, 1, kStartUs, 2));
  recording.write("/imu", kStartUs, makePayload(Kind::kImu, 1, kStartUs, 2));
  writeAll(dir + "/unclosed.kbag", readAll(path));
  recording.close();
  std::filesystem::remove(path);
}

void writeSideIndexes(const std::string& dir) {
  for (const char* name : {"order.kbag", "speeds.kbag"}) {
    const std::string path = dir + "/" + name;
    if (MorvaBag::reindex(path) != 0) fail("cannot reindex " + path);
  }
}

void writeCases(const std::string& dir) {
  std::filesystem::create_directories(dir);
  writeAllTopics(dir + "/all_topics.kbag");
  writeOrder(dir + "/order.kbag");
  writeSpeeds(dir + "/speeds.kbag");
  writeNoMessages(dir + "/no_messages.kbag");
  writeLidarModel(dir + "/lidar_model.kbag");
  writeHostileNames(dir + "/hostile_names.kbag");
  writeLog(dir + "/log.kbag");
  writeDamagedBags(dir);
  writeUnclosed(dir);
  writeSideIndexes(dir);
}

// ---------------------------------------------------- a large recording

void writeLarge(const std::string& path) {
  constexpr std::uint32_t kMessages = 200;
  constexpr std::uint32_t kPoints = 3000;
  const std::vector<Topic> topics = allTopics();
  Recording recording(path, namesOf(topics), CompressionType::kLz4, makeDevice());
  for (std::uint32_t message = 0; message < kMessages; ++message) {
    const std::int64_t timeUs = kStartUs + message * kSecondUs;
    for (const Topic& topic : topics) {
      const bool isCloud = topic.kind == Kind::kLidar;
      const bool isManyFiles = topic.kind == Kind::kImage || topic.kind == Kind::kFile;
      const std::uint32_t samples = isCloud || isManyFiles ? 1 : 200;
      recording.write(topic.name, timeUs, timeUs + kSecondUs - 1,
                      // The clouds of one time differ: the topics of lidars share their files.
                      isCloud ? makeCloud(message, timeUs,
                                          kPoints + static_cast<std::uint32_t>(topic.name.size()))
                              : makePayload(topic.kind, samples * message, timeUs, samples),
                      samples);
    }
  }
  recording.close();
}

}  // namespace
}  // namespace morva::test

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() == 2 && arguments[0] == "--large") {
    morva::test::writeLarge(arguments[1]);
  } else if (arguments.size() == 1) {
    morva::test::writeCases(arguments[0]);
  } else {
    morva::test::fail("usage: make_cases DIRECTORY | make_cases --large FILE");
  }
}

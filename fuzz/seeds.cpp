#include "seeds.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

#include <kbag_msgs.pb.h>

#include "bag_draft.h"
#include "platform/byte_order.h"
#include "recording_input.h"
#include "storage/bag_layout.h"
#include "support/bag_builder.h"
#include "task/recordings.h"

namespace morva::fuzz {
namespace {

namespace pb = protix::kbag_msgs;
using test::BagBuilder;
using test::BuiltMessage;

constexpr std::int64_t kStartUs = test::kStartUs;

struct CodecName {
  std::uint8_t compression;
  const char* name;
};
constexpr CodecName kCodecs[] = {{0, "plain"}, {2, "lz4"}, {3, "zstd"}};

std::string deviceRecord() {
  pb::DeviceInfo device;
  device.set_device_name("scanner");
  device.set_device_model("S1");
  device.set_serial_number("0042");
  device.set_firmware_version("1.2");
  device.set_manufacture_date("2024-01-31");
  device.add_sensors("lidar");
  device.add_sensors("imu");
  return device.SerializeAsString();
}

/// Collects messages and makes recordings of them, in every state that a recording can be in.
class SeedRecording {
 public:
  explicit SeedRecording(std::uint8_t compression = 0) {
    builder_.header.compression = compression;
    builder_.header.privateData = deviceRecord();
  }

  SeedRecording& topic(const std::string& name) {
    if (std::ranges::find(topics_, name) == topics_.end()) {
      builder_.topic(static_cast<std::uint32_t>(topics_.size()), name);
      topics_.push_back(name);
    }
    return *this;
  }

  SeedRecording& add(const std::string& topicName, const std::string& payload,
                     std::int64_t timeUs = 0) {
    topic(topicName);
    DraftChunk chunk;
    chunk.header.assign(layout::kTopicHeaderBytes, '\0');
    store(payload, true, builder_.header.compression, &chunk);
    if (timeUs == 0) timeUs = kStartUs + 1000 * count_;
    ++count_;
    BuiltMessage message;
    message.topicId =
        static_cast<std::uint32_t>(std::ranges::find(topics_, topicName) - topics_.begin());
    message.stored = std::move(chunk.data);
    message.rawSize = static_cast<std::uint32_t>(payload.size());
    message.timeUs = message.firstTimeUs = message.secondTimeUs = timeUs;
    builder_.message(message);
    return *this;
  }

  SeedRecording& add(const test::RecordedMessage& message) {
    return add(message.topic, message.payload, message.timeUs);
  }

  [[nodiscard]] std::string closed() const { return builder_.build(); }
  [[nodiscard]] std::string unclosed() const { return builder_.buildUnclosed(); }
  [[nodiscard]] std::string closedWithSide() const {
    return RecordingInput{builder_.build(), builder_.buildSideFile(), true}.bytes();
  }
  [[nodiscard]] std::string unclosedWithSide() const {
    BagBuilder written = builder_;
    written.header.dataStart = 0;
    std::string bag = written.buildUnclosed();
    std::string side = written.buildSideFile();
    return RecordingInput{std::move(bag), std::move(side), true}.bytes();
  }
  BagBuilder& builder() { return builder_; }

 private:
  BagBuilder builder_;
  std::vector<std::string> topics_;
  std::int64_t count_ = 0;
};

std::string motorYaml() {
  return test::transformYaml({0, -1, 0, .1, 1, 0, 0, 0, 0, 0, 1, .2, 0, 0, 0, 1});
}

std::string fullImuYaml() {
  return "%YAML:1.0\n---\n# made by hand\nTa: [1, 0.01, 0, 0, 1, 0, 0, 0, 1]\n"
         "Ka:\n  - 1.01\n  - 0\n  - 0\n  - 0\n  - 0.99\n  - 0\n  - 0\n  - 0\n  - 1\n"
         "Ba: [0.01, -0.02, 0.3]\nTg: [1, 0, 0, 0, 1, 0, 0, 0, 1]\nKg: [1, 0, 0, 0, 1, 0, 0, 0, "
         "1]\n"
         "Bg: [1.0e-3, 0, -2E-3]\ncalibrated: yes\n";
}

/// A calibration whose every document can be read, in the order of kNames.
constexpr const char* kCalibrationNames[] = {"imu.yaml",
                                             "lidar.yaml",
                                             "extrinsic_motor_lidar.yaml",
                                             "extrinsic_imu_motor.yaml",
                                             "extrinsic_camera_motor.yaml",
                                             "extrinsic_imu_lidar.yaml",
                                             "extrinsic_camera_lidar.yaml"};

std::vector<std::string> calibration() {
  return {fullImuYaml(),
          "s: [1.5, 2]\ne: 0.01\ncalibrated: true\n",
          motorYaml(),
          test::translationYaml(.1, .2, .3),
          test::translationYaml(0, 0, .5),
          motorYaml(),
          test::identityYaml()};
}

/// What the device task corrects: calibration, motor, inertial samples and clouds over one time.
void addCorrectable(SeedRecording* recording, const std::vector<std::string>& documents) {
  for (std::size_t i = 0; i < documents.size() && i < std::size(kCalibrationNames); ++i) {
    recording->add(test::fileMessage("/config_file", kCalibrationNames[i], documents[i]));
  }
  recording->add(test::fileMessage("/config_file", "camera.yaml", "fx: 1\n"));
  for (int i = 0; i < 4; ++i) {
    recording->add(test::motorMessage(kStartUs + 20'000L * i, 10'000, i * 0.1));
    recording->add(test::lidarMessage("/lidar", kStartUs + 20'000L * i + 5000));
  }
  recording->add(test::imuMessage(kStartUs));
}

std::vector<Seed> recordingSeeds() {
  std::vector<Seed> seeds;
  const auto add = [&seeds](const std::string& name, std::string bytes) {
    seeds.push_back({name, std::move(bytes)});
  };
  for (const CodecName& codec : kCodecs) {
    SeedRecording every(codec.compression);
    for (const SamplePayload& sample : samplePayloads()) {
      if (sample.payload.size() < 1000) every.add(sample.topic, sample.payload);
    }
    add(std::string("every-") + codec.name, every.closed());
    add(std::string("every-unclosed-") + codec.name, every.unclosed());
    add(std::string("every-side-") + codec.name, every.unclosedWithSide());

    SeedRecording few(codec.compression);
    few.add(test::imuMessage(kStartUs)).add(test::imuMessage(kStartUs + 10'000));
    few.add("/raw_gnss_log", test::logMessage("/raw_gnss_log", std::string(6000, 'x')).payload);
    few.add(test::lidarMessage("/lidar", kStartUs + 20'000));
    add(std::string("few-") + codec.name, few.closed());
    add(std::string("few-two-indexes-") + codec.name, few.closedWithSide());
    add(std::string("few-side-") + codec.name, few.unclosedWithSide());

    SeedRecording correctable(codec.compression);
    addCorrectable(&correctable, calibration());
    add(std::string("correctable-") + codec.name, correctable.closed());
  }
  for (const SamplePayload& sample : samplePayloads()) {
    std::string name = "topic" + sample.topic + std::to_string(seeds.size());
    std::ranges::replace(name, '/', '-');
    SeedRecording one;
    add(name, one.add(sample.topic, sample.payload).add(sample.topic, sample.payload).closed());
  }

  SeedRecording singular;
  addCorrectable(&singular,
                 {fullImuYaml(), "s: [0, 0]\n", test::transformYaml(std::vector<double>(16, 0))});
  add("singular", singular.closed());

  SeedRecording withoutMotor;
  withoutMotor.add(test::fileMessage("/config_file", "extrinsic_imu_lidar.yaml", motorYaml()));
  withoutMotor.add(test::lidarMessage("/hesai/pandar", kStartUs));
  add("no-motor", withoutMotor.closed());

  SeedRecording empty;
  add("no-messages", empty.topic("/imu").topic("/lidar").closed());
  add("no-messages-unclosed", empty.unclosed());
  add("no-topics", SeedRecording().closed());

  SeedRecording older;
  older.builder().header.version = 2;
  add("version-2", older.add(test::imuMessage(kStartUs)).closed());

  SeedRecording shared;
  shared.builder()
      .topic(0, "/imu")
      .topic(0, "/magnetic")
      .topic(7, "/hesai/pandar")
      .topic(7, "/imu");
  BuiltMessage message;
  message.stored = test::imuMessage(kStartUs).payload;
  shared.builder().message(message);
  message.topicId = 7;
  shared.builder().message(message);
  message.topicId = 99;
  shared.builder().message(message);
  add("shared-numbers", shared.closed());

  SeedRecording inner;
  inner.add(test::imuMessage(kStartUs));
  SeedRecording outer;
  outer.add(test::fileMessage("/project_data", "inner.kbag", inner.unclosed()));
  outer.add(test::imuMessage(kStartUs));
  add("recording-in-a-recording", outer.closed());
  return seeds;
}

std::vector<Seed> indexSeeds() {
  std::vector<Seed> seeds;
  for (const std::size_t messages : {0U, 1U, 2U, 5U, 40U}) {
    BagBuilder builder;
    builder.topic(0, "/imu").topic(1, "/lidar").topic(300, "/x");
    for (std::size_t i = 0; i < messages; ++i) {
      BuiltMessage message;
      message.topicId = i % 7 == 6 ? 300 : static_cast<std::uint32_t>(i % 2);
      message.stored = std::string(1 + i * i, 'x');
      message.count = static_cast<std::uint32_t>(i);
      message.timeUs = kStartUs + static_cast<std::int64_t>(i) * 123'456;
      builder.message(message);
    }
    seeds.push_back({"messages-" + std::to_string(messages), builder.index()});
  }
  pb::ChunkIndexData negative;
  pb::ChunkIndex* const topic = negative.add_indexes();
  topic->set_start_time(-1);
  topic->add_chunk_offsets(~0ULL);
  topic->add_infos()->set_time(-5);
  seeds.push_back({"negative", negative.SerializeAsString()});
  return seeds;
}

std::vector<Seed> lidarSeeds() {
  std::vector<Seed> seeds;
  for (const int points : {0, 1, 3, 50}) {
    pb::LidarPointMsgArray array;
    for (std::uint32_t seq = 0; seq < 3; ++seq) {
      pb::LidarPointMsg* const scan = array.add_msgs();
      scan->mutable_header()->set_timestamp(kStartUs + 100'000L * seq);
      scan->mutable_header()->set_scale(seq == 2 ? -3 : 1000);
      scan->mutable_header()->set_seq(seq);
      for (int i = 0; i < points; ++i) {
        pb::LidarPoint* const point = scan->add_points();
        point->set_x(1000L * i);
        point->set_y(-500L * i * i);
        point->set_z(i % 7);
        point->set_intensity(static_cast<std::uint32_t>(i * 5));
        point->set_ring(static_cast<std::uint32_t>(i % 32));
        point->set_time_offset(i * 10 - 5);
      }
    }
    seeds.push_back({"points-" + std::to_string(points), array.SerializeAsString()});
  }
  return seeds;
}

std::vector<Seed> messageSeeds() {
  std::vector<Seed> seeds;
  for (const SamplePayload& sample : samplePayloads()) {
    std::string name = "payload" + sample.topic + std::to_string(seeds.size());
    std::ranges::replace(name, '/', '-');
    seeds.push_back({name, sample.payload});
  }
  return seeds;
}

std::vector<Seed> deviceSeeds() {
  pb::DeviceInfoV102 older;
  older.set_device_name("\xFF\xFE old");
  older.set_serial_number("7");
  older.add_sensors("\x80");
  return {{"device", deviceRecord()}, {"older", older.SerializeAsString()}, {"empty", ""}};
}

std::vector<Seed> calibrationSeeds() {
  std::vector<Seed> seeds;
  const auto joined = [](const std::vector<std::string>& documents) {
    std::string bytes;
    for (const std::string& document : documents) bytes += document + '\0';
    return bytes;
  };
  seeds.push_back({"whole", joined(calibration())});
  std::vector<std::string> singular(7, test::transformYaml(std::vector<double>(16, 0)));
  seeds.push_back({"singular", joined(singular)});
  singular.assign(7, test::transformYaml({1, 2, 3, 4, 2, 4, 6, 8, 1, 0, 0, 1, 0, 0, 0, 1}));
  seeds.push_back({"dependent", joined(singular)});
  singular.assign(7, test::transformYaml({1e-30, 0, 0, 0, 0, 1e30, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}));
  seeds.push_back({"extreme", joined(singular)});
  std::vector<std::string> lidarAlone = calibration();
  for (const std::size_t i : {2U, 3U, 4U}) lidarAlone[i].clear();
  seeds.push_back({"lidar-alone", joined(lidarAlone)});
  seeds.push_back({"not-finite", joined({"Ba: [.nan, .inf, -.inf]\ncalibrated: on\n",
                                         "s: [.inf, .nan]\ne: .nan\ncalibrated: true\n"})});
  seeds.push_back({"anchors", "a: &x [1, 2]\nb: *x\n<<: {c: d}\n? {e: f}\n: !!float 1\n"});
  seeds.push_back({"deep", std::string(600, '[')});
  seeds.push_back({"block", "transform: |\n  1, 0\n  2\n...\n---\nother: >\n  x\n"});
  return seeds;
}

std::vector<Seed> packedSeeds() {
  std::vector<Seed> seeds;
  std::string mixed;
  for (int i = 0; i < 3000; ++i) mixed += static_cast<char>(i * i / 7);
  for (const CodecName& codec : kCodecs) {
    if (codec.compression == 0) continue;
    const std::vector<std::string> raws = {"", "x", std::string(100, 'a'), mixed,
                                           std::string(200'000, 'z')};
    for (const std::string& raw : raws) {
      DraftChunk chunk;
      store(raw, true, codec.compression, &chunk);
      std::string bytes(1, static_cast<char>(codec.compression));
      appendLe<std::uint32_t>(&bytes, static_cast<std::uint32_t>(raw.size()));
      bytes += chunk.data.substr(0, 19'000);
      seeds.push_back({std::string(codec.name) + "-" + std::to_string(raw.size()), bytes});
    }
  }
  return seeds;
}

}  // namespace

const std::vector<SamplePayload>& samplePayloads() {
  static const std::vector<SamplePayload> kSamples = [] {
    std::vector<SamplePayload> samples;
    const auto add = [&samples](const test::RecordedMessage& message) {
      samples.push_back({message.topic, message.payload});
    };
    add(test::imuMessage(kStartUs));
    add(test::magneticMessage(kStartUs));
    add(test::motorMessage(kStartUs, 20'000, 0.3));
    add(test::gnssMessage(kStartUs));
    add(test::lidarMessage("/lidar", kStartUs));
    add(test::lidarMessage("/hesai/pandar", kStartUs));
    add(test::lidarMessage("/livox/lidar", kStartUs));
    for (const char* topic :
         {"/camera_left/h264", "/camera_right/jpeg", "/camera_left_main/h264",
          "/camera_right_main/h264", "/camera_center/jpeg", "/camera_right_seco/jpeg"}) {
      add(test::imageMessage(topic, kStartUs, std::string("\0\0\0\1\x67picture", 12)));
    }
    add(test::fileMessage("/config_file", "calib/imu.yaml", fullImuYaml()));
    add(test::fileMessage("/project_data", "../../../etc/plan.json", "{}"));
    add(test::fileMessage("/project_data", "a\nb", std::string(50, '\0')));
    for (const char* topic : {"/raw_gnss_log", "/raw_ntrip_log", "/raw_ppk_log"}) {
      add(test::logMessage(topic, "$GPGGA,123519,4807.038,N*47\r\n"));
    }
    pb::FileMsgArray scrambled;
    scrambled.add_msgs()->set_scrambled("secret");
    samples.push_back({"/config_file", scrambled.SerializeAsString()});
    samples.push_back({"/imu", "no message"});
    return samples;
  }();
  return kSamples;
}

std::vector<Seed> seedsOf(Form form) {
  switch (form) {
    case Form::kRecording:
      return recordingSeeds();
    case Form::kIndex:
      return indexSeeds();
    case Form::kLidar:
      return lidarSeeds();
    case Form::kMessage:
      return messageSeeds();
    case Form::kDevice:
      return deviceSeeds();
    case Form::kCalibration:
      return calibrationSeeds();
    case Form::kPacked:
      return packedSeeds();
  }
  return {};
}

}  // namespace morva::fuzz

#include "task/recordings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "kbag_msgs.pb.h"
#include "kit/simulate/picture_encoder.h"
#include "support/recording_builder.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;
namespace pb = protix::kbag_msgs;

constexpr std::int64_t kScale = 100000;

std::int64_t coded(double value) { return std::llround(value * static_cast<double>(kScale)); }

template <typename Array>
auto* addMessage(Array* array, std::int64_t timeUs) {
  auto* const message = array->add_msgs();
  message->mutable_header()->set_timestamp(timeUs);
  message->mutable_header()->set_scale(kScale);
  message->mutable_header()->set_seq(static_cast<std::uint32_t>(array->msgs_size() - 1));
  return message;
}

}  // namespace

RecordedMessage imuMessage(std::int64_t timeUs, double accelX) {
  pb::ImuMsgArray array;
  for (const std::int64_t offsetUs : {0, 5000}) {
    auto* const sample = addMessage(&array, timeUs + offsetUs);
    sample->set_accel_x(coded(accelX));
    sample->set_accel_z(coded(9.75));
  }
  return {"/imu", array.SerializeAsString(), timeUs};
}

RecordedMessage magneticMessage(std::int64_t timeUs) {
  pb::MagneticMsgArray array;
  addMessage(&array, timeUs)->set_mag_x(coded(25.0));
  return {"/magnetic", array.SerializeAsString(), timeUs};
}

RecordedMessage motorMessage(std::int64_t timeUs, std::int64_t spanUs, double angleRad) {
  pb::OdometryMsgArray array;
  for (const std::int64_t offsetUs : {std::int64_t{0}, spanUs}) {
    auto* const orientation = addMessage(&array, timeUs + offsetUs);
    orientation->set_qw(coded(std::cos(angleRad / 2)));
    orientation->set_qz(coded(std::sin(angleRad / 2)));
  }
  return {"/lidar_to_platform", array.SerializeAsString(), timeUs};
}

RecordedMessage lidarMessage(const std::string& topic, std::int64_t timeUs) {
  pb::LidarPointMsgArray array;
  auto* const scan = addMessage(&array, timeUs);
  auto* point = scan->add_points();
  point->set_x(coded(1.0));
  point->set_y(coded(2.0));
  point->set_z(coded(3.0));
  point->set_intensity(10);
  point = scan->add_points();
  point->set_x(coded(-4.0));
  point->set_y(coded(5.0));
  point->set_z(coded(6.0));
  point->set_ring(1);
  point->set_time_offset(1000);
  return {topic, array.SerializeAsString(), timeUs};
}

RecordedMessage gnssMessage(std::int64_t timeUs) {
  pb::GnssMsgArray array;
  auto* const fix = addMessage(&array, timeUs);
  fix->set_latitude(52.5);
  fix->set_longitude(13.25);
  fix->set_status(1);
  return {"/gnss_data", array.SerializeAsString(), timeUs};
}

RecordedMessage fileMessage(const std::string& topic, const std::string& name,
                            const std::string& content) {
  pb::FileMsgArray array;
  auto* const file = array.add_msgs();
  file->set_name(name);
  file->set_plain(content);
  return {topic, array.SerializeAsString()};
}

RecordedMessage logMessage(const std::string& topic, const std::string& data) {
  pb::LogMsgArray array;
  addMessage(&array, kStartUs)->set_data(data);
  return {topic, array.SerializeAsString()};
}

RecordedMessage imageMessage(const std::string& topic, std::int64_t timeUs,
                             const std::string& payload) {
  pb::ImageMsgArray array;
  addMessage(&array, timeUs)->set_data(payload);
  return {topic, array.SerializeAsString(), timeUs};
}

std::string h264Picture() {
  static const std::string kPayload = [] {
    constexpr int kWidth = 64;
    constexpr int kHeight = 48;
    std::string payload;
    const auto encoder = sim::makeH264Encoder(kWidth, kHeight);
    if (encoder == nullptr || !encoder->encode(sim::Picture(kWidth, kHeight), &payload)) {
      throw std::runtime_error("no picture could be encoded");
    }
    return payload;
  }();
  return kPayload;
}

void recordBag(const std::string& path, const std::vector<RecordedMessage>& messages) {
  RecordingBuilder recording;
  for (const RecordedMessage& message : messages) {
    recording.addPayload(message.topic, message.payload, 1, message.timeUs, message.timeUs);
  }
  recording.write(path);
}

void recordProject(const std::string& path, const std::vector<RecordedMessage>& messages) {
  fs::create_directories(path);
  recordBag(path + "/" + kBagName, messages);
}

std::string imuYaml(double biasX) {
  return "Ba: [" + std::to_string(biasX) + ", 0, 0]\ncalibrated: true\n";
}

std::string transformYaml(const std::vector<double>& rowMajor) {
  std::ostringstream text;
  text << "transform: [";
  for (std::size_t i = 0; i < rowMajor.size(); ++i) text << (i == 0 ? "" : ", ") << rowMajor[i];
  text << "]\n";
  return text.str();
}

std::string identityYaml() { return translationYaml(0, 0, 0); }

std::string translationYaml(double x, double y, double z) {
  return transformYaml({1, 0, 0, x, 0, 1, 0, y, 0, 0, 1, z, 0, 0, 0, 1});
}

std::vector<std::string> treeOf(const std::string& dir) {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    const std::string name = fs::relative(entry.path(), dir).string();
    if (!entry.is_directory()) {
      names.push_back(name);
    } else if (fs::is_empty(entry.path())) {
      names.push_back(name + "/");
    }
  }
  std::ranges::sort(names);
  return names;
}

std::vector<std::string> contentsOf(const std::string& dir) {
  std::vector<std::string> files = treeOf(dir);
  for (std::string& name : files) {
    if (!name.ends_with('/')) name += ": " + readFile(dir + "/" + name);
  }
  return files;
}

std::vector<std::string> taskLog(const std::string& dir) {
  static const std::regex time(R"(^(<.>)\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} )");
  std::vector<std::string> lines;
  for (const std::string& name : treeOf(dir)) {
    std::istringstream text(readFile(dir + "/" + name));
    for (std::string line; std::getline(text, line);) {
      lines.push_back(std::regex_replace(line, time, "$1TIME "));
    }
  }
  return lines;
}

std::vector<RecordedMessage> carriedMessages() {
  return {fileMessage("/config_file", "imu.yaml", imuYaml(0.25)),
          fileMessage("/config_file", "lidar.yaml", "s: [1, 1]\ne: 0.01\ncalibrated: true\n"),
          fileMessage("/config_file", "extrinsic_motor_lidar.yaml", translationYaml(0, 0, -0.5)),
          fileMessage("/config_file", "extrinsic_imu_motor.yaml", translationYaml(-1, 0, 0)),
          fileMessage("/config_file", "extrinsic_camera_motor.yaml", translationYaml(0, -2, 0)),
          fileMessage("/config_file", "camera.yaml", "model: pinhole\n"),
          fileMessage("/project_data", "project.json", "{}")};
}

std::vector<RecordedMessage> sampleMessages(std::int64_t timeUs) {
  return {imuMessage(timeUs), motorMessage(timeUs - 10000, 60000, 0.3),
          lidarMessage("/lidar", timeUs), magneticMessage(timeUs), gnssMessage(timeUs)};
}

std::vector<std::string> comingLogNames() {
  constexpr std::time_t kSeconds = 120;
  const std::time_t now = std::time(nullptr);
  std::vector<std::string> names;
  for (std::time_t second = now; second <= now + kSeconds; ++second) {
    std::tm local{};
    localtime_r(&second, &local);
    std::array<char, 64> name{};
    const std::size_t length =
        std::strftime(name.data(), name.size(), "bagtool-%Y%m%d_%H%M%S.log", &local);
    names.emplace_back(name.data(), length);
  }
  return names;
}

}  // namespace morva::test

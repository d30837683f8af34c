#include "real/real_recording.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <stdexcept>
#include <utility>
#include <vector>

#include "kbag_msgs.pb.h"
#include "morva/bag.h"

namespace morva::test {
namespace {

namespace msgs = protix::kbag_msgs;

struct Message {
  std::int64_t time;
  std::string topic;
  std::size_t samples;
  std::string payload;
};

constexpr std::size_t kLogPieceBytes = 1000;

std::int64_t coded(double value, double scale) { return std::llround(value * scale); }

void fillHeader(msgs::Header* header, std::int64_t time, double scale, std::size_t seq) {
  header->set_timestamp(time);
  header->set_scale(static_cast<std::int64_t>(scale));
  header->set_seq(static_cast<std::uint32_t>(seq));
}

void fill(const RealData::Imu& sample, std::size_t seq, msgs::ImuMsg* msg) {
  fillHeader(msg->mutable_header(), sample.time, kImuScale, seq);
  msg->set_accel_x(coded(sample.values[0], kImuScale));
  msg->set_accel_y(coded(sample.values[1], kImuScale));
  msg->set_accel_z(coded(sample.values[2], kImuScale));
  msg->set_gyro_x(coded(sample.values[3], kImuScale));
  msg->set_gyro_y(coded(sample.values[4], kImuScale));
  msg->set_gyro_z(coded(sample.values[5], kImuScale));
}

void fill(const RealData::Magnetic& sample, std::size_t seq, msgs::MagneticMsg* msg) {
  fillHeader(msg->mutable_header(), sample.time, kMagneticScale, seq);
  msg->set_mag_x(coded(sample.values[0], kMagneticScale));
  msg->set_mag_y(coded(sample.values[1], kMagneticScale));
  msg->set_mag_z(coded(sample.values[2], kMagneticScale));
  msg->set_calib_mag_x(coded(sample.values[3], kMagneticScale));
  msg->set_calib_mag_y(coded(sample.values[4], kMagneticScale));
  msg->set_calib_mag_z(coded(sample.values[5], kMagneticScale));
}

void fill(const RealData::Gnss& fix, std::size_t seq, msgs::GnssMsg* msg) {
  fillHeader(msg->mutable_header(), fix.time, kGnssScale, seq);
  msg->set_status(1);
  msg->set_utc_time(fix.utcTime);
  msg->set_latitude(fix.latitude);
  msg->set_longitude(fix.longitude);
  msg->set_altitude(coded(fix.altitude + kUndulation, kGnssScale));
  msg->set_undulation(coded(kUndulation, kGnssScale));
}

void fill(const RealData::Motor& sample, std::size_t seq, msgs::OdometryMsg* msg) {
  const double half = sample.angle * std::numbers::pi / 360.0;
  fillHeader(msg->mutable_header(), sample.time, kMotorScale, seq);
  msg->set_qw(coded(std::cos(half), kMotorScale));
  msg->set_qz(coded(std::sin(half), kMotorScale));
  msg->set_angle(coded(sample.angle, kMotorScale));
}

void fill(const RealData::Scan& scan, std::size_t seq, msgs::LidarPointMsg* msg) {
  fillHeader(msg->mutable_header(), scan.time, kPointScale, seq);
  for (const RealData::Point& point : scan.points) {
    msgs::LidarPoint* const added = msg->add_points();
    added->set_x(coded(point.x, kPointScale));
    added->set_y(coded(point.y, kPointScale));
    added->set_z(coded(point.z, kPointScale));
    added->set_intensity(point.intensity);
    added->set_ring(point.ring);
    added->set_time_offset(point.timeOffset);
  }
}

/// Messages of `batch` samples each; a sample has a `time` member and a fill() function.
template <typename Array, typename Sample>
void addBatches(const std::string& topic, const std::vector<Sample>& samples, std::size_t batch,
                std::vector<Message>* out) {
  for (std::size_t first = 0; first < samples.size(); first += batch) {
    const std::size_t end = std::min(first + batch, samples.size());
    Array array;
    for (std::size_t i = first; i < end; ++i) fill(samples[i], i, array.add_msgs());
    out->push_back({samples[first].time, topic, end - first, array.SerializeAsString()});
  }
}

void addCamera(const std::string& topic, const RealData::Camera& camera,
               std::vector<Message>* out) {
  for (std::size_t i = 0; i < camera.pictures.size(); ++i) {
    const RealData::Picture& picture = camera.pictures[i];
    msgs::ImageMsgArray array;
    msgs::ImageMsg* const msg = array.add_msgs();
    fillHeader(msg->mutable_header(), picture.time, 0, i);
    msg->set_data(picture.bytes);
    msg->set_width(camera.width);
    msg->set_height(camera.height);
    out->push_back({picture.time, topic, 1, array.SerializeAsString()});
  }
}

void addLog(const std::string& topic, const std::string& bytes, std::int64_t start,
            std::vector<Message>* out) {
  constexpr std::int64_t kPause = 100000;
  for (std::size_t piece = 0; piece * kLogPieceBytes < bytes.size(); ++piece) {
    const std::int64_t time = start + static_cast<std::int64_t>(piece) * kPause;
    msgs::LogMsgArray array;
    msgs::LogMsg* const msg = array.add_msgs();
    fillHeader(msg->mutable_header(), time, 0, piece);
    msg->set_data(bytes.substr(piece * kLogPieceBytes, kLogPieceBytes));
    out->push_back({time, topic, 1, array.SerializeAsString()});
  }
}

void addFiles(const std::string& topic, const std::map<std::string, std::string>& files,
              std::int64_t time, std::vector<Message>* out) {
  msgs::FileMsgArray array;
  for (const auto& [name, content] : files) {
    msgs::FileMsg* const msg = array.add_msgs();
    fillHeader(msg->mutable_header(), time, 0, 0);
    msg->set_name("device/" + name);
    msg->set_plain(content);
  }
  out->push_back({time, topic, files.size(), array.SerializeAsString()});
}

std::vector<Message> makeMessages(const RealData& data) {
  std::vector<Message> messages;
  addBatches<msgs::ImuMsgArray>("/imu", data.imu, 20, &messages);
  addBatches<msgs::MagneticMsgArray>("/magnetic", data.magnetic, 5, &messages);
  addBatches<msgs::GnssMsgArray>("/gnss_data", data.gnss, 1, &messages);
  addBatches<msgs::OdometryMsgArray>("/lidar_to_platform", data.motor, 100, &messages);
  addBatches<msgs::LidarPointMsgArray>("/lidar", data.scans, 1, &messages);
  for (const auto& [topic, camera] : data.cameras) addCamera(topic, camera, &messages);
  const std::int64_t start = data.scans.front().time;
  for (const auto& [topic, bytes] : data.logs) addLog(topic, bytes, start, &messages);
  addFiles("/config_file", data.configFiles, start, &messages);
  addFiles("/project_data", data.projectFiles, start, &messages);
  std::ranges::stable_sort(messages, {}, &Message::time);
  return messages;
}

std::string deviceRecord() {
  msgs::DeviceInfo device;
  device.set_device_name("test rig");
  device.set_serial_number("0001");
  device.add_sensors("lidar");
  return device.SerializeAsString();
}

void require(bool good, const std::string& what) {
  if (!good) throw std::runtime_error("recording failed: " + what);
}

}  // namespace

std::map<std::string, TopicCounts> recordRealData(const RealData& data, const std::string& path,
                                                  CompressionType compression) {
  const std::vector<Message> messages = makeMessages(data);
  std::map<std::string, TopicCounts> counts;
  for (const Message& message : messages) {
    counts[message.topic].messages += 1;
    counts[message.topic].samples += message.samples;
  }

  MorvaBag bag;
  for (const auto& [topic, ignored] : counts) bag.topics.push_back(topic);
  bag.compressionType = compression;
  bag.writeBufferSize = 1 << 20;
  require(bag.open(path, BagMode::kWrite, deviceRecord()) == 0, "open " + path);
  for (const Message& message : messages) {
    const std::string header = MorvaBag::makeMessageHeader(
        true, static_cast<std::uint32_t>(message.samples), message.time, message.time);
    require(bag.writeMessage(message.topic, message.time, header, message.payload), message.topic);
  }
  require(bag.close(), "close " + path);
  return counts;
}

}  // namespace morva::test

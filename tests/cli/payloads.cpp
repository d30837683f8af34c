#include "cli/payloads.h"

#include <kbag_msgs.pb.h>

namespace morva::test {
namespace {

namespace pb = protix::kbag_msgs;

constexpr std::int64_t kFrameStepUs = 10000;

void fillHeader(pb::Header* header, std::uint32_t seq, std::int64_t timeUs, std::int64_t scale) {
  header->set_seq(seq);
  header->set_timestamp(timeUs);
  header->set_scale(scale);
}

void fill(pb::ImuMsg* imu, std::int64_t seq) {
  imu->mutable_header()->set_scale(1000000);
  imu->set_accel_x(123456 * seq);
  imu->set_accel_y(-9806650 + seq);
  imu->set_accel_z(-1);
  imu->set_gyro_x(500000 - seq);
  imu->set_gyro_y(0);
  imu->set_gyro_z(-250000 * seq);
}

void fill(pb::MagneticMsg* magnetic, std::int64_t seq) {
  magnetic->mutable_header()->set_scale(1000);
  magnetic->set_mag_x(48123 + seq);
  magnetic->set_mag_y(-1500 * seq);
  magnetic->set_mag_z(7);
}

void fill(pb::OdometryMsg* motor, std::int64_t seq) {
  motor->mutable_header()->set_scale(1000000);
  motor->set_qw(1000000);
  motor->set_angle(-3141592 + 1000 * seq);
}

void fill(pb::GnssMsg* gnss, std::int64_t seq) {
  gnss->mutable_header()->set_scale(1000);
  gnss->set_status(static_cast<std::int32_t>(seq % 4) - 1);
  gnss->set_service(3);
  gnss->set_frame(1);
  gnss->set_satellite_num(static_cast<std::uint32_t>(12 + seq));
  gnss->set_utc_time(1700000000000 + seq);
  gnss->set_latitude(22.543096123 + 1e-9 * static_cast<double>(seq));
  gnss->set_longitude(-114.057865456);
  gnss->set_altitude(123456);
  gnss->set_undulation(-2500);
  gnss->set_pdop(1100);
  gnss->set_hdop(900);
  gnss->set_vdop(1300 + seq);
  gnss->set_lat_sigma(15);
  gnss->set_lon_sigma(16);
  gnss->set_hgt_sigma(31);
}

void fill(pb::LidarPointMsg* cloud, std::int64_t seq) {
  cloud->mutable_header()->set_scale(1000);
  for (std::int64_t i = 0; i < 3 + seq; ++i) {
    pb::LidarPoint* point = cloud->add_points();
    point->set_x(1000 * i);
    point->set_y(-500 * i);
    point->set_z(7 * seq);
    point->set_intensity(static_cast<std::uint32_t>(i % 256));
    point->set_ring(static_cast<std::uint32_t>(i % 16));
    point->set_time_offset(static_cast<std::int32_t>(i));
  }
}

void fill(pb::ImageMsg* image, std::int64_t seq) {
  image->set_data("picture " + std::to_string(seq) + std::string("\0\n\xFF", 3));
  image->set_width(1920);
  image->set_height(1080);
}

void fill(pb::FileMsg* file, std::int64_t seq) {
  file->set_name("folder/file" + std::to_string(seq) + ".yaml");
  file->set_plain("value: " + std::to_string(seq) + "\n");
}

void fill(pb::LogMsg* log, std::int64_t seq) {
  log->set_data("$GPGGA," + std::to_string(seq) + "\r\n");
}

template <typename Array>
std::string makeArray(std::uint32_t seq, std::int64_t timeUs, std::uint32_t frames) {
  Array array;
  for (std::uint32_t i = 0; i < frames; ++i) {
    auto* const message = array.add_msgs();
    fill(message, seq + i);
    fillHeader(message->mutable_header(), seq + i, timeUs + kFrameStepUs * i,
               message->header().scale());
  }
  return array.SerializeAsString();
}

}  // namespace

std::string makePayload(Kind kind, std::uint32_t seq, std::int64_t timeUs, std::uint32_t frames) {
  switch (kind) {
    case Kind::kImu:
      return makeArray<pb::ImuMsgArray>(seq, timeUs, frames);
    case Kind::kMagnetic:
      return makeArray<pb::MagneticMsgArray>(seq, timeUs, frames);
    case Kind::kMotor:
      return makeArray<pb::OdometryMsgArray>(seq, timeUs, frames);
    case Kind::kGnss:
      return makeArray<pb::GnssMsgArray>(seq, timeUs, frames);
    case Kind::kLidar:
      return makeArray<pb::LidarPointMsgArray>(seq, timeUs, frames);
    case Kind::kImage:
      return makeArray<pb::ImageMsgArray>(seq, timeUs, frames);
    case Kind::kFile:
      return makeArray<pb::FileMsgArray>(seq, timeUs, frames);
    case Kind::kLog:
      return makeArray<pb::LogMsgArray>(seq, timeUs, frames);
  }
  return {};
}

std::string makeFiles(std::int64_t timeUs,
                      const std::vector<std::pair<std::string, std::string>>& files) {
  pb::FileMsgArray array;
  for (const auto& [name, content] : files) {
    pb::FileMsg* const file = array.add_msgs();
    file->mutable_header()->set_timestamp(timeUs);
    file->set_name(name);
    file->set_plain(content);
  }
  return array.SerializeAsString();
}

std::string makeCloud(std::uint32_t seq, std::int64_t timeUs, std::uint32_t points) {
  pb::LidarPointMsgArray array;
  pb::LidarPointMsg* const cloud = array.add_msgs();
  fillHeader(cloud->mutable_header(), seq, timeUs, 1000);
  for (std::uint32_t i = 0; i < points; ++i) {
    pb::LidarPoint* const point = cloud->add_points();
    point->set_x(static_cast<std::int64_t>(i * 2654435761U % 100000));
    point->set_y(static_cast<std::int64_t>((i + seq) * 2246822519U % 100000));
    point->set_ring(i % 32);
  }
  return array.SerializeAsString();
}

std::string makeDevice() {
  pb::DeviceInfo device;
  device.set_device_name("scanner");
  device.set_device_model("S1");
  device.set_serial_number("0001-2023");
  device.set_firmware_version("1.2.3");
  device.add_sensors("lidar");
  device.add_sensors("imu \"left\"");
  return device.SerializeAsString();
}

}  // namespace morva::test

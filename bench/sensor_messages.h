#ifndef MORVA_BENCH_SENSOR_MESSAGES_H_
#define MORVA_BENCH_SENSOR_MESSAGES_H_

#include <cstdint>
#include <random>
#include <string>

#include <kbag_msgs.pb.h>

/// Serialized array messages with random values of usual magnitude; the same in every run.
namespace morva::bench {

namespace pb = protix::kbag_msgs;

inline constexpr std::int64_t kScale = 10000;
inline constexpr std::int64_t kStartUs = 1700000000000000;

/// `samples` IMU samples, 200 a second.
inline std::string imuPayload(std::int64_t samples) {
  std::minstd_rand random(1);
  const auto value = [&random] { return static_cast<std::int64_t>(random() % 200000) - 100000; };
  pb::ImuMsgArray array;
  for (std::int64_t i = 0; i < samples; ++i) {
    pb::ImuMsg* const msg = array.add_msgs();
    msg->mutable_header()->set_timestamp(kStartUs + 5000 * i);
    msg->mutable_header()->set_scale(kScale);
    msg->mutable_header()->set_seq(static_cast<std::uint32_t>(i));
    msg->set_accel_x(value());
    msg->set_accel_y(value());
    msg->set_accel_z(value());
    msg->set_gyro_x(value());
    msg->set_gyro_y(value());
    msg->set_gyro_z(value());
  }
  return array.SerializeAsString();
}

/// One lidar scan of `points` points.
inline std::string lidarPayload(std::int64_t points) {
  std::minstd_rand random(1);
  const auto value = [&random] { return static_cast<std::int64_t>(random() % 200000) - 100000; };
  pb::LidarPointMsgArray array;
  pb::LidarPointMsg* const msg = array.add_msgs();
  msg->mutable_header()->set_timestamp(kStartUs);
  msg->mutable_header()->set_scale(kScale);
  for (std::int64_t i = 0; i < points; ++i) {
    pb::LidarPoint* const point = msg->add_points();
    point->set_x(value());
    point->set_y(value());
    point->set_z(value());
    point->set_intensity(static_cast<std::uint32_t>(random() % 256));
    point->set_ring(static_cast<std::uint32_t>(i % 16));
    point->set_time_offset(static_cast<std::int32_t>(i));
  }
  return array.SerializeAsString();
}

}  // namespace morva::bench

#endif  // MORVA_BENCH_SENSOR_MESSAGES_H_

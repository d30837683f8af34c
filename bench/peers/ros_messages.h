#ifndef MORVA_BENCH_PEERS_ROS_MESSAGES_H_
#define MORVA_BENCH_PEERS_ROS_MESSAGES_H_

#include <cstdint>
#include <cstring>
#include <string>

#include <ros/message_traits.h>
#include <ros/serialization.h>

/// What the peers store in ROS bags: the columns of an IMU table as plain fields, and payloads as
/// they stand. Smaller and faster to read than the standard messages for the same.
namespace peers {

struct Imu {
  std::uint32_t seq = 0;
  std::int64_t timeUs = 0;
  float accel[3] = {};
  float gyro[3] = {};
};

struct Blob {
  std::string data;
};

}  // namespace peers

namespace ros::message_traits {

template <>
struct MD5Sum<peers::Imu> {
  static const char* value() { return "0a1b2c3d4e5f60718293a4b5c6d7e8f9"; }
  static const char* value(const peers::Imu& /*message*/) { return value(); }
};
template <>
struct DataType<peers::Imu> {
  static const char* value() { return "scanner_msgs/Imu"; }
  static const char* value(const peers::Imu& /*message*/) { return value(); }
};
template <>
struct Definition<peers::Imu> {
  static const char* value() {
    return "uint32 seq\nint64 time_us\nfloat32[3] accel\nfloat32[3] gyro\n";
  }
  static const char* value(const peers::Imu& /*message*/) { return value(); }
};

template <>
struct MD5Sum<peers::Blob> {
  static const char* value() { return "1b2c3d4e5f60718293a4b5c6d7e8f90a"; }
  static const char* value(const peers::Blob& /*message*/) { return value(); }
};
template <>
struct DataType<peers::Blob> {
  static const char* value() { return "scanner_msgs/Blob"; }
  static const char* value(const peers::Blob& /*message*/) { return value(); }
};
template <>
struct Definition<peers::Blob> {
  static const char* value() { return "uint8[] data\n"; }
  static const char* value(const peers::Blob& /*message*/) { return value(); }
};

}  // namespace ros::message_traits

namespace ros::serialization {

template <>
struct Serializer<peers::Imu> {
  template <typename Stream, typename Message>
  static void allInOne(Stream& stream, Message message) {
    stream.next(message.seq);
    stream.next(message.timeUs);
    for (auto& value : message.accel) stream.next(value);
    for (auto& value : message.gyro) stream.next(value);
  }
  ROS_DECLARE_ALLINONE_SERIALIZER
};

// Only ever written. The library's own code for vectors does not compile as C++20.
template <>
struct Serializer<peers::Blob> {
  template <typename Stream>
  static void write(Stream& stream, const peers::Blob& message) {
    stream.next(static_cast<std::uint32_t>(message.data.size()));
    std::memcpy(stream.advance(static_cast<std::uint32_t>(message.data.size())),
                message.data.data(), message.data.size());
  }
  static std::uint32_t serializedLength(const peers::Blob& message) {
    return static_cast<std::uint32_t>(sizeof(std::uint32_t) + message.data.size());
  }
};

}  // namespace ros::serialization

#endif  // MORVA_BENCH_PEERS_ROS_MESSAGES_H_

// bench_ros_inputs DIRECTORY NAME.bag...: ROS bags with the messages of the bags that bench_inputs
// made in the directory.
//
//   mixed.bag            the payloads of mixed-none.kbag, as they stand
//   mixed-unindexed.bag  the same without its index, as a recording that was cut short leaves it
//   imu.bag              the samples of imu.kbag

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <rosbag/bag.h>

#include "bench/peers/ros_messages.h"
#include "messages/msg_converter.h"
#include "morva/bag.h"

namespace {

namespace fs = std::filesystem;
using morva::MorvaBag;

ros::Time rosTime(std::int64_t timeUs) {
  ros::Time time;
  time.fromNSec(static_cast<std::uint64_t>(timeUs) * 1000U);
  return time;
}

peers::Blob blobOf(const std::string& payload) { return {payload}; }

peers::Imu imuOf(const std::string& payload) {
  const auto frame = morva::MsgConverter::fromImuMsgArray(payload).at(0);
  const morva::ImuMsg& imu = *frame->imu;
  return {.seq = frame->seq,
          .timeUs = static_cast<std::int64_t>(frame->collectTimestamp),
          .accel = {imu.accelX, imu.accelY, imu.accelZ},
          .gyro = {imu.gyroX, imu.gyroY, imu.gyroZ}};
}

template <typename Convert>
bool copyBag(const fs::path& from, const fs::path& to, Convert convert) {
  morva::View view = MorvaBag::getAllView(from.string(), nullptr);
  MorvaBag source;
  if (source.open(from.string(), morva::BagMode::kRead) != MorvaBag::kOpenOk) return false;
  rosbag::Bag target;
  target.open(to.string(), rosbag::bagmode::Write);
  std::string payload;
  for (const morva::MsgIndex& index : view.indexes) {
    if (!source.readMessage(index, &payload)) return false;
    target.write(index.topicName.data(), rosTime(index.headerTimes[0]), convert(payload));
  }
  target.close();
  return true;
}

/// Cuts off a bag's index, and its place out of the header: that of a bag never closed.
bool cutIndex(const fs::path& path) {
  constexpr std::streamoff kHeaderEnd = 4096 + 13;
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  std::string start(kHeaderEnd, '\0');
  file.read(start.data(), kHeaderEnd);
  const std::string name = "index_pos=";
  const std::size_t at = start.find(name);
  if (at == std::string::npos) return false;
  const std::size_t valueAt = at + name.size();
  std::uint64_t indexAt = 0;
  start.copy(reinterpret_cast<char*>(&indexAt), sizeof indexAt, valueAt);
  file.seekp(static_cast<std::streamoff>(valueAt));
  file.write("\0\0\0\0\0\0\0\0", sizeof indexAt);
  file.close();
  fs::resize_file(path, indexAt);
  return file.good();
}

bool make(const fs::path& directory, const std::string& name) {
  const fs::path target = directory / name;
  if (fs::exists(target)) return true;
  std::fprintf(stderr, "making %s\n", target.c_str());
  const fs::path part = target.string() + ".part";
  const bool isImu = name == "imu.bag";
  const bool isMade = isImu ? copyBag(directory / "imu.kbag", part, imuOf)
                            : copyBag(directory / "mixed-none.kbag", part, blobOf);
  if (!isMade || (name == "mixed-unindexed.bag" && !cutIndex(part))) return false;
  fs::rename(part, target);
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  for (int i = 2; i < count; ++i) {
    if (make(arguments[1], arguments[i])) continue;
    std::fprintf(stderr, "bench_ros_inputs: %s was not made\n", arguments[i]);
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

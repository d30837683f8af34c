// bench_correct_clouds_textbook BAG DIRECTORY: the corrected scans of a recording, the textbook's
// way and then printed the plain way. Only the calibration comes through the project's own readers.

#include <string>
#include <vector>

#include "bench/calibration_of.h"
#include "bench/peers/bag_walk.h"
#include "bench/peers/cloud.h"
#include "bench/peers/textbook_correction.h"

namespace {

Eigen::Isometry3f inverse(const Eigen::Matrix4f& transform) {
  return Eigen::Isometry3f(Eigen::Matrix4f(transform.inverse()));
}

peers::Correction correctionOf(const char* path) {
  morva::MorvaBag bag;
  morva::SensorParameters params;
  if (bag.open(path, morva::BagMode::kRead) != 0 || !morva::bench::readCalibration(bag, &params)) {
    peers::fail("no calibration");
  }
  return {.elevationRad = params.lidar.e,
          .motorFromLidar = inverse(params.motor.transform),
          .imuFromMotor = inverse(params.imuMotor.transform)};
}

void addMotors(const peers::Payloads& payload, std::vector<peers::MotorRecord>* motors) {
  protix::kbag_msgs::OdometryMsgArray array;
  if (!array.ParseFromArray(payload.data(), static_cast<int>(payload.size()))) {
    peers::fail("no motor records");
  }
  for (const auto& msg : array.msgs()) {
    const double factor = 1.0 / static_cast<double>(msg.header().scale());
    const auto value = [factor](std::int64_t coded) {
      return static_cast<float>(static_cast<double>(coded) * factor);
    };
    motors->push_back(
        {.timeS = static_cast<double>(msg.header().timestamp()) / 1e6,
         .orientation = {value(msg.qw()), value(msg.qx()), value(msg.qy()), value(msg.qz())}});
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) peers::fail("usage: bench_correct_clouds_textbook BAG DIRECTORY");
  const peers::Correction correction = correctionOf(arguments[1]);
  std::vector<peers::MotorRecord> motors;
  std::vector<std::vector<unsigned char>> scans;
  peers::Payloads payloads(arguments[1]);
  while (payloads.next()) {
    if (payloads.topic() == "/lidar_to_platform") addMotors(payloads, &motors);
    if (payloads.topic() != "/lidar") continue;
    scans.emplace_back(payloads.data(), payloads.data() + payloads.size());
  }
  for (const std::vector<unsigned char>& scan : scans) {
    peers::Cloud cloud = peers::parseCloud(scan.data(), scan.size());
    peers::correct(correction, motors, &cloud.points);
    peers::writeCloud(arguments[2], cloud);
  }
  return 0;
}

#include "export/points_transformer.h"

#include <algorithm>
#include <cstddef>

#include "export/motor_brackets.h"
#include "export/transform.h"

namespace morva {
namespace {

using MotorRecords = std::vector<std::shared_ptr<MotorMsg>>;

/// The points from `at` on that one bracket holds, as many as a batch takes.
std::span<PointIRT> runFrom(std::size_t at, const MotorBrackets::Bracket& bracket,
                            std::span<PointIRT> points) {
  const std::size_t limit = std::min(points.size(), at + PointBatch::kPoints);
  std::size_t end = at + 1;
  while (end < limit && bracket.holds(points[end].timestamp)) ++end;
  return points.subspan(at, end - at);
}

}  // namespace

bool PointsTransformer::setMotion(const char* name, const Eigen::Matrix4f& inverse,
                                  AffineMotion* motion) const {
  Eigen::Matrix4d transform;
  if (!invertTransform(inverse, &transform)) {
    log_.error("the %s transform has no finite inverse!", name);
    return false;
  }
  *motion = transform.topRows<3>();
  return true;
}

bool PointsTransformer::setParameters(const SensorParameters& params) {
  PointsTransformer next;
  next.lidar_ = params.lidar;
  next.compensatesMotor_ = params.motor.given || !params.imuLidar.given;
  const bool usable =
      next.compensatesMotor_
          ? setMotion("motor to lidar", params.motor.transform, &next.motorFromLidar_) &&
                setMotion("IMU to motor", params.imuMotor.transform, &next.imuFromMotor_)
          : setMotion("IMU to lidar", params.imuLidar.transform, &next.imuFromLidar_);
  if (usable) *this = next;
  return usable;
}

void PointsTransformer::CorrectLidarPoint(PointIRT& p) const {
  PointBatch batch;
  batch.load({&p, 1});
  batch.elevate(lidar_.e);
  batch.store({&p, 1});
}

int PointsTransformer::CorrectLidarAndTransformToImuFrame(
    const MotorRecords& motors, const std::shared_ptr<PointCloudMsg>& cloud) const {
  if (motors.empty()) {
    log_.error("Motor messages are empty, cannot perform motor compensation!");
    return kTransformNoMotors;
  }
  if (cloud == nullptr || cloud->cloud == nullptr || cloud->cloud->points.empty()) {
    log_.error("cloud is empty!");
    return kTransformEmptyCloud;
  }
  if (compensatesMotor_) {
    followMotor(motors, cloud->cloud->points);
  } else {
    moveFromLidar(cloud->cloud->points);
  }
  return kTransformOk;
}

void PointsTransformer::moveFromLidar(std::span<PointIRT> points) const {
  PointBatch batch;
  while (!points.empty()) {
    const auto run = points.first(std::min(points.size(), PointBatch::kPoints));
    batch.load(run);
    if (lidar_.calibrated) batch.elevate(lidar_.e);
    batch.move(imuFromLidar_);
    batch.store(run);
    points = points.subspan(run.size());
  }
}

void PointsTransformer::followMotor(const MotorRecords& motors, std::span<PointIRT> points) const {
  const Log log("PointsTransformer", "CorrectLidarAndTransformToImuFrame");
  MotorBrackets brackets(motors);
  MotorBrackets::Bracket arcsBracket;
  MotorArc arc;
  PointBatch batch;
  for (std::size_t at = 0; at < points.size();) {
    const MotorBrackets::Bracket bracket = brackets.find(points[at].timestamp);
    const std::span<PointIRT> run = runFrom(at, bracket, points);
    batch.load(run);
    if (lidar_.calibrated) batch.elevate(lidar_.e);
    if (!bracket.isFound) {
      log.warning("motor index out of range(%d>=%d)!", motors.size(), motors.size());
    } else {
      if (!arcsBracket.isFound || bracket.first != arcsBracket.first ||
          bracket.second != arcsBracket.second) {
        arcsBracket = bracket;
        arc = MotorArc(motorFromLidar_, imuFromMotor_, *motors[bracket.first],
                       *motors[bracket.second]);
      }
      batch.move(arc, run);
    }
    batch.store(run);
    at += run.size();
  }
}

}  // namespace morva

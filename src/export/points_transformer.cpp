#include "export/points_transformer.h"

#include <algorithm>
#include <cmath>

#include <Eigen/Geometry>

#include "export/transform.h"

namespace morva {
namespace {

using MotorRecords = std::vector<std::shared_ptr<MotorMsg>>;

constexpr float kSmallestRangeM = 0.001F;
constexpr float kSlerpThreshold = 0.9999999F;  // above it the arc is as good as straight

Eigen::Vector3f positionOf(const PointIRT& point) { return {point.x, point.y, point.z}; }

void setPosition(const Eigen::Vector3f& position, PointIRT* point) {
  point->x = position.x();
  point->y = position.y();
  point->z = position.z();
}

Eigen::Quaternionf orientationOf(const MotorMsg& motor) {
  return {motor.qw, motor.qx, motor.qy, motor.qz};
}

/// Weights of the two ends of an arc, at the ratio u of it.
struct SlerpWeights {
  float first = 0.0F;
  float second = 0.0F;
};

SlerpWeights slerpWeights(float dot, float u) {
  SlerpWeights weights{1.0F - u, u};
  const float cosine = std::abs(dot);
  if (cosine < kSlerpThreshold) {
    const float angle = std::acos(cosine);
    const float sine = std::sin(angle);
    weights = {std::sin((1.0F - u) * angle) / sine, std::sin(u * angle) / sine};
  }
  if (dot < 0.0F) weights.second = -weights.second;  // the shorter way round
  return weights;
}

Eigen::Quaternionf interpolate(const MotorMsg& first, const MotorMsg& second, double time) {
  const Eigen::Quaternionf from = orientationOf(first);
  const Eigen::Quaternionf to = orientationOf(second);
  // Records that are not in order have no time between them: take the second one, which is not
  // earlier than the point.
  const double span = second.time - first.time;
  const double u = span > 0.0 ? (time - first.time) / span : 1.0;
  const SlerpWeights weights = slerpWeights(from.dot(to), static_cast<float>(u));
  return Eigen::Quaternionf(weights.first * from.coeffs() + weights.second * to.coeffs());
}

/// Index of the first record that is not earlier than `time`.
std::size_t firstNotBefore(const MotorRecords& motors, double time) {
  const auto found = std::ranges::lower_bound(motors, time, {}, &MotorMsg::time);
  return static_cast<std::size_t>(found - motors.begin());
}

}  // namespace

bool PointsTransformer::setMotion(const char* name, const Eigen::Matrix4f& inverse,
                                  Motion* motion) const {
  Eigen::Matrix4d transform;
  if (!invertTransform(inverse, &transform)) {
    log_.error("the %s transform has no finite inverse!", name);
    return false;
  }
  motion->rotation = transform.topLeftCorner<3, 3>().cast<float>();
  motion->translation = transform.topRightCorner<3, 1>().cast<float>();
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
  const float range = std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z);
  if (!(range > kSmallestRangeM)) return;
  const float elevation = std::asin(p.z / range) + lidar_.e;
  const float azimuth = std::atan2(p.y, p.x);
  p.z = range * std::sin(elevation);
  p.x = range * std::cos(elevation) * std::cos(azimuth);
  p.y = range * std::cos(elevation) * std::sin(azimuth);
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
  for (PointIRT& point : cloud->cloud->points) {
    if (lidar_.calibrated) CorrectLidarPoint(point);
    if (!compensatesMotor_) {
      setPosition(imuFromLidar_ * positionOf(point), &point);
      continue;
    }
    std::size_t next = firstNotBefore(motors, point.timestamp);
    const bool isFirst = next == 0 && point.timestamp == motors.front()->time;
    if (next == 0 && !isFirst) next = motors.size();  // too early is no better than too late
    if (next == motors.size()) {
      log_.warning("motor index out of range(%d>=%d)!", next, motors.size());
      continue;
    }
    const Eigen::Quaternionf orientation =
        isFirst ? orientationOf(*motors.front())
                : interpolate(*motors[next - 1], *motors[next], point.timestamp);
    setPosition(imuFromMotor_ * (orientation * (motorFromLidar_ * positionOf(point))), &point);
  }
  return kTransformOk;
}

}  // namespace morva

#ifndef MORVA_BENCH_PEERS_TEXTBOOK_CORRECTION_H_
#define MORVA_BENCH_PEERS_TEXTBOOK_CORRECTION_H_

#include <algorithm>
#include <cmath>
#include <vector>

#include <Eigen/Geometry>

#include "bench/peers/cloud.h"

/// Elevation and motor compensation as a textbook gives them: single precision, the angles of every
/// point, a binary search and a slerp for every point.
namespace peers {

struct MotorRecord {
  double timeS = 0.0;
  Eigen::Quaternionf orientation;
};

struct Correction {
  float elevationRad = 0.0F;  ///< added to every point's elevation angle
  Eigen::Isometry3f motorFromLidar = Eigen::Isometry3f::Identity();
  Eigen::Isometry3f imuFromMotor = Eigen::Isometry3f::Identity();
};

inline void correctElevation(float elevationRad, Point* point) {
  const float range = std::sqrt(point->x * point->x + point->y * point->y + point->z * point->z);
  if (!(range > 0.001F)) return;
  const float elevation = std::asin(point->z / range) + elevationRad;
  const float azimuth = std::atan2(point->y, point->x);
  point->z = range * std::sin(elevation);
  point->x = range * std::cos(elevation) * std::cos(azimuth);
  point->y = range * std::cos(elevation) * std::sin(azimuth);
}

/// @param motors  In order of time. Points that no two of them bracket stay as they are.
inline void compensateMotor(const Correction& correction, const std::vector<MotorRecord>& motors,
                            Point* point) {
  const auto next = std::ranges::lower_bound(motors, point->timestamp, {}, &MotorRecord::timeS);
  if (next == motors.begin() || next == motors.end()) return;
  const auto last = next - 1;
  const double ratio = (point->timestamp - last->timeS) / (next->timeS - last->timeS);
  const Eigen::Quaternionf orientation =
      last->orientation.slerp(static_cast<float>(ratio), next->orientation);
  const Eigen::Vector3f inMotor =
      correction.motorFromLidar * Eigen::Vector3f(point->x, point->y, point->z);
  const Eigen::Vector3f inImu = correction.imuFromMotor * (orientation * inMotor);
  point->x = inImu.x();
  point->y = inImu.y();
  point->z = inImu.z();
}

inline void correct(const Correction& correction, const std::vector<MotorRecord>& motors,
                    std::vector<Point>* points) {
  for (Point& point : *points) {
    correctElevation(correction.elevationRad, &point);
    compensateMotor(correction, motors, &point);
  }
}

}  // namespace peers

#endif  // MORVA_BENCH_PEERS_TEXTBOOK_CORRECTION_H_

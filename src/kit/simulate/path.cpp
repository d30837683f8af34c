#include "kit/simulate/path.h"

#include <cmath>
#include <numbers>

namespace morva::sim {

namespace {

using Eigen::Isometry3d;
using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr double kPi = std::numbers::pi;
constexpr double kTurnRadS = 2.0 * kPi / Path::kPeriodS;

Matrix3d rotationOf(double roll, double pitch, double yaw) {
  return (Eigen::AngleAxisd(yaw, Vector3d::UnitZ()) * Eigen::AngleAxisd(pitch, Vector3d::UnitY()) *
          Eigen::AngleAxisd(roll, Vector3d::UnitX()))
      .toRotationMatrix();
}

}  // namespace

double Path::Curve::valueAt(double timeS) const {
  double value = constant + slope * timeS;
  for (const Wave& wave : waves) {
    value += wave.amplitude * std::sin(wave.cycles * kTurnRadS * timeS + wave.phaseRad);
  }
  return value;
}

std::array<double, 3> Path::Curve::jetAt(double timeS) const {
  std::array<double, 3> jet = {constant + slope * timeS, slope, 0.0};
  for (const Wave& wave : waves) {
    const double rate = wave.cycles * kTurnRadS;
    const double angle = rate * timeS + wave.phaseRad;
    jet[0] += wave.amplitude * std::sin(angle);
    jet[1] += wave.amplitude * rate * std::cos(angle);
    jet[2] -= wave.amplitude * rate * rate * std::sin(angle);
  }
  return jet;
}

Path Path::makeWalk(Random* random) {
  const auto phase = [random] { return random->uniform(0.0, 2.0 * kPi); };
  Path path;
  // An ellipse; 16 steps of 1 s on the way, which sway sideways once and rise twice in each.
  path.position_[0] = {0.0, 0.0, {{1, 2.4, kPi / 2.0}, {16, 0.015, phase()}}};
  path.position_[1] = {0.0, 0.0, {{1, 1.6, 0.0}, {16, 0.015, phase()}}};
  path.position_[2] = {1.45, 0.0, {{2, 0.05, phase()}, {32, 0.012, phase()}}};
  path.angles_[0] = {0.0, 0.0, {{16, 0.035, phase()}, {5, 0.030, phase()}}};
  path.angles_[1] = {0.02, 0.0, {{32, 0.015, phase()}, {3, 0.040, phase()}}};
  // Along the ellipse, but for the higher terms of its direction; the head turns a little.
  path.angles_[2] = {
      kPi / 2.0, kTurnRadS, {{2, 0.2, 0.0}, {16, 0.020, phase()}, {7, 0.060, phase()}}};
  return path;
}

Path Path::makeStill() {
  Path path;
  path.position_[0].constant = 1.9;
  path.position_[1].constant = -0.8;
  path.position_[2].constant = 1.40;
  path.angles_[0].constant = 0.05;
  path.angles_[1].constant = -0.03;
  path.angles_[2].constant = 0.40;
  return path;
}

Isometry3d Path::poseAt(double timeS) const {
  Isometry3d pose = Isometry3d::Identity();
  pose.linear() =
      rotationOf(angles_[0].valueAt(timeS), angles_[1].valueAt(timeS), angles_[2].valueAt(timeS));
  pose.translation() << position_[0].valueAt(timeS), position_[1].valueAt(timeS),
      position_[2].valueAt(timeS);
  return pose;
}

Motion Path::motionAt(double timeS) const {
  const auto x = position_[0].jetAt(timeS);
  const auto y = position_[1].jetAt(timeS);
  const auto z = position_[2].jetAt(timeS);
  const auto [roll, rollRate, rollAcceleration] = angles_[0].jetAt(timeS);
  const auto [pitch, pitchRate, pitchAcceleration] = angles_[1].jetAt(timeS);
  const auto [yaw, yawRate, yawAcceleration] = angles_[2].jetAt(timeS);

  Motion motion;
  motion.worldFromImu = Isometry3d::Identity();
  motion.worldFromImu.linear() = rotationOf(roll, pitch, yaw);
  motion.worldFromImu.translation() << x[0], y[0], z[0];
  motion.velocity << x[1], y[1], z[1];
  motion.acceleration << x[2], y[2], z[2];
  motion.angularRate << rollRate - yawRate * std::sin(pitch),
      pitchRate * std::cos(roll) + yawRate * std::sin(roll) * std::cos(pitch),
      -pitchRate * std::sin(roll) + yawRate * std::cos(roll) * std::cos(pitch);
  motion.specificForce = motion.worldFromImu.linear().transpose() *
                         (motion.acceleration + kGravity * Vector3d::UnitZ());
  return motion;
}

}  // namespace morva::sim

#include "kit/simulate/motor.h"

#include <cmath>
#include <numbers>

namespace morva::sim {

namespace {

constexpr double kTwoPi = 2.0 * std::numbers::pi;
constexpr double kRippleRad = 0.02;
constexpr double kRippleHz = 1.3;

}  // namespace

Motor::Motor(Random* random) : startAngleRad_(random->uniform(0.0, kTwoPi)) {}

double Motor::angleAt(double timeS) const {
  return startAngleRad_ + kTwoPi * kTurnsPerS * timeS +
         kRippleRad * std::sin(kTwoPi * kRippleHz * timeS);
}

Eigen::Matrix3d Motor::rotationAt(double timeS) const {
  return Eigen::AngleAxisd(angleAt(timeS), Eigen::Vector3d::UnitZ()).toRotationMatrix();
}

}  // namespace morva::sim

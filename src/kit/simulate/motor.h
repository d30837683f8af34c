#ifndef MORVA_KIT_SIMULATE_MOTOR_H_
#define MORVA_KIT_SIMULATE_MOTOR_H_

#include <Eigen/Geometry>

#include "kit/simulate/random.h"

namespace morva::sim {

/// The motor that turns the lidar around its z axis, at half a turn a second with a slight ripple.
/// Threads: any.
class Motor {
 public:
  static constexpr double kTurnsPerS = 0.5;

  /// @param random  Gives the angle at the start.
  explicit Motor(Random* random);

  /// Radians since angle 0; grows without bound. @param timeS  Seconds since the start.
  [[nodiscard]] double angleAt(double timeS) const;
  /// Takes a point of the turning part to the motor frame, which stands still on the scanner.
  [[nodiscard]] Eigen::Matrix3d rotationAt(double timeS) const;

 private:
  double startAngleRad_;
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_MOTOR_H_

#ifndef MORVA_KIT_SIMULATE_PATH_H_
#define MORVA_KIT_SIMULATE_PATH_H_

#include <array>
#include <vector>

#include <Eigen/Geometry>

#include "kit/simulate/random.h"

namespace morva::sim {

/// Strength and direction of gravity, m/s^2, world frame.
inline constexpr double kGravity = 9.80665;

/// The scanner's motion at one moment: that of the IMU, in the world frame.
struct Motion {
  Eigen::Isometry3d worldFromImu;
  Eigen::Vector3d velocity;       ///< m/s, world frame
  Eigen::Vector3d acceleration;   ///< m/s^2, world frame, gravity not included
  Eigen::Vector3d angularRate;    ///< rad/s, IMU frame: what an ideal gyroscope measures
  Eigen::Vector3d specificForce;  ///< m/s^2, IMU frame: what an ideal accelerometer measures
};

/// The way of the scanner: once around the table in 16 s, at a walker's pace, with a walker's sway.
/// Everything is a sum of waves whose periods divide 16 s, so the way is closed and can be derived.
/// Threads: any.
class Path {
 public:
  static constexpr double kPeriodS = 16.0;

  /// @param random  Shifts the sway's waves.
  [[nodiscard]] static Path makeWalk(Random* random);
  /// A scanner that stands still, slightly tilted.
  [[nodiscard]] static Path makeStill();

  /// @param timeS  Seconds since the start of the recording; any value.
  [[nodiscard]] Eigen::Isometry3d poseAt(double timeS) const;
  [[nodiscard]] Motion motionAt(double timeS) const;

 private:
  struct Wave {
    int cycles;  ///< in kPeriodS
    double amplitude;
    double phaseRad;
  };
  /// constant + slope * t + sum of amplitude * sin(2 pi cycles t / kPeriodS + phase)
  struct Curve {
    double constant = 0.0;
    double slope = 0.0;
    std::vector<Wave> waves;

    [[nodiscard]] double valueAt(double timeS) const;
    /// Value, first and second derivative.
    [[nodiscard]] std::array<double, 3> jetAt(double timeS) const;
  };

  std::array<Curve, 3> position_;  ///< x, y, z; metres
  std::array<Curve, 3> angles_;    ///< roll, pitch, yaw; radians; R = Rz(yaw) Ry(pitch) Rx(roll)
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_PATH_H_

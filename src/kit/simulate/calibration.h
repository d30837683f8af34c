#ifndef MORVA_KIT_SIMULATE_CALIBRATION_H_
#define MORVA_KIT_SIMULATE_CALIBRATION_H_

#include <string>
#include <vector>

#include <Eigen/Geometry>

#include "kit/simulate/options.h"
#include "kit/simulate/random.h"

namespace morva::sim {

/// How one inertial sensor distorts: true = misalignment * scale * (measured - bias).
struct InertialModel {
  Eigen::Matrix3d misalignment;
  Eigen::Matrix3d scale;
  Eigen::Vector3d bias;

  /// What the sensor measures of a true value.
  [[nodiscard]] Eigen::Vector3d distort(const Eigen::Vector3d& trueValue) const;
};

/// A camera without distortion. Its frame: x right, y down, z forward.
struct Camera {
  std::string name;   ///< "left": the topics are named "/camera_left/..."
  std::string codec;  ///< "h264" or "jpeg", the end of the topic's name
  int width = 0;      ///< pixels, even
  int height = 0;
  double focalPixels = 0.0;
  Eigen::Isometry3d imuFromCamera;

  [[nodiscard]] std::string topic() const { return "/camera_" + name + "/" + codec; }
};

/// Everything that the recording's configuration says of the sensors. Metres and radians.
struct Calibration {
  bool calibrated = true;  ///< what the documents say
  InertialModel accelerometer;
  InertialModel gyroscope;
  Eigen::Isometry3d motorFromLidar;  ///< at motor angle 0
  Eigen::Isometry3d imuFromMotor;
  double elevationOffsetRad = 0.0;   ///< to be added to the elevation angle of a raw point
  std::vector<Camera> cameras;       ///< the H.264 cameras, then the JPEG camera; may be empty
  Eigen::Isometry3d imuFromCamera0;  ///< of the first camera, where it would be if there were one
  Eigen::Vector3d antennaInImu;      ///< lever arm of the GNSS antenna

  /// Where the raw cloud holds a point that lies at `point`, lidar frame: its elevation angle lacks
  /// the offset. @param point  Not further than 1 rad from the horizontal plane.
  [[nodiscard]] Eigen::Vector3d withElevationError(const Eigen::Vector3d& point) const;
};

/// @param random  Varies every number a little.
[[nodiscard]] Calibration makeCalibration(const Options& options, Random* random);

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_CALIBRATION_H_

#include "kit/simulate/calibration.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <numbers>

namespace morva::sim {

namespace {

using Eigen::AngleAxisd;
using Eigen::Isometry3d;
using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr double kDegree = std::numbers::pi / 180.0;

Isometry3d transformOf(const Vector3d& translation, double yaw, double pitch, double roll) {
  Isometry3d transform = Isometry3d::Identity();
  transform.linear() = (AngleAxisd(yaw, Vector3d::UnitZ()) * AngleAxisd(pitch, Vector3d::UnitY()) *
                        AngleAxisd(roll, Vector3d::UnitX()))
                           .toRotationMatrix();
  transform.translation() = translation;
  return transform;
}

Vector3d anyVector(double magnitude, Random* random) {
  Vector3d vector;
  for (double& value : vector.reshaped()) value = random->uniform(-magnitude, magnitude);
  return vector;
}

// Draws one number a statement: the order in which a call's arguments are evaluated differs between
// processors. The last angle comes first, which is how recordings of a seed have always been.
Isometry3d variedTransform(const Vector3d& translation, std::array<double, 3> angles,
                           Random* random) {
  for (std::size_t i = angles.size(); i-- > 0;) angles[i] += random->uniform(-0.03, 0.03);
  return transformOf(translation + anyVector(0.005, random), angles[0], angles[1], angles[2]);
}

InertialModel makeInertialModel(double bias, Random* random) {
  InertialModel model;
  model.scale = (Vector3d::Ones() + anyVector(0.02, random)).asDiagonal();
  model.misalignment.setIdentity();
  model.misalignment(0, 1) = random->uniform(-0.01, 0.01);
  model.misalignment(0, 2) = random->uniform(-0.01, 0.01);
  model.misalignment(1, 2) = random->uniform(-0.01, 0.01);
  model.bias = anyVector(bias, random);
  return model;
}

struct Mounting {
  const char* name;
  Vector3d position;  // in the IMU frame
  double yawDeg;      // to the left
  double pitchDeg;    // downwards
};

// In the order in which they are taken into use. The cameras stand apart from each other.
const std::array<Mounting, 7>& mountings() {
  static const std::array<Mounting, 7> kMountings = {{
      {"left", {0.06, 0.05, 0.02}, 50.0, 5.0},
      {"right", {0.06, -0.05, 0.02}, -50.0, 5.0},
      {"center", {0.08, 0.0, 0.03}, 0.0, 8.0},
      {"left_main", {0.02, 0.06, 0.02}, 90.0, 0.0},
      {"right_main", {0.02, -0.06, 0.02}, -90.0, 0.0},
      {"left_seco", {-0.04, 0.05, 0.02}, 140.0, 5.0},
      {"right_seco", {-0.04, -0.05, 0.02}, -140.0, 5.0},
  }};
  return kMountings;
}

Camera makeCamera(const Mounting& mounting, const char* codec, int width, int height) {
  Matrix3d lookingAhead;  // the camera's axes x right, y down, z forward, in a frame x ahead, z up
  lookingAhead << 0, 0, 1, -1, 0, 0, 0, -1, 0;
  Camera camera;
  camera.name = mounting.name;
  camera.codec = codec;
  camera.width = width;
  camera.height = height;
  camera.focalPixels = 0.62 * width;
  camera.imuFromCamera =
      transformOf(mounting.position, mounting.yawDeg * kDegree, mounting.pitchDeg * kDegree, 0.0);
  camera.imuFromCamera.linear() *= lookingAhead;
  return camera;
}

std::vector<Camera> makeCameras(std::uint32_t h264Cameras) {
  std::vector<Camera> cameras;
  const std::size_t count = std::min<std::size_t>(h264Cameras, mountings().size());
  std::transform(mountings().begin(), mountings().begin() + static_cast<std::ptrdiff_t>(count),
                 std::back_inserter(cameras),
                 [](const Mounting& mounting) { return makeCamera(mounting, "h264", 480, 360); });
  if (!cameras.empty()) cameras.push_back(makeCamera(mountings()[2], "jpeg", 400, 304));
  return cameras;
}

}  // namespace

Vector3d InertialModel::distort(const Vector3d& trueValue) const {
  return scale.inverse() * misalignment.inverse() * trueValue + bias;
}

Vector3d Calibration::withElevationError(const Vector3d& point) const {
  const double range = point.norm();
  if (range <= 0.0 || elevationOffsetRad == 0.0) return point;
  const double elevation = std::asin(point.z() / range) - elevationOffsetRad;
  const double azimuth = std::atan2(point.y(), point.x());
  return range * Vector3d(std::cos(elevation) * std::cos(azimuth),
                          std::cos(elevation) * std::sin(azimuth), std::sin(elevation));
}

Calibration makeCalibration(const Options& options, Random* random) {
  Calibration calibration;
  calibration.calibrated = options.calibrated;
  calibration.accelerometer = makeInertialModel(0.15, random);
  calibration.gyroscope = makeInertialModel(0.02, random);
  calibration.elevationOffsetRad = options.elevationErrorRad;

  // The lidar's own axis lies across the motor's axis, so that a turn of the motor sweeps all
  // around.
  calibration.motorFromLidar = variedTransform({0.035, -0.020, 0.085}, {0.12, 1.50, 0.08}, random);
  calibration.imuFromMotor = variedTransform({0.09, 0.03, 0.16}, {0.50, 0.15, -0.10}, random);
  calibration.cameras = makeCameras(options.cameras);
  calibration.imuFromCamera0 = makeCamera(mountings()[0], "h264", 2, 2).imuFromCamera;
  calibration.antennaInImu = Vector3d(-0.05, 0.0, 0.25);
  return calibration;
}

}  // namespace morva::sim

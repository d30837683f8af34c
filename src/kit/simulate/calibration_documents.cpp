#include "kit/simulate/calibration_documents.h"

#include "platform/str_util.h"

namespace morva::sim {

namespace {

using Eigen::Isometry3d;
using osmik::StrUtil;

constexpr const char* kFolder = "calib/config/";

// "[1, 0, 0.5]": row by row, with digits that give the same double back.
template <typename Matrix>
std::string listOf(const Matrix& matrix) {
  std::string text = "[";
  for (Eigen::Index row = 0; row < matrix.rows(); ++row) {
    for (Eigen::Index column = 0; column < matrix.cols(); ++column) {
      if (text.size() > 1) text += ", ";
      text += StrUtil::format("%.17g", matrix(row, column));
    }
  }
  return text + "]";
}

std::string yesNo(bool value) { return value ? "true" : "false"; }

std::string imuDocument(const Calibration& calibration) {
  const InertialModel& accelerometer = calibration.accelerometer;
  const InertialModel& gyroscope = calibration.gyroscope;
  return "# true = T * K * (measured - B)\n"
         "Ta: " +
         listOf(accelerometer.misalignment) + "\nKa: " + listOf(accelerometer.scale) +
         "\nBa: " + listOf(accelerometer.bias) + "\nTg: " + listOf(gyroscope.misalignment) +
         "\nKg: " + listOf(gyroscope.scale) + "\nBg: " + listOf(gyroscope.bias) +
         "\ncalibrated: " + yesNo(calibration.calibrated) + "\n";
}

std::string lidarDocument(const Calibration& calibration) {
  return "s: [1.0, 0.0]\n" + StrUtil::format("e: %.17g\n", calibration.elevationOffsetRad) +
         "calibrated: " + yesNo(calibration.calibrated) + "\n";
}

std::string transformDocument(const Isometry3d& transform, bool calibrated) {
  return "transform: " + listOf(transform.matrix()) + "\ncalibrated: " + yesNo(calibrated) + "\n";
}

std::string cameraDocument(const Calibration& calibration) {
  std::string text =
      "model: pinhole\ncalibrated: " + yesNo(calibration.calibrated) + "\ncameras:\n";
  for (const Camera& camera : calibration.cameras) {
    text += "  - topic: " + camera.topic() + "\n";
    text += StrUtil::format("    width: %d\n    height: %d\n", camera.width, camera.height);
    text +=
        StrUtil::format("    intrinsics: [%.17g, %.17g, %.17g, %.17g]\n", camera.focalPixels,
                        camera.focalPixels, (camera.width - 1) / 2.0, (camera.height - 1) / 2.0);
    text += "    distortion: [0.0, 0.0, 0.0, 0.0]\n";
    text += "    transform_camera_imu: " + listOf(camera.imuFromCamera.matrix()) + "\n";
  }
  if (calibration.cameras.empty()) text += "  []\n";
  return text;
}

}  // namespace

std::vector<Document> calibrationDocuments(const Calibration& calibration) {
  const bool calibrated = calibration.calibrated;
  const Isometry3d motorFromImu = calibration.imuFromMotor.inverse();
  const Isometry3d lidarFromMotor = calibration.motorFromLidar.inverse();
  const Isometry3d motorFromCamera = motorFromImu * calibration.imuFromCamera0;
  const auto transform = [calibrated](const char* name, const Isometry3d& value) {
    return Document{std::string(kFolder) + name, transformDocument(value, calibrated)};
  };
  return {
      {std::string(kFolder) + "imu.yaml", imuDocument(calibration)},
      {std::string(kFolder) + "lidar.yaml", lidarDocument(calibration)},
      transform("extrinsic_motor_lidar.yaml", lidarFromMotor),
      transform("extrinsic_imu_motor.yaml", motorFromImu),
      transform("extrinsic_camera_motor.yaml", motorFromCamera),
      transform("extrinsic_imu_lidar.yaml", lidarFromMotor * motorFromImu),  // at motor angle 0
      transform("extrinsic_camera_lidar.yaml", lidarFromMotor * motorFromCamera),
      // A plain name and scrambled content, as some devices carry it.
      {"camera.yaml", cameraDocument(calibration), true},
  };
}

}  // namespace morva::sim

#ifndef MORVA_EXPORT_SENSOR_PARAMETERS_H_
#define MORVA_EXPORT_SENSOR_PARAMETERS_H_

#include <Eigen/Core>

namespace morva {

/// The calibration of a device. Names of fields are those of the keys in its documents.
///
/// An extrinsic "A to B" takes a point's A coordinates to B coordinates: p_B = transform * p_A.
/// Every transform is homogeneous, 4x4, in metres, the identity until a document gives another one.
struct SensorParameters {
  /// Model of the inertial sensor: a' = Ta Ka (a - Ba) and g' = Tg Kg (g - Bg).
  struct ImuParam {
    Eigen::Vector3f Ba = Eigen::Vector3f::Zero();      ///< accelerometer bias, m/s^2
    Eigen::Vector3f Bg = Eigen::Vector3f::Zero();      ///< gyroscope bias, rad/s
    Eigen::Matrix3f Ka = Eigen::Matrix3f::Identity();  ///< accelerometer scale
    Eigen::Matrix3f Kg = Eigen::Matrix3f::Identity();  ///< gyroscope scale
    Eigen::Matrix3f Ta = Eigen::Matrix3f::Identity();  ///< accelerometer misalignment
    Eigen::Matrix3f Tg = Eigen::Matrix3f::Identity();  ///< gyroscope misalignment
    bool calibrated = false;                           ///< false: samples stay as they are
  };

  struct LidarParam {
    Eigen::Vector2f s = Eigen::Vector2f::Zero();  ///< kept, not used by any correction
    float e = 0.0F;                               ///< elevation offset, rad
    bool calibrated = false;                      ///< false: `e` is not applied
  };

  /// Motor to lidar.
  struct MotorParam {
    Eigen::Matrix4f transform = Eigen::Matrix4f::Identity();
    bool given = false;  ///< a document gave the transform
  };

  struct ExtrinsicParam {
    Eigen::Matrix4f transform = Eigen::Matrix4f::Identity();
    bool given = false;  ///< a document gave the transform
  };

  ImuParam imu;
  LidarParam lidar;
  MotorParam motor;
  ExtrinsicParam imuMotor;      ///< IMU to motor
  ExtrinsicParam camera0Motor;  ///< camera 0 to motor
  ExtrinsicParam imuLidar;      ///< IMU to lidar
  ExtrinsicParam camera0Lidar;  ///< camera 0 to lidar
};

}  // namespace morva

#endif  // MORVA_EXPORT_SENSOR_PARAMETERS_H_

#ifndef MORVA_EXPORT_POINTS_TRANSFORMER_H_
#define MORVA_EXPORT_POINTS_TRANSFORMER_H_

#include <memory>
#include <span>
#include <vector>

#include <Eigen/Core>

#include "export/point_batch.h"
#include "export/sensor_parameters.h"
#include "messages/frames.h"
#include "platform/log.h"

namespace morva {

/// Results of CorrectLidarAndTransformToImuFrame(). Never renumber, only append.
enum TransformCode : int {
  kTransformOk = 0,
  kTransformNoMotors = 1,    ///< no motor records
  kTransformEmptyCloud = 2,  ///< no points
};

/// Moves lidar points into the IMU frame, each with the motor's orientation at the point's own
/// time.
///
/// Holds the calibration alone; a new object corrects nothing and takes every frame for the same.
/// Threads: any number may transform different clouds with one object.
class PointsTransformer {
 public:
  /// Takes the lidar's correction and the transforms from a calibration. Motor compensation is off
  /// only where no motor document was read and an IMU-to-lidar transform was.
  /// @return False after an error line when a transform that is needed cannot be inverted; the
  /// object is
  ///         unchanged then.
  [[nodiscard]] bool setParameters(const SensorParameters& params);

  /// Adds the elevation offset `e` to the direction of a point, in place; its range and azimuth
  /// stay. Points within a millimetre of the origin have no direction and are left alone.
  void CorrectLidarPoint(PointIRT& p) const;

  /// Corrects every point and moves it into the IMU frame, in place:
  /// p = imuFromMotor * R(t) * motorFromLidar * p, R(t) being the slerp of the motor orientations
  /// around the point's own time; without motor compensation p = imuFromLidar * p.
  ///
  /// A point whose time no two records bracket, and which is not of the first record's own time,
  /// costs a warning and keeps its lidar coordinates (corrected in elevation).
  /// @param motors  In ascending order of time. Quaternions are taken for unit quaternions.
  /// @param cloud   Normals are left alone.
  /// @return 0, or after an error line a TransformCode; the cloud is unchanged then.
  /// Single precision, within 2e-6 of a point's range (or 1e-5 m, whichever is more) of what exact
  /// arithmetic gives.
  /// Cost: least where points are nearly in the order of time; no allocation but the records'
  /// times.
  [[nodiscard]] int CorrectLidarAndTransformToImuFrame(
      const std::vector<std::shared_ptr<MotorMsg>>& motors,
      const std::shared_ptr<PointCloudMsg>& cloud) const;

 private:
  [[nodiscard]] bool setMotion(const char* name, const Eigen::Matrix4f& inverse,
                               AffineMotion* motion) const;
  void moveFromLidar(std::span<PointIRT> points) const;
  void followMotor(const std::vector<std::shared_ptr<MotorMsg>>& motors,
                   std::span<PointIRT> points) const;

  Log log_{"PointsTransformer"};
  SensorParameters::LidarParam lidar_;
  bool compensatesMotor_ = true;
  AffineMotion motorFromLidar_ = AffineMotion::Identity();
  AffineMotion imuFromMotor_ = AffineMotion::Identity();
  AffineMotion imuFromLidar_ = AffineMotion::Identity();  ///< used without motor compensation
};

}  // namespace morva

#endif  // MORVA_EXPORT_POINTS_TRANSFORMER_H_

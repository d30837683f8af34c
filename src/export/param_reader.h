#ifndef MORVA_EXPORT_PARAM_READER_H_
#define MORVA_EXPORT_PARAM_READER_H_

#include <memory>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "export/sensor_parameters.h"
#include "messages/frames.h"

namespace morva {

/// Reads the calibration documents that a recording carries, and applies the IMU's.
///
/// Every reader takes the text of one YAML document and fills one record. A key that is missing or
/// of another type costs a log line and leaves the field as it was, except where stated. Threads:
/// any.
class ParamReader {
 public:
  /// Keys "Ta", "Ka", "Ba", "Tg", "Kg", "Bg" (lists, matrices row by row) and "calibrated" (bool).
  /// Where a list is missing the identity, or a bias of zero, takes its place.
  /// @return False after an error line when the text is no document.
  [[nodiscard]] static bool readImuParam(const std::string& yaml,
                                         SensorParameters::ImuParam* param);
  /// Keys "s" (list of 2), "e" (rad; more than one degree is kept, with a warning) and
  /// "calibrated".
  /// @return False when the text is no document or "s" is missing; nothing else is read then.
  [[nodiscard]] static bool readLidarParam(const std::string& yaml,
                                           SensorParameters::LidarParam* param);

  /// Key "transform": 16 numbers, row by row. A transform that is not rigid is kept, with a
  /// warning.
  /// @return False after an error line when the text is no document.
  [[nodiscard]] static bool readMotorParam(const std::string& yaml,
                                           SensorParameters::MotorParam* param);
  [[nodiscard]] static bool readImuMotorExtrinsicParam(const std::string& yaml,
                                                       SensorParameters::ExtrinsicParam* param);
  [[nodiscard]] static bool readCamera0MotorExtrinsicParam(const std::string& yaml,
                                                           SensorParameters::ExtrinsicParam* param);
  [[nodiscard]] static bool readImuLidarExtrinsicParam(const std::string& yaml,
                                                       SensorParameters::ExtrinsicParam* param);
  [[nodiscard]] static bool readCamera0LidarExtrinsicParam(const std::string& yaml,
                                                           SensorParameters::ExtrinsicParam* param);

  /// Derives IMU to camera 0 from the pair over the motor, or from the pair over the lidar where
  /// one of those was not read.
  /// @param out  Unchanged on failure. One that is not rigid is given, with a warning.
  /// @return False after a warning when neither pair was read whole or the camera's transform has
  /// no
  ///         finite inverse: a guessed calibration is never given.
  [[nodiscard]] static bool getImuCamera0ExtrinsicParam(const SensorParameters& params,
                                                        Eigen::Matrix4f& out);

  /// Applies the IMU model to one sample, in place; nothing where the model is not calibrated.
  static void correctImuData(const SensorParameters::ImuParam& param,
                             const std::shared_ptr<ImuMsg>& record);
};

/// Fills a matrix of fixed size, row by row.
/// @param out         Unchanged on failure.
/// @param checkRigid  Warn when the upper left 3x3 part does not have a determinant of 1; the
/// matrix is
///                    stored all the same.
/// @return False after a warning when there are not rows x columns values.
template <typename M>
bool VectToEigenMatrix(const std::vector<float>& values, M& out, bool checkRigid);

}  // namespace morva

#endif  // MORVA_EXPORT_PARAM_READER_H_

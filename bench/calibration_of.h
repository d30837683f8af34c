#ifndef MORVA_BENCH_CALIBRATION_OF_H_
#define MORVA_BENCH_CALIBRATION_OF_H_

#include <string>

#include "export/param_reader.h"
#include "messages/msg_converter.h"
#include "morva/bag.h"

namespace morva::bench {

/// The part of a recording's calibration that lidar correction needs.
/// @return False where a document is missing.
inline bool readCalibration(const MorvaBag& bag, SensorParameters* params) {
  int found = 0;
  std::string payload;
  for (const MsgIndex& index : bag.getView("/config_file", 0, -1).indexes) {
    if (!bag.readMessage(index, &payload)) return false;
    for (const auto& file : MsgConverter::fromFileMsgArray(payload)) {
      const std::string& text = file->content;
      if (file->name == "lidar.yaml") found += ParamReader::readLidarParam(text, &params->lidar);
      if (file->name == "extrinsic_motor_lidar.yaml") {
        found += ParamReader::readMotorParam(text, &params->motor);
      }
      if (file->name == "extrinsic_imu_motor.yaml") {
        found += ParamReader::readImuMotorExtrinsicParam(text, &params->imuMotor);
      }
    }
  }
  return found == 3;
}

}  // namespace morva::bench

#endif  // MORVA_BENCH_CALIBRATION_OF_H_

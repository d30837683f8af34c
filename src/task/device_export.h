#ifndef MORVA_TASK_DEVICE_EXPORT_H_
#define MORVA_TASK_DEVICE_EXPORT_H_

#include <string>

#include "export/sensor_parameters.h"
#include "messages/frames.h"
#include "task/batch_run.h"

namespace morva {

/// The device task's work on one bag: calibration files first, then corrected IMU and lidar output,
/// then every other topic. Each failure is logged and the next step follows; a stop ends it between
/// steps.
class DeviceExport {
 public:
  /// @param run, job  Not owned, must outlive the export.
  DeviceExport(BatchRun* run, const BatchRun::Job* job);

  /// All steps, into the folders that BatchRun::prepareOutput() made.
  void run();

  /// True for the topics that count for the progress.
  [[nodiscard]] static bool isCounted(const BagInfo& info, const TopicInfo& topic);

 private:
  void readCalibration();
  void takeCalibrationFile(const FileFrame& file);
  void writeCameraFile(const std::string& content);
  void writeImuCameraFile();
  void exportImu();
  void exportLidar();
  [[nodiscard]] View wholeTopic(const std::string& topic) const;

  BatchRun* run_;
  const BatchRun::Job* job_;
  SensorParameters params_;
};

}  // namespace morva

#endif  // MORVA_TASK_DEVICE_EXPORT_H_

#include "task/device_export.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "export/frame_loop.h"
#include "export/param_reader.h"
#include "messages/msg_converter.h"
#include "platform/file.h"
#include "platform/ignore_result.h"
#include "platform/new_file.h"
#include "platform/yaml_config.h"
#include "task/task_line.h"

namespace morva {
namespace {

constexpr const char* kMethod = "dataExportTask";
constexpr const char* kConfigTopic = "/config_file";
constexpr const char* kImuTopic = "/imu";
constexpr const char* kLidarTopic = "/lidar";
constexpr const char* kMotorTopic = "/lidar_to_platform";
constexpr std::string_view kCameraFile = "camera.yaml";

/// A recorded calibration file and the reader that it feeds.
struct CalibrationFile {
  std::string_view name;
  bool (*read)(const std::string& yaml, SensorParameters* params);
};

constexpr CalibrationFile kCalibrationFiles[] = {
    {"imu.yaml",
     [](const std::string& yaml, SensorParameters* params) {
       return ParamReader::readImuParam(yaml, &params->imu);
     }},
    {"lidar.yaml",
     [](const std::string& yaml, SensorParameters* params) {
       return ParamReader::readLidarParam(yaml, &params->lidar);
     }},
    {"extrinsic_motor_lidar.yaml",
     [](const std::string& yaml, SensorParameters* params) {
       return ParamReader::readMotorParam(yaml, &params->motor);
     }},
    {"extrinsic_imu_motor.yaml",
     [](const std::string& yaml, SensorParameters* params) {
       return ParamReader::readImuMotorExtrinsicParam(yaml, &params->imuMotor);
     }},
    {"extrinsic_camera_motor.yaml",
     [](const std::string& yaml, SensorParameters* params) {
       return ParamReader::readCamera0MotorExtrinsicParam(yaml, &params->camera0Motor);
     }},
    {"extrinsic_imu_lidar.yaml",
     [](const std::string& yaml, SensorParameters* params) {
       return ParamReader::readImuLidarExtrinsicParam(yaml, &params->imuLidar);
     }},
    {"extrinsic_camera_lidar.yaml",
     [](const std::string& yaml, SensorParameters* params) {
       return ParamReader::readCamera0LidarExtrinsicParam(yaml, &params->camera0Lidar);
     }},
};

/// True for a topic that is "/lidar" under the name of the lidar's model.
bool isLidarByModel(const BagInfo& info, const TopicInfo& topic) {
  if (topic.name == kLidarTopic) return false;
  const auto lidar = std::ranges::lower_bound(info.topics, kLidarTopic, {}, &TopicInfo::name);
  return lidar != info.topics.end() && lidar->name == kLidarTopic &&
         lidar->topicId == topic.topicId;
}

/// True for the topics that have no step of their own.
bool isUnpackedAsItStands(const BagInfo& info, const TopicInfo& topic) {
  return DeviceExport::isCounted(info, topic) && topic.name != kImuTopic &&
         topic.name != kLidarTopic;
}

}  // namespace

DeviceExport::DeviceExport(BatchRun* run, const BatchRun::Job* job) : run_(run), job_(job) {}

bool DeviceExport::isCounted(const BagInfo& info, const TopicInfo& topic) {
  return topic.name != kMotorTopic && topic.name != kConfigTopic && !isLidarByModel(info, topic);
}

void DeviceExport::run() {
  readCalibration();
  writeImuCameraFile();
  exportImu();
  exportLidar();
  run_->exportTopics(*job_, isUnpackedAsItStands);
}

View DeviceExport::wholeTopic(const std::string& topic) const {
  return job_->bag->getView(topic, 0, -1);
}

void DeviceExport::readCalibration() {
  std::string payload;
  for (const MsgIndex& index : wholeTopic(kConfigTopic).indexes) {
    if (run_->stopped()) return;
    const Log log("BagTool", kMethod);
    if (!readPayload(log, *job_->bag, index, &payload)) continue;  // logged; the others may do
    const auto files = MsgConverter::fromFileMsgArray(payload);
    if (files.empty()) logUndecodable(log, index);
    for (const auto& file : files) takeCalibrationFile(*file);
  }
}

void DeviceExport::takeCalibrationFile(const FileFrame& file) {
  if (file.name == kCameraFile) return writeCameraFile(file.content);
  const auto* const known = std::ranges::find(kCalibrationFiles, file.name, &CalibrationFile::name);
  if (known == std::end(kCalibrationFiles)) return;
  // A document that cannot be read was logged there, and leaves the parameters' defaults.
  ignoreResult(known->read(file.content, &params_));
}

void DeviceExport::writeCameraFile(const std::string& content) {
  const std::string path = job_->outputPath + "/calib/config/" + std::string(kCameraFile);
  osmik::File file;
  if (!osmik::openNewFile(path, 0, &file)) {
    run_->logout(taskLine("<E>%s BagTool::%s,create camera.yaml error!\n", kMethod));
    return;
  }
  const auto size = static_cast<std::int64_t>(content.size());
  const bool written = file.writeData(content.data(), size) == size;
  if (!file.close() || !written) {
    run_->logout(taskLine("<E>%s BagTool::%s,write camera.yaml error!\n", kMethod));
    osmik::File::remove(path);  // half a calibration is worse than none
  }
}

void DeviceExport::writeImuCameraFile() {
  if (run_->stopped()) return;
  Eigen::Matrix4f cameraFromImu;
  if (!ParamReader::getImuCamera0ExtrinsicParam(params_, cameraFromImu)) {
    run_->logout(taskLine("<E>%s BagTool::%s,get camera extrinsic error!\n", kMethod));
    return;
  }
  basalt::YamlConfig yaml;
  yaml.set("calibrated", true);
  // The colon belongs to the key. The elements stand column by column, as the matrix stores them.
  yaml.set("transform:",
           std::vector<float>(cameraFromImu.data(), cameraFromImu.data() + cameraFromImu.size()));
  const std::string path = job_->outputPath + "/calib/config/imu_camera0.yaml";
  // What has the name may be a link.
  if (!osmik::File::remove(path) || !yaml.toFile(path, -1, -1)) {
    run_->logout(taskLine("<E>%s BagTool::%s,save imu_camera0.yaml error!\n", kMethod));
  }
}

void DeviceExport::exportImu() {
  run_->exportTopic(*job_, kImuTopic, [&](DataExporter* exporter) {
    return exporter->exportCorrectedImuData(params_, wholeTopic(kImuTopic));
  });
}

void DeviceExport::exportLidar() {
  run_->exportTopic(*job_, kLidarTopic, [&](DataExporter* exporter) {
    return exporter->exportCorrectedLidarData(params_, wholeTopic(kLidarTopic),
                                              wholeTopic(kMotorTopic));
  });
}

}  // namespace morva

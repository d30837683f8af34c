// Calibration documents, one for each reader, and all that is made of what they say.
#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <vector>

#include "export/param_reader.h"
#include "export/points_transformer.h"
#include "platform/yaml_config.h"
#include "target.h"

namespace morva::fuzz {
namespace {

constexpr std::size_t kReaders = 7;

/// The documents of an input; a single one is given to every reader.
std::array<std::string, kReaders> documentsOf(std::string_view input) {
  std::array<std::string, kReaders> documents;
  if (input.find('\0') == std::string_view::npos) {
    documents.fill(std::string(input));
    return documents;
  }
  for (std::string& document : documents) {
    const std::size_t end = std::min(input.find('\0'), input.size());
    document = input.substr(0, end);
    input.remove_prefix(std::min(end + 1, input.size()));
  }
  return documents;
}

void applyToImu(const SensorParameters::ImuParam& param) {
  const auto sample = std::make_shared<ImuMsg>();
  sample->accelZ = 9.8F;
  sample->gyroX = 0.1F;
  ParamReader::correctImuData(param, sample);
  expect(param.calibrated || (sample->accelZ == 9.8F && sample->gyroX == 0.1F),
         "a sample was corrected without a calibration");
}

void applyToCloud(const PointsTransformer& transformer) {
  std::vector<std::shared_ptr<MotorMsg>> motors;
  for (int i = 0; i < 3; ++i) {
    motors.push_back(std::make_shared<MotorMsg>());
    motors.back()->time = 100.0 + i;
    motors.back()->qw = 1.0F;
  }
  const auto cloud = std::make_shared<PointCloudMsg>();
  cloud->cloud = std::make_shared<PointCloud>();
  for (int i = 0; i < 5; ++i) {
    PointIRT point;
    point.x = static_cast<float>(i);
    point.timestamp = 99.5 + 0.7 * i;
    cloud->cloud->points.push_back(point);
  }
  cloud->cloud->width = 5;
  expect(transformer.CorrectLidarAndTransformToImuFrame(motors, cloud) == kTransformOk &&
             cloud->cloud->points.size() == 5,
         "a cloud cannot be moved");
}

}  // namespace

void runCalibration(std::string_view input) {
  const std::array<std::string, kReaders> documents = documentsOf(input);
  SensorParameters params;
  const bool hasImu = ParamReader::readImuParam(documents[0], &params.imu);
  const bool hasLidar = ParamReader::readLidarParam(documents[1], &params.lidar);
  const bool hasMotor = ParamReader::readMotorParam(documents[2], &params.motor);
  static_cast<void>(ParamReader::readImuMotorExtrinsicParam(documents[3], &params.imuMotor));
  static_cast<void>(
      ParamReader::readCamera0MotorExtrinsicParam(documents[4], &params.camera0Motor));
  static_cast<void>(ParamReader::readImuLidarExtrinsicParam(documents[5], &params.imuLidar));
  static_cast<void>(
      ParamReader::readCamera0LidarExtrinsicParam(documents[6], &params.camera0Lidar));
  expect(hasImu || !params.imu.calibrated, "a document that cannot be read calibrates the IMU");
  expect(hasLidar || !params.lidar.calibrated,
         "a document that cannot be read calibrates the lidar");
  expect(hasMotor || !params.motor.given, "a document that cannot be read gives a transform");
  applyToImu(params.imu);

  Eigen::Matrix4f cameraFromImu = Eigen::Matrix4f::Constant(7.0F);
  if (ParamReader::getImuCamera0ExtrinsicParam(params, cameraFromImu)) {
    expect(cameraFromImu.array().isFinite().all(), "a derived transform is not finite");
    expect((params.imuMotor.given && params.camera0Motor.given) ||
               (params.imuLidar.given && params.camera0Lidar.given),
           "a transform is derived that no document gives");
  } else {
    expect(cameraFromImu == Eigen::Matrix4f::Constant(7.0F), "a failure leaves a transform");
  }

  PointsTransformer transformer;
  if (transformer.setParameters(params)) applyToCloud(transformer);

  basalt::YamlConfig config;
  std::vector<float> numbers;
  if (config.fromString(documents[0])) {
    static_cast<void>(config.get("transform", &numbers, config.root()));
  }
}

}  // namespace morva::fuzz

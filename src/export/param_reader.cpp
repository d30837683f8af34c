#include "export/param_reader.h"

#include <array>
#include <variant>

#include <Eigen/LU>

#include "export/transform.h"
#include "platform/ignore_result.h"
#include "platform/log.h"
#include "platform/yaml_config.h"

namespace morva {
namespace {

using ImuParam = SensorParameters::ImuParam;
using ExtrinsicParam = SensorParameters::ExtrinsicParam;

constexpr double kOneDegree = 1 / 57.3;  // rad

struct ImuKey {
  const char* name;
  std::variant<Eigen::Matrix3f ImuParam::*, Eigen::Vector3f ImuParam::*> field;
};

const std::array<ImuKey, 6> kImuKeys{{{"Ta", &ImuParam::Ta},
                                      {"Ka", &ImuParam::Ka},
                                      {"Ba", &ImuParam::Ba},
                                      {"Tg", &ImuParam::Tg},
                                      {"Kg", &ImuParam::Kg},
                                      {"Bg", &ImuParam::Bg}}};

std::vector<float> defaultOf(const Eigen::Matrix3f& /*matrix*/) {
  return {1.0F, 0.0F, 0.0F, 0.0F, 1.0F, 0.0F, 0.0F, 0.0F, 1.0F};
}

std::vector<float> defaultOf(const Eigen::Vector3f& /*bias*/) { return {0.0F, 0.0F, 0.0F}; }

bool loadDocument(const Log& log, const std::string& yaml, const char* name,
                  basalt::YamlConfig* config) {
  if (config->fromString(yaml, name)) return true;
  log.error("load config error!");
  return false;
}

// A bool that cannot be read stays as it was; the look-up has logged it.
void readCalibrated(const basalt::YamlConfig& config, bool* calibrated) {
  ignoreResult(config.get("calibrated", calibrated, config.root()));
}

template <typename Param>
bool readTransform(const Log& log, const std::string& yaml, const char* name, Param* param) {
  basalt::YamlConfig config;
  if (!loadDocument(log, yaml, name, &config)) return false;
  std::vector<float> values;
  if (!config.get("transform", &values, config.root())) {
    log.warning("get transform param error!");
  } else if (VectToEigenMatrix(values, param->transform, true)) {
    param->given = true;
  }
  return true;
}

}  // namespace

template <typename M>
bool VectToEigenMatrix(const std::vector<float>& values, M& out, bool checkRigid) {
  static const Log log("", "VectToEigenMatrix");
  if (values.size() != static_cast<std::size_t>(M::SizeAtCompileTime)) {
    log.warning("Read matrix failed because dim mismatch.");
    return false;
  }
  auto value = values.begin();
  for (Eigen::Index row = 0; row < out.rows(); ++row) {
    for (Eigen::Index column = 0; column < out.cols(); ++column) out(row, column) = *value++;
  }
  if constexpr (M::RowsAtCompileTime >= 3 && M::ColsAtCompileTime >= 3) {
    if (checkRigid && !isRigid(out.template topLeftCorner<3, 3>())) {
      log.warning("The matrix is not a rigid transform matrix.");
    }
  }
  return true;
}

template bool VectToEigenMatrix(const std::vector<float>&, Eigen::Vector2f&, bool);
template bool VectToEigenMatrix(const std::vector<float>&, Eigen::Vector3f&, bool);
template bool VectToEigenMatrix(const std::vector<float>&, Eigen::Matrix3f&, bool);
template bool VectToEigenMatrix(const std::vector<float>&, Eigen::Matrix4f&, bool);

bool ParamReader::readImuParam(const std::string& yaml, ImuParam* param) {
  static const Log log("ParamReader", "readImuParam");
  basalt::YamlConfig config;
  if (!loadDocument(log, yaml, "imu", &config)) return false;
  for (const ImuKey& key : kImuKeys) {
    std::visit(
        [&](auto field) {
          auto& target = param->*field;
          std::vector<float> values;
          if (!config.get(key.name, &values, config.root())) values = defaultOf(target);
          VectToEigenMatrix(values, target, false);
        },
        key.field);
  }
  readCalibrated(config, &param->calibrated);
  return true;
}

bool ParamReader::readLidarParam(const std::string& yaml, SensorParameters::LidarParam* param) {
  static const Log log("ParamReader", "readLidarParam");
  basalt::YamlConfig config;
  if (!loadDocument(log, yaml, "lidar", &config)) return false;
  std::vector<float> values;
  if (!config.get("s", &values, config.root())) {
    log.warning("get s param error!");
    return false;
  }
  VectToEigenMatrix(values, param->s, false);
  if (!config.get("e", &param->e, config.root())) {
    log.warning("get e param error, use default!");
  } else if (static_cast<double>(param->e) > kOneDegree) {
    log.warning("elevation_offset invalid: larger than 1.0 deg!");
  }
  readCalibrated(config, &param->calibrated);
  return true;
}

bool ParamReader::readMotorParam(const std::string& yaml, SensorParameters::MotorParam* param) {
  static const Log log("ParamReader", "readMotorParam");
  return readTransform(log, yaml, "motor to lidar", param);
}

bool ParamReader::readImuMotorExtrinsicParam(const std::string& yaml, ExtrinsicParam* param) {
  static const Log log("ParamReader", "readImuMotorExtrinsicParam");
  return readTransform(log, yaml, "imu to motor", param);
}

bool ParamReader::readCamera0MotorExtrinsicParam(const std::string& yaml, ExtrinsicParam* param) {
  static const Log log("ParamReader", "readCamera0MotorExtrinsicParam");
  return readTransform(log, yaml, "camera 0 to motor", param);
}

bool ParamReader::readImuLidarExtrinsicParam(const std::string& yaml, ExtrinsicParam* param) {
  static const Log log("ParamReader", "readImuLidarExtrinsicParam");
  return readTransform(log, yaml, "imu to lidar", param);
}

bool ParamReader::readCamera0LidarExtrinsicParam(const std::string& yaml, ExtrinsicParam* param) {
  static const Log log("ParamReader", "readCamera0LidarExtrinsicParam");
  return readTransform(log, yaml, "camera 0 to lidar", param);
}

bool ParamReader::getImuCamera0ExtrinsicParam(const SensorParameters& params,
                                              Eigen::Matrix4f& out) {
  static const Log log("ParamReader", "getImuCamera0ExtrinsicParam");
  const bool overMotor = params.imuMotor.given && params.camera0Motor.given;
  const bool overLidar = params.imuLidar.given && params.camera0Lidar.given;
  if (!overMotor && !overLidar) {
    log.warning("the extrinsics of IMU and camera 0 are not complete!");
    return false;
  }
  const Eigen::Matrix4f& imu = overMotor ? params.imuMotor.transform : params.imuLidar.transform;
  const Eigen::Matrix4f& camera =
      overMotor ? params.camera0Motor.transform : params.camera0Lidar.transform;

  Eigen::Matrix4d cameraInverse;
  Eigen::Matrix4d imuInverse;
  if (!invertTransform(camera, &cameraInverse) || !invertTransform(imu, &imuInverse)) {
    log.warning("an extrinsic of IMU and camera 0 has no finite inverse!");
    return false;
  }
  const Eigen::Matrix4f result = (cameraInverse * imu.cast<double>()).cast<float>();
  if (!result.allFinite()) {
    log.warning("the extrinsic of IMU and camera 0 is not finite!");
    return false;
  }
  if (!isRigid(result.topLeftCorner<3, 3>())) {
    log.warning("The extrinsic matrix is not a rigid transform matrix.");
  }
  out = result;
  return true;
}

void ParamReader::correctImuData(const ImuParam& param, const std::shared_ptr<ImuMsg>& record) {
  if (!param.calibrated || record == nullptr) return;
  const Eigen::Vector3f accel(record->accelX, record->accelY, record->accelZ);
  const Eigen::Vector3f gyro(record->gyroX, record->gyroY, record->gyroZ);
  const Eigen::Vector3f trueAccel = param.Ta * param.Ka * (accel - param.Ba);
  const Eigen::Vector3f trueGyro = param.Tg * param.Kg * (gyro - param.Bg);
  record->accelX = trueAccel.x();
  record->accelY = trueAccel.y();
  record->accelZ = trueAccel.z();
  record->gyroX = trueGyro.x();
  record->gyroY = trueGyro.y();
  record->gyroZ = trueGyro.z();
}

}  // namespace morva

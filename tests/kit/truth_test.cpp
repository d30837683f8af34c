// A simulated recording against its truth file, by calculations of the tests' own in double
// precision: they share no code with the simulator or with the product's correction.
#include "support/truth.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include <Eigen/Geometry>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <yaml-cpp/yaml.h>

#include "kit/recording.h"

using Eigen::Isometry3d;
using Eigen::Matrix3d;
using Eigen::Matrix4d;
using Eigen::Quaterniond;
using Eigen::Vector3d;
using morva::sim::Options;
using morva::test::readFile;
using morva::test::Recording;
using morva::test::smallOptions;
using morva::test::Truth;

namespace pb = protix::kbag_msgs;

namespace {

YAML::Node documentOf(const Recording& recording, const std::string& name) {
  for (const auto& [path, content] : recording.files("/config_file")) {
    if (path == name || path.ends_with("/" + name)) return YAML::Load(content);
  }
  ADD_FAILURE() << "no document " << name;
  return {};
}

// A list, row by row.
template <int Rows, int Columns>
Eigen::Matrix<double, Rows, Columns> matrixOf(const YAML::Node& list) {
  const auto values = list.as<std::vector<double>>();
  Eigen::Matrix<double, Rows, Columns> matrix;
  EXPECT_EQ(values.size(), static_cast<std::size_t>(matrix.size()));
  for (int i = 0; i < static_cast<int>(values.size()); ++i) {
    matrix(i / Columns, i % Columns) = values[static_cast<std::size_t>(i)];
  }
  return matrix;
}

Isometry3d transformOf(const Recording& recording, const std::string& name) {
  const Matrix4d matrix = matrixOf<4, 4>(documentOf(recording, name)["transform"]);
  return Isometry3d(matrix);
}

// The motor's orientation between two records: shortest turn at constant speed.
class MotorRecords {
 public:
  explicit MotorRecords(const Recording& recording)
      : records_(recording.read<pb::OdometryMsgArray>("/lidar_to_platform")) {}

  [[nodiscard]] Quaterniond at(std::int64_t timeUs) const {
    const auto& all = records_.msgs();
    const auto after = std::lower_bound(
        all.begin(), all.end(), timeUs,
        [](const auto& record, std::int64_t time) { return record.header().timestamp() < time; });
    EXPECT_TRUE(after != all.begin() && after != all.end()) << "no records around " << timeUs;
    const auto before = std::prev(after);
    const double u =
        static_cast<double>(timeUs - before->header().timestamp()) /
        static_cast<double>(after->header().timestamp() - before->header().timestamp());
    return orientation(*before).slerp(u, orientation(*after));
  }

 private:
  static Quaterniond orientation(const pb::OdometryMsg& record) {
    const double factor = 1.0 / static_cast<double>(record.header().scale());
    return Quaterniond(
               factor * static_cast<double>(record.qw()), factor * static_cast<double>(record.qx()),
               factor * static_cast<double>(record.qy()), factor * static_cast<double>(record.qz()))
        .normalized();
  }

  pb::OdometryMsgArray records_;
};

Vector3d raised(const Vector3d& point, double elevationRad) {
  // A turn around the horizontal axis across the point's direction.
  const Vector3d axis = point.cross(Vector3d::UnitZ()).normalized();
  return Eigen::AngleAxisd(elevationRad, axis) * point;
}

struct Miss {
  double rms = 0.0;
  double largest = 0.0;
};

enum class Use { kNothing, kCalibration };

// How far the recording's points lie from the surfaces of the room.
Miss missOf(const Recording& recording, Use use) {
  const Truth truth = Truth::read(recording.options().truthPath);
  const MotorRecords motor(recording);
  const Isometry3d motorFromLidar = transformOf(recording, "extrinsic_motor_lidar.yaml").inverse();
  const Isometry3d imuFromMotor = transformOf(recording, "extrinsic_imu_motor.yaml").inverse();
  const YAML::Node lidar = documentOf(recording, "lidar.yaml");
  const double elevation = lidar["calibrated"].as<bool>() ? lidar["e"].as<double>() : 0.0;
  Miss miss;
  std::size_t count = 0;
  const auto scans = recording.read<pb::LidarPointMsgArray>("/lidar");
  for (const auto& scan : scans.msgs()) {
    const double metre = 1.0 / static_cast<double>(scan.header().scale());
    for (const pb::LidarPoint& point : scan.points()) {
      const std::int64_t timeUs = scan.header().timestamp() + point.time_offset();
      Vector3d inImu =
          metre * Vector3d(static_cast<double>(point.x()), static_cast<double>(point.y()),
                           static_cast<double>(point.z()));
      if (use == Use::kCalibration) {
        inImu = imuFromMotor * (motor.at(timeUs) * (motorFromLidar * raised(inImu, elevation)));
      }
      const Isometry3d worldFromImu = truth.worldFromImu(static_cast<double>(timeUs) * 1e-6);
      const double distance = truth.distanceToSurface(worldFromImu * inImu);
      miss.rms += distance * distance;
      miss.largest = std::max(miss.largest, distance);
      ++count;
    }
  }
  miss.rms = std::sqrt(miss.rms / static_cast<double>(std::max<std::size_t>(count, 1)));
  EXPECT_GT(count, 0U);
  return miss;
}

// Points are coded in tenths of a millimetre: half a quantum in each coordinate is 0.087 mm at
// most.
constexpr double kQuantumMissM = 1.0e-4;

std::vector<std::string> fieldsOf(const std::string& sentence) {
  std::vector<std::string> fields;
  std::istringstream stream(sentence);
  for (std::string field; std::getline(stream, field, ',');) fields.push_back(field);
  return fields;
}

double degreesOf(const std::string& field, const std::string& side) {
  const std::size_t minutes = field.find('.') - 2;
  const double value =
      std::stod(field.substr(0, minutes)) + std::stod(field.substr(minutes)) / 60.0;
  return side == "S" || side == "W" ? -value : value;
}

}  // namespace

TEST(SimulatedLidar, CorrectedPointsOfAStillScannerLieOnTheSurfaces) {
  Options options = smallOptions();
  options.still = true;
  const Recording recording(options);
  EXPECT_LT(missOf(recording, Use::kCalibration).largest, kQuantumMissM);
  EXPECT_GT(missOf(recording, Use::kNothing).rms, 0.2);
}

TEST(SimulatedLidar, CorrectedPointsOfAMovingScannerLieOnTheSurfaces) {
  const Recording recording(smallOptions());
  // Path rows 5 ms apart: a straight line between them misses the path by up to 1/8 * 4 m/s^2 *
  // (5 ms)^2 = 13 um, its turning by less than that at 8 m.
  EXPECT_LT(missOf(recording, Use::kCalibration).largest, kQuantumMissM + 1e-4);
}

TEST(SimulatedLidar, CalibrationUndoesTheElevationError) {
  for (const double elevation : {0.01, -0.05}) {
    Options options = smallOptions();
    options.still = true;
    options.elevationErrorRad = elevation;
    const Recording recording(options);
    EXPECT_LT(missOf(recording, Use::kCalibration).largest, kQuantumMissM);
    options.calibrated = false;
    const Miss uncalibrated = missOf(Recording(options), Use::kCalibration);
    EXPECT_GT(uncalibrated.rms, 0.005);
    EXPECT_GT(uncalibrated.largest, 0.02);
  }
}

TEST(SimulatedLidar, OtherSeedsAreAsSharp) {
  for (std::uint64_t seed = 2; seed < 6; ++seed) {
    Options options = smallOptions();
    options.seconds = 0.5;
    options.seed = seed;
    EXPECT_LT(missOf(Recording(options), Use::kCalibration).largest, kQuantumMissM + 1e-4);
  }
}

TEST(SimulatedLidar, NoiseHasItsStandardDeviation) {
  Options options = smallOptions();
  options.still = true;
  const Recording without(options);
  options.rangeNoiseM = 0.05;
  const Recording with(options);
  const auto clean = without.read<pb::LidarPointMsgArray>("/lidar");
  const auto noisy = with.read<pb::LidarPointMsgArray>("/lidar");
  double squares = 0.0;
  int count = 0;
  const auto rangeOf = [](const pb::LidarPoint& point) {
    return 1e-4 * std::hypot(static_cast<double>(point.x()), static_cast<double>(point.y()),
                             static_cast<double>(point.z()));
  };
  for (int scan = 0; scan < clean.msgs_size(); ++scan) {
    for (int i = 0; i < clean.msgs(scan).points_size(); ++i, ++count) {
      const double noise =
          rangeOf(noisy.msgs(scan).points(i)) - rangeOf(clean.msgs(scan).points(i));
      squares += noise * noise;
    }
  }
  ASSERT_EQ(count, 5000);
  EXPECT_NEAR(std::sqrt(squares / count), 0.05, 0.002);  // four standard deviations
}

TEST(SimulatedLidar, PointsHaveTimesRingsAndIntensities) {
  Options options = smallOptions();
  options.pointsPerFrame = 5000;
  options.seconds = 0.1;
  const auto scans = Recording(options).read<pb::LidarPointMsgArray>("/lidar");
  ASSERT_EQ(scans.msgs_size(), 1);
  const pb::LidarPointMsg& scan = scans.msgs(0);
  ASSERT_EQ(scan.points_size(), 5000);
  std::uint32_t dark = 0;
  std::uint32_t bright = 0;
  for (int i = 0; i < scan.points_size(); ++i) {
    ASSERT_EQ(scan.points(i).time_offset(), i * 20);  // spread over the 100 ms of a frame
    ASSERT_EQ(scan.points(i).ring(), static_cast<std::uint32_t>(i) % 32);
    ASSERT_LE(scan.points(i).intensity(), 255U);
    if (scan.points(i).intensity() < 80) ++dark;
    if (scan.points(i).intensity() > 120) ++bright;
  }
  EXPECT_GT(dark, 500U);
  EXPECT_GT(bright, 500U);
}

TEST(SimulatedLidar, FrameWithoutPointsIsEmpty) {
  Options options = smallOptions();
  options.pointsPerFrame = 0;
  const auto scans = Recording(options).read<pb::LidarPointMsgArray>("/lidar");
  ASSERT_EQ(scans.msgs_size(), 10);
  EXPECT_EQ(scans.msgs(0).points_size(), 0);
}

TEST(SimulatedMotor, AngleAndOrientationAgree) {
  const auto records = Recording(smallOptions()).read<pb::OdometryMsgArray>("/lidar_to_platform");
  for (const auto& record : records.msgs()) {
    const double factor = 1.0 / static_cast<double>(record.header().scale());
    const double angle = factor * static_cast<double>(record.angle());
    ASSERT_GE(angle, 0.0);
    ASSERT_LT(angle, 2.0 * std::numbers::pi);
    ASSERT_NEAR(factor * static_cast<double>(record.qw()), std::cos(angle / 2.0), 2e-9);
    ASSERT_NEAR(factor * static_cast<double>(record.qz()), std::sin(angle / 2.0), 2e-9);
    ASSERT_EQ(record.qx(), 0);
    ASSERT_EQ(record.qy(), 0);
  }
}

TEST(SimulatedImu, CorrectedSamplesAreTheTrueOnes) {
  const Recording recording(smallOptions());
  const Truth truth = Truth::read(recording.options().truthPath);
  const YAML::Node imu = documentOf(recording, "imu.yaml");
  EXPECT_TRUE(imu["calibrated"].as<bool>());
  const auto matrix = [&imu](const char* key) -> Matrix3d { return matrixOf<3, 3>(imu[key]); };
  const auto vector = [&imu](const char* key) -> Vector3d { return matrixOf<3, 1>(imu[key]); };
  const Matrix3d accelModel = matrix("Ta") * matrix("Ka");
  const Matrix3d gyroModel = matrix("Tg") * matrix("Kg");
  const auto samples = recording.read<pb::ImuMsgArray>("/imu");
  ASSERT_EQ(static_cast<std::size_t>(samples.msgs_size()), truth.path().size());
  for (int i = 0; i < samples.msgs_size(); ++i) {
    const pb::ImuMsg& sample = samples.msgs(i);
    const Truth::PathRow& row = truth.path()[static_cast<std::size_t>(i)];
    const double factor = 1.0 / static_cast<double>(sample.header().scale());
    const Vector3d accel = factor * Vector3d(static_cast<double>(sample.accel_x()),
                                             static_cast<double>(sample.accel_y()),
                                             static_cast<double>(sample.accel_z()));
    const Vector3d gyro = factor * Vector3d(static_cast<double>(sample.gyro_x()),
                                            static_cast<double>(sample.gyro_y()),
                                            static_cast<double>(sample.gyro_z()));
    ASSERT_EQ(sample.header().timestamp(), row.timeUs);
    // Half a quantum of 1e-8 in each of three values.
    ASSERT_LT((accelModel * (accel - vector("Ba")) - row.specificForce).norm(), 2e-8);
    ASSERT_LT((gyroModel * (gyro - vector("Bg")) - row.angularRate).norm(), 2e-8);
    ASSERT_GT((accel - row.specificForce).norm(), 0.01) << "the raw samples are not distorted";
  }
}

TEST(SimulatedCalibration, ExtrinsicsOfLidarAndMotorAreOneChain) {
  Options options = smallOptions();
  options.seconds = 0.1;
  options.cameras = 1;
  const Recording recording(options);
  const Isometry3d lidarFromMotor = transformOf(recording, "extrinsic_motor_lidar.yaml");
  const Isometry3d motorFromImu = transformOf(recording, "extrinsic_imu_motor.yaml");
  const Isometry3d motorFromCamera = transformOf(recording, "extrinsic_camera_motor.yaml");
  const Isometry3d lidarFromImu = transformOf(recording, "extrinsic_imu_lidar.yaml");
  const Isometry3d lidarFromCamera = transformOf(recording, "extrinsic_camera_lidar.yaml");
  EXPECT_TRUE(lidarFromImu.isApprox(lidarFromMotor * motorFromImu, 1e-12));
  EXPECT_TRUE(lidarFromCamera.isApprox(lidarFromMotor * motorFromCamera, 1e-12));
  for (const Isometry3d& transform :
       {lidarFromMotor, motorFromImu, motorFromCamera, lidarFromImu, lidarFromCamera}) {
    EXPECT_TRUE((transform.linear() * transform.linear().transpose()).isIdentity(1e-12));
    EXPECT_NEAR(transform.linear().determinant(), 1.0, 1e-12);
    EXPECT_EQ(transform.matrix().row(3), Eigen::RowVector4d(0, 0, 0, 1));
    EXPECT_GT(transform.translation().norm(), 0.02);
  }
  // A camera looks along its z axis: the left one ahead and to the left of the scanner.
  const Vector3d view = (motorFromImu.inverse() * motorFromCamera).linear() * Vector3d::UnitZ();
  EXPECT_GT(view.x(), 0.5);
  EXPECT_GT(view.y(), 0.5);
}

TEST(SimulatedCalibration, EveryDocumentIsThereWithoutCamerasToo) {
  const Recording recording(smallOptions());
  EXPECT_EQ(recording.files("/config_file").size(), 8U);
  EXPECT_TRUE(documentOf(recording, "camera.yaml")["cameras"].IsSequence());
  EXPECT_NO_FATAL_FAILURE(transformOf(recording, "extrinsic_camera_motor.yaml"));
}

TEST(SimulatedCalibration, CameraDocumentListsTheCameras) {
  Options options = smallOptions();
  options.seconds = 0.1;
  options.cameras = 2;
  const YAML::Node cameras = documentOf(Recording(options), "camera.yaml")["cameras"];
  ASSERT_EQ(cameras.size(), 3U);
  EXPECT_EQ(cameras[1]["topic"].as<std::string>(), "/camera_right/h264");
  EXPECT_EQ(cameras[0]["width"].as<int>(), 480);
  EXPECT_EQ(cameras[2]["intrinsics"].size(), 4U);
}

TEST(SimulatedCalibration, UncalibratedDocumentsSaySo) {
  Options options = smallOptions();
  options.calibrated = false;
  const Recording recording(options);
  EXPECT_FALSE(documentOf(recording, "imu.yaml")["calibrated"].as<bool>());
  EXPECT_FALSE(documentOf(recording, "lidar.yaml")["calibrated"].as<bool>());
}

TEST(SimulatedMagnetometer, CalibratedFieldPointsNorthAndDown) {
  const Recording recording(smallOptions());
  const Truth truth = Truth::read(recording.options().truthPath);
  const auto samples = recording.read<pb::MagneticMsgArray>("/magnetic");
  for (const auto& sample : samples.msgs()) {
    const double factor = 1.0 / static_cast<double>(sample.header().scale());
    const Vector3d inImu = factor * Vector3d(static_cast<double>(sample.calib_mag_x()),
                                             static_cast<double>(sample.calib_mag_y()),
                                             static_cast<double>(sample.calib_mag_z()));
    const Vector3d raw =
        factor * Vector3d(static_cast<double>(sample.mag_x()), static_cast<double>(sample.mag_y()),
                          static_cast<double>(sample.mag_z()));
    const double timeS = static_cast<double>(sample.header().timestamp()) * 1e-6;
    const Vector3d field = truth.worldFromImu(timeS).linear() * inImu;
    EXPECT_NEAR(field.norm(), 48.4, 0.3);
    const double declination = std::atan2(field.x(), field.y()) * 180.0 / std::numbers::pi;
    EXPECT_NEAR(declination, factor * static_cast<double>(sample.declination()), 1.0);
    EXPECT_LT(field.z(), -40.0);
    EXPECT_GT((raw - inImu).norm(), 1.0);
  }
}

TEST(SimulatedGnss, FixesLieAroundTheAntennaByTheirSigmas) {
  Options options = smallOptions();
  options.seconds = 24.0;
  options.pointsPerFrame = 0;
  const Recording recording(options);
  const Truth truth = Truth::read(recording.options().truthPath);
  const auto file = nlohmann::json::parse(readFile(recording.options().truthPath));
  const auto& origin = file.at("geographic_origin");
  const auto lever = file.at("calibration").at("antenna_in_imu").get<std::vector<double>>();
  const auto fixes = recording.read<pb::GnssMsgArray>("/gnss_data");
  ASSERT_EQ(fixes.msgs_size(), 121);
  int beyondTwoSigma = 0;
  std::vector<int> statuses;
  for (const pb::GnssMsg& fix : fixes.msgs()) {
    const double timeS = static_cast<double>(fix.header().timestamp()) * 1e-6;
    const Vector3d antenna =
        truth.worldFromImu(timeS) * Vector3d(lever.at(0), lever.at(1), lever.at(2));
    // A degree of latitude at 48.14 degrees is 111.20 km, one of longitude 74.40 km.
    const double north = (fix.latitude() - origin.at("latitude_deg").get<double>()) * 111'200.0;
    const double east = (fix.longitude() - origin.at("longitude_deg").get<double>()) * 74'400.0;
    const double up =
        static_cast<double>(fix.altitude()) * 1e-3 - origin.at("altitude_m").get<double>();
    const double sigma = static_cast<double>(fix.lat_sigma()) * 1e-3;
    const Vector3d miss = Vector3d(east, north, up) - antenna;
    EXPECT_LT(miss.norm(), 6.0 * 2.3 * sigma + 0.01);
    if (std::abs(miss.y()) > 2.0 * sigma) ++beyondTwoSigma;
    EXPECT_EQ(fix.undulation(), 45'750);
    EXPECT_EQ(fix.utc_time(), fix.header().timestamp());
    if (statuses.empty() || statuses.back() != fix.status()) statuses.push_back(fix.status());
  }
  EXPECT_LT(beyondTwoSigma, 16);  // 5.5 expected
  EXPECT_THAT(statuses, testing::ElementsAre(1, 2, 3, 2, 1, 0, -1, 0, 1, 2, 3, 2, 1, 0, -1, 0, 1));
}

TEST(SimulatedGnss, ReceiverLogSaysTheSameAsTheTopic) {
  Options options = smallOptions();
  options.seconds = 12.0;
  options.pointsPerFrame = 0;
  const Recording recording(options);
  const auto fixes = recording.read<pb::GnssMsgArray>("/gnss_data");
  const auto log = recording.read<pb::LogMsgArray>("/raw_gnss_log");
  ASSERT_EQ(log.msgs_size(), fixes.msgs_size());
  for (int i = 0; i < log.msgs_size(); ++i) {
    const pb::GnssMsg& fix = fixes.msgs(i);
    std::istringstream lines(log.msgs(i).data());
    std::string line;
    std::vector<std::string> kinds;
    while (std::getline(lines, line)) {
      ASSERT_TRUE(line.starts_with("$GN") && line.ends_with("\r")) << line;
      const std::size_t star = line.rfind('*');
      ASSERT_EQ(line.size() - star, 4U) << line;
      unsigned checksum = 0;
      for (const char c : line.substr(1, star - 1)) checksum ^= static_cast<unsigned char>(c);
      EXPECT_EQ(std::stoul(line.substr(star + 1, 2), nullptr, 16), checksum) << line;
      kinds.push_back(line.substr(3, 3));
      if (kinds.back() != "GGA") continue;
      const auto fields = fieldsOf(line.substr(0, star));
      ASSERT_EQ(fields.size(), 14U) << line;  // the last two are empty, and the split drops one
      EXPECT_NEAR(degreesOf(fields[2], fields[3]), fix.latitude(), 1e-9);
      EXPECT_NEAR(degreesOf(fields[4], fields[5]), fix.longitude(), 1e-9);
      EXPECT_EQ(fields[6] == "0", fix.status() < 1);
      EXPECT_EQ(std::stoul(fields[7]), fix.satellite_num());
      EXPECT_NEAR(std::stod(fields[8]), static_cast<double>(fix.hdop()) * 1e-3, 1e-9);
      EXPECT_NEAR(std::stod(fields[9]),
                  static_cast<double>(fix.altitude() - fix.undulation()) * 1e-3, 1e-9);
      EXPECT_NEAR(std::stod(fields[11]), static_cast<double>(fix.undulation()) * 1e-3, 1e-9);
    }
    EXPECT_THAT(kinds, testing::ElementsAre("GGA", "RMC", "GST"));
  }
}

TEST(SimulatedRawLogs, HoldBinaryBytes) {
  const Recording recording(smallOptions());
  const auto ntrip = recording.read<pb::LogMsgArray>("/raw_ntrip_log");
  const auto ppk = recording.read<pb::LogMsgArray>("/raw_ppk_log");
  ASSERT_EQ(ntrip.msgs_size(), 2);
  ASSERT_EQ(ppk.msgs_size(), 3);
  EXPECT_EQ(ntrip.msgs(0).data().substr(0, 1), "\xD3");
  const std::string bytes = ppk.msgs(0).data() + ppk.msgs(1).data() + ppk.msgs(2).data();
  EXPECT_NE(bytes.find('\0'), std::string::npos);
}

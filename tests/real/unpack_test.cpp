// Real sensor data, recorded through the library and unpacked with the program, comes back
// unchanged.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <numbers>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "real/measured_table.h"
#include "real/picture.h"
#include "real/real_data.h"
#include "real/real_recording.h"
#include "support/pcd_file.h"
#include "support/process.h"
#include "support/real_data_dir.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

/// The topics of the recording that have an output.
const std::vector<std::string> kTopics = {
    "/imu",          "/magnetic",         "/gnss_data",     "/lidar_to_platform",
    "/lidar",        "/camera_left/h264", "/config_file",   "/camera_right/h264",
    "/project_data", "/raw_gnss_log",     "/raw_ntrip_log", "/raw_ppk_log"};

std::set<std::string> filesIn(const std::string& folder, const std::string& suffix) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == suffix) names.insert(entry.path().filename().string());
  }
  return names;
}

/// True where a printed value is the recorded one, but for what single precision and the printing
/// round away.
bool isMultipleOfQuantum(double value, double scale) {
  const double coded = std::round(value * scale);
  return std::abs(value - coded / scale) <= singleTolerance(value, scale) - 0.5 / scale;
}

}  // namespace

class UnpackedRecording : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (realDataDir().empty()) return;
    data_ = std::make_unique<RealData>(readRealData(realDataDir()));
    dir_ = std::make_unique<TempDir>();
    const std::string bag = *dir_ / "real.kbag";
    const std::map<std::string, TopicCounts> counts =
        recordRealData(*data_, bag, CompressionType::kLz4);
    fs::create_directory(out());
    std::vector<std::string> command = {KBAG_PROGRAM, "unpack", bag, "--dir",
                                        out(),        "-t",     "2", "--topic"};
    command.insert(command.end(), kTopics.begin(), kTopics.end());
    unpacked_ = std::make_unique<ProcessResult>(runProcess(command));
  }

  static void TearDownTestSuite() {
    dir_.reset();
    data_.reset();
    unpacked_.reset();
  }

  void SetUp() override {
    if (data_ == nullptr) GTEST_SKIP() << "no real sensor data beside the checkout: skipped";
  }

  [[nodiscard]] static std::string out() { return *dir_ / "out"; }
  [[nodiscard]] static std::vector<Row> table(const std::string& name) {
    return readTable(out() + "/" + name, ' ');
  }

  static std::unique_ptr<RealData> data_;
  static std::unique_ptr<TempDir> dir_;
  static std::unique_ptr<ProcessResult> unpacked_;
};

std::unique_ptr<RealData> UnpackedRecording::data_;
std::unique_ptr<TempDir> UnpackedRecording::dir_;
std::unique_ptr<ProcessResult> UnpackedRecording::unpacked_;

TEST_F(UnpackedRecording, UnpackEndsWell) {
  EXPECT_EQ(unpacked_->exitCode, 0);
  EXPECT_EQ(unpacked_->err, "");
  EXPECT_EQ(unpacked_->out.find("error!"), std::string::npos) << unpacked_->out;
}

TEST_F(UnpackedRecording, ImuTableHoldsEveryValueGyroscopeFirst) {
  const std::vector<Row> rows = table("imu.csv");
  ASSERT_EQ(rows.size(), data_->imu.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i].size(), 7U);
    ASSERT_EQ(rows[i][0], secondsText(data_->imu[i].time));
    for (std::size_t k = 0; k < 6; ++k) {
      const double value = data_->imu[i].values[(k + 3) % 6];
      ASSERT_NEAR(std::stod(rows[i][k + 1]), value, singleTolerance(value, kImuScale));
    }
  }
}

TEST_F(UnpackedRecording, MagneticTableHoldsEveryValue) {
  const std::vector<Row> rows = table("magnetic.csv");
  ASSERT_EQ(rows.size(), data_->magnetic.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i].size(), 9U);
    ASSERT_EQ(rows[i][0], secondsText(data_->magnetic[i].time));
    for (std::size_t k = 0; k < 6; ++k) {
      const double value = data_->magnetic[i].values[k];
      ASSERT_NEAR(std::stod(rows[i][k + 1]), value, singleTolerance(value, kMagneticScale));
    }
  }
}

TEST_F(UnpackedRecording, GnssTableHoldsEveryValue) {
  const std::vector<Row> rows = table("gnss.csv");
  ASSERT_EQ(rows.size(), data_->gnss.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const RealData::Gnss& fix = data_->gnss[i];
    ASSERT_EQ(rows[i].size(), 14U);
    ASSERT_EQ(rows[i][0], secondsText(fix.time));
    ASSERT_EQ(rows[i][1], "3");  // of the recorded status 1
    constexpr double kHalfPrintedDegree = 0.5e-9;
    ASSERT_NEAR(std::stod(rows[i][2]), fix.latitude, kHalfPrintedDegree);
    ASSERT_NEAR(std::stod(rows[i][3]), fix.longitude, kHalfPrintedDegree);
    ASSERT_NEAR(std::stod(rows[i][4]), fix.altitude, doubleTolerance(kGnssScale));
    ASSERT_NEAR(std::stod(rows[i][6]), kUndulation, doubleTolerance(kGnssScale));
  }
}

TEST_F(UnpackedRecording, MotorTableHoldsEveryOrientation) {
  const std::vector<Row> rows = table("motor.csv");
  ASSERT_EQ(rows.size(), data_->motor.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i].size(), 5U);
    ASSERT_EQ(rows[i][0], secondsText(data_->motor[i].time));
    ASSERT_EQ(rows[i][1], "0.000000");
    ASSERT_EQ(rows[i][2], "0.000000");
    const double half = data_->motor[i].angle * std::numbers::pi / 360.0;
    ASSERT_NEAR(std::stod(rows[i][3]), std::sin(half), singleTolerance(1.0, kMotorScale));
    ASSERT_NEAR(std::stod(rows[i][4]), std::cos(half), singleTolerance(1.0, kMotorScale));
  }
}

TEST_F(UnpackedRecording, CloudsHoldEveryPoint) {
  std::set<std::string> names;
  std::size_t points = 0;
  double worst = 0.0;
  for (const RealData::Scan& scan : data_->scans) {
    const std::string name = secondsText(scan.time) + ".pcd";
    names.insert(name);
    const std::vector<PcdPoint> cloud = readPcd(out() + "/lidar_points/" + name);
    ASSERT_EQ(cloud.size(), scan.points.size()) << name;
    for (std::size_t i = 0; i < cloud.size(); ++i) {
      const RealData::Point& source = scan.points[i];
      const Eigen::Vector3d position(source.x, source.y, source.z);
      for (int axis = 0; axis < 3; ++axis) {
        const double value = cloud[i].position[axis];
        ASSERT_NEAR(value, position[axis], singleTolerance(value, kPointScale)) << name << " " << i;
        ASSERT_TRUE(isMultipleOfQuantum(value, kPointScale)) << name << " " << i;
        worst = std::max(worst, std::abs(value - position[axis]));
      }
      ASSERT_EQ(cloud[i].normal, Eigen::Vector3d::Zero());
      // Whole microseconds are printed, and a double of this size tells them apart.
      ASSERT_EQ(std::llround(cloud[i].timeS * 1e6), scan.time + source.timeOffset) << i;
      ASSERT_EQ(cloud[i].intensity, source.intensity);
      ASSERT_EQ(cloud[i].ring, source.ring);
    }
    points += cloud.size();
  }
  EXPECT_EQ(filesIn(out() + "/lidar_points", ".pcd"), names);
  std::printf("%zu clouds, %zu points, worst coordinate off by %.7f m\n", names.size(), points,
              worst);
}

TEST_F(UnpackedRecording, RawLogsAreByteForByteTheReceivers) {
  const std::map<std::string, std::string> names = {{"/raw_gnss_log", "raw_gnss_log.txt"},
                                                    {"/raw_ntrip_log", "raw_ntrip_log.data"},
                                                    {"/raw_ppk_log", "raw_ppk_log.data"}};
  for (const auto& [topic, name] : names) {
    ASSERT_GT(data_->logs.at(topic).size(), 50000U);
    EXPECT_TRUE(readFile(out() + "/" + name) == data_->logs.at(topic)) << name;
  }
}

TEST_F(UnpackedRecording, CarriedFilesComeBackByteForByte) {
  for (const auto& [name, content] : data_->configFiles) {
    EXPECT_TRUE(readFile(out() + "/calib/config/" + name) == content) << name;
  }
  for (const auto& [name, content] : data_->projectFiles) {
    EXPECT_TRUE(readFile(out() + "/project_data/" + name) == content) << name;
  }
}

TEST_F(UnpackedRecording, PicturesMatchTheirSourceFrames) {
  constexpr double kAlike = 30.0;  // dB
  constexpr std::size_t kStep = 10;
  const std::map<std::string, std::string> folders = {{"/camera_left/h264", "/images/camera_0/"},
                                                      {"/camera_right/h264", "/images/camera_1/"}};
  for (const auto& [topic, folder] : folders) {
    const std::vector<RealData::Picture>& sources = data_->cameras.at(topic).pictures;
    double worst = HUGE_VAL;
    for (std::size_t i = 0; i < sources.size(); i += kStep) {
      const std::string path = out() + folder + secondsText(sources[i].time) + ".jpg";
      const Picture written = decodeJpeg(readFile(path));
      const double own = psnr(written, decodeH264(sources[i].bytes));
      ASSERT_GT(own, kAlike) << path;
      worst = std::min(worst, own);
      // No other moment of the scene is as close.
      const RealData::Picture& other = i + kStep < sources.size() ? sources[i + kStep] : sources[0];
      ASSERT_GT(own, psnr(written, decodeH264(other.bytes)) + 3.0) << path;
    }
    std::printf("%s: every %zuth of %zu pictures, worst PSNR %.1f dB\n", topic.c_str(), kStep,
                sources.size(), worst);
  }
}

TEST_F(UnpackedRecording, EveryPictureIsThereWholeUnderItsTime) {
  const std::map<std::string, std::string> folders = {{"/camera_left/h264", "/images/camera_0"},
                                                      {"/camera_right/h264", "/images/camera_1"}};
  for (const auto& [topic, folder] : folders) {
    const RealData::Camera& camera = data_->cameras.at(topic);
    std::set<std::string> names;
    for (const RealData::Picture& picture : camera.pictures) {
      names.insert(secondsText(picture.time) + ".jpg");
    }
    ASSERT_EQ(names.size(), camera.pictures.size());
    ASSERT_EQ(filesIn(out() + folder, ".jpg"), names);
    for (const std::string& name : names) {
      const Picture picture = decodeJpeg(readFile(out() + folder + "/" + name));
      ASSERT_EQ(picture.width, static_cast<int>(camera.width)) << name;
      ASSERT_EQ(picture.height, static_cast<int>(camera.height)) << name;
    }
    // Nothing else: no stream that was meant to be temporary.
    const auto entries = std::distance(fs::directory_iterator(out() + folder), {});
    EXPECT_EQ(static_cast<std::size_t>(entries), names.size() + 1) << "beside .gitkeep";
  }
}

}  // namespace morva::test

// Real sensor data, recorded through the library and exported with the program, comes back
// unchanged.
#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "morva/bag.h"
#include "real/measured_table.h"
#include "real/real_data.h"
#include "real/real_recording.h"
#include "support/process.h"
#include "support/real_data_dir.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

/// One recording with its export, made once per compression and shared by the tests.
struct Recording {
  explicit Recording(CompressionType compression) {
    counts = recordRealData(data(), bag, compression);
    fs::create_directory(out);
    exported = runProcess({KBAG_PROGRAM, "export", bag, "--dir", out, "--images", "-t", "2"});
  }

  static const RealData& data() {
    static const RealData real = readRealData(realDataDir());
    return real;
  }

  TempDir dir;
  std::string bag = dir / "real.kbag";
  std::string out = dir / "out";
  std::map<std::string, TopicCounts> counts;
  ProcessResult exported;
};

}  // namespace

class RealRecording : public testing::TestWithParam<CompressionType> {
 protected:
  void SetUp() override {
    if (realDataDir().empty()) GTEST_SKIP() << "no real sensor data beside the checkout: skipped";
    std::unique_ptr<Recording>& made = recordings()[GetParam()];
    if (made == nullptr) made = std::make_unique<Recording>(GetParam());
    recording_ = made.get();
  }

  static std::map<CompressionType, std::unique_ptr<Recording>>& recordings() {
    static std::map<CompressionType, std::unique_ptr<Recording>> made;
    return made;
  }

  [[nodiscard]] const RealData& data() const { return Recording::data(); }
  [[nodiscard]] std::vector<Row> table(const std::string& name) const {
    return readTable(recording_->out + "/csv/" + name, ',');
  }

  Recording* recording_ = nullptr;
};

TEST_P(RealRecording, ExportEndsWell) {
  EXPECT_EQ(recording_->exported.exitCode, 0);
  EXPECT_EQ(recording_->exported.err, "");
  EXPECT_EQ(recording_->exported.out.find("error!"), std::string::npos);
}

TEST_P(RealRecording, InfoListsEveryTopicWithItsSamples) {
  const ProcessResult info = runProcess({KBAG_PROGRAM, "info", recording_->bag});
  ASSERT_EQ(info.exitCode, 0);
  std::map<std::string, std::string> samples;
  std::istringstream lines(withoutColours(info.out));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string id;
    std::string count;
    std::string topic;
    words >> id >> count;
    for (std::string word; words >> word;) topic = word;
    if (topic.starts_with("\"/")) samples[topic.substr(1, topic.size() - 2)] = count;
  }
  ASSERT_EQ(samples.size(), recording_->counts.size());
  for (const auto& [topic, counts] : recording_->counts) {
    EXPECT_EQ(samples[topic], std::to_string(counts.samples)) << topic;
  }
  EXPECT_NE(info.out.find("\"device_name\": \"test rig\""), std::string::npos);
}

TEST_P(RealRecording, ViewListsEveryMessage) {
  const ProcessResult view = runProcess({KBAG_PROGRAM, "view", recording_->bag});
  ASSERT_EQ(view.exitCode, 0);
  std::string expected;
  for (const auto& [topic, counts] : recording_->counts) {
    const std::string heading =
        "topic     : [" + topic + "]\nchunk nums: " + std::to_string(counts.messages) + "\n";
    EXPECT_NE(withoutColours(view.out).find(heading), std::string::npos) << heading;
  }
}

TEST_P(RealRecording, CheckFindsNoDamage) {
  EXPECT_EQ(runProcess({KBAG_PROGRAM, "check", recording_->bag}).exitCode, 0);
}

TEST_P(RealRecording, RebuiltIndexExportsTheSameFiles) {
  // The index is cut off and forgotten, as by a recorder that lost its power.
  const TempDir dir;
  const std::string bag = dir / "cut.kbag";
  MorvaBag whole;
  ASSERT_EQ(whole.open(recording_->bag, BagMode::kRead), 0);
  std::string bytes = readFile(recording_->bag).substr(0, whole.getInfo().indexChunkOffset);
  writeFile(bag, bytes);
  ASSERT_EQ(runProcess({KBAG_PROGRAM, "reindex", bag}).exitCode, 0);
  fs::create_directory(dir / "out");
  ASSERT_EQ(runProcess({KBAG_PROGRAM, "export", bag, "--dir", dir / "out", "--images"}).exitCode,
            0);
  std::size_t files = 0;
  for (const auto& entry : fs::recursive_directory_iterator(recording_->out)) {
    if (!entry.is_regular_file()) continue;
    const fs::path other = fs::path(dir / "out") / fs::relative(entry.path(), recording_->out);
    EXPECT_EQ(readFile(other.string()), readFile(entry.path().string())) << other;
    ++files;
  }
  EXPECT_GT(files, 20U);
}

TEST_P(RealRecording, ImuTableHoldsEveryValue) {
  const std::vector<Row> rows = table("imu.csv");
  ASSERT_EQ(rows.size(), data().imu.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i].size(), 8U);
    ASSERT_EQ(rows[i][0], std::to_string(i));
    ASSERT_EQ(rows[i][1], std::to_string(data().imu[i].time));
    for (std::size_t k = 0; k < 6; ++k) {
      const double value = data().imu[i].values[k];
      ASSERT_NEAR(std::stod(rows[i][k + 2]), value, singleTolerance(value, kImuScale));
    }
  }
}

TEST_P(RealRecording, MagneticTableHoldsEveryValue) {
  const std::vector<Row> rows = table("magnetic.csv");
  ASSERT_EQ(rows.size(), data().magnetic.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i][1], std::to_string(data().magnetic[i].time));
    for (std::size_t k = 0; k < 3; ++k) {
      const double value = data().magnetic[i].values[k];
      ASSERT_NEAR(std::stod(rows[i].at(k + 2)), value, singleTolerance(value, kMagneticScale));
    }
  }
}

TEST_P(RealRecording, GnssTableHoldsEveryValue) {
  const std::vector<Row> rows = table("gnss_data.csv");
  ASSERT_EQ(rows.size(), data().gnss.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const RealData::Gnss& fix = data().gnss[i];
    ASSERT_EQ(rows[i].size(), 17U);
    ASSERT_EQ(rows[i][1], std::to_string(fix.time));
    ASSERT_EQ(rows[i][2], std::to_string(fix.utcTime));
    ASSERT_NEAR(std::stod(rows[i][9]), fix.latitude, 0.5e-9);
    ASSERT_NEAR(std::stod(rows[i][10]), fix.longitude, 0.5e-9);
    ASSERT_NEAR(std::stod(rows[i][11]), fix.altitude, doubleTolerance(kGnssScale));
    ASSERT_NEAR(std::stod(rows[i][12]), kUndulation, doubleTolerance(kGnssScale));
  }
}

TEST_P(RealRecording, EncoderTableHoldsEveryAngle) {
  const std::vector<Row> rows = table("encoder.csv");
  ASSERT_EQ(rows.size(), data().motor.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i][1], std::to_string(data().motor[i].time));
    ASSERT_NEAR(std::stod(rows[i].at(2)), data().motor[i].angle, doubleTolerance(kMotorScale));
  }
}

TEST_P(RealRecording, LidarTableHoldsEveryPointCount) {
  const std::vector<Row> rows = table("lidar.csv");
  ASSERT_EQ(rows.size(), data().scans.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    ASSERT_EQ(rows[i][1], std::to_string(data().scans[i].time));
    ASSERT_EQ(rows[i].at(2), std::to_string(data().scans[i].points.size()));
  }
}

TEST_P(RealRecording, CameraTablesAndStreamsHoldEveryPicture) {
  for (const char* name : {"camera_left", "camera_right"}) {
    const RealData::Camera& camera = data().cameras.at("/" + std::string(name) + "/h264");
    const std::vector<Row> rows = table(std::string(name) + "_h264.csv");
    ASSERT_EQ(rows.size(), camera.pictures.size());
    std::string stream;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      EXPECT_EQ(rows[i], (Row{std::to_string(i), std::to_string(camera.pictures[i].time),
                              std::to_string(camera.width), std::to_string(camera.height),
                              std::to_string(camera.pictures[i].bytes.size())}));
      stream += camera.pictures[i].bytes;
    }
    EXPECT_TRUE(readFile(recording_->out + "/h264/" + name + ".h264") == stream) << name;
  }
}

TEST_P(RealRecording, JpegFilesComeBackByteForByte) {
  for (const RealData::Picture& picture : data().cameras.at("/camera_center/jpeg").pictures) {
    const std::string path =
        recording_->out + "/jpeg/camera_center/" + std::to_string(picture.time) + ".jpeg";
    EXPECT_TRUE(readFile(path) == picture.bytes) << path;
  }
}

TEST_P(RealRecording, RawLogsComeBackByteForByte) {
  const std::map<std::string, std::string> names = {{"/raw_gnss_log", "raw_gnss_log.txt"},
                                                    {"/raw_ntrip_log", "raw_ntrip_log.data"},
                                                    {"/raw_ppk_log", "raw_ppk_log.data"}};
  for (const auto& [topic, name] : names) {
    EXPECT_TRUE(readFile(recording_->out + "/" + name) == data().logs.at(topic)) << name;
  }
}

TEST_P(RealRecording, CarriedFilesComeBackByteForByte) {
  for (const auto& [name, content] : data().configFiles) {
    EXPECT_TRUE(readFile(recording_->out + "/config/" + name) == content) << name;
  }
  for (const auto& [name, content] : data().projectFiles) {
    EXPECT_TRUE(readFile(recording_->out + "/project_data/" + name) == content) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(Compressions, RealRecording,
                         testing::Values(CompressionType::kNone, CompressionType::kLz4,
                                         CompressionType::kZstd),
                         [](const testing::TestParamInfo<CompressionType>& parameter) {
                           switch (parameter.param) {
                             case CompressionType::kLz4:
                               return "lz4";
                             case CompressionType::kZstd:
                               return "zstd";
                             case CompressionType::kNone:
                               break;
                           }
                           return "none";
                         });

}  // namespace morva::test

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "morva/bag.h"
#include "morva/batch_task.h"
#include "support/failing_file_calls.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "task/probed_tool.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class DevBagToolExport : public testing::Test {
 protected:
  void record(const std::vector<RecordedMessage>& messages) {
    recordProject(dir_ / "project", messages);
  }
  /// Runs a task over the project and reads its log. Plain unpacking of the configuration is asked
  /// for and of the lidar is not: both are to be overruled.
  void run() {
    ASSERT_TRUE(tool_.Init({{{dir_ / "project", out_}}, dir_ / "log", true, false}));
    tool_.StartTask();
    waitUntilFinished(tool_);
    tool_.StopTask();
    log_ = taskLog(dir_ / "log");
    std::erase_if(log_, [](const std::string& line) { return line.starts_with("<I>"); });
  }
  [[nodiscard]] std::string output(const std::string& name) const {
    return readFile(out_ + "/" + name);
  }

  /// A scan and the motor orientations that bracket its points' times.
  [[nodiscard]] static std::vector<RecordedMessage> scanAndMotor(const std::string& lidarTopic) {
    return {lidarMessage(lidarTopic, kStartUs), motorMessage(kStartUs - 50000, 100000)};
  }
  [[nodiscard]] static std::vector<RecordedMessage> configFiles(
      const std::vector<std::pair<std::string, std::string>>& files) {
    std::vector<RecordedMessage> messages;
    for (const auto& [name, content] : files) {
      messages.push_back(fileMessage("/config_file", name, content));
    }
    return messages;
  }

  TempDir dir_;
  std::string out_ = dir_ / "out";
  LogCapture capture_;
  DevBagTool tool_;
  std::vector<std::string> log_;
};

std::vector<RecordedMessage> operator+(std::vector<RecordedMessage> left,
                                       const std::vector<RecordedMessage>& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

constexpr const char* kNoCameraExtrinsic =
    "<E>TIME BagTool::dataExportTask,get camera extrinsic error!";

/// Coordinates of the points in an output cloud, one "x y z" each.
std::vector<std::string> pointsOf(const std::string& pcd) {
  std::vector<std::string> points;
  std::istringstream text(pcd.substr(pcd.find("DATA ascii\n") + 11));
  for (std::string line; std::getline(text, line);) {
    std::istringstream columns(line);
    std::string x, y, z;
    columns >> x >> y >> z;
    points.push_back(x + " " + y + " " + z);
  }
  return points;
}

TEST_F(DevBagToolExport, ProjectHasCalibrationCorrectedSamplesAndEveryOtherTopic) {
  const std::string camera = std::string("model: pinhole\n\xff") + '\0' + " as recorded";
  record(scanAndMotor("/lidar") +
         configFiles({{"imu.yaml", imuYaml(0.25)},
                      {"lidar.yaml", "s: [1, 1]\ne: 0.0\ncalibrated: true\n"},
                      {"extrinsic_motor_lidar.yaml", translationYaml(0, 0, -0.5)},
                      {"extrinsic_imu_motor.yaml", translationYaml(-1, 0, 0)},
                      {"extrinsic_camera_motor.yaml", translationYaml(0, -2, 0)},
                      {"camera.yaml", camera},
                      {"notes.txt", "not a calibration"}}) +
         std::vector{imuMessage(kStartUs), magneticMessage(kStartUs), gnssMessage(kStartUs),
                     fileMessage("/project_data", "data/project.json", "{}"),
                     logMessage("/raw_gnss_log", "$GNGGA\n"), logMessage("/raw_ntrip_log", "ntrip"),
                     logMessage("/raw_ppk_log", "ppk"),
                     imageMessage("/camera_left/h264", kStartUs + 1, h264Picture()),
                     imageMessage("/camera_left/h264", kStartUs + 100001, h264Picture()),
                     imageMessage("/camera_right_main/h264", kStartUs + 2, h264Picture())});
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_EQ(tool_.GetProgress(), 100);
  EXPECT_THAT(log_, IsEmpty());
  EXPECT_THAT(treeOf(out_),
              ElementsAre("calib/config/camera.yaml", "calib/config/imu_camera0.yaml", "gnss.csv",
                          "images/camera_0/.gitkeep", "images/camera_0/1700000000.000001.jpg",
                          "images/camera_0/1700000000.100001.jpg", "images/camera_1/.gitkeep",
                          "images/camera_1/1700000000.000002.jpg", "imu.csv",
                          "lidar_points/1700000000.000000.pcd", "magnetic.csv",
                          "project_data/.gitkeep", "project_data/project.json", "raw_gnss_log.txt",
                          "raw_ntrip_log.data", "raw_ppk_log.data"));
  EXPECT_EQ(output("calib/config/camera.yaml"), camera);
  EXPECT_EQ(output("imu.csv"),
            "#timestamp gyro_x gyro_y gyro_z acc_x acc_y acc_z\n"
            "1700000000.000000 0.000000 0.000000 0.000000 0.250000 0.000000 9.750000\n"
            "1700000000.005000 0.000000 0.000000 0.000000 0.250000 0.000000 9.750000\n");
  // Lidar to motor adds 0.5 to z, motor to IMU 1 to x.
  EXPECT_THAT(pointsOf(output("lidar_points/1700000000.000000.pcd")),
              ElementsAre("2.000000 2.000000 3.500000", "-3.000000 5.000000 6.500000"));
}

TEST_F(DevBagToolExport, ImuToCameraFileHoldsTheTransformColumnByColumn) {
  // IMU to camera 0 is inverse(camera 0 to motor) * IMU to motor: a quarter turn and translations.
  record(configFiles({{"extrinsic_imu_motor.yaml",
                       transformYaml({0, -1, 0, 1, 1, 0, 0, 2, 0, 0, 1, 3, 0, 0, 0, 1})},
                      {"extrinsic_camera_motor.yaml", translationYaml(0.5, 0.25, -1)}}));
  run();
  EXPECT_EQ(output("calib/config/imu_camera0.yaml"),
            "calibrated: true\n"
            "\"transform:\": [0.0, 1.0, 0.0, 0.0, -1.0, 0.0, 0.0, 0.0, 0.0, 0.0, 1.0, 0.0, "
            "0.5, 1.75, 4.0, 1.0]\n");
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(DevBagToolExport, LidarPairGivesTheImuToCameraFileWhereTheMotorPairIsMissing) {
  record(configFiles({{"extrinsic_imu_lidar.yaml", translationYaml(1, 2, 3)},
                      {"extrinsic_camera_lidar.yaml", translationYaml(0.5, 0, 0)}}));
  run();
  EXPECT_THAT(output("calib/config/imu_camera0.yaml"), HasSubstr(", 0.5, 2.0, 3.0, 1.0]\n"));
}

TEST_F(DevBagToolExport, RecordedFilesAreKnownByTheirLastPathComponent) {
  record(std::vector{imuMessage(kStartUs)} +
         configFiles({{"calib/imu.yaml", imuYaml(0.25)},
                      {"/device/calib/camera.yaml", "camera"},
                      {"camera.yaml/", "a path that ends in a slash has no name"}}));
  run();
  EXPECT_THAT(output("imu.csv"), HasSubstr(" 0.250000 0.000000 9.750000\n"));
  EXPECT_EQ(output("calib/config/camera.yaml"), "camera");
}

TEST_F(DevBagToolExport, LaterCalibrationFileOfANameCounts) {
  record(std::vector{imuMessage(kStartUs)} +
         configFiles({{"imu.yaml", imuYaml(0.125)},
                      {"imu.yaml", imuYaml(0.25)},
                      {"camera.yaml", "a first and longer text"},
                      {"camera.yaml", "second"}}));
  run();
  EXPECT_THAT(output("imu.csv"), HasSubstr(" 0.250000 0.000000 9.750000\n"));
  EXPECT_EQ(output("calib/config/camera.yaml"), "second");
}

TEST_F(DevBagToolExport, WithoutCalibrationDataComesAsItStandsAndNoFileIsGuessed) {
  record(scanAndMotor("/lidar") + std::vector{imuMessage(kStartUs)});
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_EQ(tool_.GetProgress(), 100);
  EXPECT_THAT(log_, ElementsAre(kNoCameraExtrinsic));
  EXPECT_THAT(treeOf(out_),
              ElementsAre("calib/config/", "images/camera_0/", "images/camera_1/", "imu.csv",
                          "lidar_points/1700000000.000000.pcd", "project_data/"));
  EXPECT_THAT(output("imu.csv"), HasSubstr(" 0.500000 0.000000 9.750000\n"));
  EXPECT_THAT(pointsOf(output("lidar_points/1700000000.000000.pcd")),
              ElementsAre("1.000000 2.000000 3.000000", "-4.000000 5.000000 6.000000"));
}

TEST_F(DevBagToolExport, BagWithoutImuAndLidarGivesAnImuTableOfItsHeaderLine) {
  record({magneticMessage(kStartUs)});
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_EQ(tool_.GetProgress(), 100);
  EXPECT_THAT(treeOf(out_),
              ElementsAre("calib/config/", "images/camera_0/", "images/camera_1/", "imu.csv",
                          "lidar_points/", "magnetic.csv", "project_data/"));
  EXPECT_EQ(output("imu.csv"), "#timestamp gyro_x gyro_y gyro_z acc_x acc_y acc_z\n");
}

TEST_F(DevBagToolExport, LidarUnderItsModelsNameIsCorrectedOnceAndCountedOnce) {
  for (const char* topic : {"/hesai/pandar", "/livox/lidar"}) {
    fs::remove_all(dir_ / "project");
    fs::remove_all(out_);
    capture_.clear();
    record(scanAndMotor(topic) +
           configFiles({{"extrinsic_imu_motor.yaml", translationYaml(-1, 0, 0)}}) +
           std::vector{imuMessage(kStartUs)});
    run();
    EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
    EXPECT_EQ(tool_.GetProgress(), 100) << topic;
    EXPECT_THAT(treeOf(out_),
                ElementsAre("calib/config/", "images/camera_0/", "images/camera_1/", "imu.csv",
                            "lidar_points/1700000000.000000.pcd", "project_data/"));
    EXPECT_THAT(pointsOf(output("lidar_points/1700000000.000000.pcd")),
                ElementsAre("2.000000 2.000000 3.000000", "-3.000000 5.000000 6.000000"));
    EXPECT_THAT(capture_.lines(), Not(Contains(HasSubstr(topic))));
  }
}

TEST_F(DevBagToolExport, TracesImuThenLidarThenTheOthersInTheBagsOrder) {
  record(scanAndMotor("/lidar") +
         std::vector{imuMessage(kStartUs), magneticMessage(kStartUs), gnssMessage(kStartUs)});
  run();
  std::vector<std::string> lines = capture_.lines();
  std::erase_if(lines, [](const std::string& line) {
    return line.find(" [dataExportTask] export [") == std::string::npos;
  });
  EXPECT_THAT(lines, ElementsAre("<I>TIME [dataExportTask] export [/imu] data start ...",
                                 "<I>TIME [dataExportTask] export [/imu] data finished.",
                                 "<I>TIME [dataExportTask] export [/lidar] data start ...",
                                 "<I>TIME [dataExportTask] export [/lidar] data finished.",
                                 "<I>TIME [dataExportTask] export [/gnss_data] data start ...",
                                 "<I>TIME [dataExportTask] export [/gnss_data] data finished.",
                                 "<I>TIME [dataExportTask] export [/magnetic] data start ...",
                                 "<I>TIME [dataExportTask] export [/magnetic] data finished."));
}

TEST_F(DevBagToolExport, TracesTheBytesOfEveryTopicButMotorAndConfiguration) {
  const RecordedMessage imu = imuMessage(kStartUs);
  const std::vector<RecordedMessage> scan = scanAndMotor("/lidar");
  record(scan + std::vector{imu} + configFiles({{"notes.txt", std::string(1000, 'x')}}));
  run();
  const std::size_t total = imu.payload.size() + scan[0].payload.size();
  const std::string of = " * 100 / " + std::to_string(total) + " = ";
  EXPECT_THAT(capture_.lines(), Contains(HasSubstr(std::to_string(imu.payload.size()) + of)));
  EXPECT_THAT(capture_.lines(), Contains(HasSubstr(std::to_string(total) + of + "100.000000")));
}

TEST_F(DevBagToolExport, BrokenCalibrationDocumentIsPassedOver) {
  record(std::vector{imuMessage(kStartUs)} +
         configFiles({{"imu.yaml", "{ broken"},
                      {"lidar.yaml", "e: 0.001\n"},
                      {"extrinsic_imu_motor.yaml", "transform: [1, 2, 3]\n"},
                      {"extrinsic_camera_motor.yaml", identityYaml()},
                      {"camera.yaml", "{ broken too"}}));
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(log_, ElementsAre(kNoCameraExtrinsic));
  EXPECT_THAT(output("imu.csv"), HasSubstr(" 0.500000 0.000000 9.750000\n"));
  EXPECT_EQ(output("calib/config/camera.yaml"), "{ broken too");
}

TEST_F(DevBagToolExport, CalibrationMessageThatCannotBeReadIsSkipped) {
  const std::string marker = "a byte of this text is damaged";
  record(std::vector{imuMessage(kStartUs)} +
         configFiles({{"camera.yaml", marker}, {"imu.yaml", imuYaml(0.25)}}));
  std::string bytes = readFile(dir_ / "project/" + kBagName);
  bytes[bytes.find(marker)] ^= 1;
  writeFile(dir_ / "project/" + kBagName, bytes);
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_FALSE(fs::exists(out_ + "/calib/config/camera.yaml"));
  EXPECT_THAT(output("imu.csv"), HasSubstr(" 0.250000 0.000000 9.750000\n"));
}

TEST_F(DevBagToolExport, CalibrationMessageThatCannotBeDecodedIsNamedAndSkipped) {
  record(std::vector{RecordedMessage{"/config_file", "\xFF\xFF"}, imuMessage(kStartUs)} +
         configFiles({{"imu.yaml", imuYaml(0.25)}}));
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(capture_.lines(), Contains(testing::MatchesRegex(
                                    "<E>TIME \\[BagTool::dataExportTask,L0\\] message of "
                                    "topic\\[/config_file\\] at offset\\([0-9]+\\) cannot be "
                                    "decoded!")));
  EXPECT_THAT(output("imu.csv"), HasSubstr(" 0.250000 0.000000 9.750000\n"));
}

TEST_F(DevBagToolExport, CalibrationFolderThatCannotBeMadeCostsItsFilesOnly) {
  fs::create_directories(out_);
  writeFile(out_ + "/calib", "in the way");
  record(std::vector{imuMessage(kStartUs)} +
         configFiles({{"camera.yaml", "camera"},
                      {"extrinsic_imu_motor.yaml", identityYaml()},
                      {"extrinsic_camera_motor.yaml", identityYaml()}}));
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(log_, ElementsAre("<W>TIME BagTool::dataExportTask,create directory(" + out_ +
                                    "/calib/config) error!",
                                "<E>TIME BagTool::dataExportTask,create camera.yaml error!",
                                "<E>TIME BagTool::dataExportTask,save imu_camera0.yaml error!"));
  EXPECT_TRUE(fs::exists(out_ + "/imu.csv"));
}

TEST_F(DevBagToolExport, CameraFileThatCannotBeWrittenIsLoggedAndRemoved) {
  record(configFiles({{"camera.yaml", "camera"}}));
  FailingFileCalls disk;
  disk.onlyFilesThatEndIn("camera.yaml");
  disk.fail(FailingFileCalls::Call::kPwrite);
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(log_, ElementsAre("<E>TIME BagTool::dataExportTask,write camera.yaml error!",
                                kNoCameraExtrinsic));
  EXPECT_FALSE(fs::exists(out_ + "/calib/config/camera.yaml"));
}

TEST_F(DevBagToolExport, ImuToCameraFileThatCannotBeWrittenIsLogged) {
  record(configFiles({{"extrinsic_imu_motor.yaml", identityYaml()},
                      {"extrinsic_camera_motor.yaml", identityYaml()}}));
  FailingFileCalls disk;
  disk.onlyFilesThatEndIn("imu_camera0.yaml");
  disk.fail(FailingFileCalls::Call::kPwrite);
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(log_, ElementsAre("<E>TIME BagTool::dataExportTask,save imu_camera0.yaml error!"));
  EXPECT_FALSE(fs::exists(out_ + "/calib/config/imu_camera0.yaml"));
}

TEST_F(DevBagToolExport, ImuAndLidarThatFailAreLoggedAndTheOthersFollow) {
  fs::create_directories(out_ + "/imu.csv");  // a folder where the table should be
  // A transform without an inverse cannot be applied to points.
  record(scanAndMotor("/lidar") +
         configFiles({{"extrinsic_imu_motor.yaml", transformYaml(std::vector<double>(16, 0.0))}}) +
         std::vector{imuMessage(kStartUs), magneticMessage(kStartUs)});
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(log_,
              ElementsAre(kNoCameraExtrinsic,
                          "<W>TIME BagTool::dataExportTask,unpack [" + out_ + "][/imu] error!",
                          "<W>TIME BagTool::dataExportTask,unpack [" + out_ + "][/lidar] error!"));
  EXPECT_TRUE(fs::exists(out_ + "/magnetic.csv"));
  std::vector<std::string> failed;
  for (const auto& topic : tool_.GetFailedTopics()) failed.push_back(topic.topic);
  EXPECT_THAT(failed, ElementsAre("/imu", "/lidar"));
}

TEST_F(DevBagToolExport, OtherTopicThatFailsIsLogged) {
  record({logMessage("/aaa", "no handler"), magneticMessage(kStartUs)});
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(log_, Contains("<W>TIME BagTool::dataExportTask,unpack [" + out_ + "][/aaa] error!"));
  EXPECT_TRUE(fs::exists(out_ + "/magnetic.csv"));
}

TEST_F(DevBagToolExport, CalibrationOfOneProjectIsNotTheNextOnes) {
  recordProject(dir_ / "p1",
                configFiles({{"imu.yaml", imuYaml(0.25)}}) + std::vector{imuMessage(kStartUs)});
  recordProject(dir_ / "p2", {imuMessage(kStartUs)});
  ASSERT_TRUE(tool_.Init({{{dir_ / "p1", dir_ / "o1"}, {dir_ / "p2", dir_ / "o2"}}, dir_ / "log"}));
  tool_.StartTask();
  waitUntilFinished(tool_);
  EXPECT_THAT(readFile(dir_ / "o1/imu.csv"), HasSubstr(" 0.250000 0.000000 9.750000\n"));
  EXPECT_THAT(readFile(dir_ / "o2/imu.csv"), HasSubstr(" 0.500000 0.000000 9.750000\n"));
}

TEST_F(DevBagToolExport, WithoutAnyBagThereIsAnError) {
  fs::create_directories(dir_ / "project");
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kNoBag);
}

TEST_F(DevBagToolExport, RefusedInitOfTheBaseIsRefusedHereToo) {
  writeFile(dir_ / "file", "");
  EXPECT_FALSE(tool_.Init({{}, dir_ / "file/log"}));
  EXPECT_TRUE(tool_.IsTaskFinished());
}

}  // namespace
}  // namespace morva::test

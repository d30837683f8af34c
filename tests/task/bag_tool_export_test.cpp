#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "morva/bag.h"
#include "morva/batch_task.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "task/probed_tool.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class BagToolExport : public testing::Test {
 protected:
  /// Runs a task over the given projects and reads its log.
  void run(const std::vector<BagTool::ProjectInfo>& projects) {
    ASSERT_TRUE(tool_.Init({projects, dir_ / "log", withConfigFile_, withLidar_}));
    runPrepared();
  }
  void runPrepared() {
    tool_.StartTask();
    waitUntilFinished(tool_);
    tool_.StopTask();
    log_ = taskLog(dir_ / "log");
  }
  void run() { run({{dir_ / "project", dir_ / "out"}}); }
  void record(const std::vector<RecordedMessage>& messages) {
    recordProject(dir_ / "project", messages);
  }

  /// The lines of the run in the process-wide log.
  [[nodiscard]] std::vector<std::string> traced() const {
    std::vector<std::string> lines = capture_.lines();
    std::erase_if(lines, [](const std::string& line) {
      return line.find("[dataExportTask") == std::string::npos;
    });
    return lines;
  }

  TempDir dir_;
  LogCapture capture_;
  bool withConfigFile_ = true;
  bool withLidar_ = true;
  BagTool tool_;
  std::vector<std::string> log_;
};

constexpr const char* kTwoImuRows =
    "#timestamp gyro_x gyro_y gyro_z acc_x acc_y acc_z\n"
    "1700000000.000000 0.000000 0.000000 0.000000 0.500000 0.000000 9.750000\n"
    "1700000000.005000 0.000000 0.000000 0.000000 0.500000 0.000000 9.750000\n";

TEST_F(BagToolExport, EveryTopicIsUnpackedIntoTheOutputFolder) {
  record({imuMessage(kStartUs), magneticMessage(kStartUs), motorMessage(kStartUs, 100000),
          lidarMessage("/lidar", kStartUs), gnssMessage(kStartUs),
          fileMessage("/config_file", "calib/imu.yaml", "calibrated: false\n"),
          fileMessage("/project_data", "project.json", "{}"),
          logMessage("/raw_gnss_log", "$GNGGA\n"), logMessage("/raw_ntrip_log", "ntrip"),
          logMessage("/raw_ppk_log", "ppk")});
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_EQ(tool_.GetProgress(), 100);
  EXPECT_THAT(tool_.GetFailedTopics(), IsEmpty());
  EXPECT_THAT(
      treeOf(dir_ / "out"),
      ElementsAre("calib/config/.gitkeep", "calib/config/imu.yaml", "gnss.csv", "images/camera_0/",
                  "images/camera_1/", "imu.csv", "lidar_points/.gitkeep",
                  "lidar_points/1700000000.000000.pcd", "magnetic.csv", "motor.csv",
                  "project_data/.gitkeep", "project_data/project.json", "raw_gnss_log.txt",
                  "raw_ntrip_log.data", "raw_ppk_log.data"));
  EXPECT_EQ(readFile(dir_ / "out/imu.csv"), kTwoImuRows);
  EXPECT_EQ(readFile(dir_ / "out/raw_gnss_log.txt"), "$GNGGA\n");
  EXPECT_THAT(log_, ElementsAre("<I>TIME BagTool::Init,init success, project nums: 1.",
                                "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolExport, ConfigurationIsLeftOutWhenNotWanted) {
  record({imuMessage(kStartUs), fileMessage("/config_file", "imu.yaml", "calibrated: false\n")});
  withConfigFile_ = false;
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_EQ(tool_.GetProgress(), 100);
  EXPECT_THAT(treeOf(dir_ / "out"),
              ElementsAre("calib/config/", "images/camera_0/", "images/camera_1/", "imu.csv",
                          "lidar_points/", "project_data/"));
}

TEST_F(BagToolExport, LidarIsLeftOutWhenNotWanted) {
  record({imuMessage(kStartUs), lidarMessage("/lidar", kStartUs)});
  withLidar_ = false;
  run();
  EXPECT_EQ(tool_.GetProgress(), 100);
  EXPECT_THAT(treeOf(dir_ / "out"),
              ElementsAre("calib/config/", "images/camera_0/", "images/camera_1/", "imu.csv",
                          "lidar_points/", "project_data/"));
}

TEST_F(BagToolExport, TracesEachTopicWithTheBytesDone) {
  const RecordedMessage imu = imuMessage(kStartUs);
  const RecordedMessage log = logMessage("/raw_gnss_log", "$GNGGA\n");
  record({log, imu, imu});
  run();
  const std::size_t imuBytes = 2 * imu.payload.size();
  const std::size_t total = imuBytes + log.payload.size();
  const float afterImu = static_cast<float>(imuBytes) * (100.0F / static_cast<float>(total));
  EXPECT_THAT(traced(),
              ElementsAre("<I>TIME [dataExportTask] export [/imu] data start ...",
                          "<I>TIME [dataExportTask] export [/imu] data finished.",
                          "<I>TIME [dataExportTask] " + std::to_string(imuBytes) + " * 100 / " +
                              std::to_string(total) + " = " + std::to_string(afterImu),
                          "<I>TIME [dataExportTask] export [/raw_gnss_log] data start ...",
                          "<I>TIME [dataExportTask] export [/raw_gnss_log] data finished.",
                          "<I>TIME [dataExportTask] " + std::to_string(total) + " * 100 / " +
                              std::to_string(total) + " = 100.000000"));
}

TEST_F(BagToolExport, TopicThatCannotBeUnpackedIsLoggedAndTheNextOneFollows) {
  const RecordedMessage imu = imuMessage(kStartUs);
  const RecordedMessage odd = logMessage("/aaa", "no handler");
  record({odd, imu});
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_EQ(readFile(dir_ / "out/imu.csv"), kTwoImuRows);
  EXPECT_THAT(log_, ElementsAre("<I>TIME BagTool::Init,init success, project nums: 1.",
                                "<W>TIME BagTool::dataExportTask,unpack [" + dir_ / "out" +
                                    "][/aaa] error!",
                                "<I>TIME BagTool::operator(),task finished."));
  const std::vector<BagTool::FailedTopic> failed = tool_.GetFailedTopics();
  ASSERT_EQ(failed.size(), 1U);
  EXPECT_EQ(failed[0].topic, "/aaa");
  EXPECT_EQ(failed[0].outputPath, dir_ / "out");
  // What nothing can unpack counts in the total but is never done.
  EXPECT_EQ(tool_.GetProgress(),
            static_cast<int>(100 * imu.payload.size() / (imu.payload.size() + odd.payload.size())));
}

TEST_F(BagToolExport, FailedTopicsAreThoseOfTheLatestRun) {
  record({logMessage("/aaa", "no handler")});
  run();
  EXPECT_EQ(tool_.GetFailedTopics().size(), 1U);
  recordProject(dir_ / "second", {imuMessage(kStartUs)});
  run({{dir_ / "second", dir_ / "out"}});
  EXPECT_THAT(tool_.GetFailedTopics(), IsEmpty());
}

TEST_F(BagToolExport, FoldersOfManyFilesAreEmptiedAndOthersKept) {
  const std::vector<std::string> wiped = {"calib/config/old", "images/camera_0/old/deep",
                                          "images/camera_1/old", "lidar_points/old.pcd",
                                          "project_data/old"};
  const std::vector<std::string> kept = {"calib/old", "images/camera_2/old", "old.csv"};
  for (const auto* const list : {&wiped, &kept}) {
    for (const std::string& name : *list) {
      fs::create_directories(fs::path(dir_ / ("out/" + name)).parent_path());
      writeFile(dir_ / ("out/" + name), "old");
    }
  }
  record({imuMessage(kStartUs)});
  run();
  EXPECT_THAT(
      treeOf(dir_ / "out"),
      ElementsAre("calib/config/", "calib/old", "images/camera_0/", "images/camera_1/",
                  "images/camera_2/old", "imu.csv", "lidar_points/", "old.csv", "project_data/"));
}

TEST_F(BagToolExport, ProjectsThatAreMissingOrEmptyAreLeftOut) {
  fs::create_directories(dir_ / "empty");
  record({imuMessage(kStartUs)});
  run({{dir_ / "missing", dir_ / "out1"},
       {dir_ / "empty", dir_ / "out2"},
       {dir_ / "project", dir_ / "out3"}});
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_FALSE(fs::exists(dir_ / "out1"));
  EXPECT_FALSE(fs::exists(dir_ / "out2"));
  EXPECT_TRUE(fs::exists(dir_ / "out3/imu.csv"));
  EXPECT_THAT(log_,
              ElementsAre("<W>TIME BagTool::Init,project not exist: " + dir_ / "missing" + "!",
                          "<W>TIME BagTool::Init,no kbin file in: " + dir_ / "empty" + "!",
                          "<I>TIME BagTool::Init,init success, project nums: 1.",
                          "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolExport, WithoutAnyProjectInitSucceedsAndTheTaskFindsNoBag) {
  run({{dir_ / "missing", dir_ / "out"}});
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kNoBag);
  EXPECT_EQ(tool_.GetProgress(), 0);
  EXPECT_THAT(log_,
              ElementsAre("<W>TIME BagTool::Init,project not exist: " + dir_ / "missing" + "!",
                          "<I>TIME BagTool::Init,init success, project nums: 0.",
                          "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolExport, BagThatWentAwayAfterInitIsReported) {
  record({imuMessage(kStartUs)});
  ASSERT_TRUE(tool_.Init({{{dir_ / "project", dir_ / "out"}}, dir_ / "log", true, true}));
  fs::remove(dir_ / "project/" + kBagName);
  runPrepared();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kNoBag);
  EXPECT_THAT(
      log_, Contains("<W>TIME BagTool::dataExportTask,no kbin file in: " + dir_ / "project" + "!"));
  EXPECT_FALSE(fs::exists(dir_ / "out"));
}

TEST_F(BagToolExport, BagThatCannotBeOpenedIsReportedAndTheOthersAreDone) {
  fs::create_directories(dir_ / "bad");
  writeFile(dir_ / "bad/" + kBagName, std::string(5000, 'x'));
  record({imuMessage(kStartUs)});
  run({{dir_ / "bad", dir_ / "out1"}, {dir_ / "project", dir_ / "out2"}});
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_FALSE(fs::exists(dir_ / "out1"));
  EXPECT_EQ(readFile(dir_ / "out2/imu.csv"), kTwoImuRows);
  EXPECT_THAT(log_, ElementsAre("<I>TIME BagTool::Init,init success, project nums: 2.",
                                "<E>TIME BagTool::dataExportTask,open project(" + dir_ / "bad" +
                                    ") error(7)!",
                                "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolExport, OnlyBagsThatCannotBeOpenedGiveNoBag) {
  fs::create_directories(dir_ / "bad");
  writeFile(dir_ / "bad/" + kBagName, "");
  run({{dir_ / "bad", dir_ / "out"}});
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kNoBag);
}

TEST_F(BagToolExport, OutputFolderThatCannotBeMadeDropsTheProject) {
  writeFile(dir_ / "file", "");
  record({imuMessage(kStartUs)});
  run({{dir_ / "project", dir_ / "file/out"}});
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kNoBag);
  EXPECT_THAT(log_, ElementsAre("<I>TIME BagTool::Init,init success, project nums: 1.",
                                "<W>TIME BagTool::dataExportTask,create project output error: " +
                                    dir_ / "file/out" + "!",
                                "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolExport, OutputFolderIsMadeWithItsParents) {
  record({imuMessage(kStartUs)});
  run({{dir_ / "project", dir_ / "a/b c/\u00fc"}});
  EXPECT_EQ(readFile(dir_ / "a/b c/\u00fc/imu.csv"), kTwoImuRows);
}

TEST_F(BagToolExport, OfSeveralBagsTheFirstByNameIsTaken) {
  fs::create_directories(dir_ / "project");
  recordBag(dir_ / "project/2024-02-01-000000.kbin", {magneticMessage(kStartUs)});
  recordBag(dir_ / "project/2024-01-31-235959.kbin", {imuMessage(kStartUs)});
  recordBag(dir_ / "project/2023-12-31-235959.kbag", {gnssMessage(kStartUs)});
  run();
  EXPECT_TRUE(fs::exists(dir_ / "out/imu.csv"));
  EXPECT_FALSE(fs::exists(dir_ / "out/magnetic.csv"));
  EXPECT_FALSE(fs::exists(dir_ / "out/gnss.csv"));
}

TEST_F(BagToolExport, OnlyRegularFilesNamedAfterARecordingTimeAreBags) {
  const auto isAccepted = [&](const std::string& name) {
    const std::string folder = dir_ / "names";
    fs::remove_all(folder);
    fs::create_directories(folder);
    writeFile(folder + "/" + name, "");
    BagTool tool;
    EXPECT_TRUE(tool.Init({{{folder, dir_ / "out"}}, dir_ / "nameslog", true, true}));
    tool.StopTask();
    const std::string last = taskLog(dir_ / "nameslog").back();
    return last == "<I>TIME BagTool::Init,init success, project nums: 1.";
  };
  EXPECT_TRUE(isAccepted("2024-01-31-235959.kbin"));
  EXPECT_TRUE(isAccepted("9999-99-99-999999.kbin"));
  EXPECT_TRUE(isAccepted("2024-01-31-235959_kbin"));  // the pattern's dot is any character
  EXPECT_FALSE(isAccepted("2024-01-31-23595.kbin"));
  EXPECT_FALSE(isAccepted("2024-01-31-2359590.kbin"));
  EXPECT_FALSE(isAccepted("x2024-01-31-235959.kbin"));
  EXPECT_FALSE(isAccepted("2024-01-31-235959.kbin.index"));
  EXPECT_FALSE(isAccepted("2024-01-31-235959.kbinx"));
  EXPECT_FALSE(isAccepted("2024-01-31_235959.kbin"));

  fs::create_directories(dir_ / "folder/" + kBagName);
  BagTool tool;
  ASSERT_TRUE(tool.Init({{{dir_ / "folder", dir_ / "out"}}, dir_ / "folderlog", true, true}));
  tool.StopTask();
  EXPECT_THAT(taskLog(dir_ / "folderlog"),
              Contains("<W>TIME BagTool::Init,no kbin file in: " + dir_ / "folder" + "!"));
}

TEST_F(BagToolExport, TotalOfZeroBytesGivesProgressZeroAndSuccess) {
  record({{"/imu", "", kStartUs}});
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_EQ(tool_.GetProgress(), 0);
  EXPECT_THAT(
      traced(),
      Contains(testing::MatchesRegex("<I>TIME \\[dataExportTask\\] 0 \\* 100 / 0 = -?nan")));
}

TEST_F(BagToolExport, BagWithoutMessagesSucceedsWithNothingToDo) {
  fs::create_directories(dir_ / "project");
  MorvaBag bag;
  bag.topics = {"/imu"};
  ASSERT_EQ(bag.open(dir_ / "project/" + kBagName, BagMode::kWrite), MorvaBag::kOpenOk);
  ASSERT_TRUE(bag.close());
  run();
  EXPECT_EQ(tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_EQ(tool_.GetProgress(), 0);
  EXPECT_THAT(treeOf(dir_ / "out"),
              ElementsAre("calib/config/", "images/camera_0/", "images/camera_1/", "lidar_points/",
                          "project_data/"));
}

TEST_F(BagToolExport, ProgressRunsOverAllProjects) {
  std::vector<int> seen;
  class Watch final : public osmik::TracerSink {
   public:
    Watch(const BagTool* tool, std::vector<int>* seen) : tool_(tool), seen_(seen) {}
    void write(int /*level*/, std::string_view line) override {
      if (line.find(" * 100 / ") != std::string_view::npos) seen_->push_back(tool_->GetProgress());
    }

   private:
    const BagTool* tool_;
    std::vector<int>* seen_;
  };
  const auto watch = std::make_shared<Watch>(&tool_, &seen);
  osmik::Singleton<osmik::Tracer>::getInstance().addSink(watch);
  std::vector<BagTool::ProjectInfo> projects;
  for (const char* name : {"p1", "p2", "p3", "p4"}) {
    recordProject(dir_ / name, {imuMessage(kStartUs)});
    projects.push_back({dir_ / name, dir_ / "out" + std::string("-") + name});
  }
  run(projects);
  osmik::Singleton<osmik::Tracer>::getInstance().removeSink(watch);
  EXPECT_THAT(seen, ElementsAre(25, 50, 75, 100));
}

TEST_F(BagToolExport, ProjectsAreDoneInTheirOrder) {
  std::vector<BagTool::ProjectInfo> projects;
  for (const char* name : {"c", "a", "b"}) {
    recordProject(dir_ / name, {logMessage("/unknown", name)});
    projects.push_back({dir_ / name, dir_ / "out" + std::string("-") + name});
  }
  run(projects);
  std::vector<std::string> order;
  for (const auto& failed : tool_.GetFailedTopics()) order.push_back(failed.outputPath);
  EXPECT_THAT(order, ElementsAre(dir_ / "out-c", dir_ / "out-a", dir_ / "out-b"));
}

}  // namespace
}  // namespace morva::test

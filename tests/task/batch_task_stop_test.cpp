#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "morva/batch_task.h"
#include "support/temp_dir.h"
#include "task/probed_tool.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;

/// Three messages of each of a device's main topics.
std::vector<RecordedMessage> deviceRecording() {
  std::vector<RecordedMessage> messages = {
      fileMessage("/config_file", "imu.yaml", imuYaml(0.25)),
      fileMessage("/config_file", "extrinsic_imu_motor.yaml", translationYaml(-1, 0, 0)),
      fileMessage("/config_file", "extrinsic_camera_motor.yaml", translationYaml(0, -2, 0)),
      fileMessage("/project_data", "project.json", "{}")};
  for (int i = 0; i < 3; ++i) {
    const std::int64_t timeUs = kStartUs + 100000 * i;
    messages.push_back(imuMessage(timeUs));
    messages.push_back(motorMessage(timeUs - 10000, 60000));
    messages.push_back(lidarMessage("/lidar", timeUs));
    messages.push_back(magneticMessage(timeUs));
    messages.push_back(imageMessage("/camera_left/h264", timeUs, h264Picture()));
  }
  return messages;
}

/// Runs of a task over two projects, one of which is stopped.
template <typename Tool>
class BatchTaskStop : public testing::Test {
 protected:
  BatchTaskStop() {
    recordProject(dir_ / "p1", deviceRecording());
    recordProject(dir_ / "p2", deviceRecording());
  }

  /// Runs a task to its end and returns the outputs of both projects.
  std::vector<std::string> runWhole(Tool* tool) {
    EXPECT_TRUE(tool->Init(args()));
    tool->StartTask();
    waitUntilFinished(*tool);
    EXPECT_EQ(tool->GetErrorCode(), BagTool::kSuccess);
    EXPECT_EQ(tool->GetProgress(), 100);
    return contentsOf(dir_ / "out");
  }

  /// Runs a task that is stopped when a line with `text` is logged; then runs it again to the end
  /// and compares that with a run that was never stopped. Leaves what the stopped run wrote in
  /// `stopped_`.
  void stopAtAndFinish(const std::string& text) {
    Tool reference;
    const std::vector<std::string> whole = runWhole(&reference);
    fs::remove_all(dir_ / "out");

    Probed<Tool> tool;
    ASSERT_TRUE(tool.Init(args()));
    {
      StopAtLine<Tool> stop(&tool, text);
      tool.StartTask();
      waitUntilFinished(tool);
      ASSERT_TRUE(stop.waitUntilStopped()) << "no line: " << text;
    }
    EXPECT_EQ(tool.GetErrorCode(), BagTool::kStopped);
    EXPECT_TRUE(tool.IsTaskFinished());
    EXPECT_LT(tool.GetProgress(), 100);
    if (fs::exists(dir_ / "out")) stopped_ = treeOf(dir_ / "out");
    expectNoTemporaryFiles();
    expectPicturesAndCloudsAreWhole(whole);
    EXPECT_EQ(runWhole(&tool), whole);
  }

  /// Runs a task that is stopped in its scan, at what opening the first bag logs.
  void stopInTheScan(Probed<Tool>* tool) {
    fs::create_directories(dir_ / "p0");
    writeFile(dir_ / "p0/" + kBagName, "no bag");
    ASSERT_TRUE(tool->Init(scanArgs()));
    {
      StopAtLine<Tool> stop(tool, "<E>");
      tool->StartTask();
      waitUntilFinished(*tool);
      ASSERT_TRUE(stop.waitUntilStopped());
    }
    EXPECT_EQ(tool->GetErrorCode(), BagTool::kStopped);
    EXPECT_FALSE(fs::exists(dir_ / "out"));
  }

  void expectNoTemporaryFiles() {
    for (const std::string& name : stopped_) {
      EXPECT_THAT(name, testing::MatchesRegex(R"(.*(\.(csv|pcd|jpg|yaml|json|gitkeep)|/))"));
    }
  }

  /// A picture or cloud of the stopped run is the one that a whole run writes.
  void expectPicturesAndCloudsAreWhole(const std::vector<std::string>& whole) {
    for (const std::string& name : stopped_) {
      if (!name.ends_with(".pcd") && !name.ends_with(".jpg")) continue;
      EXPECT_THAT(whole, Contains(name + ": " + readFile(dir_ / ("out/" + name))));
    }
  }

  [[nodiscard]] long filesLike(const std::string& part) const {
    return std::ranges::count_if(stopped_, [&](const std::string& name) {
      return name.find(part) != std::string::npos && !name.ends_with('/') &&
             !name.ends_with(".gitkeep");
    });
  }

  BagTool::PreprocessArgs args() {
    return {
        {{dir_ / "p1", dir_ / "out/p1"}, {dir_ / "p2", dir_ / "out/p2"}}, dir_ / "log", true, true};
  }

  /// The same behind a project without a bag.
  BagTool::PreprocessArgs scanArgs() {
    BagTool::PreprocessArgs behind = args();
    behind.projects.insert(behind.projects.begin(), {dir_ / "p0", dir_ / "out/p0"});
    return behind;
  }

  TempDir dir_;
  std::vector<std::string> stopped_;
};

using BagToolStop = BatchTaskStop<BagTool>;
using DevBagToolStop = BatchTaskStop<DevBagTool>;

TEST_F(DevBagToolStop, InTheScanNoFurtherProjectIsOpened) {
  Probed<DevBagTool> tool;
  stopInTheScan(&tool);
  EXPECT_EQ(tool.GetProgress(), 0);

  ASSERT_TRUE(tool.Init(scanArgs()));
  tool.StartTask();
  waitUntilFinished(tool);
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);
  EXPECT_TRUE(fs::exists(dir_ / "out/p2/imu.csv"));
}

TEST_F(DevBagToolStop, InTheImuTopicItsFirstMessageIsTheLast) {
  this->stopAtAndFinish("export [/imu] data start ...");
  EXPECT_THAT(stopped_, ElementsAre("p1/calib/config/imu_camera0.yaml", "p1/images/camera_0/",
                                    "p1/images/camera_1/", "p1/imu.csv", "p1/lidar_points/",
                                    "p1/project_data/", "p2/"));
}

TEST_F(DevBagToolStop, AfterTheImuTopicTheLidarIsNotBegun) {
  this->stopAtAndFinish("export [/imu] data finished.");
  EXPECT_THAT(stopped_, ElementsAre("p1/calib/config/imu_camera0.yaml", "p1/images/camera_0/",
                                    "p1/images/camera_1/", "p1/imu.csv", "p1/lidar_points/",
                                    "p1/project_data/", "p2/"));
}

TEST_F(DevBagToolStop, InTheLidarTopicNoFurtherScanIsTaken) {
  this->stopAtAndFinish("export [/lidar] data start ...");
  EXPECT_LE(filesLike("p1/lidar_points/"), 1);
  EXPECT_EQ(filesLike("p1/images/"), 0);
  EXPECT_EQ(filesLike("p2/"), 0);
}

TEST_F(DevBagToolStop, InACameraTopicItsFirstPictureIsTheLast) {
  this->stopAtAndFinish("export [/camera_left/h264] data start ...");
  EXPECT_EQ(filesLike("p1/lidar_points/"), 3);
  EXPECT_EQ(filesLike("p1/images/"), 1);
  EXPECT_EQ(filesLike("magnetic.csv"), 0);
  EXPECT_EQ(filesLike("p2/"), 0);
}

TEST_F(DevBagToolStop, AfterTheLastTopicOfAProjectTheNextOneIsNotWiped) {
  fs::create_directories(dir_ / "out/p2/lidar_points");
  writeFile(dir_ / "out/p2/lidar_points/old.pcd", "of an earlier run");
  Probed<DevBagTool> tool;
  ASSERT_TRUE(tool.Init(args()));
  {
    StopAtLine<DevBagTool> stop(&tool, "export [/project_data] data finished.");
    tool.StartTask();
    waitUntilFinished(tool);
    ASSERT_TRUE(stop.waitUntilStopped());
  }
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kStopped);
  EXPECT_EQ(readFile(dir_ / "out/p2/lidar_points/old.pcd"), "of an earlier run");
  EXPECT_FALSE(fs::exists(dir_ / "out/p2/imu.csv"));
}

TEST_F(DevBagToolStop, InTheCalibrationNothingIsWrittenAnyMore) {
  recordProject(dir_ / "broken",
                {fileMessage("/config_file", "imu.yaml", "{ broken"),
                 fileMessage("/config_file", "camera.yaml", "camera"),
                 fileMessage("/config_file", "extrinsic_imu_motor.yaml", identityYaml()),
                 fileMessage("/config_file", "extrinsic_camera_motor.yaml", identityYaml()),
                 imuMessage(kStartUs)});
  Probed<DevBagTool> tool;
  ASSERT_TRUE(tool.Init({{{dir_ / "broken", dir_ / "out"}}, dir_ / "log"}));
  {
    StopAtLine<DevBagTool> stop(&tool, "load config error!");
    tool.StartTask();
    waitUntilFinished(tool);
    ASSERT_TRUE(stop.waitUntilStopped());
  }
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kStopped);
  EXPECT_THAT(treeOf(dir_ / "out"),
              ElementsAre("calib/config/", "images/camera_0/", "images/camera_1/", "lidar_points/",
                          "project_data/"));
}

TEST_F(BagToolStop, InTheScanNoFurtherProjectIsOpened) {
  Probed<BagTool> tool;
  stopInTheScan(&tool);
  EXPECT_FALSE(runWhole(&tool).empty());
}

TEST_F(BagToolStop, InTheFirstTopicNothingElseIsBegun) {
  this->stopAtAndFinish("export [/camera_left/h264] data start ...");
  EXPECT_EQ(filesLike("p1/images/"), 1);
  EXPECT_EQ(filesLike(""), 1);
}

TEST_F(BagToolStop, InALaterTopicTheEarlierOnesAreThere) {
  this->stopAtAndFinish("export [/lidar] data start ...");
  EXPECT_EQ(filesLike("p1/images/"), 3);
  EXPECT_EQ(filesLike("p1/imu.csv"), 1);
  EXPECT_EQ(filesLike("p1/lidar_points/"), 1);
  EXPECT_EQ(filesLike("motor.csv"), 0);
  EXPECT_EQ(filesLike("p2/"), 0);
}

/// Holds the thread that logs a line with `text` until the task is to stop.
template <typename Tool>
struct HoldAtLine final : osmik::TracerSink {
  void write(int /*level*/, std::string_view line) override {
    if (line.find(text) == std::string_view::npos) return;
    reached = true;
    while (!tool->stopRequested()) std::this_thread::yield();
  }
  Tool* tool = nullptr;
  std::string text;
  std::atomic<bool> reached = false;
};

/// Destroys a task whose worker logs a line with `text`.
template <typename Tool>
void destroyAt(const std::string& text, const BagTool::PreprocessArgs& args) {
  auto tool = std::make_unique<Probed<Tool>>();
  const auto hold = std::make_shared<HoldAtLine<Probed<Tool>>>();
  hold->tool = tool.get();
  hold->text = text;
  osmik::Singleton<osmik::Tracer>::getInstance().addSink(hold);
  ASSERT_TRUE(tool->Init(args));
  tool->StartTask();
  while (!hold->reached) std::this_thread::yield();
  tool.reset();
  osmik::Singleton<osmik::Tracer>::getInstance().removeSink(hold);
}

TEST_F(DevBagToolStop, DestructionStopsARunningExport) {
  destroyAt<DevBagTool>("export [/imu] data start ...", args());
  stopped_ = treeOf(dir_ / "out");
  EXPECT_EQ(filesLike("imu.csv"), 1);
  EXPECT_EQ(filesLike("p1/lidar_points/"), 0);
  EXPECT_EQ(filesLike("p2/"), 0);
  expectNoTemporaryFiles();
}

TEST_F(BagToolStop, DestructionStopsARunningExport) {
  destroyAt<BagTool>("export [/camera_left/h264] data start ...", args());
  stopped_ = treeOf(dir_ / "out");
  EXPECT_EQ(filesLike("p1/images/"), 1);
  EXPECT_EQ(filesLike(""), 1);
  expectNoTemporaryFiles();
}

}  // namespace
}  // namespace morva::test

// The output of a device project against the world that it was simulated in.
#include <filesystem>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "morva/batch_task.h"
#include "proof/cloud_fit.h"
#include "support/process.h"
#include "support/temp_dir.h"

namespace morva::test {
namespace {

/// A simulated project without noise, unpacked by a task.
class SimulatedProject {
 public:
  SimulatedProject() {
    std::filesystem::create_directories(dir_ / "project");
    const ProcessResult result =
        runProcess({KBAGKIT_PROGRAM, "simulate", dir_ / "project/2024-01-31-235959.kbin", "--truth",
                    dir_ / "truth.json", "--noise", "0", "--cameras", "1", "--seconds", "2",
                    "--points", "4000", "--elevation", "0.01"});
    if (result.exitCode != 0) throw std::runtime_error("simulate failed: " + result.err);
    truth_ = Truth::read(dir_ / "truth.json");
  }

  /// @return The output folder.
  [[nodiscard]] std::string unpack(BagTool* tool) {
    std::string out = dir_ / "out";
    EXPECT_TRUE(tool->Init({{{dir_ / "project", out}}, dir_ / "log"}));
    tool->StartTask();
    while (!tool->IsTaskFinished()) std::this_thread::yield();
    EXPECT_EQ(tool->GetErrorCode(), BagTool::kSuccess);
    return out;
  }
  [[nodiscard]] const Truth& truth() const { return truth_; }

 private:
  TempDir dir_;
  Truth truth_;
};

TEST(DeviceTask, CloudsOfAMovingScannerLieOnTheRoom) {
  SimulatedProject project;
  DevBagTool tool;
  const Fit fit = fitOfClouds(project.unpack(&tool) + "/lidar_points", project.truth());
  fit.print("device task");
  EXPECT_EQ(fit.clouds, 20U);
  EXPECT_GT(fit.points, 70000U);
  EXPECT_LT(fit.rms(), kSharpRms);
  EXPECT_LT(fit.worst, kSharpWorst);
}

TEST(DeviceTask, CloudsOfThePlainTaskDoNot) {
  SimulatedProject project;
  BagTool tool;
  const Fit fit = fitOfClouds(project.unpack(&tool) + "/lidar_points", project.truth());
  fit.print("plain task");
  EXPECT_EQ(fit.clouds, 20U);
  EXPECT_GT(fit.rms(), 0.1);
}

}  // namespace
}  // namespace morva::test

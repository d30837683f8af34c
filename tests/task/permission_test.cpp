// Tasks over folders and files that the user may not read or write.

#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "morva/bag.h"
#include "morva/batch_task.h"
#include "support/no_rights.h"
#include "support/temp_dir.h"
#include "task/probed_tool.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

template <typename Tool>
class TaskPermissions : public testing::Test {
 protected:
  void SetUp() override {
    if (!NoRights::areInForce()) GTEST_SKIP() << "root cannot give up its rights here: skipped";
    recordProject(dir_ / "good", {imuMessage(kStartUs), magneticMessage(kStartUs)});
    recordProject(dir_ / "bad", {imuMessage(kStartUs), magneticMessage(kStartUs)});
  }

  /// Runs a task over the two projects, "bad" first, and reads its log.
  void run(const std::string& badOutput, const std::string& goodOutput) {
    ASSERT_TRUE(
        tool_.Init({{{dir_ / "bad", badOutput}, {dir_ / "good", goodOutput}}, dir_ / "log"}));
    tool_.StartTask();
    waitUntilFinished(tool_);
    tool_.StopTask();
    log_ = taskLog(dir_ / "log");
    // The device form misses the calibration of these recordings.
    std::erase_if(log_, [](const std::string& line) {
      return line.starts_with("<I>") || line.ends_with("get camera extrinsic error!");
    });
  }
  void run() { run(dir_ / "out/bad", dir_ / "out/good"); }

  void expectGoodIsDone(const std::string& output) {
    EXPECT_TRUE(fs::exists(output + "/imu.csv"));
    EXPECT_TRUE(fs::exists(output + "/magnetic.csv"));
  }
  static std::string warning(const std::string& text) { return "<W>TIME BagTool::" + text; }

  NoRights noRights_;  // before the folder, which then belongs to nobody
  TempDir dir_;
  Tool tool_;
  std::vector<std::string> log_;
};

using Tools = testing::Types<BagTool, DevBagTool>;
TYPED_TEST_SUITE(TaskPermissions, Tools);

TYPED_TEST(TaskPermissions, ProjectFolderThatCannotBeListedHasNoBag) {
  const WithPermissions closed(this->dir_ / "bad", kNoAccess);
  this->run();
  EXPECT_EQ(this->tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(this->log_,
              ElementsAre(this->warning("Init,no kbin file in: " + this->dir_ / "bad" + "!")));
  this->expectGoodIsDone(this->dir_ / "out/good");
}

TYPED_TEST(TaskPermissions, ProjectInAFolderThatCannotBeEnteredDoesNotExist) {
  fs::create_directory(this->dir_ / "vault");
  recordProject(this->dir_ / "vault/p", {imuMessage(kStartUs)});
  const WithPermissions closed(this->dir_ / "vault", kNoAccess);
  ASSERT_TRUE(
      this->tool_.Init({{{this->dir_ / "vault/p", this->dir_ / "out"}}, this->dir_ / "log"}));
  this->tool_.StopTask();
  EXPECT_THAT(taskLog(this->dir_ / "log"),
              ElementsAre(this->warning("Init,project not exist: " + this->dir_ / "vault/p" + "!"),
                          "<I>TIME BagTool::Init,init success, project nums: 0."));
}

TYPED_TEST(TaskPermissions, BagThatCannotBeReadIsReportedAndTheOthersAreDone) {
  const WithPermissions closed(this->dir_ / "bad/" + kBagName, kNoAccess);
  this->run();
  EXPECT_EQ(this->tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(this->log_,
              ElementsAre("<E>TIME BagTool::dataExportTask,open project(" + this->dir_ / "bad" +
                          ") error(" + std::to_string(MorvaBag::kOpenFailed) + ")!"));
  EXPECT_FALSE(fs::exists(this->dir_ / "out/bad"));
  this->expectGoodIsDone(this->dir_ / "out/good");
}

TYPED_TEST(TaskPermissions, ReadOnlyProjectFolderIsUnpackedElsewhere) {
  const WithPermissions readOnly(this->dir_ / "bad", kReadOnly);
  this->run();
  EXPECT_THAT(this->log_, IsEmpty());
  this->expectGoodIsDone(this->dir_ / "out/bad");
  this->expectGoodIsDone(this->dir_ / "out/good");
}

TYPED_TEST(TaskPermissions, OutputInAReadOnlyProjectFolderDropsTheProject) {
  const WithPermissions readOnly(this->dir_ / "bad", kReadOnly);
  this->run(this->dir_ / "bad/output", this->dir_ / "good/output");
  EXPECT_EQ(this->tool_.GetErrorCode(), BagTool::kSuccess);
  EXPECT_THAT(this->log_, ElementsAre(this->warning("dataExportTask,create project output error: " +
                                                    this->dir_ / "bad/output" + "!")));
  this->expectGoodIsDone(this->dir_ / "good/output");
}

TYPED_TEST(TaskPermissions, OutputFolderThatCannotBeWrittenFailsItsTopics) {
  const std::string output = this->dir_ / "out/bad";
  fs::create_directories(output);
  const WithPermissions readOnly(output, kReadOnly);
  this->run();
  EXPECT_EQ(this->tool_.GetErrorCode(), BagTool::kSuccess);
  for (const char* const topic : {"/imu", "/magnetic"}) {
    EXPECT_THAT(this->log_, Contains(this->warning("dataExportTask,unpack [" + output + "][" +
                                                   topic + "] error!")));
  }
  EXPECT_TRUE(fs::is_empty(output));
  EXPECT_EQ(this->tool_.GetFailedTopics().size(), 2U);
  this->expectGoodIsDone(this->dir_ / "out/good");
}

TYPED_TEST(TaskPermissions, OldOutputThatCannotBeRemovedStaysAndTheTopicFails) {
  const std::string output = this->dir_ / "out/bad";
  fs::create_directories(output + "/project_data");
  writeFile(output + "/project_data/old", "old");
  writeFile(output + "/imu.csv", "old");
  const WithPermissions readOnly(output, kReadOnly);
  this->run();
  EXPECT_EQ(readFile(output + "/imu.csv"), "old");
  EXPECT_THAT(this->log_,
              Contains(this->warning("dataExportTask,unpack [" + output + "][/imu] error!")));
}

TYPED_TEST(TaskPermissions, LogFolderThatCannotBeWrittenRefusesInit) {
  fs::create_directory(this->dir_ / "log");
  const WithPermissions readOnly(this->dir_ / "log", kReadOnly);
  const std::vector<BagTool::ProjectInfo> projects = {{this->dir_ / "good", this->dir_ / "out"}};
  EXPECT_FALSE(this->tool_.Init({projects, this->dir_ / "log"}));
  EXPECT_FALSE(this->tool_.Init({projects, this->dir_ / "log/deeper"}));
  EXPECT_TRUE(this->tool_.IsTaskFinished());
  this->tool_.StartTask();
  EXPECT_EQ(this->tool_.GetErrorCode(), BagTool::kNotStarted);
}

}  // namespace
}  // namespace morva::test

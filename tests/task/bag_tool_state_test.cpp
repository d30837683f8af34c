#include <filesystem>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "morva/batch_task.h"
#include "support/no_more_threads.h"
#include "support/temp_dir.h"
#include "task/probed_tool.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

class BagToolState : public testing::Test {
 protected:
  /// Arguments for one project with one small topic.
  BagTool::PreprocessArgs oneProject() {
    recordProject(dir_ / "project", {imuMessage(kStartUs)});
    return {{{dir_ / "project", dir_ / "out"}}, logDir_, true, true};
  }
  BagTool::PreprocessArgs noProjects() { return {{}, logDir_, true, true}; }

  TempDir dir_;
  std::string logDir_ = dir_ / "log";
};

TEST_F(BagToolState, NewObjectIsIdleWithoutErrorOrProgress) {
  const BagTool tool;
  EXPECT_TRUE(tool.IsTaskFinished());
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);
  EXPECT_EQ(tool.GetProgress(), 0);
  EXPECT_THAT(tool.GetFailedTopics(), IsEmpty());
}

TEST_F(BagToolState, InitMakesTheLogFolderAndIsNoLongerFinished) {
  BagTool tool;
  logDir_ = dir_ / "a/b/log";
  ASSERT_TRUE(tool.Init(oneProject()));
  EXPECT_FALSE(tool.IsTaskFinished());
  tool.StopTask();
  EXPECT_THAT(treeOf(logDir_), ElementsAre(MatchesRegex("bagtool-[0-9]{8}_[0-9]{6}\\.log")));
  EXPECT_THAT(taskLog(logDir_),
              ElementsAre("<I>TIME BagTool::Init,init success, project nums: 1."));
}

TEST_F(BagToolState, SecondInitIsRefusedIntoANewLogFile) {
  BagTool tool;
  ASSERT_TRUE(tool.Init(oneProject()));
  BagTool::PreprocessArgs again = noProjects();
  again.logDir = dir_ / "log2";
  EXPECT_FALSE(tool.Init(again));
  EXPECT_FALSE(tool.IsTaskFinished());

  tool.StartTask();  // the first call's project is still there, and the new log is in use
  waitUntilFinished(tool);
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);
  tool.StopTask();
  EXPECT_THAT(taskLog(logDir_),
              ElementsAre("<I>TIME BagTool::Init,init success, project nums: 1."));
  EXPECT_THAT(taskLog(dir_ / "log2"),
              ElementsAre("<E>TIME BagTool::Init,cannot init when state: 1!",
                          "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolState, InitWhileRunningIsRefused) {
  HeldTool tool;
  ASSERT_TRUE(tool.Init(noProjects()));
  tool.StartTask();
  BagTool::PreprocessArgs again = noProjects();
  again.logDir = dir_ / "log2";
  EXPECT_FALSE(tool.Init(again));
  EXPECT_FALSE(tool.IsTaskFinished());
  tool.letGo();
  waitUntilFinished(tool);
  tool.StopTask();
  EXPECT_THAT(taskLog(dir_ / "log2"),
              ElementsAre("<E>TIME BagTool::Init,cannot init when state: 2!",
                          "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolState, LogFolderThatCannotBeMadeRefusesInitAndKeepsTheLogInUse) {
  writeFile(dir_ / "file", "");
  BagTool tool;
  BagTool::PreprocessArgs args = noProjects();
  args.logDir = dir_ / "file/log";
  EXPECT_FALSE(tool.Init(args));
  EXPECT_TRUE(tool.IsTaskFinished());

  ASSERT_TRUE(tool.Init(noProjects()));
  EXPECT_FALSE(tool.Init(args));  // refused before the state is looked at: silently
  tool.StartTask();
  waitUntilFinished(tool);
  tool.StopTask();
  EXPECT_THAT(taskLog(logDir_), ElementsAre("<I>TIME BagTool::Init,init success, project nums: 0.",
                                            "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolState, LogFileThatCannotBeOpenedRefusesInitAndLeavesNoLog) {
  BagTool tool;
  ASSERT_TRUE(tool.Init(noProjects()));
  BagTool::PreprocessArgs args = noProjects();
  args.logDir = "/proc/self";  // a folder in which no file can be made, for root neither
  EXPECT_FALSE(tool.Init(args));
  EXPECT_FALSE(tool.IsTaskFinished());  // still initialised
  tool.StartTask();
  waitUntilFinished(tool);
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kNoBag);
  tool.StopTask();
  EXPECT_THAT(taskLog(logDir_),
              ElementsAre("<I>TIME BagTool::Init,init success, project nums: 0."));
}

TEST_F(BagToolState, StartWithoutInitIsRefused) {
  BagTool tool;
  tool.StartTask();
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kNotStarted);
  EXPECT_TRUE(tool.IsTaskFinished());
}

TEST_F(BagToolState, StartAfterTheEndIsRefusedAndLogged) {
  BagTool tool;
  ASSERT_TRUE(tool.Init(oneProject()));
  tool.StartTask();
  waitUntilFinished(tool);
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);
  tool.StartTask();
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kNotStarted);
  tool.StopTask();
  EXPECT_THAT(taskLog(logDir_),
              testing::Contains("<E>TIME BagTool::StartTask,cannot start task when state: 0!"));
}

TEST_F(BagToolState, StartWhileRunningIsRefusedAndTheTaskGoesOn) {
  HeldTool tool;
  ASSERT_TRUE(tool.Init(noProjects()));
  tool.StartTask();
  EXPECT_FALSE(tool.IsTaskFinished());
  tool.StartTask();
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kNotStarted);
  EXPECT_FALSE(tool.IsTaskFinished());
  tool.letGo();
  waitUntilFinished(tool);
  EXPECT_FALSE(tool.wasStopped());
  tool.StopTask();
  EXPECT_THAT(taskLog(logDir_),
              ElementsAre("<I>TIME BagTool::Init,init success, project nums: 0.",
                          "<E>TIME BagTool::StartTask,cannot start task when state: 2!",
                          "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolState, StartReturnsOnceTheTaskRuns) {
  for (int i = 0; i < 50; ++i) {
    HeldTool tool;
    ASSERT_TRUE(tool.Init(noProjects()));
    tool.StartTask();
    BagTool::PreprocessArgs args = noProjects();
    args.logDir = logDir_ + std::to_string(i);
    ASSERT_FALSE(tool.Init(args));
    tool.StopTask();
    ASSERT_THAT(taskLog(args.logDir),
                testing::Contains("<E>TIME BagTool::Init,cannot init when state: 2!"));
  }
}

TEST_F(BagToolState, ThreadThatCannotBeStartedLeavesThePreparedTask) {
  BagTool tool;
  ASSERT_TRUE(tool.Init(oneProject()));
  {
    const NoMoreThreads limit;
    tool.StartTask();
  }
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kNotStarted);
  EXPECT_FALSE(tool.IsTaskFinished());

  tool.StartTask();
  waitUntilFinished(tool);
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);
  tool.StopTask();
  EXPECT_THAT(taskLog(logDir_),
              ElementsAre("<I>TIME BagTool::Init,init success, project nums: 1.",
                          "<E>TIME BagTool::StartTask,start task error: Resource temporarily "
                          "unavailable!",
                          "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolState, StopMayBeCalledAtAnyTimeAndRepeatedly) {
  HeldTool tool;
  tool.StopTask();
  tool.StopTask();
  EXPECT_TRUE(tool.IsTaskFinished());
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);

  ASSERT_TRUE(tool.Init(noProjects()));
  tool.StopTask();
  EXPECT_TRUE(tool.IsTaskFinished());
  tool.StartTask();  // what Init() prepared is gone
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kNotStarted);

  ASSERT_TRUE(tool.Init(noProjects()));
  tool.StartTask();
  tool.StopTask();
  tool.StopTask();
  EXPECT_TRUE(tool.IsTaskFinished());
  EXPECT_TRUE(tool.wasStopped());
}

TEST_F(BagToolState, StartAndStopMayComeFromDifferentThreads) {
  for (int i = 0; i < 50; ++i) {
    HeldTool tool;
    ASSERT_TRUE(tool.Init(noProjects()));
    std::thread stopper([&tool] { tool.StopTask(); });
    tool.StartTask();  // before, during or after the stop
    stopper.join();
    const bool cameTooLate = tool.GetErrorCode() == BagTool::kNotStarted;
    EXPECT_TRUE(tool.IsTaskFinished());
    EXPECT_NE(cameTooLate, tool.wasStopped());
  }
}

TEST_F(BagToolState, StopClosesTheLogBeforeItsOwnLine) {
  HeldTool tool;
  ASSERT_TRUE(tool.Init(noProjects()));
  tool.StartTask();
  tool.StopTask();
  tool.logout("nobody reads this\n");
  EXPECT_THAT(taskLog(logDir_), ElementsAre("<I>TIME BagTool::Init,init success, project nums: 0.",
                                            "<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolState, AStopBeforeTheStartDoesNotStopTheNextRun) {
  BagTool tool;
  tool.StopTask();
  ASSERT_TRUE(tool.Init(oneProject()));
  tool.StartTask();
  waitUntilFinished(tool);
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);
}

TEST_F(BagToolState, RunsCanFollowOneAnother) {
  BagTool tool;
  const BagTool::PreprocessArgs args = oneProject();
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(tool.Init(args));
    tool.StartTask();
    waitUntilFinished(tool);
    EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);
    EXPECT_EQ(tool.GetProgress(), 100);
  }
}

TEST_F(BagToolState, ARunStartsWithProgressZeroAndWithoutError) {
  struct Tool : HeldTool {
    void hold(bool on) { hold_ = on; }
    void dataExportTask() override {
      // NOLINTNEXTLINE(bugprone-parent-virtual-call): not what HeldTool makes of it
      hold_ ? HeldTool::dataExportTask() : BagTool::dataExportTask();
    }
    ~Tool() override { StopTask(); }
    bool hold_ = false;
  };
  Tool tool;
  const BagTool::PreprocessArgs args = oneProject();
  ASSERT_TRUE(tool.Init(args));
  tool.StartTask();
  waitUntilFinished(tool);
  EXPECT_EQ(tool.GetProgress(), 100);
  tool.StartTask();
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kNotStarted);

  tool.hold(true);
  ASSERT_TRUE(tool.Init(args));
  tool.StartTask();
  EXPECT_EQ(tool.GetProgress(), 0);
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);
}

TEST_F(BagToolState, DestructionStopsAndWaits) {
  std::atomic<bool> ended = false;
  struct Tool : Probed<BagTool> {
    explicit Tool(std::atomic<bool>* flag) : ended(flag) {}
    ~Tool() override { StopTask(); }
    void dataExportTask() override {
      while (!stopRequested()) std::this_thread::yield();
      *ended = true;
    }
    std::atomic<bool>* ended;
  };
  {
    Tool tool(&ended);
    ASSERT_TRUE(tool.Init(noProjects()));
    tool.StartTask();
    EXPECT_FALSE(ended);
  }
  EXPECT_TRUE(ended);
  EXPECT_THAT(taskLog(logDir_), testing::Contains("<I>TIME BagTool::operator(),task finished."));
}

TEST_F(BagToolState, AnExceptionInTheTaskEndsItWithAnError) {
  struct Tool : Probed<BagTool> {
    ~Tool() override { StopTask(); }
    void dataExportTask() override { throw std::bad_alloc(); }
  };
  Tool tool;
  ASSERT_TRUE(tool.Init(noProjects()));
  tool.StartTask();
  waitUntilFinished(tool);
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kNotStarted);
  tool.StopTask();
  EXPECT_THAT(taskLog(logDir_), ElementsAre("<I>TIME BagTool::Init,init success, project nums: 0.",
                                            "<E>TIME BagTool::runTask,task error: std::bad_alloc!",
                                            "<I>TIME BagTool::operator(),task finished."));
}

}  // namespace
}  // namespace morva::test

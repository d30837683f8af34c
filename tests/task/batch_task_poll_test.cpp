#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "morva/batch_task.h"
#include "support/temp_dir.h"
#include "task/probed_tool.h"
#include "task/recordings.h"

namespace morva::test {
namespace {

/// Looks at a task, over and over, from a thread of its own.
class Poller {
 public:
  explicit Poller(const BagTool* tool) : tool_(tool), thread_([this] { poll(); }) {}
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;
  ~Poller() {
    ended_ = true;
    thread_.join();
  }
  [[nodiscard]] int largestFall() const { return largestFall_; }
  [[nodiscard]] bool sawWrongValue() const { return sawWrongValue_; }
  void finish() { ended_ = true; }

 private:
  void poll() {
    int last = 0;
    while (!ended_) {
      const int progress = tool_->GetProgress();
      const int code = tool_->GetErrorCode();
      largestFall_ = std::max(largestFall_.load(), last - progress);
      if (progress < 0 || progress > 100 || code != BagTool::kSuccess) sawWrongValue_ = true;
      last = progress;
      if (tool_->IsTaskFinished() || !tool_->GetFailedTopics().empty()) std::this_thread::yield();
    }
  }

  const BagTool* tool_;
  std::atomic<bool> ended_ = false;
  std::atomic<int> largestFall_ = 0;
  std::atomic<bool> sawWrongValue_ = false;
  std::thread thread_;
};

template <typename Tool>
class BatchTaskPoll : public testing::Test {};

using Tools = testing::Types<BagTool, DevBagTool>;
TYPED_TEST_SUITE(BatchTaskPoll, Tools);

TYPED_TEST(BatchTaskPoll, ProgressSeenByTwoThreadsOnlyRisesAndEndsAtTheEnd) {
  TempDir dir;
  std::vector<BagTool::ProjectInfo> projects;
  for (const char* name : {"p1", "p2", "p3"}) {
    std::vector<RecordedMessage> messages;
    for (int i = 0; i < 40; ++i) {
      const std::int64_t timeUs = kStartUs + 100000 * i;
      messages.push_back(imuMessage(timeUs));
      messages.push_back(magneticMessage(timeUs));
      messages.push_back(motorMessage(timeUs - 10000, 60000));
      messages.push_back(lidarMessage("/lidar", timeUs));
      messages.push_back(gnssMessage(timeUs));
    }
    recordProject(dir / name, messages);
    projects.push_back({dir / name, dir / "out" + std::string("-") + name});
  }
  TypeParam tool;
  ASSERT_TRUE(tool.Init({projects, dir / "log"}));
  Poller first(&tool);
  Poller second(&tool);
  tool.StartTask();
  waitUntilFinished(tool);
  tool.StopTask();
  for (Poller* poller : {&first, &second}) {
    poller->finish();
    EXPECT_LE(poller->largestFall(), 1);
    EXPECT_FALSE(poller->sawWrongValue());
  }
  EXPECT_EQ(tool.GetErrorCode(), BagTool::kSuccess);
  EXPECT_GE(tool.GetProgress(), 99);
  EXPECT_LE(tool.GetProgress(), 100);
}

TYPED_TEST(BatchTaskPoll, PollingGoesOnWhileAnotherThreadStops) {
  TempDir dir;
  recordProject(dir / "p", {imuMessage(kStartUs), lidarMessage("/lidar", kStartUs)});
  TypeParam tool;
  ASSERT_TRUE(tool.Init({{{dir / "p", dir / "out"}}, dir / "log"}));
  Poller first(&tool);
  Poller second(&tool);
  tool.StartTask();
  tool.StopTask();
  EXPECT_TRUE(tool.IsTaskFinished());
  EXPECT_THAT(tool.GetErrorCode(), testing::AnyOf(BagTool::kSuccess, BagTool::kStopped));
}

}  // namespace
}  // namespace morva::test

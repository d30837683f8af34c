#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "morva/batch_task.h"
#include "platform/singleton.h"
#include "platform/tracer.h"
#include "support/bag_builder.h"
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

/// Looks at a task's progress whenever a line is logged, which the task waits for.
class ProgressAtLines final : public osmik::TracerSink {
 public:
  explicit ProgressAtLines(const BagTool* tool) : tool_(tool) {}
  void write(int /*level*/, std::string_view /*line*/) override {
    seen_.push_back(tool_->GetProgress());
  }
  [[nodiscard]] const std::vector<int>& seen() const { return seen_; }

 private:
  const BagTool* tool_;
  std::vector<int> seen_;
};

/// Writes a project whose index says that its one topic holds a single byte. It holds two messages
/// of 1,000, and one that cannot be read, which costs a line.
void recordUnderstatedProject(const std::string& path) {
  const std::string payload = logMessage("/raw_gnss_log", std::string(990, 'x')).payload;
  BagBuilder builder;
  builder.topic(0, "/raw_gnss_log");
  BuiltIndex topic{.topicId = 0, .countSum = 3, .rawSizeSum = 1, .offsets = {}, .messages = {}};
  for (std::size_t i = 0; i < 3; ++i) {
    BuiltMessage message;
    message.stored = payload;
    builder.message(message);
    topic.offsets.push_back(builder.chunkOffset(i));
    topic.messages.push_back(message);
  }
  std::string bag = builder.buildUnclosed();
  bag.back() = static_cast<char>(bag.back() ^ 1);
  HeaderFields side = builder.header;
  side.dataStart = builder.dataStart();
  side.indexChunkOffset = 4096;
  const std::string index = indexBytes({topic});
  std::filesystem::create_directories(path);
  writeFile(path + "/" + kBagName, bag);
  writeFile(path + "/" + kBagName + ".index",
            headerBytes(side) + chunkBytes(255, timedChunkHeader(index.size()), index));
}

TYPED_TEST(BatchTaskPoll, ProgressStaysAPercentageWhereTheIndexUnderstates) {
  TempDir dir;
  recordUnderstatedProject(dir / "p");
  TypeParam tool;
  ASSERT_TRUE(tool.Init({{{dir / "p", dir / "out"}}, dir / "log"}));
  const auto sink = std::make_shared<ProgressAtLines>(&tool);
  osmik::Tracer& tracer = osmik::Singleton<osmik::Tracer>::getInstance();
  tracer.addSink(sink);
  tool.StartTask();
  waitUntilFinished(tool);
  tool.StopTask();
  tracer.removeSink(sink);
  EXPECT_THAT(sink->seen(), testing::Each(testing::AllOf(testing::Ge(0), testing::Le(100))));
  EXPECT_THAT(sink->seen(), testing::Contains(100));
}

}  // namespace
}  // namespace morva::test

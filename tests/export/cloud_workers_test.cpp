#include "export/cloud_workers.h"

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "platform/file_calls.h"
#include "support/temp_dir.h"

namespace morva {
namespace {

/// Lets workers go no further than the creation of their file, until the gate opens.
class Gate final : public osmik::FileCalls {
 public:
  Gate() { osmik::FileCalls::replace(this); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  ~Gate() override { osmik::FileCalls::replace(nullptr); }

  int open(const char* path, int flags, mode_t mode) override {
    std::unique_lock lock(mutex_);
    ++arrived_;
    changed_.notify_all();
    changed_.wait(lock, [this] { return isOpen_; });
    return osmik::FileCalls::open(path, flags, mode);
  }
  void waitForArrivals(int count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return arrived_ >= count; });
  }
  bool seesWithinAMoment(int count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(30),
                             [&] { return arrived_ >= count; });
  }
  void openUp() {
    const std::lock_guard lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int arrived_ = 0;
  bool isOpen_ = false;
};

std::shared_ptr<PointCloudMsg> cloudOf(std::size_t points) {
  auto cloud = std::make_shared<PointCloudMsg>();
  cloud->cloud = std::make_shared<PointCloud>();
  cloud->cloud->points.resize(points);
  for (PointIRT& point : cloud->cloud->points) point.timestamp = 1.0;
  return cloud;
}

MotorRecords motors() {
  auto record = std::make_shared<MotorMsg>();
  record->time = 1.0;
  record->qw = 1.0F;
  return {record};
}

std::size_t filesIn(const std::string& directory) {
  const std::filesystem::directory_iterator files(directory);
  return static_cast<std::size_t>(std::distance(begin(files), end(files)));
}

class CloudWorkersTest : public testing::Test {
 protected:
  [[nodiscard]] std::string pathOf(int number) const {
    return dir.path() + "/" + std::to_string(number) + ".pcd";
  }

  test::TempDir dir;
  Gate gate;
  CloudWorkers workers{Log("Test"), PointsTransformer()};
};

}  // namespace

TEST_F(CloudWorkersTest, HoldABoundedNumberOfClouds) {
  ASSERT_TRUE(workers.start());
  constexpr int kClouds = 3 * static_cast<int>(CloudWorkers::kMaxClouds);
  std::mutex mutex;
  std::condition_variable putOne;
  std::size_t put = 0;
  std::thread reader([&] {
    for (int i = 0; i < kClouds; ++i) {
      workers.put(pathOf(i), cloudOf(1), motors());
      const std::lock_guard lock(mutex);
      ++put;
      putOne.notify_all();
    }
  });
  gate.waitForArrivals(CloudWorkers::kWorkers);
  {
    std::unique_lock lock(mutex);
    putOne.wait(lock, [&] { return put >= CloudWorkers::kMaxClouds; });
    // Nothing is finished, so nothing more may be taken.
    EXPECT_FALSE(putOne.wait_for(lock, std::chrono::milliseconds(30),
                                 [&] { return put > CloudWorkers::kMaxClouds; }));
  }
  gate.openUp();
  reader.join();
  workers.wait();
  EXPECT_EQ(filesIn(dir.path()), static_cast<std::size_t>(kClouds));
}

TEST_F(CloudWorkersTest, DropWhatIsNotBegunWhenStopped) {
  ASSERT_TRUE(workers.start());
  for (int i = 0; i < static_cast<int>(CloudWorkers::kMaxClouds); ++i) {
    workers.put(pathOf(i), cloudOf(1), motors());
  }
  gate.waitForArrivals(CloudWorkers::kWorkers);
  workers.stop();
  gate.openUp();
  workers.wait();
  EXPECT_EQ(filesIn(dir.path()), static_cast<std::size_t>(CloudWorkers::kWorkers));
}

TEST_F(CloudWorkersTest, NeverWorkOnTwoCloudsOfOnePath) {
  ASSERT_TRUE(workers.start());
  workers.put(pathOf(1), cloudOf(1000), motors());
  gate.waitForArrivals(1);
  std::thread reader([&] { workers.put(pathOf(1), cloudOf(1), motors()); });
  EXPECT_FALSE(gate.seesWithinAMoment(2));
  gate.openUp();
  reader.join();
  workers.wait();
  EXPECT_NE(test::readFile(pathOf(1)).find("POINTS 1\n"), std::string::npos);
}

TEST_F(CloudWorkersTest, CloudsThatCannotBeTransformedAreNotWritten) {
  gate.openUp();
  ASSERT_TRUE(workers.start());
  workers.put(pathOf(1), cloudOf(0), motors());
  workers.put(pathOf(2), cloudOf(1), {});
  workers.put(pathOf(3), cloudOf(1), motors());
  workers.wait();
  EXPECT_EQ(filesIn(dir.path()), 1U);
}

}  // namespace morva

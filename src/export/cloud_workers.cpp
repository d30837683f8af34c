#include "export/cloud_workers.h"

#include <utility>

#include "export/pcd_writer.h"
#include "platform/ignore_result.h"
#include "platform/thread.h"

namespace morva {
namespace {

constexpr int kPollMs = 100;

/// Calls a function in the end, whatever happens before.
template <typename Function>
class AtExit {
 public:
  explicit AtExit(Function function) : function_(std::move(function)) {}
  AtExit(const AtExit&) = delete;
  AtExit& operator=(const AtExit&) = delete;
  ~AtExit() { function_(); }

 private:
  Function function_;
};

}  // namespace

CloudWorkers::CloudWorkers(const Log& log, const PointsTransformer& transformer)
    : log_(log), transformer_(transformer) {}

bool CloudWorkers::start() { return queue_.init(kWorkers, osmik::SchedParam{}); }

void CloudWorkers::put(const std::string& path, std::shared_ptr<PointCloudMsg> cloud,
                       MotorRecords motors) {
  {
    std::unique_lock lock(mutex_);
    released_.wait(lock, [&] { return inHand_.size() < kMaxClouds && !inHand_.contains(path); });
    inHand_.insert(path);
  }
  queue_.putTask([this, cloud = std::move(cloud), motors = std::move(motors)](
                     const std::string& target) { work(target, cloud, motors); },
                 path);
}

void CloudWorkers::stop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
}

void CloudWorkers::wait() {
  while (queue_.size() > 0) osmik::Thread::msleep(kPollMs);
}

void CloudWorkers::work(const std::string& path, const std::shared_ptr<PointCloudMsg>& cloud,
                        const MotorRecords& motors) {
  const AtExit releaseIt([&] { release(path); });
  if (isStopped()) return;
  if (transformer_.CorrectLidarAndTransformToImuFrame(motors, cloud) != kTransformOk) return;
  ignoreResult(savePcd(log_, path, *cloud->cloud));  // logged; the next cloud may go well
}

bool CloudWorkers::isStopped() {
  const std::lock_guard lock(mutex_);
  return stopped_;
}

void CloudWorkers::release(const std::string& path) {
  const std::lock_guard lock(mutex_);
  inHand_.erase(path);
  released_.notify_one();
}

}  // namespace morva

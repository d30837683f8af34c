#ifndef MORVA_EXPORT_CLOUD_WORKERS_H_
#define MORVA_EXPORT_CLOUD_WORKERS_H_

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "export/motor_window.h"
#include "export/points_transformer.h"
#include "messages/frames.h"
#include "platform/async_task_queue.h"
#include "platform/log.h"

namespace morva {

/// Transforms clouds into the IMU frame and writes them as PCD files, on worker threads.
///
/// Holds a bounded number of clouds, so that a reader that is faster than the workers waits for
/// them, and never two of one name, so that the later one remains. Threads: one puts, stops and
/// waits.
class CloudWorkers {
 public:
  static constexpr int kWorkers = 10;
  /// Clouds waiting or in work, at most.
  static constexpr std::size_t kMaxClouds = 16;

  /// @param log  Where a cloud that cannot be written is logged.
  CloudWorkers(const Log& log, const PointsTransformer& transformer);
  CloudWorkers(const CloudWorkers&) = delete;
  CloudWorkers& operator=(const CloudWorkers&) = delete;
  /// Waits for the clouds that were put.
  ~CloudWorkers() = default;

  /// Call it once, first. @return False when no worker can be started.
  [[nodiscard]] bool start();

  /// Takes a cloud; waits while too many, or one of the same path, are in hand.
  /// @param cloud  Is changed; the caller gives it up.
  void put(const std::string& path, std::shared_ptr<PointCloudMsg> cloud, MotorRecords motors);

  /// Drops the clouds that no worker has begun with.
  void stop();
  /// Returns when every cloud is written or dropped.
  void wait();

 private:
  void work(const std::string& path, const std::shared_ptr<PointCloudMsg>& cloud,
            const MotorRecords& motors);
  [[nodiscard]] bool isStopped();
  void release(const std::string& path);

  const Log log_;
  const PointsTransformer transformer_;
  std::mutex mutex_;
  std::condition_variable released_;
  std::set<std::string> inHand_;  ///< paths of the clouds waiting or in work
  bool stopped_ = false;
  osmik::AsyncTaskQueue queue_;  ///< destroyed first: its tasks use the others
};

}  // namespace morva

#endif  // MORVA_EXPORT_CLOUD_WORKERS_H_

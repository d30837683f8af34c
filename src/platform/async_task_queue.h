#ifndef MORVA_PLATFORM_ASYNC_TASK_QUEUE_H_
#define MORVA_PLATFORM_ASYNC_TASK_QUEUE_H_

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace osmik {

/// How workers are scheduled.
struct SchedParam {
  std::vector<int> cpus{};  ///< pin to these, where the machine grants every one of them
  bool realTime = false;
  int priority = 255;  ///< of real-time workers
  int niceness = -1;   ///< -1: leave it
  std::string name{};  ///< thread name, cut to 15 characters; empty: leave it
};

/// Runs tasks on worker threads, in the order in which they were put as far as one worker goes.
///
/// Workers start when there is work for them, up to the number given to init(); the first one
/// starts there. The destructor lets the tasks that were put finish. A task that throws is logged
/// and dropped. Threads: putTask() and size() may be called from any thread, tasks included.
class AsyncTaskQueue {
 public:
  using Task = std::function<void(const std::string&)>;

  explicit AsyncTaskQueue(std::string name = {});
  AsyncTaskQueue(const AsyncTaskQueue&) = delete;
  AsyncTaskQueue& operator=(const AsyncTaskQueue&) = delete;
  ~AsyncTaskQueue();

  /// Call it once, before any task is put.
  /// @return False when `threads` is below 1 or no worker can be started.
  [[nodiscard]] bool init(int threads, const SchedParam& sched);

  /// Runs `task(argument)` on a worker.
  void putTask(Task task, std::string argument);

  /// Tasks waiting or running; 0 means that every task has finished. While tasks remain it waits a
  /// moment for one of them to finish, so that polling it in a loop does not starve the workers.
  [[nodiscard]] int size();

 private:
  struct Entry {
    Task task;
    std::string argument;
  };

  [[nodiscard]] bool startWorker();
  void work();
  void run(const Entry& entry) const;

  std::string name_;
  SchedParam sched_;
  std::size_t maxWorkers_ = 0;
  std::mutex mutex_;
  std::condition_variable taskPut_;
  std::condition_variable taskDone_;
  std::deque<Entry> waiting_;
  std::size_t running_ = 0;
  std::size_t idle_ = 0;
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_ASYNC_TASK_QUEUE_H_

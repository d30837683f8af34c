#include "platform/async_task_queue.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <system_error>
#include <utility>

#include "platform/log.h"

namespace osmik {
namespace {

constexpr std::chrono::milliseconds kPollPause(20);
constexpr std::size_t kThreadNameLength = 15;

void pinToCpus(const std::vector<int>& cpus) {
  cpu_set_t granted;
  if (cpus.empty() || sched_getaffinity(0, sizeof granted, &granted) != 0) return;
  cpu_set_t wanted;
  CPU_ZERO(&wanted);
  for (const int cpu : cpus) {
    if (cpu < 0 || cpu >= CPU_SETSIZE || !CPU_ISSET(static_cast<unsigned>(cpu), &granted)) return;
    CPU_SET(static_cast<unsigned>(cpu), &wanted);
  }
  pthread_setaffinity_np(pthread_self(), sizeof wanted, &wanted);
}

// Scheduling is a wish: a machine that does not grant it runs the worker all the same.
void applySchedParam(const SchedParam& sched) {
  pinToCpus(sched.cpus);
  if (sched.realTime) {
    sched_param priority{};
    priority.sched_priority = std::clamp(sched.priority, sched_get_priority_min(SCHED_FIFO),
                                         sched_get_priority_max(SCHED_FIFO));
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);
  }
  if (sched.niceness != -1) setpriority(PRIO_PROCESS, 0, sched.niceness);
  if (!sched.name.empty()) {
    pthread_setname_np(pthread_self(), sched.name.substr(0, kThreadNameLength).c_str());
  }
}

}  // namespace

AsyncTaskQueue::AsyncTaskQueue(std::string name) : name_(std::move(name)) {}

AsyncTaskQueue::~AsyncTaskQueue() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  taskPut_.notify_all();
  for (std::thread& worker : workers_) worker.join();
}

bool AsyncTaskQueue::init(int threads, const SchedParam& sched) {
  if (threads < 1) return false;
  const std::lock_guard lock(mutex_);
  sched_ = sched;
  maxWorkers_ = static_cast<std::size_t>(threads);
  return startWorker();
}

bool AsyncTaskQueue::startWorker() {
  try {
    workers_.emplace_back([this] { work(); });
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

void AsyncTaskQueue::putTask(Task task, std::string argument) {
  const std::lock_guard lock(mutex_);
  waiting_.push_back({std::move(task), std::move(argument)});
  const bool needsWorker = waiting_.size() > idle_ && workers_.size() < maxWorkers_;
  // A worker that cannot be started is no loss: those that run take its tasks.
  if (needsWorker && !startWorker()) maxWorkers_ = workers_.size();
  taskPut_.notify_one();
}

int AsyncTaskQueue::size() {
  std::unique_lock lock(mutex_);
  const std::size_t before = waiting_.size() + running_;
  if (before == 0) return 0;
  taskDone_.wait_for(lock, kPollPause, [&] { return waiting_.size() + running_ < before; });
  return static_cast<int>(waiting_.size() + running_);
}

void AsyncTaskQueue::work() {
  applySchedParam(sched_);
  std::unique_lock lock(mutex_);
  while (true) {
    ++idle_;
    taskPut_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
    --idle_;
    if (waiting_.empty()) return;
    Entry entry = std::move(waiting_.front());
    waiting_.pop_front();
    ++running_;
    lock.unlock();
    run(entry);
    entry = {};  // what the task holds is released before the task counts as done
    lock.lock();
    --running_;
    taskDone_.notify_all();
  }
}

void AsyncTaskQueue::run(const Entry& entry) const {
  const morva::Log log("AsyncTaskQueue");
  try {
    entry.task(entry.argument);
  } catch (const std::exception& exception) {
    log.error("task of queue(%s) threw: %s!", name_, exception.what());
  } catch (...) {
    log.error("task of queue(%s) threw an unknown exception!", name_);
  }
}

}  // namespace osmik

#include "platform/async_task_queue.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <future>
#include <iterator>
#include <latch>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/no_more_threads.h"

using morva::test::LogCapture;
using morva::test::NoMoreThreads;
using osmik::AsyncTaskQueue;
using osmik::SchedParam;

namespace {

constexpr std::chrono::seconds kLongEnough(20);

void drain(AsyncTaskQueue* queue) {
  while (queue->size() != 0) {
  }
}

int threadsOfProcess() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

;

/// What `look` gives in a task of a queue with these parameters.
template <typename Look>
auto seenByWorker(const SchedParam& sched, Look look) {
  AsyncTaskQueue queue;
  EXPECT_TRUE(queue.init(1, sched));
  decltype(look()) seen;
  queue.putTask([&](const std::string&) { seen = look(); }, "");
  drain(&queue);
  return seen;
}

std::vector<int> cpusOfThread() {
  cpu_set_t set;
  CPU_ZERO(&set);
  EXPECT_EQ(sched_getaffinity(0, sizeof set, &set), 0);
  std::vector<int> cpus;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(static_cast<unsigned>(cpu), &set)) cpus.push_back(cpu);
  }
  return cpus;
}

std::string nameOfThread() {
  char name[16] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

}  // namespace

TEST(AsyncTaskQueueSize, CountsWaitingAndRunningTasks) {
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::latch running(1);
  AsyncTaskQueue queue;
  ASSERT_TRUE(queue.init(1, {}));
  EXPECT_EQ(queue.size(), 0);
  queue.putTask(
      [&](const std::string&) {
        running.count_down();
        released.wait();
      },
      "");
  queue.putTask([](const std::string&) {}, "");
  queue.putTask([](const std::string&) {}, "");
  running.wait();
  EXPECT_EQ(queue.size(), 3);
  release.set_value();
  drain(&queue);
}

TEST(AsyncTaskQueueSize, ZeroMeansThatTasksHaveFinishedAndAreReleased) {
  constexpr int kTasks = 500;
  std::atomic<int> done = 0;
  const auto held = std::make_shared<int>(0);
  AsyncTaskQueue queue;
  ASSERT_TRUE(queue.init(4, {}));
  for (int i = 0; i < kTasks; ++i) {
    queue.putTask([&done, held](const std::string&) { ++done; }, "");
  }
  drain(&queue);
  EXPECT_EQ(done, kTasks);
  EXPECT_EQ(held.use_count(), 1);
}

TEST(AsyncTaskQueueSize, PollingInALoopLeavesTheProcessorToTheWorkers) {
  AsyncTaskQueue queue;
  ASSERT_TRUE(queue.init(1, {}));
  queue.putTask(
      [](const std::string&) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
        while (std::chrono::steady_clock::now() < end) {
        }
      },
      "");
  int polls = 0;
  while (queue.size() != 0) ++polls;
  EXPECT_LT(polls, 100);  // a poll that does not wait comes to hundreds of thousands
}

TEST(AsyncTaskQueueSize, MayBeAskedByATask) {
  AsyncTaskQueue queue;
  ASSERT_TRUE(queue.init(1, {}));
  int seen = 0;
  queue.putTask([&](const std::string&) { seen = queue.size(); }, "");
  drain(&queue);
  EXPECT_EQ(seen, 1);
}

TEST(AsyncTaskQueueTasks, OneWorkerRunsThemInOrderWithTheirArguments) {
  std::vector<std::string> seen;
  AsyncTaskQueue queue;
  ASSERT_TRUE(queue.init(1, {}));
  for (const char* argument : {"a", "b", "", "d"}) {
    queue.putTask([&](const std::string& given) { seen.push_back(given); }, argument);
  }
  drain(&queue);
  EXPECT_EQ(seen, (std::vector<std::string>{"a", "b", "", "d"}));
}

TEST(AsyncTaskQueueTasks, RunAtTheSameTimeOnAsManyWorkersAsAsked) {
  constexpr int kWorkers = 4;
  std::mutex mutex;
  std::condition_variable met;
  int arrived = 0;
  std::atomic<int> metAll = 0;
  AsyncTaskQueue queue;
  ASSERT_TRUE(queue.init(kWorkers, {}));
  for (int i = 0; i < kWorkers; ++i) {
    queue.putTask(
        [&](const std::string&) {
          std::unique_lock lock(mutex);
          ++arrived;
          met.notify_all();
          if (met.wait_for(lock, kLongEnough, [&] { return arrived == kWorkers; })) ++metAll;
        },
        "");
  }
  drain(&queue);
  EXPECT_EQ(metAll, kWorkers);
}

TEST(AsyncTaskQueueTasks, MayPutTasks) {
  std::atomic<int> done = 0;
  AsyncTaskQueue queue;
  ASSERT_TRUE(queue.init(1, {}));
  queue.putTask([&](const std::string&) { queue.putTask([&](const std::string&) { ++done; }, ""); },
                "");
  drain(&queue);
  EXPECT_EQ(done, 1);
}

TEST(AsyncTaskQueueTasks, ExceptionIsLoggedAndTheOthersRun) {
  const LogCapture log;
  std::atomic<int> done = 0;
  AsyncTaskQueue queue("work");
  ASSERT_TRUE(queue.init(1, {}));
  queue.putTask([](const std::string&) { throw std::runtime_error("broken"); }, "");
  queue.putTask([](const std::string&) { throw 1; }, "");
  queue.putTask([&](const std::string&) { ++done; }, "");
  drain(&queue);
  EXPECT_EQ(done, 1);
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "<E>TIME [AsyncTaskQueue::run,L0] task of queue(work) threw: broken!",
                "<E>TIME [AsyncTaskQueue::run,L0] task of queue(work) threw an unknown "
                "exception!"}));
}

TEST(AsyncTaskQueueEnd, DestructorLetsWaitingTasksFinish) {
  std::atomic<int> done = 0;
  {
    AsyncTaskQueue queue;
    ASSERT_TRUE(queue.init(2, {}));
    for (int i = 0; i < 100; ++i) queue.putTask([&](const std::string&) { ++done; }, "");
  }
  EXPECT_EQ(done, 100);
}

TEST(AsyncTaskQueueInit, FewerThanOneThreadFails) {
  for (const int threads : {0, -1, -2147483647}) {
    AsyncTaskQueue queue;
    EXPECT_FALSE(queue.init(threads, {})) << threads;
  }
}

TEST(AsyncTaskQueueInit, FailsWhereNoWorkerCanBeStarted) {
  AsyncTaskQueue queue;
  const NoMoreThreads noMoreThreads;
  EXPECT_FALSE(queue.init(8, {}));
}

TEST(AsyncTaskQueueInit, OneWorkerRunsAllTasksWhereNoSecondCanBeStarted) {
  std::atomic<int> done = 0;
  AsyncTaskQueue queue;
  ASSERT_TRUE(queue.init(8, {}));
  {
    const NoMoreThreads noMoreThreads;
    for (int i = 0; i < 20; ++i) queue.putTask([&](const std::string&) { ++done; }, "");
  }
  drain(&queue);
  EXPECT_EQ(done, 20);
}

TEST(AsyncTaskQueueInit, StartsNoMoreWorkersThanThereIsWork) {
  const int before = threadsOfProcess();
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  AsyncTaskQueue queue;
  ASSERT_TRUE(queue.init(2147483647, {}));
  for (int i = 0; i < 3; ++i) {
    queue.putTask([&](const std::string&) { released.wait(); }, "");
  }
  EXPECT_LE(threadsOfProcess(), before + 4);  // the first one, and one for each task
  release.set_value();
  drain(&queue);
}

TEST(AsyncTaskQueueSched, PinsWorkersWhereEveryCpuIsGranted) {
  const std::vector<int> first{cpusOfThread().front()};
  EXPECT_EQ(seenByWorker({.cpus = first}, cpusOfThread), first);
}

TEST(AsyncTaskQueueSched, LeavesWorkersAloneWhereACpuIsMissing) {
  const std::vector<int> granted = cpusOfThread();
  EXPECT_EQ(seenByWorker({.cpus = {granted.front(), CPU_SETSIZE - 1}}, cpusOfThread), granted);
  EXPECT_EQ(seenByWorker({.cpus = {granted.front(), CPU_SETSIZE}}, cpusOfThread), granted);
  EXPECT_EQ(seenByWorker({.cpus = {granted.front(), -1}}, cpusOfThread), granted);
  EXPECT_EQ(seenByWorker({}, cpusOfThread), granted);
}

TEST(AsyncTaskQueueSched, NamesWorkersWithAtMostFifteenCharacters) {
  EXPECT_EQ(seenByWorker({.name = "export"}, nameOfThread), "export");
  EXPECT_EQ(seenByWorker({.name = "0123456789abcdefgh"}, nameOfThread), "0123456789abcde");
  EXPECT_EQ(seenByWorker({}, nameOfThread), nameOfThread());
}

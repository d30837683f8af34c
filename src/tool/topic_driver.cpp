#include "tool/topic_driver.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <latch>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/async_task_queue.h"
#include "platform/date_time.h"
#include "platform/directory.h"
#include "platform/file_path.h"
#include "platform/log.h"
#include "tool/console.h"

namespace morva {
namespace {

using osmik::AsyncTaskQueue;
using osmik::Directory;
using osmik::FilePath;
using osmik::SchedParam;
using osmik::Time;

const SchedParam& workerSched() {
  // The cluster of fast processors of the device.
  static const SchedParam sched{
      .cpus = {4, 5, 6, 7}, .realTime = false, .priority = 255, .niceness = -1, .name = ""};
  return sched;
}

/// Opens the bag of a run for its tasks, which have a handle each.
///
/// No recorder knows so many topics as kOwnHandles. Where a bag has more, those without an output
/// share one handle from there on: reading the topic list and the index of thousands of topics for
/// each of them would take hours. Threads: any.
class Handles {
 public:
  explicit Handles(std::string path) : path_(std::move(path)) {}

  /// @param task  Its number among the tasks.
  /// @return Null after an error line.
  [[nodiscard]] std::shared_ptr<MorvaBag> open(std::size_t task, bool hasOutput) {
    if (hasOutput || task < kOwnHandles) return openOne();
    const std::lock_guard lock(sharedMutex_);
    if (shared_ == nullptr) shared_ = openOne();
    return shared_;
  }
  /// The handle stays in the list; its file and index are no longer needed.
  void release(const std::shared_ptr<MorvaBag>& bag) {
    const std::lock_guard lock(sharedMutex_);
    if (bag != shared_) bag->close();
  }

 private:
  static constexpr std::size_t kOwnHandles = 32;

  std::shared_ptr<MorvaBag> openOne() {
    auto bag = std::make_shared<MorvaBag>();
    if (const int code = bag->open(path_, BagMode::kRead); code != MorvaBag::kOpenOk) {
      const Log log("", "operator()");
      log.error("open bag file(%s) error(%d)!", path_, code);
      return nullptr;
    }
    const std::lock_guard lock(mutex_);
    bags_.push_back(bag);
    return bag;
  }

  const std::string path_;
  std::mutex mutex_;
  std::list<std::shared_ptr<MorvaBag>> bags_;
  std::mutex sharedMutex_;
  std::shared_ptr<MorvaBag> shared_;
};

/// The workers of one run.
class Workers {
 public:
  /// @param threads  Workers; of those that have no topic, only as many help as there are
  /// processors.
  Workers(int threads, std::size_t topics)
      : topicsLeft_(topics),
        crew_(std::min(static_cast<std::size_t>(threads),
                       static_cast<std::size_t>(std::thread::hardware_concurrency()))) {}

  /// Null where nobody can help anybody.
  [[nodiscard]] Crew* crew() { return crew_.threads() < 2 ? nullptr : &crew_; }

  /// Waits for a task that is under way, and makes itself useful meanwhile.
  void await(const std::latch& ended) {
    if (crew() == nullptr) return ended.wait();
    crew_.helpUntil([&ended] { return ended.try_wait(); });
  }
  /// Tells all that wait that a task has ended.
  void tell(std::latch* ended) {
    ended->count_down();
    --topicsLeft_;
    crew_.wake();
  }
  /// Helps until no topic is left.
  void help() {
    crew_.helpUntil([this] { return topicsLeft_ == 0; });
  }

 private:
  std::atomic<std::size_t> topicsLeft_;
  Crew crew_;
};

/// The place of a task among those that write to the same output: it begins when the one before it
/// has ended. Tasks are taken from the queue in the order in which turns were given, so that the
/// one waited for is always under way.
class Turn {
 public:
  explicit Turn(std::shared_ptr<std::latch> before)
      : before_(std::move(before)), ended_(std::make_shared<std::latch>(1)) {}

  [[nodiscard]] const std::shared_ptr<std::latch>& ended() const { return ended_; }

  /// Holds the turn while it lives.
  class Scope {
   public:
    Scope(const Turn& turn, Workers* workers) : workers_(workers), ended_(turn.ended_) {
      if (turn.before_ != nullptr) workers_->await(*turn.before_);
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() { workers_->tell(ended_.get()); }

   private:
    Workers* workers_;
    std::shared_ptr<std::latch> ended_;
  };

 private:
  std::shared_ptr<std::latch> before_;
  std::shared_ptr<std::latch> ended_;
};

/// Gives turns to tasks, in list order.
class Turns {
 public:
  Turn next(const std::string& output) {
    std::shared_ptr<std::latch>& last = last_[output];
    Turn turn(last);
    last = turn.ended();
    return turn;
  }

 private:
  std::map<std::string, std::shared_ptr<std::latch>> last_;
};

std::string outputDirectory(const TopicCommand& command, const TopicRequest& request) {
  if (!request.outDir.empty()) return request.outDir;
  const FilePath bag(request.bagPath);
  return bag.dirName() + command.dirPrefix + bag.baseName();
}

/// @return False, after an error line, where what is written might end up elsewhere.
bool makeFreshDirectories(const TopicCommand& command, const std::string& outDir, const Log& log) {
  for (const std::string& subDir : command.subDirs) {
    const std::string path = outDir + subDir;
    if (!Directory::removeLinks(outDir, subDir)) {
      log.error("remove links in(%s) error!", path);
      return false;
    }
    // Shows again when a topic's file cannot be created there, or stale files remain.
    if (!Directory::removeDir(path, true)) log.warning("remove directory(%s) error!", path);
    if (!Directory::createDir(path, true)) log.warning("create directory(%s) error!", path);
  }
  return true;
}

/// One topic's task.
struct TopicTask {
  const TopicCommand* command;
  std::string outDir;
  std::string topic;
  std::size_t number;
  Turn turn;
  Workers* workers;
  Handles* handles;

  void run() const {
    const Turn::Scope holdTurn(turn, workers);
    const auto bag = handles->open(number, command->hasOutput(topic));
    if (bag == nullptr) return;
    exportTopic(bag.get());
    handles->release(bag);
  }

 private:
  void exportTopic(MorvaBag* bag) const {
    const View view = bag->getView(topic, 0, -1);
    Console::line(Ink::kCyan, "export %s start, topic: %s, index total: %d.", command->noun, topic,
                  view.indexes.size());
    if (!command->exportTopic(bag, outDir, topic, view, workers->crew())) {
      Console::line(Ink::kYellow, "export topic[%s] error!", topic);
    }
    Console::line(Ink::kCyan, "export %s finished, topic: %s", command->noun, topic);
  }
};

void runTasks(const TopicCommand& command, const TopicRequest& request, const std::string& outDir,
              AsyncTaskQueue* queue, Workers* workers, Handles* handles) {
  Turns turns;
  std::size_t number = 0;
  for (const std::string& topic : request.topics) {
    const TopicTask task{.command = &command,
                         .outDir = outDir,
                         .topic = topic,
                         .number = number++,
                         .turn = turns.next(command.outputOf(topic)),
                         .workers = workers,
                         .handles = handles};
    queue->putTask([task](const std::string&) { task.run(); }, "");
  }
  if (const Crew* const crew = workers->crew(); crew != nullptr) {
    for (std::size_t helper = 1; helper < crew->threads(); ++helper) {
      queue->putTask([workers](const std::string&) { workers->help(); }, "");
    }
  }
  while (queue->size() != 0) {
  }
}

}  // namespace

void runOnTopics(const TopicCommand& command, const TopicRequest& request) {
  const Time start = Time::fromMono();
  const Log log("", command.function);
  const int threads =
      request.threads < 1 ? static_cast<int>(request.topics.size()) : request.threads;
  Handles handles(request.bagPath);
  Workers workers(threads, request.topics.size());
  AsyncTaskQueue queue;
  if (!queue.init(threads, workerSched())) {
    log.error("task queue init(%d) error!", threads);
    return;
  }
  const std::string outDir = outputDirectory(command, request);
  if (!makeFreshDirectories(command, outDir, log)) return;
  Console::line(Ink::kGreen, "kbag export %s start tasks: %d.", command.noun, threads);
  if (request.topics.empty()) {
    Console::line(Ink::kCyan, "no topics need to export.");
    return;
  }
  runTasks(command, request, outDir, &queue, &workers, &handles);
  const float seconds = static_cast<float>(Time::usSinceMono(start)) * 1e-6F;
  Console::line(Ink::kGreen, "kbag export %s success, duration: %.6f Secs.", command.noun, seconds);
}

}  // namespace morva

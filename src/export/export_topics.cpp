#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "export/crew.h"
#include "export/topic_outputs.h"
#include "morva/export.h"
#include "platform/directory.h"
#include "platform/log.h"

namespace morva {
namespace {

using osmik::Directory;

std::uint64_t payloadBytes(const View& view) {
  std::uint64_t bytes = 0;
  for (const MsgIndex& index : view.indexes) bytes += index.rawSize;
  return bytes;
}

/// Adds up what the workers have done, and passes on the wish to stop.
class Meter {
 public:
  Meter(const std::function<bool(const ExportProgress&)>* callback, std::uint64_t totalBytes)
      : callback_(callback), totalBytes_(totalBytes) {}

  [[nodiscard]] bool isStopped() const { return isStopped_; }

  /// @return False to stop.
  bool advance(const std::string& topic, std::uint64_t bytes) {
    const std::lock_guard lock(mutex_);
    if (isStopped_) return false;
    doneBytes_ = std::min(doneBytes_ + bytes, totalBytes_);
    isStopped_ = !(*callback_)({topic, doneBytes_, totalBytes_});
    return !isStopped_;
  }

 private:
  const std::function<bool(const ExportProgress&)>* callback_;
  const std::uint64_t totalBytes_;
  std::mutex mutex_;  ///< of the calls and of what follows
  std::uint64_t doneBytes_ = 0;
  std::atomic<bool> isStopped_ = false;
};

/// One call of exportTopics().
class ExportRun {
 public:
  ExportRun(MorvaBag* bag, const std::string& dir, const ExportOptions& options)
      : bag_(bag),
        dir_(dir),
        options_(options),
        outputs_(topicOutputs(options.layout, options.pictures)),
        topics_(chosenTopics()),
        hasFailed_(topics_.size(), 0),
        meter_(&options.progress, options.progress ? totalBytes() : 0) {
    groupTopics();
  }

  [[nodiscard]] int run() {
    if (!makeFreshFolders()) return kExportNoFolder;
    const std::size_t workers = workerCount();
    Crew crew(workers);
    crew_ = workers > 1 && !options_.progress ? &crew : nullptr;
    groupsLeft_ = groups_.size();
    startAndWork(workers);
    if (meter_.isStopped()) return kExportStopped;
    return failedTopics().empty() ? kExportOk : kExportIncomplete;
  }

  [[nodiscard]] std::vector<std::string> failedTopics() const {
    std::vector<std::string> failed;
    for (std::size_t i = 0; i < topics_.size(); ++i) {
      if (hasFailed_[i] != 0) failed.push_back(topics_[i]);
    }
    return failed;
  }

 private:
  /// Numbers of topics that share a file: one worker's, in order.
  using Group = std::vector<std::size_t>;

  [[nodiscard]] View viewOf(const std::string& topic) const {
    return bag_->getView(topic, options_.startUs, options_.durationS);
  }

  [[nodiscard]] std::vector<std::string> chosenTopics() const {
    if (!options_.topics.empty()) return options_.topics;
    std::vector<std::string> all;
    for (const TopicInfo& topic : bag_->getInfo().topics) {
      if (!outputs_.fileOf(topic.name).empty()) all.push_back(topic.name);
    }
    return all;
  }

  [[nodiscard]] std::uint64_t totalBytes() const {
    std::uint64_t bytes = 0;
    for (const std::string& topic : topics_) {
      bytes += payloadBytes(viewOf(topic)) * outputs_.passes(topic);
    }
    return bytes;
  }

  void groupTopics() {
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < topics_.size(); ++i) {
      const std::string key = outputKey(outputs_, topics_[i]);
      const auto known = std::ranges::find(keys, key);
      if (known == keys.end()) {
        keys.push_back(key);
        groups_.push_back({i});
      } else {
        groups_[static_cast<std::size_t>(known - keys.begin())].push_back(i);
      }
    }
  }

  [[nodiscard]] bool makeFreshFolders() const {
    if (dir_.empty() || !Directory::createDir(dir_, true)) {
      log_.error("create directory(%s) error!", dir_);
      return false;
    }
    for (const std::string& folder : outputs_.folders) {
      const std::string path = dir_ + folder;
      if (Directory::removeLinks(dir_, folder) && Directory::removeDir(path, true) &&
          Directory::createDir(path, true)) {
        continue;
      }
      log_.error("renew directory(%s) error!", path);
      return false;
    }
    return true;
  }

  [[nodiscard]] std::size_t workerCount() const {
    const std::size_t wanted = options_.threads < 1
                                   ? std::max(1U, std::thread::hardware_concurrency())
                                   : static_cast<std::size_t>(options_.threads);
    // More could do nothing, or only help each other where there are processors for them.
    const std::size_t busy =
        options_.progress
            ? groups_.size()
            : std::max<std::size_t>(groups_.size(), std::thread::hardware_concurrency());
    return std::max<std::size_t>(1, std::min(wanted, busy));
  }

  void startAndWork(std::size_t workers) {
    std::vector<std::jthread> others;
    try {
      while (others.size() + 1 < workers) others.emplace_back([this] { work(); });
    } catch (const std::system_error& error) {
      log_.warning("start worker error: %s!", std::string(error.what()));  // the others do it
    }
    work();
  }

  void work() {
    for (std::size_t group = nextGroup_++; group < groups_.size(); group = nextGroup_++) {
      for (const std::size_t topic : groups_[group]) {
        if (!meter_.isStopped()) hasFailed_[topic] = exportTopic(topics_[topic]) ? 0 : 1;
      }
      --groupsLeft_;
      if (crew_ != nullptr) crew_->wake();
    }
    if (crew_ == nullptr) return;
    crew_->helpUntil([this] { return groupsLeft_ == 0; });
  }

  [[nodiscard]] bool exportTopic(const std::string& topic) {
    try {
      const View view = viewOf(topic);
      TopicJob job{.bag = bag_, .outDir = dir_, .topic = topic, .view = &view, .crew = crew_};
      if (!options_.progress) return outputs_.exportTopic(job);
      std::uint64_t reported = 0;
      job.progress = [&](unsigned long bytes) {
        return meter_.advance(topic, bytes - std::exchange(reported, bytes));
      };
      const bool isWhole = outputs_.exportTopic(job);
      // What a failure left out is done with, too.
      const std::uint64_t bytes = payloadBytes(view) * outputs_.passes(topic);
      if (reported < bytes) meter_.advance(topic, bytes - reported);
      return isWhole;
    } catch (const std::exception& error) {
      log_.error("export topic[%s] error: %s!", topic, std::string(error.what()));
      return false;
    }
  }

  MorvaBag* bag_;
  const std::string& dir_;
  const ExportOptions& options_;
  const TopicOutputs outputs_;
  const std::vector<std::string> topics_;
  std::vector<char> hasFailed_;  ///< by number of the topic; no two workers have the same
  Meter meter_;
  std::vector<Group> groups_;
  std::atomic<std::size_t> nextGroup_ = 0;
  std::atomic<std::size_t> groupsLeft_ = 0;
  Crew* crew_ = nullptr;
  Log log_{"", "exportTopics"};
};

}  // namespace

ExportResult exportTopics(MorvaBag* bag, const std::string& dir, const ExportOptions& options) {
  const Log log("", "exportTopics");
  try {
    if (bag->getInfo().topicCount == 0) {
      log.error("bag is not open for reading!");
      return {.code = kExportNotOpen, .failedTopics = {}};
    }
    ExportRun run(bag, dir, options);
    const int code = run.run();
    return {.code = code, .failedTopics = run.failedTopics()};
  } catch (const std::exception& error) {
    log.error("export error: %s!", std::string(error.what()));
    return {.code = kExportIncomplete, .failedTopics = {}};
  }
}

std::string exportFile(ExportLayout layout, const std::string& topic) {
  return topicOutputs(layout, false).fileOf(topic);
}

}  // namespace morva

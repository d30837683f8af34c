#include <algorithm>
#include <cmath>
#include <exception>
#include <utility>

#include "morva/batch_task.h"
#include "platform/directory.h"
#include "task/batch_run.h"
#include "task/project_folder.h"
#include "task/task_line.h"

namespace morva {

BagTool::BagTool() = default;

BagTool::~BagTool() { StopTask(); }

bool BagTool::Init(const PreprocessArgs& args) {
  const std::lock_guard lock(controlMutex_);
  if (!initLog(args.logDir)) return false;
  if (const int state = state_; state != kIdle) {
    logout(taskLine("<E>%s BagTool::%s,cannot init when state: %d!\n", "Init", state));
    return false;
  }
  withConfigFile_ = args.withConfigFile;
  withLidar_ = args.withLidar;
  acceptProjects(args.projects);
  state_ = kInitialised;
  logout(taskLine("<I>%s BagTool::%s,init success, project nums: %d.\n", "Init", projects_.size()));
  return true;
}

void BagTool::acceptProjects(const std::vector<ProjectInfo>& candidates) {
  projects_.clear();
  for (const ProjectInfo& project : candidates) {
    if (!osmik::Directory::exists(project.projectPath)) {
      logout(taskLine("<W>%s BagTool::%s,project not exist: %s!\n", "Init", project.projectPath));
    } else if (findProjectBag(project.projectPath).empty()) {
      logout(taskLine("<W>%s BagTool::%s,no kbin file in: %s!\n", "Init", project.projectPath));
    } else {
      projects_.push_back(project);
    }
  }
}

void BagTool::StartTask() {
  const std::lock_guard lock(controlMutex_);
  if (const int state = state_; state != kInitialised) {
    logout(taskLine("<E>%s BagTool::%s,cannot start task when state: %d!\n", "StartTask", state));
    errorCode_ = kNotStarted;
    return;
  }
  stop_ = false;
  errorCode_ = kSuccess;
  progress_ = 0.0F;
  {
    const std::lock_guard topicsLock(failedTopicsMutex_);
    failedTopics_.clear();
  }
  std::promise<void> begun;
  std::future<void> running = begun.get_future();
  try {
    worker_ = std::async(std::launch::async, [this, begun = std::move(begun)]() mutable {
      state_ = kRunning;
      begun.set_value();
      runTask();
      state_ = kIdle;
      logout(taskLine("<I>%s BagTool::%s,task finished.\n", "operator()"));
    });
  } catch (const std::exception& error) {
    logout(taskLine("<E>%s BagTool::%s,start task error: %s!\n", "StartTask", error.what()));
    errorCode_ = kNotStarted;
    return;
  }
  running.wait();
}

void BagTool::runTask() {
  try {
    dataExportTask();
  } catch (
      const std::exception& error) {  // out of memory, mostly: the object must become idle again
    logout(taskLine("<E>%s BagTool::%s,task error: %s!\n", "runTask", error.what()));
    errorCode_ = kNotStarted;
  }
}

void BagTool::StopTask() {
  stop_ = true;  // at once, not only when a start that is going on has ended ...
  const std::lock_guard lock(controlMutex_);
  stop_ = true;  // ... which may have taken it back
  if (worker_.valid()) worker_.wait();
  {
    const std::lock_guard logLock(logMutex_);
    log_.reset();
    retiredLogs_.clear();
  }
  state_ = kIdle;
  logout(taskLine("<I>%s BagTool::%s,stop task success.\n", "StopTask"));
}

int BagTool::GetErrorCode() const { return errorCode_; }

int BagTool::GetProgress() const {
  const float progress = progress_;
  // An index may say of a topic that it holds less than its messages do.
  return std::isfinite(progress) ? static_cast<int>(std::clamp(progress, 0.0F, 100.0F)) : 0;
}

bool BagTool::IsTaskFinished() const { return state_ == kIdle; }

bool BagTool::stopRequested() const { return stop_; }

std::vector<BagTool::FailedTopic> BagTool::GetFailedTopics() const {
  const std::lock_guard lock(failedTopicsMutex_);
  return failedTopics_;
}

void BagTool::dataExportTask() {
  const auto passes = [this](const BagInfo& /*info*/, const TopicInfo& topic) {
    if (topic.name == "/config_file") return withConfigFile_;
    if (topic.name == "/lidar") return withLidar_;
    return true;
  };
  BatchRun run(this);
  if (!run.openBags(passes)) return;
  run.forEachBag([&](const BatchRun::Job& job) {
    if (run.prepareOutput(job, passes)) run.exportTopics(job, passes);
  });
  run.finish();
}

}  // namespace morva

#include "task/batch_run.h"

#include <algorithm>
#include <array>
#include <utility>

#include "platform/directory.h"
#include "task/project_folder.h"
#include "task/task_line.h"

namespace morva {
namespace {

constexpr const char* kMethod = "dataExportTask";

/// Folders of an output that hold one file per sample, picture or document: emptied before a run.
constexpr std::array kFreshFolders = {"/calib/config", "/images/camera_0", "/images/camera_1",
                                      "/lidar_points", "/project_data"};

}  // namespace

BatchRun::BatchRun(BagTool* tool) : tool_(tool) {}

bool BatchRun::openBags(const TopicFilter& counted) {
  for (const BagTool::ProjectInfo& project : tool_->projects_) {
    if (stopped()) break;
    openBag(project, counted);
  }
  if (stopped()) {
    finish();
    return false;
  }
  if (jobs_.empty()) tool_->errorCode_ = BagTool::kNoBag;
  return !jobs_.empty();
}

void BatchRun::openBag(const BagTool::ProjectInfo& project, const TopicFilter& counted) {
  const std::string name = findProjectBag(project.projectPath);
  if (name.empty()) {
    logout(taskLine("<W>%s BagTool::%s,no kbin file in: %s!\n", kMethod, project.projectPath));
    return;
  }
  Job job{std::make_shared<MorvaBag>(), project.outputPath};
  const int code = job.bag->open(project.projectPath + "/" + name, BagMode::kRead);
  if (code != MorvaBag::kOpenOk) {
    logout(taskLine("<E>%s BagTool::%s,open project(%s) error(%d)!\n", kMethod, project.projectPath,
                    code));
    return;
  }
  if (!osmik::Directory::createDir(job.outputPath, true)) {
    logout(
        taskLine("<W>%s BagTool::%s,create project output error: %s!\n", kMethod, job.outputPath));
    return;
  }
  const BagInfo info = job.bag->getInfo();
  for (const TopicInfo& topic : info.topics) {
    if (counted(info, topic)) totalBytes_ += topic.total;
  }
  jobs_.push_back(std::move(job));
}

void BatchRun::forEachBag(const std::function<void(const Job& job)>& work) {
  for (const Job& job : jobs_) {
    if (stopped()) return;
    work(job);
  }
}

bool BatchRun::prepareOutput(const Job& job, const TopicFilter& wanted) {
  const auto tell = [this](const char* what, const std::string& path) {
    logout(taskLine("<W>%s BagTool::%s,%s directory(%s) error!\n", kMethod, what, path));
  };
  for (const char* folder : kFreshFolders) {
    const std::string path = job.outputPath + folder;
    if (!osmik::Directory::removeLinks(job.outputPath, folder)) {
      logout(taskLine("<E>%s BagTool::%s,remove links in(%s) error!\n", kMethod, path));
      failTopics(job, wanted);
      return false;
    }
    // Old files would pass for this bag's.
    if (!osmik::Directory::removeDir(path, true)) tell("remove", path);
    if (!osmik::Directory::createDir(path, true)) tell("create", path);
  }
  return true;
}

void BatchRun::failTopics(const Job& job, const TopicFilter& wanted) {
  const BagInfo info = job.bag->getInfo();
  for (const TopicInfo& topic : info.topics) {
    if (wanted(info, topic)) failTopic(job, topic.name);
  }
}

void BatchRun::failTopic(const Job& job, const std::string& topic) {
  logout(taskLine("<W>%s BagTool::%s,unpack [%s][%s] error!\n", kMethod, job.outputPath, topic));
  const std::lock_guard lock(tool_->failedTopicsMutex_);
  tool_->failedTopics_.push_back({job.outputPath, topic});
}

void BatchRun::exportTopics(const Job& job, const TopicFilter& wanted) {
  const BagInfo info = job.bag->getInfo();
  for (const TopicInfo& topic : info.topics) {
    if (stopped()) return;
    if (!wanted(info, topic)) continue;
    // What has no output needs no messages; a bag may claim thousands of such topics.
    const bool hasOutput = !DataExporter::dataFile(topic.name).empty();
    const View view = hasOutput ? job.bag->getView(topic.name, 0, -1) : View();
    exportTopic(job, topic.name,
                [&](DataExporter* exporter) { return exporter->exportData(topic.name, view); });
  }
}

void BatchRun::exportTopic(const Job& job, const std::string& topic, const Export& work) {
  if (stopped()) return;
  topicBytes_ = 0;
  DataExporter exporter(job.bag.get(), job.outputPath,
                        [this](std::uint64_t topicBytes) { return reportProgress(topicBytes); });
  trace_.info("export [%s] data start ...", topic);
  if (!work(&exporter)) failTopic(job, topic);
  trace_.info("export [%s] data finished.", topic);
  finishTopic();
}

bool BatchRun::reportProgress(std::uint64_t topicBytes) {
  topicBytes_ = topicBytes;
  const auto bytes = static_cast<float>(topicBytes + doneBytes_);
  tool_->progress_ = bytes * 100.0F / static_cast<float>(totalBytes_);
  return !stopped();
}

void BatchRun::finishTopic() {
  doneBytes_ += topicBytes_;
  const float percentPerByte = 100.0F / static_cast<float>(totalBytes_);
  // Rounding must not take it past the end; a total of 0 leaves it not-a-number.
  const float progress = std::min(static_cast<float>(doneBytes_) * percentPerByte, 100.0F);
  tool_->progress_ = progress;
  trace_.info("%llu * 100 / %llu = %f", doneBytes_, totalBytes_, static_cast<double>(progress));
}

void BatchRun::finish() { tool_->errorCode_ = stopped() ? BagTool::kStopped : BagTool::kSuccess; }

}  // namespace morva

#include "kit/batch/project_run.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <memory>
#include <system_error>

#include "export/data_exporter.h"
#include "kit/batch/output_size.h"
#include "morva/bag.h"
#include "platform/date_time.h"
#include "platform/dir_lock.h"
#include "platform/directory.h"
#include "platform/file_path.h"
#include "platform/interrupt.h"
#include "platform/str_util.h"
#include "platform/thread.h"
#include "task/project_folder.h"

namespace morva::batch {
namespace {

namespace fs = std::filesystem;
using osmik::Directory;

constexpr int kPollMs = 20;
constexpr int kCheckSound = 0;
constexpr int kCheckDamaged = 7;

std::int64_t modificationTimeUs(const std::string& path) {
  std::error_code error;
  const auto time = fs::last_write_time(path, error);
  if (error) return 0;
  const auto sinceEpoch = std::chrono::file_clock::to_sys(time).time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count();
}

std::string openProblem(int checkCode) {
  if (checkCode == kCheckSound || checkCode == kCheckDamaged) {
    return "the bag has no usable index, which \"kbag reindex\" can mend";
  }
  return osmik::StrUtil::format("the bag cannot be opened (code %d)", checkCode);
}

}  // namespace

ProjectRun::ProjectRun(const Project& project, const BatchOptions& options, ProjectState* state)
    : project_(project), options_(options), state_(state) {
  const std::string manifestDir = osmik::FilePath(project.manifestPath).dirName();
  entry_.project = project.path;
  entry_.output = fs::path(project.outputPath).lexically_relative(manifestDir).string();
  entry_.device = options.device;
}

ProjectResult ProjectRun::run() {
  const osmik::Time start = osmik::Time::fromMono();
  ProjectResult result;
  result.begun = true;
  osmik::DirLock lock;
  if (findBag() && prepareOutput(&lock, &result)) {
    result.skipped = result.recorded = !options_.force && takeEarlierResult();
    if (!result.skipped && checkBag()) unpack();
  }
  if (!result.skipped) {
    const double seconds = static_cast<double>(osmik::Time::usSinceMono(start)) / 1e6;
    entry_.seconds = std::round(seconds * 1000.0) / 1000.0;
  }
  begin(Phase::kEnded);
  if (!result.recorded) {
    // A folder that is no project gets no output folder, and so no manifest of its own either.
    const bool hasPlace = Directory::exists(osmik::FilePath(project_.manifestPath).dirName());
    result.recorded = !hasPlace || recordInManifest(project_.manifestPath, entry_);
  }
  result.entry = entry_;
  return result;
}

bool ProjectRun::prepareOutput(osmik::DirLock* lock, ProjectResult* result) {
  const std::string logDir = project_.outputPath + "/" + kLogFolder;
  if (!Directory::createDir(project_.outputPath, true)) {
    fail(BagTool::kNoBag, "the output folder cannot be made");
    return false;
  }
  if (!Directory::removeLinks(project_.outputPath, kLogFolder) ||
      !Directory::createDir(logDir, true)) {
    fail(BagTool::kNotStarted, "the log folder cannot be made");
    return false;
  }
  if (lock->lock(logDir, false) == osmik::DirLock::Result::kTaken) {
    fail(BagTool::kNotStarted, "another run is at work on this output");
    result->recorded = true;  // by that other run, one day
    return false;
  }
  return true;
}

bool ProjectRun::takeEarlierResult() {
  Manifest manifest;
  if (manifest.load(project_.manifestPath) != Manifest::Load::kOk) return false;
  const ManifestEntry* const earlier = manifest.find(project_.path);
  if (earlier == nullptr || !isDone(*earlier)) return false;
  entry_ = *earlier;
  return true;
}

bool ProjectRun::findBag() {
  if (!Directory::exists(project_.path)) {
    fail(BagTool::kNoBag, "there is no such folder");
    return false;
  }
  entry_.bag = findProjectBag(project_.path);
  if (entry_.bag.empty()) {
    fail(BagTool::kNoBag, Directory::isReadable(project_.path) ? "there is no bag in the folder"
                                                               : "the folder cannot be read");
    return false;
  }
  const std::string path = project_.path + "/" + entry_.bag;
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  entry_.bagBytes = error ? 0 : size;
  entry_.bagTimeUs = modificationTimeUs(path);
  state_->bagBytes = entry_.bagBytes;
  return true;
}

bool ProjectRun::isDone(const ManifestEntry& earlier) const {
  if (earlier.outcome != Outcome::kDone && earlier.outcome != Outcome::kLosses) return false;
  const OutputSize now = measureOutput(project_.outputPath);
  return earlier.device == entry_.device && earlier.bag == entry_.bag &&
         earlier.bagBytes == entry_.bagBytes && earlier.bagTimeUs == entry_.bagTimeUs &&
         earlier.output == entry_.output && earlier.files == now.files &&
         earlier.bytes == now.bytes;
}

bool ProjectRun::checkBag() {
  begin(Phase::kChecking);
  const auto goOn = [this](std::uint64_t offset) {
    const std::uint64_t bytes = std::max<std::uint64_t>(1, entry_.bagBytes);
    state_->percent = static_cast<int>(std::min<std::uint64_t>(100, offset * 100 / bytes));
    return !osmik::Interrupt::requested();
  };
  const int code = MorvaBag::checkAll(project_.path + "/" + entry_.bag, goOn);
  if (code != MorvaBag::kCheckStopped) {
    entry_.checkCode = code;
    return true;
  }
  entry_.outcome = Outcome::kStopped;
  entry_.errorCode = BagTool::kStopped;
  entry_.message = "stopped";
  return false;
}

void ProjectRun::unpack() {
  begin(Phase::kUnpacking);
  if (options_.device) {
    DevBagTool tool;
    drive(&tool);
  } else {
    BagTool tool;
    drive(&tool);
  }
  const OutputSize size = measureOutput(project_.outputPath);
  entry_.files = size.files;
  entry_.bytes = size.bytes;
}

void ProjectRun::drive(BagTool* tool) {
  BagTool::PreprocessArgs args;
  args.projects = {{project_.path, project_.outputPath}};
  args.logDir = project_.outputPath + "/" + kLogFolder;
  if (!tool->Init(args)) return fail(BagTool::kNotStarted, "the log cannot be written");
  tool->StartTask();
  if (tool->GetErrorCode() == BagTool::kNotStarted) {
    return fail(BagTool::kNotStarted, "the task could not be started");
  }
  while (!tool->IsTaskFinished() && !osmik::Interrupt::requested()) {
    state_->percent = tool->GetProgress();
    osmik::Thread::msleep(kPollMs);
  }
  tool->StopTask();
  judge(*tool);
}

void ProjectRun::judge(const BagTool& tool) {
  const int code = tool.GetErrorCode();
  for (const BagTool::FailedTopic& failed : tool.GetFailedTopics()) {
    // What no recording of the device gets out of this topic is not lost to this one.
    const bool hasForm = !DataExporter::dataFile(failed.topic).empty();
    (hasForm ? entry_.failedTopics : entry_.leftOutTopics).push_back(failed.topic);
  }
  if (code == BagTool::kNoBag) return fail(code, openProblem(entry_.checkCode));
  if (code == BagTool::kNotStarted) return fail(code, "the task ran out of memory");

  entry_.errorCode = code;
  if (code == BagTool::kStopped) {
    entry_.outcome = Outcome::kStopped;
    entry_.message = "stopped";
  } else if (entry_.checkCode != kCheckSound) {
    entry_.outcome = Outcome::kLosses;
    entry_.message = osmik::StrUtil::format("the bag is damaged (code %d)", entry_.checkCode);
  } else if (!entry_.failedTopics.empty()) {
    entry_.outcome = Outcome::kLosses;
    entry_.message = "topics were not unpacked";
  } else {
    entry_.outcome = Outcome::kDone;
  }
}

void ProjectRun::fail(int errorCode, const std::string& message) {
  entry_.outcome = Outcome::kFailed;
  entry_.errorCode = errorCode;
  entry_.message = message;
}

void ProjectRun::begin(Phase phase) {
  state_->percent = 0;
  state_->startUs = osmik::Time::fromMono().toMicroSec();
  state_->phase = phase;
}

}  // namespace morva::batch

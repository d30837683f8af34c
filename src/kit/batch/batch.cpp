#include "kit/batch/batch.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <utility>

#include "kit/batch/progress_display.h"
#include "platform/async_task_queue.h"
#include "platform/interrupt.h"

namespace morva::batch {
namespace {

using States = std::vector<std::unique_ptr<ProjectState>>;

States makeStates(const std::vector<Project>& projects) {
  States states;
  for (const Project& project : projects) {
    states.push_back(std::make_unique<ProjectState>());
    states.back()->name = std::filesystem::path(project.path).filename().string();
  }
  return states;
}

ProjectResult notStarted(ProjectResult result) {
  result.begun = true;
  result.entry.errorCode = BagTool::kNotStarted;
  result.entry.message = "no thread could be started";
  return result;
}

}  // namespace

std::vector<ProjectResult> runProjects(const std::vector<Project>& projects,
                                       const BatchOptions& options) {
  const States states = makeStates(projects);
  std::vector<ProjectResult> results(projects.size());
  for (std::size_t i = 0; i < projects.size(); ++i) results[i].entry.project = projects[i].path;

  const osmik::Interrupt interrupt;
  ProgressDisplay display(&states);
  osmik::AsyncTaskQueue workers;
  if (!workers.init(options.jobs, {})) {
    for (ProjectResult& result : results) result = notStarted(std::move(result));
    return results;
  }
  for (std::size_t i = 0; i < projects.size(); ++i) {
    const auto work = [&, i](const std::string& /*unused*/) {
      if (osmik::Interrupt::requested()) return;
      results[i].begun = true;
      results[i] = ProjectRun(projects[i], options, states[i].get()).run();
    };
    workers.putTask(work, {});
  }
  while (workers.size() > 0) display.update();
  return results;
}

int statusOf(const std::vector<ProjectResult>& results) {
  const auto any = [&](auto matches) { return std::ranges::any_of(results, matches); };
  const auto has = [&](Outcome outcome) {
    return any([&](const ProjectResult& result) { return result.entry.outcome == outcome; });
  };
  if (has(Outcome::kStopped) || any([](const auto& result) { return !result.begun; })) {
    return kInterrupted;
  }
  if (has(Outcome::kFailed) || any([](const auto& result) { return !result.recorded; })) {
    return kSomeFailed;
  }
  return has(Outcome::kLosses) ? kSomeLosses : kAllDone;
}

}  // namespace morva::batch

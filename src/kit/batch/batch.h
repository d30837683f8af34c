#ifndef MORVA_KIT_BATCH_BATCH_H_
#define MORVA_KIT_BATCH_BATCH_H_

#include <string>
#include <vector>

#include "kit/batch/batch_options.h"
#include "kit/batch/project_list.h"
#include "kit/batch/project_run.h"

namespace morva::batch {

/// How a batch ended, as the exit status of a program tells it.
enum BatchStatus : int {
  kAllDone = 0,
  kSomeFailed = 1,
  kSomeLosses = 3,  ///< all were unpacked, but a bag is damaged or a topic failed
  kInterrupted = 130,
};

/// Works through the projects, several at a time, with progress on standard error. Every result is
/// in the manifest before the next project of its worker begins. SIGINT and SIGTERM stop the
/// projects at work and begin no others.
/// @return One result per project, in their order.
[[nodiscard]] std::vector<ProjectResult> runProjects(const std::vector<Project>& projects,
                                                     const BatchOptions& options);

/// The status that these results make.
[[nodiscard]] int statusOf(const std::vector<ProjectResult>& results);

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_BATCH_H_

#ifndef MORVA_KIT_BATCH_REPORT_H_
#define MORVA_KIT_BATCH_REPORT_H_

#include <string>
#include <vector>

#include "kit/batch/project_run.h"

namespace morva::batch {

/// The results as a table, one row per project, with a heading and a line that sums them up.
[[nodiscard]] std::string tableOf(const std::vector<ProjectResult>& results);

/// The results as a JSON document: the manifest's entries, each with "skipped", and "exit_status".
[[nodiscard]] std::string jsonOf(const std::vector<ProjectResult>& results, int exitStatus);

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_REPORT_H_

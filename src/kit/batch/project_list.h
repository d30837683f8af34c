#ifndef MORVA_KIT_BATCH_PROJECT_LIST_H_
#define MORVA_KIT_BATCH_PROJECT_LIST_H_

#include <string>
#include <vector>

#include "kit/batch/batch_options.h"

namespace morva::batch {

/// One project of a run. Paths are absolute.
struct Project {
  std::string path;          ///< folder that holds the bag, links resolved where it exists
  std::string outputPath;    ///< folder for its output
  std::string manifestPath;  ///< manifest that records it
};

struct ProjectList {
  std::vector<Project> projects;     ///< in ascending order of paths; of the shard alone
  std::vector<std::string> leftOut;  ///< folders beside projects that hold no bag
  std::string problem;               ///< not empty: the options cannot be served, and why
};

/// Finds the projects of a run: every given folder that holds a bag; of one without, the folders in
/// it that do; where there are none either, the folder itself, for its failure to be reported. Two
/// projects with one output, and an output that is the project itself, are a problem.
[[nodiscard]] ProjectList listProjects(const BatchOptions& options);

/// Path of the manifest that a run with `outDir` keeps there.
[[nodiscard]] std::string manifestPathIn(const std::string& outDir, const Shard& shard);

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_PROJECT_LIST_H_

#ifndef MORVA_KIT_BATCH_PROJECT_RUN_H_
#define MORVA_KIT_BATCH_PROJECT_RUN_H_

#include <atomic>
#include <cstdint>
#include <string>

#include "kit/batch/batch_options.h"
#include "kit/batch/manifest.h"
#include "kit/batch/project_list.h"
#include "morva/batch_task.h"
#include "platform/dir_lock.h"

namespace morva::batch {

enum class Phase : std::uint8_t { kWaiting, kChecking, kUnpacking, kEnded };

/// How far one project is. Written by the project's run, read by whoever shows it.
struct ProjectState {
  std::string name;                         ///< what the user calls the project
  std::atomic<std::uint64_t> bagBytes = 0;  ///< size of the bag file
  std::atomic<std::int64_t> startUs = 0;    ///< of the phase, on the monotonic clock
  std::atomic<int> percent = 0;             ///< of the phase
  std::atomic<Phase> phase = Phase::kWaiting;
};

/// What a run found and did.
struct ProjectResult {
  ManifestEntry entry;
  bool begun = false;     ///< false: the run was interrupted before this project's turn
  bool skipped = false;   ///< `entry` is an earlier run's, which need not be repeated
  bool recorded = false;  ///< `entry` stands in the manifest, or belongs in none
};

/// Takes one project from its bag to its manifest entry, on the calling thread: checks the bag,
/// unpacks it with a task object, counts the output. An interrupt stops it wherever it is.
class ProjectRun {
 public:
  /// @param state  Kept up to date; must outlive the run.
  ProjectRun(const Project& project, const BatchOptions& options, ProjectState* state);

  [[nodiscard]] ProjectResult run();

 private:
  [[nodiscard]] bool findBag();
  [[nodiscard]] bool prepareOutput(osmik::DirLock* lock, ProjectResult* result);
  [[nodiscard]] bool takeEarlierResult();
  [[nodiscard]] bool isDone(const ManifestEntry& earlier) const;
  [[nodiscard]] bool checkBag();
  void unpack();
  void drive(BagTool* tool);
  void judge(const BagTool& tool);
  void countOutput();
  void fail(int errorCode, const std::string& message);
  void begin(Phase phase);

  const Project& project_;
  const BatchOptions& options_;
  ProjectState* state_;
  ManifestEntry entry_;
};

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_PROJECT_RUN_H_

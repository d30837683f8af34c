#ifndef MORVA_KIT_BATCH_PROGRESS_DISPLAY_H_
#define MORVA_KIT_BATCH_PROGRESS_DISPLAY_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "kit/batch/project_run.h"
#include "platform/tracer.h"

namespace morva::batch {

/// Shows on standard error how far the projects of a run are.
///
/// On a terminal: one line for every project at work, with percent, rate and time left, written
/// over again; log lines go above them. Elsewhere: a plain line when a project begins a phase, at
/// every further tenth of it, and at its end. Takes the place of the program's log output while it
/// lives. Threads: update() from one; log lines come from any.
class ProgressDisplay {
 public:
  /// @param states  Of all projects; must outlive the display.
  explicit ProgressDisplay(const std::vector<std::unique_ptr<ProjectState>>* states);
  ProgressDisplay(const ProgressDisplay&) = delete;
  ProgressDisplay& operator=(const ProgressDisplay&) = delete;
  ~ProgressDisplay();

  /// Shows the states as they are now. Calls in quick succession cost little.
  void update();

  /// One line about a project: "p1: unpacking 45 %, 120.5 MB/s, 0:12 left".
  /// @param nowUs  On the monotonic clock.
  [[nodiscard]] static std::string describe(const ProjectState& state, std::int64_t nowUs);

 private:
  class LogSink;

  void drawLines();
  void printChanges();
  void eraseLines();

  const std::vector<std::unique_ptr<ProjectState>>& states_;
  const bool isTerminal_;
  std::mutex mutex_;                  ///< guards the terminal and the members below
  bool tookLog_ = false;              ///< the program's log output was there to be replaced
  std::size_t shownLines_ = 0;        ///< lines that stand on the terminal
  std::int64_t shownUs_ = 0;          ///< when they were drawn
  std::vector<std::string> printed_;  ///< per project, what its last plain line was about
  std::shared_ptr<LogSink> sink_;
};

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_PROGRESS_DISPLAY_H_

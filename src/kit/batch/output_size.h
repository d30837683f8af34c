#ifndef MORVA_KIT_BATCH_OUTPUT_SIZE_H_
#define MORVA_KIT_BATCH_OUTPUT_SIZE_H_

#include <cstdint>
#include <string>

namespace morva::batch {

/// Folder of the task's log files in a project's output.
inline constexpr const char* kLogFolder = "log";

struct OutputSize {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
};

/// Counts the regular files under a project's output folder, links not followed; the log folder and
/// manifests in the folder itself are left out.
[[nodiscard]] OutputSize measureOutput(const std::string& outputPath);

}  // namespace morva::batch

#endif  // MORVA_KIT_BATCH_OUTPUT_SIZE_H_

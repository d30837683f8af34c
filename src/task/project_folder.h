#ifndef MORVA_TASK_PROJECT_FOLDER_H_
#define MORVA_TASK_PROJECT_FOLDER_H_

#include <string>

namespace morva {

/// Name of the bag file that stands for a project folder: of its regular files named after a
/// recording time ("2024-01-31-235959.kbin") the first in byte order, which is the oldest
/// recording. Empty when there is none or the folder cannot be read. Threads: any.
[[nodiscard]] std::string findProjectBag(const std::string& projectPath);

}  // namespace morva

#endif  // MORVA_TASK_PROJECT_FOLDER_H_

#ifndef MORVA_TASK_TASK_LINE_H_
#define MORVA_TASK_TASK_LINE_H_

#include <string>

#include "platform/date_time.h"
#include "platform/str_util.h"

namespace morva {

/// One line of a task's log file: `format` begins with "<E>%s BagTool::%s,", which take the time
/// and `method`, and ends with a line feed. `args` follow StrUtil::format.
template <typename... Args>
[[nodiscard]] std::string taskLine(const char* format, const char* method, const Args&... args) {
  return osmik::StrUtil::format(format, osmik::DateTime::getDateTime().toString(), method, args...);
}

}  // namespace morva

#endif  // MORVA_TASK_TASK_LINE_H_

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "morva/batch_task.h"
#include "platform/directory.h"
#include "platform/file_path.h"
#include "platform/ignore_result.h"
#include "task/task_line.h"

namespace morva {
namespace {

/// A line of the log file, and one zero byte for an overlong one.
constexpr std::size_t kLineBytes = 1024;

std::string logName(const std::string& dir) {
  const osmik::DateTime now = osmik::DateTime::getDateTime();
  return osmik::StrUtil::format("%s/bagtool-%04d%02d%02d_%02d%02d%02d.log", dir, now.year(),
                                now.month(), now.day(), now.hour(), now.minute(), now.second());
}

/// Creates a log, or empties it. A link of its name, which would lead elsewhere, is removed.
/// @return Null with errno set.
std::FILE* openLog(const std::string& dir, const std::string& path) {
  if (!osmik::Directory::removeLinks(dir, osmik::FilePath(path).baseName())) {
    errno = ELOOP;
    return nullptr;
  }
  std::FILE* file = nullptr;
  do {
    file = std::fopen(path.c_str(), "wb+");
  } while (file == nullptr && errno == EINTR);
  return file;
}

}  // namespace

void BagTool::CloseFile::operator()(std::FILE* file) const {
  ignoreResult(std::fclose(file));  // nobody is left to tell that the end of a log is lost
}

bool BagTool::initLog(const std::string& dir) {
  if (!osmik::Directory::exists(dir) && !osmik::Directory::createDir(dir, true)) return false;

  const std::string name = logName(dir);
  {
    // A file of the same second has the same name: what it was given must not land in the new one.
    const std::lock_guard lock(logMutex_);
    if (log_ != nullptr) ignoreResult(std::fflush(log_.get()));  // as for closing
  }
  LogFile file(openLog(dir, name));
  const int error = errno;
  const bool opened = file != nullptr;
  replaceLog(std::move(file));
  if (!opened) {
    logout(taskLine("<E>%s BagTool::%s,file(%s) open error: %s!\n", "initLog", name,
                    std::generic_category().message(error)));
  }
  return opened;
}

void BagTool::replaceLog(LogFile file) {
  const std::lock_guard lock(logMutex_);
  if (log_ != nullptr) retiredLogs_.push_back(std::move(log_));
  log_ = std::move(file);
}

void BagTool::logout(const std::string& text) {
  const std::lock_guard lock(logMutex_);
  if (log_ == nullptr || text.empty()) return;

  std::array<char, kLineBytes> line{};
  std::size_t length = text.copy(line.data(), kLineBytes - 1);
  if (text.size() > kLineBytes - 1) {
    std::memcpy(&line[kLineBytes - 4], "...", 3);  // and the zero byte after them
    length = kLineBytes;
  }
  ignoreResult(
      std::fwrite(line.data(), 1, length, log_.get()));  // a full disk must not end the task
}

}  // namespace morva

#include "platform/replace_file.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "platform/file.h"
#include "platform/file_calls.h"
#include "platform/file_path.h"
#include "platform/ignore_result.h"

namespace osmik {
namespace {

bool writeNew(const std::string& path, const std::string& content) {
  File file;
  if (!file.open(path, OpenMode::kWriteNew)) return false;
  if (file.write(content) != static_cast<std::int64_t>(content.size())) return false;
  return file.sync() && file.close();
}

/// Renames where nothing has the new name.
bool renameNew(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  // A file system without that operation. A second name cannot replace anything either.
  return ::link(from.c_str(), to.c_str()) == 0 && ::unlink(from.c_str()) == 0;
}

bool syncFile(const std::string& path) {
  File file;
  return file.open(path, OpenMode::kRead) && file.sync() && file.close();
}

}  // namespace

bool syncDirectory(const std::string& path) {
  FileCalls& calls = FileCalls::current();
  int descriptor = -1;
  do {
    descriptor = calls.open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) return false;
  int result = 0;
  do {
    result = calls.fsync(descriptor);
  } while (result != 0 && errno == EINTR);
  const int reason = errno;
  calls.close(descriptor);
  errno = reason;
  return result == 0 || reason == EINVAL || reason == ENOTSUP;
}

bool publishFile(const std::string& temporary, const std::string& path, bool replace) {
  if (!syncFile(temporary)) return false;
  const bool done =
      replace ? std::rename(temporary.c_str(), path.c_str()) == 0 : renameNew(temporary, path);
  if (done)
    morva::ignoreResult(syncDirectory(FilePath(path).dirName()));  // the file is there, and whole
  return done;
}

bool replaceFile(const std::string& path, const std::string& content) {
  const FilePath name(path);
  const std::string dir = name.dirName();
  const std::string temporary = dir + "/." + name.baseName() + ".tmp";
  if (File::remove(temporary) && writeNew(temporary, content) &&
      std::rename(temporary.c_str(), path.c_str()) == 0) {
    morva::ignoreResult(syncDirectory(dir));  // as above
    return true;
  }
  const int reason = errno;
  File::remove(temporary);
  errno = reason;
  return false;
}

}  // namespace osmik

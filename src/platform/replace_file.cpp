#include "platform/replace_file.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "platform/file.h"
#include "platform/file_path.h"

namespace osmik {
namespace {

bool writeNew(const std::string& path, const std::string& content) {
  File file;
  if (!file.open(path, OpenMode::kWriteNew)) return false;
  if (file.write(content) != static_cast<std::int64_t>(content.size())) return false;
  return file.sync() && file.close();
}

/// Makes the names in a directory survive a power failure, where the file system can.
void syncDirectory(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  fsync(descriptor);
  ::close(descriptor);
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

bool publishFile(const std::string& temporary, const std::string& path, bool replace) {
  if (!syncFile(temporary)) return false;
  const bool done =
      replace ? std::rename(temporary.c_str(), path.c_str()) == 0 : renameNew(temporary, path);
  if (done) syncDirectory(FilePath(path).dirName());
  return done;
}

bool replaceFile(const std::string& path, const std::string& content) {
  const FilePath name(path);
  const std::string dir = name.dirName();
  const std::string temporary = dir + "/." + name.baseName() + ".tmp";
  if (File::remove(temporary) && writeNew(temporary, content) &&
      std::rename(temporary.c_str(), path.c_str()) == 0) {
    syncDirectory(dir);
    return true;
  }
  const int reason = errno;
  File::remove(temporary);
  errno = reason;
  return false;
}

}  // namespace osmik

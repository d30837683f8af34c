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

}  // namespace

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

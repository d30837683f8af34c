#include "platform/dir_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace osmik {

DirLock::~DirLock() {
  if (fd_ >= 0) ::close(fd_);
}

DirLock::Result DirLock::lock(const std::string& path, bool wait) {
  if (fd_ >= 0) return Result::kHeld;
  fd_ = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd_ < 0) return Result::kUnavailable;
  int result = 0;
  do {
    result = flock(fd_, wait ? LOCK_EX : LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result == 0) return Result::kHeld;
  const Result failure = errno == EWOULDBLOCK ? Result::kTaken : Result::kUnavailable;
  ::close(fd_);
  fd_ = -1;
  return failure;
}

}  // namespace osmik

#include "support/failing_file_calls.h"

#include <algorithm>

namespace morva::test {

FailingFileCalls::FailingFileCalls() { osmik::FileCalls::replace(this); }

FailingFileCalls::~FailingFileCalls() { osmik::FileCalls::replace(nullptr); }

void FailingFileCalls::fail(Call call, int nth, int times, int error) {
  const std::lock_guard lock(mutex_);
  Plan& plan = plans_[call];
  plan.first = plan.calls + nth;
  plan.times = times;
  plan.error = error;
}

void FailingFileCalls::fillDiskAfter(std::int64_t bytes) {
  const std::lock_guard lock(mutex_);
  diskBytes_ = bytes;
}

void FailingFileCalls::onlyFilesThatEndIn(const std::string& suffix) {
  const std::lock_guard lock(mutex_);
  suffix_ = suffix;
}

int FailingFileCalls::count(Call call) const {
  const std::lock_guard lock(mutex_);
  const auto plan = plans_.find(call);
  return plan == plans_.end() ? 0 : plan->second.calls;
}

bool FailingFileCalls::fails(Call call, const std::string& path) {
  const std::lock_guard lock(mutex_);
  if (!path.ends_with(suffix_)) return false;
  Plan& plan = plans_[call];
  ++plan.calls;
  if (plan.first == 0 || plan.calls < plan.first || plan.calls - plan.first >= plan.times) {
    return false;
  }
  errno = plan.error;
  return true;
}

std::string FailingFileCalls::pathOf(int fd) const {
  const std::lock_guard lock(mutex_);
  const auto path = paths_.find(fd);
  return path == paths_.end() ? "" : path->second;
}

int FailingFileCalls::open(const char* path, int flags, mode_t mode) {
  if (fails(Call::kOpen, path)) return -1;
  const int fd = FileCalls::open(path, flags, mode);
  const std::lock_guard lock(mutex_);
  if (fd >= 0) paths_[fd] = path;
  return fd;
}

int FailingFileCalls::fstat(int fd, struct stat* status) {
  return fails(Call::kFstat, pathOf(fd)) ? -1 : FileCalls::fstat(fd, status);
}

ssize_t FailingFileCalls::pread(int fd, void* out, std::size_t size, off_t offset) {
  return fails(Call::kPread, pathOf(fd)) ? -1 : FileCalls::pread(fd, out, size, offset);
}

ssize_t FailingFileCalls::pwrite(int fd, const void* data, std::size_t size, off_t offset) {
  const std::string path = pathOf(fd);
  if (fails(Call::kPwrite, path)) return -1;
  std::size_t allowed = size;
  if (path.ends_with(suffix_)) {
    const std::lock_guard lock(mutex_);
    allowed = static_cast<std::size_t>(
        std::min<std::int64_t>(static_cast<std::int64_t>(size), diskBytes_));
    diskBytes_ -= static_cast<std::int64_t>(allowed);
  }
  if (allowed == 0 && size > 0) {
    errno = ENOSPC;
    return -1;
  }
  return FileCalls::pwrite(fd, data, allowed, offset);
}

int FailingFileCalls::ftruncate(int fd, off_t size) {
  return fails(Call::kFtruncate, pathOf(fd)) ? -1 : FileCalls::ftruncate(fd, size);
}

int FailingFileCalls::fsync(int fd) {
  return fails(Call::kFsync, pathOf(fd)) ? -1 : FileCalls::fsync(fd);
}

int FailingFileCalls::close(int fd) {
  const bool failing = fails(Call::kClose, pathOf(fd));
  const int reason = errno;
  {
    const std::lock_guard lock(mutex_);
    paths_.erase(fd);
  }
  const int result = FileCalls::close(fd);
  if (!failing) return result;
  errno = reason;
  return -1;
}

}  // namespace morva::test

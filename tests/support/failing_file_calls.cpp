#include "support/failing_file_calls.h"

#include <algorithm>

namespace morva::test {

FailingFileCalls::FailingFileCalls() { osmik::FileCalls::replace(this); }

FailingFileCalls::~FailingFileCalls() { osmik::FileCalls::replace(nullptr); }

void FailingFileCalls::fail(Call call, int nth, int times, int error) {
  const std::lock_guard lock(mutex_);
  Plan& plan = plans_[call];
  plan.failures.push_back({plan.calls + nth, times, error});
}

void FailingFileCalls::shorten(Call call, int nth, std::size_t bytes) {
  const std::lock_guard lock(mutex_);
  Plan& plan = plans_[call];
  plan.lengths[plan.calls + nth] = bytes;
}

void FailingFileCalls::limitFileBytes(std::int64_t bytes) {
  const std::lock_guard lock(mutex_);
  fileBytes_ = bytes >= 0 ? bytes : std::numeric_limits<std::int64_t>::max();
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
  for (const Failure& failure : plan.failures) {
    if (plan.calls < failure.first || plan.calls - failure.first >= failure.times) continue;
    errno = failure.error;
    return true;
  }
  return false;
}

std::size_t FailingFileCalls::allowed(Call call, std::size_t size) const {
  const std::lock_guard lock(mutex_);
  const auto plan = plans_.find(call);
  if (plan == plans_.end()) return size;
  const auto length = plan->second.lengths.find(plan->second.calls);
  return length == plan->second.lengths.end() ? size : std::min(size, length->second);
}

std::size_t FailingFileCalls::takeRoom(std::size_t size, off_t offset) {
  const std::lock_guard lock(mutex_);
  const std::int64_t room = std::min(diskBytes_, std::max<std::int64_t>(fileBytes_ - offset, 0));
  const std::int64_t taken = std::min(static_cast<std::int64_t>(size), room);
  diskBytes_ -= taken;
  return static_cast<std::size_t>(taken);
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
  if (fails(Call::kPread, pathOf(fd))) return -1;
  return FileCalls::pread(fd, out, allowed(Call::kPread, size), offset);
}

ssize_t FailingFileCalls::pwrite(int fd, const void* data, std::size_t size, off_t offset) {
  const std::string path = pathOf(fd);
  if (fails(Call::kPwrite, path)) return -1;
  std::size_t count = allowed(Call::kPwrite, size);
  if (path.ends_with(suffix_)) count = takeRoom(count, offset);
  if (count == 0 && size > 0) {
    errno = ENOSPC;
    return -1;
  }
  return FileCalls::pwrite(fd, data, count, offset);
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

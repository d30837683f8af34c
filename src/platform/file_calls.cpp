#include "platform/file_calls.h"

#include <atomic>
#include <fcntl.h>
#include <unistd.h>

namespace osmik {
namespace {

std::atomic<FileCalls*>& replacement() {
  static std::atomic<FileCalls*> calls = nullptr;
  return calls;
}

}  // namespace

int FileCalls::open(const char* path, int flags, mode_t mode) { return ::open(path, flags, mode); }

int FileCalls::fstat(int fd, struct stat* status) { return ::fstat(fd, status); }

ssize_t FileCalls::pread(int fd, void* out, std::size_t size, off_t offset) {
  return ::pread(fd, out, size, offset);
}

ssize_t FileCalls::pwrite(int fd, const void* data, std::size_t size, off_t offset) {
  return ::pwrite(fd, data, size, offset);
}

int FileCalls::ftruncate(int fd, off_t size) { return ::ftruncate(fd, size); }

int FileCalls::fsync(int fd) { return ::fsync(fd); }

int FileCalls::close(int fd) { return ::close(fd); }

FileCalls& FileCalls::current() {
  static FileCalls real;
  FileCalls* const calls = replacement();
  return calls != nullptr ? *calls : real;
}

void FileCalls::replace(FileCalls* calls) { replacement() = calls; }

}  // namespace osmik

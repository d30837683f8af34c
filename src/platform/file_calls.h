#ifndef MORVA_PLATFORM_FILE_CALLS_H_
#define MORVA_PLATFORM_FILE_CALLS_H_

#include <cstddef>
#include <sys/stat.h>
#include <sys/types.h>

namespace osmik {

/// The system calls that File makes, so that a test can let the n-th of them fail. Each follows the
/// call of its name: -1 and errno on failure.
class FileCalls {
 public:
  virtual ~FileCalls() = default;
  virtual int open(const char* path, int flags, mode_t mode);
  virtual int fstat(int fd, struct stat* status);
  virtual ssize_t pread(int fd, void* out, std::size_t size, off_t offset);
  virtual ssize_t pwrite(int fd, const void* data, std::size_t size, off_t offset);
  virtual int ftruncate(int fd, off_t size);
  virtual int fsync(int fd);
  virtual int close(int fd);

  /// The calls in force. Threads: any.
  static FileCalls& current();
  /// Puts `calls` in force, or the real ones again when it is null; it must outlive its use. Files
  /// that are open go on with it. For tests.
  static void replace(FileCalls* calls);
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_FILE_CALLS_H_

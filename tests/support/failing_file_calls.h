#ifndef MORVA_TESTS_SUPPORT_FAILING_FILE_CALLS_H_
#define MORVA_TESTS_SUPPORT_FAILING_FILE_CALLS_H_

#include <cerrno>
#include <cstdint>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/file_calls.h"

namespace morva::test {

/// The system calls of osmik::File, of which chosen ones fail. In force while it lives.
/// Threads: any.
class FailingFileCalls final : public osmik::FileCalls {
 public:
  enum class Call : std::uint8_t { kOpen, kFstat, kPread, kPwrite, kFtruncate, kFsync, kClose };
  static constexpr int kForever = std::numeric_limits<int>::max();

  FailingFileCalls();
  FailingFileCalls(const FailingFileCalls&) = delete;
  FailingFileCalls& operator=(const FailingFileCalls&) = delete;
  ~FailingFileCalls() override;

  /// Lets the n-th call of a kind (1: the next one) and `times` - 1 calls after it fail with
  /// `error`. A close that fails has closed the descriptor all the same, as the system's does.
  /// Several may be set for one kind.
  void fail(Call call, int nth = 1, int times = kForever, int error = ENOSPC);
  /// Lets writes succeed for `bytes` more bytes in all; the one that passes them is cut short and
  /// the next fails, as on a disk that is full.
  void fillDiskAfter(std::int64_t bytes);
  /// Lets the n-th pread or pwrite from now on succeed with `bytes` bytes at most.
  void shorten(Call call, int nth, std::size_t bytes);
  /// Lets no file grow beyond `bytes`; what fits is taken, and writing over old bytes works.
  /// Negative: no limit any more.
  void limitFileBytes(std::int64_t bytes);
  /// Leaves files alone whose path does not end in `suffix`; they do not count either.
  void onlyFilesThatEndIn(const std::string& suffix);
  /// Calls of a kind so far that counted.
  [[nodiscard]] int count(Call call) const;

  int open(const char* path, int flags, mode_t mode) override;
  int fstat(int fd, struct stat* status) override;
  ssize_t pread(int fd, void* out, std::size_t size, off_t offset) override;
  ssize_t pwrite(int fd, const void* data, std::size_t size, off_t offset) override;
  int ftruncate(int fd, off_t size) override;
  int fsync(int fd) override;
  int close(int fd) override;

 private:
  struct Failure {
    int first = 0;  ///< number of the first call that fails, from 1
    int times = 0;
    int error = 0;
  };
  struct Plan {
    int calls = 0;
    std::vector<Failure> failures;
    std::map<int, std::size_t> lengths;  ///< by number of the call
  };

  [[nodiscard]] bool fails(Call call, const std::string& path);
  [[nodiscard]] std::size_t allowed(Call call, std::size_t size) const;
  [[nodiscard]] std::size_t takeRoom(std::size_t size, off_t offset);
  [[nodiscard]] std::string pathOf(int fd) const;

  mutable std::mutex mutex_;
  std::map<Call, Plan> plans_;
  std::map<int, std::string> paths_;
  std::string suffix_;
  std::int64_t diskBytes_ = std::numeric_limits<std::int64_t>::max();
  std::int64_t fileBytes_ = std::numeric_limits<std::int64_t>::max();
};

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_FAILING_FILE_CALLS_H_

// Preloaded into a program, kills it (SIGKILL) at its n-th system call that changes a file or a
// directory: KILL_AT_CALL=n, from 1; even numbers before the call, odd ones after it. Writes the
// number of such calls to the file KILL_CALL_COUNT at the end, if that is set.

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

std::atomic<long> calls = 0;

long killAt() {
  static const long kAt = [] {
    const char* const text = std::getenv("KILL_AT_CALL");
    return text == nullptr ? 0 : std::strtol(text, nullptr, 10);
  }();
  return kAt;
}

void die() {
  ::kill(::getpid(), SIGKILL);
  ::pause();
}

template <typename Function, typename... Arguments>
auto counted(Function* real, Arguments... arguments) {
  const long number = ++calls;
  const bool isLast = number == killAt();
  if (isLast && number % 2 == 0) die();
  const auto result = real(arguments...);
  if (isLast) die();
  return result;
}

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

struct Report {
  ~Report() {
    const char* const path = std::getenv("KILL_CALL_COUNT");
    if (path == nullptr) return;
    std::FILE* const file = std::fopen(path, "w");
    if (file == nullptr) return;
    std::fprintf(file, "%ld", calls.load());
    std::fclose(file);
  }
} report;

/// What follows the flags of open().
mode_t modeOf(int flags, va_list rest) { return (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0; }

}  // namespace

// NOLINTBEGIN: the names and shapes of the C library
extern "C" {

ssize_t pwrite64(int fd, const void* data, size_t size, off_t offset) {
  using Call = ssize_t(int, const void*, size_t, off_t);
  static Call* const real = next<Call>("pwrite64");
  return counted(real, fd, data, size, offset);
}
ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) {
  return pwrite64(fd, data, size, offset);
}
int ftruncate64(int fd, off_t size) {
  using Call = int(int, off_t);
  static Call* const real = next<Call>("ftruncate64");
  return counted(real, fd, size);
}
int ftruncate(int fd, off_t size) { return ftruncate64(fd, size); }
int fsync(int fd) {
  using Call = int(int);
  static Call* const real = next<Call>("fsync");
  return counted(real, fd);
}
int rename(const char* from, const char* to) {
  using Call = int(const char*, const char*);
  static Call* const real = next<Call>("rename");
  return counted(real, from, to);
}
int renameat2(int fromDir, const char* from, int toDir, const char* to, unsigned flags) {
  using Call = int(int, const char*, int, const char*, unsigned);
  static Call* const real = next<Call>("renameat2");
  return counted(real, fromDir, from, toDir, to, flags);
}
int unlink(const char* path) {
  using Call = int(const char*);
  static Call* const real = next<Call>("unlink");
  return counted(real, path);
}
int unlinkat(int dir, const char* path, int flags) {
  using Call = int(int, const char*, int);
  static Call* const real = next<Call>("unlinkat");
  return counted(real, dir, path, flags);
}
int remove(const char* path) {
  using Call = int(const char*);
  static Call* const real = next<Call>("remove");
  return counted(real, path);
}
int mkdir(const char* path, mode_t mode) {
  using Call = int(const char*, mode_t);
  static Call* const real = next<Call>("mkdir");
  return counted(real, path, mode);
}
int open64(const char* path, int flags, ...) {
  using Call = int(const char*, int, mode_t);
  static Call* const real = next<Call>("open64");
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = modeOf(flags, rest);
  va_end(rest);
  return (flags & O_CREAT) != 0 ? counted(real, path, flags, mode) : real(path, flags, mode);
}
int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = modeOf(flags, rest);
  va_end(rest);
  return open64(path, flags, mode);
}

}  // extern "C"
// NOLINTEND

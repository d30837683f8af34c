#include "faults/file_call_faults.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>

namespace morva::test {
namespace {

enum class Held : std::uint8_t { kNothing, kRead, kWritten, kFolder };

struct State {
  std::mutex mutex;
  std::string folder;
  Fault fault;
  int calls = 0;
  int hits = 0;
  CallKind firstKind = CallKind::kOpen;
  std::string firstHit;
};

State& state() {
  static State only;
  return only;
}

constexpr std::size_t kMostDescriptors = 4096;
std::atomic<bool> inForce = false;
std::atomic<std::uint64_t> readBytes = 0;
std::array<std::atomic<Held>, kMostDescriptors> held{};

Held heldBy(int fd) {
  const bool isOne = fd >= 0 && static_cast<std::size_t>(fd) < kMostDescriptors;
  return inForce && isOne ? held[static_cast<std::size_t>(fd)].load() : Held::kNothing;
}

void hold(int fd, Held what) {
  if (fd >= 0 && static_cast<std::size_t>(fd) < kMostDescriptors) {
    held[static_cast<std::size_t>(fd)] = what;
  }
}

bool isInside(const char* path) {
  if (!inForce || path == nullptr) return false;
  const std::string& folder = state().folder;  // does not change while in force
  return std::strncmp(path, folder.c_str(), folder.size()) == 0;
}

/// Counts the call. @return True, with errno set where the fault has one, when it is to go wrong.
bool isHit(CallKind kind, const std::string& where) {
  State& now = state();
  const std::lock_guard lock(now.mutex);
  if ((now.fault.kinds & bit(kind)) == 0) return false;
  ++now.calls;
  const bool hit = now.fault.goesOn ? now.calls >= now.fault.first : now.calls == now.fault.first;
  if (!hit) return false;
  if (now.hits++ == 0) {
    now.firstKind = kind;
    now.firstHit = std::string(nameOf(kind)) + " " + where;
  }
  errno = now.fault.error;
  return true;
}

bool fails(CallKind kind, const char* path) { return isInside(path) && isHit(kind, path); }

bool fails(CallKind kind, int fd) {
  return heldBy(fd) != Held::kNothing && isHit(kind, std::to_string(fd));
}

/// The size that a transfer is to have; negative: none, it fails.
ssize_t sizeOf(CallKind kind, int fd, std::size_t size) {
  if (heldBy(fd) == Held::kNothing || !isHit(kind, std::to_string(fd))) {
    return static_cast<ssize_t>(size);
  }
  if (state().fault.error != 0) return -1;
  return static_cast<ssize_t>(size > 1 ? size / 2 : size);
}

ssize_t countRead(int fd, ssize_t bytes) {
  if (bytes > 0 && heldBy(fd) != Held::kNothing) readBytes += static_cast<std::uint64_t>(bytes);
  return bytes;
}

CallKind closingOf(Held what) {
  return what == Held::kWritten ? CallKind::kCloseWrite : CallKind::kCloseRead;
}

/// The system's own function of a name.
template <typename Function>
Function* real(const char* name) {
  void* const symbol = dlsym(RTLD_NEXT, name);
  Function* function = nullptr;
  std::memcpy(&function, &symbol, sizeof function);
  return function;
}

}  // namespace

const char* nameOf(CallKind kind) {
  constexpr std::array<const char*, kCallKinds> kNames = {
      "open",        "create", "open folder", "stat",       "read",          "write",
      "truncate",    "sync",   "sync folder", "close read", "close written", "list",
      "make folder", "remove", "rename",      "lock"};
  return kNames[static_cast<std::size_t>(kind)];
}

FileCallFaults::FileCallFaults(const std::string& folder, const Fault& fault) {
  State& now = state();
  now.folder = folder;
  now.fault = fault;
  now.calls = 0;
  now.hits = 0;
  now.firstHit.clear();
  readBytes = 0;
  for (std::atomic<Held>& one : held) one = Held::kNothing;
  inForce = true;
}

FileCallFaults::~FileCallFaults() { inForce = false; }

int FileCallFaults::calls() const {
  const std::lock_guard lock(state().mutex);
  return state().calls;
}

int FileCallFaults::hits() const {
  const std::lock_guard lock(state().mutex);
  return state().hits;
}

std::string FileCallFaults::firstHit() const {
  const std::lock_guard lock(state().mutex);
  return state().firstHit;
}

CallKind FileCallFaults::firstKind() const {
  const std::lock_guard lock(state().mutex);
  return state().firstKind;
}

std::uint64_t bytesRead() { return readBytes; }

namespace {

using Open = int(const char*, int, ...);
using OpenAt = int(int, const char*, int, ...);

Held heldAfter(int flags) {
  if ((flags & O_DIRECTORY) != 0) return Held::kFolder;
  return (flags & O_ACCMODE) == O_RDONLY ? Held::kRead : Held::kWritten;
}

CallKind openingOf(Held what) {
  if (what == Held::kFolder) return CallKind::kOpenDir;
  return what == Held::kWritten ? CallKind::kCreate : CallKind::kOpen;
}

int openPath(const char* name, const char* path, int flags, mode_t mode) {
  const Held what = heldAfter(flags);
  if (fails(openingOf(what), path)) return -1;
  const int fd = real<Open>(name)(path, flags, mode);
  if (isInside(path)) hold(fd, what);
  return fd;
}

int openBelow(const char* name, int folder, const char* path, int flags, mode_t mode) {
  const Held what = heldAfter(flags);
  const bool inside = heldBy(folder) != Held::kNothing || isInside(path);
  if (inside && isHit(openingOf(what), path)) return -1;
  const int fd = real<OpenAt>(name)(folder, path, flags, mode);
  if (inside) hold(fd, what);
  return fd;
}

std::FILE* openStream(const char* name, const char* path, const char* mode) {
  const Held what = std::strpbrk(mode, "wa+") != nullptr ? Held::kWritten : Held::kRead;
  if (fails(openingOf(what), path)) return nullptr;
  std::FILE* const stream = real<std::FILE*(const char*, const char*)>(name)(path, mode);
  if (stream != nullptr && isInside(path)) hold(fileno(stream), what);
  return stream;
}

int closeAs(int fd, Held what, bool failing, int reason) {
  hold(fd, Held::kNothing);
  const int result = real<int(int)>("close")(fd);
  static_cast<void>(what);
  if (!failing) return result;
  errno = reason;
  return -1;
}

ssize_t readAt(const char* name, int fd, void* out, std::size_t size, off_t offset) {
  const ssize_t allowed = sizeOf(CallKind::kRead, fd, size);
  if (allowed < 0) return -1;
  using Call = ssize_t(int, void*, std::size_t, off_t);
  return countRead(fd, real<Call>(name)(fd, out, static_cast<std::size_t>(allowed), offset));
}

ssize_t writeAt(const char* name, int fd, const void* data, std::size_t size, off_t offset) {
  const ssize_t allowed = sizeOf(CallKind::kWrite, fd, size);
  if (allowed < 0) return -1;
  using Call = ssize_t(int, const void*, std::size_t, off_t);
  return real<Call>(name)(fd, data, static_cast<std::size_t>(allowed), offset);
}

int statPath(const char* name, const char* path, void* status) {
  if (fails(CallKind::kStat, path)) return -1;
  return real<int(const char*, void*)>(name)(path, status);
}

int statOpen(const char* name, int fd, void* status) {
  if (fails(CallKind::kStat, fd)) return -1;
  return real<int(int, void*)>(name)(fd, status);
}

int cut(const char* name, int fd, off_t size) {
  if (fails(CallKind::kTruncate, fd)) return -1;
  return real<int(int, off_t)>(name)(fd, size);
}

int syncOpen(const char* name, int fd) {
  const Held what = heldBy(fd);
  if (what == Held::kNothing) return real<int(int)>(name)(fd);
  return fails(what == Held::kFolder ? CallKind::kSyncDir : CallKind::kSync, fd) ? -1 : 0;
}

int removePath(const char* name, const char* path) {
  if (fails(CallKind::kRemove, path)) return -1;
  return real<int(const char*)>(name)(path);
}

template <typename Entry>
Entry* nextEntry(const char* name, DIR* folder) {
  if (fails(CallKind::kList, dirfd(folder))) return nullptr;
  return real<Entry*(DIR*)>(name)(folder);
}

mode_t modeOf(int flags, va_list arguments) {
  return (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace
}  // namespace morva::test

// The calls themselves, under the system's names. Declared under others, so that how a system
// header declares them does not matter.
// NOLINTBEGIN(readability-identifier-naming)
using namespace morva::test;  // NOLINT(google-build-using-namespace)

#define KBAG_STANDS_FOR(name) __asm__(#name)

extern "C" {

int faulty_open(const char* path, int flags, ...) KBAG_STANDS_FOR(open);
int faulty_open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  return openPath("open", path, flags, mode);
}

int faulty_open64(const char* path, int flags, ...) KBAG_STANDS_FOR(open64);
int faulty_open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  return openPath("open64", path, flags, mode);
}

int faulty_openat(int folder, const char* path, int flags, ...) KBAG_STANDS_FOR(openat);
int faulty_openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  return openBelow("openat", folder, path, flags, mode);
}

std::FILE* faulty_fopen(const char* path, const char* mode) KBAG_STANDS_FOR(fopen);
std::FILE* faulty_fopen(const char* path, const char* mode) {
  return openStream("fopen", path, mode);
}

std::FILE* faulty_fopen64(const char* path, const char* mode) KBAG_STANDS_FOR(fopen64);
std::FILE* faulty_fopen64(const char* path, const char* mode) {
  return openStream("fopen64", path, mode);
}

int faulty_close(int fd) KBAG_STANDS_FOR(close);
int faulty_close(int fd) {
  const Held what = heldBy(fd);
  const bool failing = fails(closingOf(what), fd);
  return closeAs(fd, what, failing, errno);
}

int faulty_fclose(std::FILE* stream) KBAG_STANDS_FOR(fclose);
int faulty_fclose(std::FILE* stream) {
  const int fd = fileno(stream);
  const bool failing = fails(closingOf(heldBy(fd)), fd);
  const int reason = errno;
  hold(fd, Held::kNothing);
  const int result = real<int(std::FILE*)>("fclose")(stream);
  if (!failing) return result;
  errno = reason;
  return EOF;
}

ssize_t faulty_read(int fd, void* out, std::size_t size) KBAG_STANDS_FOR(read);
ssize_t faulty_read(int fd, void* out, std::size_t size) {
  const ssize_t allowed = sizeOf(CallKind::kRead, fd, size);
  if (allowed < 0) return -1;
  using Call = ssize_t(int, void*, std::size_t);
  return countRead(fd, real<Call>("read")(fd, out, static_cast<std::size_t>(allowed)));
}

ssize_t faulty_pread(int fd, void* out, std::size_t size, off_t offset) KBAG_STANDS_FOR(pread);
ssize_t faulty_pread(int fd, void* out, std::size_t size, off_t offset) {
  return readAt("pread", fd, out, size, offset);
}

ssize_t faulty_pread64(int fd, void* out, std::size_t size, off_t offset) KBAG_STANDS_FOR(pread64);
ssize_t faulty_pread64(int fd, void* out, std::size_t size, off_t offset) {
  return readAt("pread64", fd, out, size, offset);
}

ssize_t faulty_write(int fd, const void* data, std::size_t size) KBAG_STANDS_FOR(write);
ssize_t faulty_write(int fd, const void* data, std::size_t size) {
  const ssize_t allowed = sizeOf(CallKind::kWrite, fd, size);
  if (allowed < 0) return -1;
  using Call = ssize_t(int, const void*, std::size_t);
  return real<Call>("write")(fd, data, static_cast<std::size_t>(allowed));
}

ssize_t faulty_writev(int fd, const iovec* parts, int count) KBAG_STANDS_FOR(writev);
ssize_t faulty_writev(int fd, const iovec* parts, int count) {
  if (fails(CallKind::kWrite, fd)) return -1;
  return real<ssize_t(int, const iovec*, int)>("writev")(fd, parts, count);
}

ssize_t faulty_pwrite(int fd, const void* data, std::size_t size, off_t offset)
    KBAG_STANDS_FOR(pwrite);
ssize_t faulty_pwrite(int fd, const void* data, std::size_t size, off_t offset) {
  return writeAt("pwrite", fd, data, size, offset);
}

ssize_t faulty_pwrite64(int fd, const void* data, std::size_t size, off_t offset)
    KBAG_STANDS_FOR(pwrite64);
ssize_t faulty_pwrite64(int fd, const void* data, std::size_t size, off_t offset) {
  return writeAt("pwrite64", fd, data, size, offset);
}

std::size_t faulty_fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* stream)
    KBAG_STANDS_FOR(fwrite);
std::size_t faulty_fwrite(const void* data, std::size_t size, std::size_t count,
                          std::FILE* stream) {
  if (fails(CallKind::kWrite, fileno(stream))) return 0;
  using Call = std::size_t(const void*, std::size_t, std::size_t, std::FILE*);
  return real<Call>("fwrite")(data, size, count, stream);
}

int faulty_ftruncate(int fd, off_t size) KBAG_STANDS_FOR(ftruncate);
int faulty_ftruncate(int fd, off_t size) { return cut("ftruncate", fd, size); }

int faulty_ftruncate64(int fd, off_t size) KBAG_STANDS_FOR(ftruncate64);
int faulty_ftruncate64(int fd, off_t size) { return cut("ftruncate64", fd, size); }

int faulty_fsync(int fd) KBAG_STANDS_FOR(fsync);
int faulty_fsync(int fd) { return syncOpen("fsync", fd); }

int faulty_fdatasync(int fd) KBAG_STANDS_FOR(fdatasync);
int faulty_fdatasync(int fd) { return syncOpen("fdatasync", fd); }

int faulty_fstat(int fd, void* status) KBAG_STANDS_FOR(fstat);
int faulty_fstat(int fd, void* status) { return statOpen("fstat", fd, status); }

int faulty_fstat64(int fd, void* status) KBAG_STANDS_FOR(fstat64);
int faulty_fstat64(int fd, void* status) { return statOpen("fstat64", fd, status); }

int faulty_stat(const char* path, void* status) KBAG_STANDS_FOR(stat);
int faulty_stat(const char* path, void* status) { return statPath("stat", path, status); }

int faulty_stat64(const char* path, void* status) KBAG_STANDS_FOR(stat64);
int faulty_stat64(const char* path, void* status) { return statPath("stat64", path, status); }

int faulty_lstat(const char* path, void* status) KBAG_STANDS_FOR(lstat);
int faulty_lstat(const char* path, void* status) { return statPath("lstat", path, status); }

int faulty_lstat64(const char* path, void* status) KBAG_STANDS_FOR(lstat64);
int faulty_lstat64(const char* path, void* status) { return statPath("lstat64", path, status); }

char* faulty_realpath(const char* path, char* out) KBAG_STANDS_FOR(realpath);
char* faulty_realpath(const char* path, char* out) {
  if (fails(CallKind::kStat, path)) return nullptr;
  return real<char*(const char*, char*)>("realpath")(path, out);
}

ssize_t faulty_readlink(const char* path, char* out, std::size_t size) KBAG_STANDS_FOR(readlink);
ssize_t faulty_readlink(const char* path, char* out, std::size_t size) {
  if (fails(CallKind::kStat, path)) return -1;
  return real<ssize_t(const char*, char*, std::size_t)>("readlink")(path, out, size);
}

DIR* faulty_opendir(const char* path) KBAG_STANDS_FOR(opendir);
DIR* faulty_opendir(const char* path) {
  if (fails(CallKind::kOpenDir, path)) return nullptr;
  DIR* const folder = real<DIR*(const char*)>("opendir")(path);
  if (folder != nullptr && isInside(path)) hold(dirfd(folder), Held::kFolder);
  return folder;
}

dirent* faulty_readdir(DIR* folder) KBAG_STANDS_FOR(readdir);
dirent* faulty_readdir(DIR* folder) { return nextEntry<dirent>("readdir", folder); }

dirent64* faulty_readdir64(DIR* folder) KBAG_STANDS_FOR(readdir64);
dirent64* faulty_readdir64(DIR* folder) { return nextEntry<dirent64>("readdir64", folder); }

int faulty_mkdir(const char* path, mode_t mode) KBAG_STANDS_FOR(mkdir);
int faulty_mkdir(const char* path, mode_t mode) {
  if (fails(CallKind::kMakeDir, path)) return -1;
  return real<int(const char*, mode_t)>("mkdir")(path, mode);
}

int faulty_rmdir(const char* path) KBAG_STANDS_FOR(rmdir);
int faulty_rmdir(const char* path) { return removePath("rmdir", path); }

int faulty_unlink(const char* path) KBAG_STANDS_FOR(unlink);
int faulty_unlink(const char* path) { return removePath("unlink", path); }

int faulty_remove(const char* path) KBAG_STANDS_FOR(remove);
int faulty_remove(const char* path) { return removePath("remove", path); }

int faulty_unlinkat(int folder, const char* path, int flags) KBAG_STANDS_FOR(unlinkat);
int faulty_unlinkat(int folder, const char* path, int flags) {
  const bool inside = heldBy(folder) != Held::kNothing || isInside(path);
  if (inside && isHit(CallKind::kRemove, path)) return -1;
  return real<int(int, const char*, int)>("unlinkat")(folder, path, flags);
}

int faulty_rename(const char* from, const char* to) KBAG_STANDS_FOR(rename);
int faulty_rename(const char* from, const char* to) {
  if (fails(CallKind::kRename, to)) return -1;
  return real<int(const char*, const char*)>("rename")(from, to);
}

int faulty_renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags)
    KBAG_STANDS_FOR(renameat2);
int faulty_renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                     unsigned flags) {
  if (fails(CallKind::kRename, to)) return -1;
  using Call = int(int, const char*, int, const char*, unsigned);
  return real<Call>("renameat2")(fromFolder, from, toFolder, to, flags);
}

int faulty_link(const char* from, const char* to) KBAG_STANDS_FOR(link);
int faulty_link(const char* from, const char* to) {
  if (fails(CallKind::kRename, to)) return -1;
  return real<int(const char*, const char*)>("link")(from, to);
}

int faulty_flock(int fd, int operation) KBAG_STANDS_FOR(flock);
int faulty_flock(int fd, int operation) {
  if (fails(CallKind::kLock, fd)) return -1;
  return real<int(int, int)>("flock")(fd, operation);
}

}  // extern "C"
// NOLINTEND(readability-identifier-naming)

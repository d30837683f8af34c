#include "platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "platform/file_calls.h"
#include "platform/memory.h"

namespace osmik {
namespace {

constexpr std::size_t kFirstStepBytes = 16UL * 1024;      // read ahead at the start of a file
constexpr std::size_t kJumpStepBytes = 4UL * 1024;        // and next after a jump
constexpr std::size_t kStepGrowth = 4;                    // while reading goes on
constexpr std::size_t kDirectBytes = 16UL * 1024;         // cheaper to read than to copy
constexpr std::int64_t kNearBytes = 4L * 1024;            // a shorter way forward is not a jump
constexpr std::size_t kDirectWriteBytes = 64UL * 1024;    // cheaper to write than to copy
constexpr std::size_t kMaxReservedBytes = 1024UL * 1024;  // at open; more once they are needed

int openFlags(OpenMode mode) {
  // Non-blocking: opening a pipe must not wait for its other end. Regular files do not notice.
  constexpr int kCommon = O_CLOEXEC | O_NONBLOCK;
  switch (mode) {
    case OpenMode::kRead:
      return O_RDONLY | kCommon;
    case OpenMode::kWrite:
      return O_WRONLY | O_CREAT | O_TRUNC | kCommon;
    case OpenMode::kWriteNew:
      return O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | kCommon;
  }
  return O_RDONLY | kCommon;
}

/// Makes a call that returns 0, again where it was interrupted. @return False with errno set.
template <typename Call>
bool repeated(const Call& call) {
  int result = 0;
  do {
    result = call();
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

}  // namespace

File::~File() { close(); }

bool File::open(const std::string& path, OpenMode mode) {
  if (isOpen()) {
    errno = EBUSY;
    return false;
  }
  if (path.find('\0') != std::string::npos) {
    errno = EINVAL;
    return false;
  }
  constexpr mode_t kPermissions = 0666;
  do {
    fd_ = FileCalls::current().open(path.c_str(), openFlags(mode), kPermissions);
  } while (fd_ < 0 && errno == EINTR);
  if (fd_ < 0) return false;
  if (!isServable(mode)) {
    const int reason = errno;
    FileCalls::current().close(fd_);
    fd_ = -1;
    if (mode == OpenMode::kWriteNew)
      ::unlink(path.c_str());  // the caller does not know that it is there
    errno = reason;
    return false;
  }

  path_ = path;
  writing_ = mode != OpenMode::kRead;
  position_ = 0;
  aheadStart_ = 0;
  aheadSize_ = 0;
  step_ = kFirstStepBytes;
  buffer_.clear();
  if (writing_) buffer_.reserve(std::min(writeBufferSize(), kMaxReservedBytes));
  return true;
}

bool File::isServable(OpenMode mode) const {
  struct stat status {};
  if (FileCalls::current().fstat(fd_, &status) != 0) return false;
  if (S_ISREG(status.st_mode) || S_ISBLK(status.st_mode)) return true;
  if (mode != OpenMode::kRead && S_ISCHR(status.st_mode)) return true;
  errno = S_ISDIR(status.st_mode) ? EISDIR : ESPIPE;
  return false;
}

std::int64_t File::readAt(void* out, std::size_t size, std::int64_t offset) const {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = FileCalls::current().pread(
        fd_, static_cast<char*>(out) + done, size - done, offset + static_cast<std::int64_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && done == 0) return -1;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<std::int64_t>(done);
}

std::int64_t File::writeAt(const void* data, std::size_t size, std::int64_t offset) const {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count =
        FileCalls::current().pwrite(fd_, static_cast<const char*>(data) + done, size - done,
                                    offset + static_cast<std::int64_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && done == 0) return -1;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return static_cast<std::int64_t>(done);
}

bool File::isReading() const {
  if (isOpen() && !writing_) return true;
  errno = EBADF;
  return false;
}

bool File::goesOn() const {
  const std::int64_t way = position_ - (aheadStart_ + static_cast<std::int64_t>(aheadSize_));
  return !ahead().empty() || (way >= 0 && way <= kNearBytes);
}

/// Reads ahead, so that `size` bytes (at most kMaxPeekBytes) lie ready at the position if the file
/// has them. @return What lies ready, or -1 when an error left nothing.
std::int64_t File::lookAhead(std::size_t size) {
  if (!goesOn()) step_ = kJumpStepBytes;
  const std::size_t wanted = std::max(step_, size);
  step_ = std::min(step_ * kStepGrowth, kMaxPeekBytes);

  const std::string_view kept = ahead();
  if (wanted > aheadCapacity_) {
    auto larger = std::make_unique_for_overwrite<char[]>(wanted);
    kept.copy(larger.get(), kept.size());
    ahead_ = std::move(larger);
    aheadCapacity_ = wanted;
  } else if (!kept.empty()) {
    std::memmove(ahead_.get(), kept.data(), kept.size());
  }
  aheadStart_ = position_;
  aheadSize_ = kept.size();
  const std::int64_t count = readAt(ahead_.get() + aheadSize_, wanted - aheadSize_,
                                    position_ + static_cast<std::int64_t>(aheadSize_));
  if (count < 0 && aheadSize_ == 0) return -1;
  aheadSize_ += static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
  return static_cast<std::int64_t>(aheadSize_);
}

std::int64_t File::readDirectly(char* out, std::size_t size) {
  step_ = goesOn() ? std::min(step_ * kStepGrowth, kMaxPeekBytes) : kJumpStepBytes;
  const std::int64_t count = readAt(out, size, position_);
  position_ += std::max<std::int64_t>(count, 0);
  aheadStart_ = position_;
  aheadSize_ = 0;
  return count;
}

std::size_t File::takeAhead(char* out, std::size_t size) {
  const std::size_t count = ahead().copy(out, size);
  position_ += static_cast<std::int64_t>(count);
  return count;
}

std::int64_t File::read(void* out, std::size_t size) {
  if (!isReading()) return -1;
  char* const bytes = static_cast<char*>(out);
  std::size_t done = takeAhead(bytes, size);
  if (done == size) return static_cast<std::int64_t>(done);
  const std::size_t missing = size - done;
  std::int64_t count = 0;
  if (!goesOn() || missing >= std::min(step_, kDirectBytes)) {
    count = readDirectly(bytes + done, missing);
  } else {
    count = lookAhead(missing);
    if (count > 0) count = static_cast<std::int64_t>(takeAhead(bytes + done, missing));
  }
  if (count < 0) return done > 0 ? static_cast<std::int64_t>(done) : -1;
  return static_cast<std::int64_t>(done) + count;
}

std::int64_t File::peek(std::size_t size, std::string_view* bytes) {
  *bytes = {};
  if (!isReading()) return -1;
  const std::size_t wanted = std::min(size, kMaxPeekBytes);
  if (ahead().size() < wanted && lookAhead(wanted) < 0) return -1;
  *bytes = ahead().substr(0, wanted);
  return static_cast<std::int64_t>(bytes->size());
}

std::int64_t File::take(std::size_t size, std::string_view* bytes) {
  const std::int64_t count = peek(size, bytes);
  if (count == static_cast<std::int64_t>(size)) position_ += count;
  return count;
}

std::int64_t File::readInPlace(std::size_t size, std::string_view* bytes) {
  *bytes = {};
  if (!isReading()) return -1;
  if (ahead().empty()) {
    if (const std::int64_t count = lookAhead(1); count < 1) return count;
  }
  *bytes = ahead().substr(0, size);
  position_ += static_cast<std::int64_t>(bytes->size());
  return static_cast<std::int64_t>(bytes->size());
}

std::int64_t File::write(const void* data, std::size_t size) {
  if (!isOpen() || !writing_) {
    errno = EBADF;
    return -1;
  }
  const std::size_t capacity = writeBufferSize();
  if (size > capacity || buffer_.size() > capacity - size) {
    if (!flush()) return -1;
  }
  if (size >= capacity) {
    const std::int64_t count = writeAt(data, size, position_);
    position_ += std::max<std::int64_t>(count, 0);
    return count;
  }
  // At once: growing step by step, the buffer would need half as much again for its copies.
  if (buffer_.capacity() - buffer_.size() < size) {
    buffer_.reserve(capacity);
    useLargePages(buffer_.data(), capacity);
  }
  const char* const bytes = static_cast<const char*>(data);
  // Large data are handed over at once: a copy of them would have left the processor's cache by the
  // time a large buffer is full. What the system does not take is kept like all else.
  std::size_t taken = 0;
  if (size >= kDirectWriteBytes && flush()) {
    taken = static_cast<std::size_t>(std::max<std::int64_t>(writeAt(data, size, position_), 0));
    position_ += static_cast<std::int64_t>(taken);
  }
  buffer_.insert(buffer_.end(), bytes + taken, bytes + size);
  return static_cast<std::int64_t>(size);
}

std::int64_t File::writeData(const void* data, std::int64_t size) {
  if (size < 0) {
    errno = EINVAL;
    return -1;
  }
  return write(data, static_cast<std::size_t>(size));
}

std::int64_t File::seek(std::int64_t offset) {
  if (!isOpen() || offset < 0) {
    errno = isOpen() ? EINVAL : EBADF;
    return -1;
  }
  if (writing_ && !flush()) return -1;
  position_ = offset;
  return position_;
}

std::int64_t File::size() const {
  struct stat status {};
  if (!isOpen() || FileCalls::current().fstat(fd_, &status) != 0) return -1;
  if (S_ISBLK(status.st_mode)) return ::lseek(fd_, 0, SEEK_END);
  return status.st_size;
}

bool File::flush() {
  if (!writing_ || buffer_.empty()) return true;
  const std::int64_t count = writeAt(buffer_.data(), buffer_.size(), position_);
  if (count > 0) {
    buffer_.erase(buffer_.begin(), buffer_.begin() + count);
    position_ += count;
  }
  return buffer_.empty();
}

bool File::sync() {
  if (!flush()) return false;
  return !isOpen() || repeated([this] { return FileCalls::current().fsync(fd_); });
}

bool File::cutTo(std::int64_t size) const {
  return repeated([this, size] { return FileCalls::current().ftruncate(fd_, size); });
}

bool File::truncate(std::int64_t offset) {
  if (!isOpen() || !writing_ || offset < 0) {
    errno = EINVAL;
    return false;
  }
  if (offset >= position_) {
    const std::int64_t keep = offset - position_;
    if (keep > static_cast<std::int64_t>(buffer_.size())) {
      errno = EINVAL;
      return false;
    }
    buffer_.resize(static_cast<std::size_t>(keep));
    // A direct write may have left bytes behind the position.
    return cutTo(position_);
  }
  if (!cutTo(offset)) return false;
  buffer_.clear();
  position_ = offset;
  return true;
}

bool File::close() {
  if (!isOpen()) return true;
  const bool flushed = flush();
  const int reason = errno;
  // Not repeated: the descriptor is gone, and its number may be another file's by now.
  const bool closed = FileCalls::current().close(fd_) == 0 || errno == EINTR;
  fd_ = -1;
  buffer_.clear();
  buffer_.shrink_to_fit();
  ahead_.reset();
  aheadCapacity_ = aheadSize_ = 0;
  if (!flushed) errno = reason;
  return flushed && closed;
}

bool File::exists(const std::string& path) {
  struct stat status {};
  return path.find('\0') == std::string::npos && ::stat(path.c_str(), &status) == 0;
}

bool File::remove(const std::string& path) {
  if (path.find('\0') != std::string::npos) return false;
  return ::unlink(path.c_str()) == 0 || errno == ENOENT;
}

}  // namespace osmik

#include "platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/file_calls.h"

namespace osmik {
namespace {

constexpr std::size_t kReadAheadBytes = 64 * 1024;      // when reading goes on where it stopped
constexpr std::size_t kRandomReadBytes = 4 * 1024;      // after a jump
constexpr std::size_t kMaxReservedBytes = 1024 * 1024;  // a larger write buffer grows as it is used

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
    errno = reason;
    return false;
  }

  path_ = path;
  writing_ = mode != OpenMode::kRead;
  position_ = 0;
  bufferStart_ = 0;
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

std::size_t File::takeBuffered(char* out, std::size_t size) {
  const auto buffered = static_cast<std::int64_t>(buffer_.size());
  const std::int64_t skip = position_ - bufferStart_;
  if (skip < 0 || skip >= buffered) return 0;
  const std::size_t count = std::min(size, static_cast<std::size_t>(buffered - skip));
  std::memcpy(out, buffer_.data() + skip, count);
  position_ += static_cast<std::int64_t>(count);
  return count;
}

std::int64_t File::read(void* out, std::size_t size) {
  if (!isOpen() || writing_) {
    errno = EBADF;
    return -1;
  }
  char* const bytes = static_cast<char*>(out);
  std::size_t done = takeBuffered(bytes, size);
  while (done < size) {
    const std::size_t missing = size - done;
    const bool sequential = position_ == bufferStart_ + static_cast<std::int64_t>(buffer_.size());
    const std::size_t step = sequential ? kReadAheadBytes : kRandomReadBytes;
    if (missing >= step) {
      const std::int64_t count = readAt(bytes + done, missing, position_);
      if (count < 0) return done > 0 ? static_cast<std::int64_t>(done) : -1;
      position_ += count;
      bufferStart_ = position_;
      buffer_.clear();
      return static_cast<std::int64_t>(done) + count;
    }
    buffer_.resize(step);
    bufferStart_ = position_;
    const std::int64_t count = readAt(buffer_.data(), step, position_);
    buffer_.resize(static_cast<std::size_t>(std::max<std::int64_t>(count, 0)));
    if (count < 0 && done == 0) return -1;
    if (count <= 0) break;
    done += takeBuffered(bytes + done, missing);
  }
  return static_cast<std::int64_t>(done);
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
  const char* const bytes = static_cast<const char*>(data);
  buffer_.insert(buffer_.end(), bytes, bytes + size);
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

std::int64_t File::pos() const {
  return writing_ ? position_ + static_cast<std::int64_t>(buffer_.size()) : position_;
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
  return !isOpen() || FileCalls::current().fsync(fd_) == 0;
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
    return FileCalls::current().ftruncate(fd_, position_) == 0;
  }
  if (FileCalls::current().ftruncate(fd_, offset) != 0) return false;
  buffer_.clear();
  position_ = offset;
  return true;
}

bool File::close() {
  if (!isOpen()) return true;
  const bool flushed = flush();
  const int reason = errno;
  const bool closed = FileCalls::current().close(fd_) == 0;
  fd_ = -1;
  buffer_.clear();
  buffer_.shrink_to_fit();
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

#ifndef MORVA_BENCH_PEERS_FILE_PARTS_H_
#define MORVA_BENCH_PEERS_FILE_PARTS_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

/// What the peers share: plain calls of the system, and an end where something fails. None of them
/// uses code of the program that they are compared with.
namespace peers {

inline constexpr std::size_t kReadBytes = std::size_t{256} << 10U;

[[noreturn]] inline void fail(const std::string& what) {
  std::fprintf(stderr, "%s\n", what.c_str());
  std::exit(1);
}

template <typename T>
T load(const unsigned char* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);  // the peers run on little-endian machines
  return value;
}

/// A file read once from front to end, 256 KiB at a time into one buffer.
class FrontToEnd {
 public:
  explicit FrontToEnd(const char* path) : file_(::open(path, O_RDONLY)), buffer_(kReadBytes) {
    if (file_ < 0) fail(std::string("cannot open ") + path);
  }
  FrontToEnd(const FrontToEnd&) = delete;
  FrontToEnd& operator=(const FrontToEnd&) = delete;
  ~FrontToEnd() { ::close(file_); }

  /// The next `size` bytes, at most 256 KiB, which stay where they are until the next call.
  const unsigned char* take(std::size_t size) {
    if (size > end_ - at_) refill(size);
    const unsigned char* const bytes = &buffer_[at_];
    at_ += size;
    return bytes;
  }

  /// Hands the next `size` bytes to `use(bytes, size)`, in as many parts as they come in.
  template <typename Use>
  void each(std::size_t size, Use use) {
    while (size > 0) {
      if (at_ == end_) refill(1);
      const std::size_t part = std::min(size, end_ - at_);
      use(&buffer_[at_], part);
      at_ += part;
      size -= part;
    }
  }

  /// Copies the next `size` bytes: what is there from the buffer, the rest straight from the file.
  /// Hands each part to `use(bytes, size)` while it is in the cache.
  template <typename Use>
  void into(unsigned char* to, std::size_t size, Use use) {
    const std::size_t there = std::min(size, end_ - at_);
    std::memcpy(to, &buffer_[at_], there);
    at_ += there;
    use(to, there);
    for (std::size_t done = there; done < size;) {
      const std::size_t part = readSome(to + done, std::min(size - done, kReadBytes));
      if (part == 0) fail("the file ends too early");
      use(to + done, part);
      done += part;
    }
  }

 private:
  void refill(std::size_t wanted) {
    std::memmove(buffer_.data(), &buffer_[at_], end_ - at_);
    end_ -= at_;
    at_ = 0;
    while (end_ < wanted) {
      const std::size_t part = readSome(&buffer_[end_], buffer_.size() - end_);
      if (part == 0) fail("the file ends too early");
      end_ += part;
    }
  }

  std::size_t readSome(unsigned char* to, std::size_t size) const {
    const ssize_t count = ::read(file_, to, size);
    if (count < 0) fail("cannot read");
    return static_cast<std::size_t>(count);
  }

  int file_;
  std::vector<unsigned char> buffer_;
  std::size_t at_ = 0;
  std::size_t end_ = 0;
};

}  // namespace peers

#endif  // MORVA_BENCH_PEERS_FILE_PARTS_H_

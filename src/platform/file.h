#ifndef MORVA_PLATFORM_FILE_H_
#define MORVA_PLATFORM_FILE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace osmik {

/// Values reach callers as numbers: never renumber.
enum class OpenMode : int {
  kRead = 0,      ///< an existing regular file or block device
  kWrite = 2,     ///< create, or truncate what is there
  kWriteNew = 3,  ///< create exclusively: fails where anything, a link included, is there already
};

/// A device that bytes are read from or written to, at a position that advances.
class IODevice {
 public:
  IODevice() = default;
  IODevice(const IODevice&) = delete;
  IODevice& operator=(const IODevice&) = delete;
  virtual ~IODevice() = default;

  /// Gives the device a write buffer of `bytes` (0: none). Call it before open().
  void setWMBuffer(std::size_t bytes) { writeBufferSize_ = bytes; }

  /// Reads up to `size` bytes. @return Bytes read, fewer than asked only at the end or at an error
  /// after some bytes; -1 with errno set when nothing was read because of an error.
  [[nodiscard]] virtual std::int64_t read(void* out, std::size_t size) = 0;

  /// Writes through the buffer. @return Bytes accepted; fewer than given, or -1, after an error
  /// (errno is set). What was accepted before stays in the buffer, and the next flush tries again.
  [[nodiscard]] virtual std::int64_t write(const void* data, std::size_t size) = 0;

 protected:
  [[nodiscard]] std::size_t writeBufferSize() const { return writeBufferSize_; }

 private:
  std::size_t writeBufferSize_ = 0;
};

/// An open file of the file system, opened for reading or for writing.
///
/// Owns the descriptor and the buffers. Reading looks ahead, the further the longer it goes on
/// without a jump, up to kMaxPeekBytes; what is asked for after a jump is read alone. Writing keeps
/// the buffer of setWMBuffer, so a failure may show only at flush() or close(): look at both.
/// Interrupted system calls are repeated. Threads: one at a time.
class File final : public IODevice {
 public:
  /// Most bytes that can be looked at in place; more would leave the processor's cache unused.
  // NOLINTNEXTLINE(bugprone-implicit-widening-of-multiplication-result): a constant
  static constexpr std::size_t kMaxPeekBytes = 256 * 1024;

  File() = default;
  ~File() override;

  /// @return False with errno set: no such file, no permission, a path with a NUL byte, a mode that
  ///         finds something else than a file, or the object holds an open file. A new file is
  ///         not left behind.
  [[nodiscard]] bool open(const std::string& path, OpenMode mode);
  [[nodiscard]] bool isOpen() const { return fd_ >= 0; }
  [[nodiscard]] const std::string& path() const { return path_; }

  [[nodiscard]] std::int64_t read(void* out, std::size_t size) override;
  /// Gives the next `size` bytes (at most kMaxPeekBytes) in place, without moving.
  /// @param bytes  [out, not null] Valid until the next call that moves or reads.
  /// @return Bytes given, fewer than asked only at the end or at an error; -1 when there are none
  ///         because of an error.
  [[nodiscard]] std::int64_t peek(std::size_t size, std::string_view* bytes);
  /// As peek(), and moves past the bytes where all of them are given.
  [[nodiscard]] std::int64_t take(std::size_t size, std::string_view* bytes);
  /// As read(), but gives the next bytes in place, as many as lie ready, up to `size`, and moves
  /// past them.
  /// @param bytes  [out, not null] Valid until the next call that moves or reads.
  /// @return Bytes given, at least 1; 0 at the end, -1 at an error.
  [[nodiscard]] std::int64_t readInPlace(std::size_t size, std::string_view* bytes);

  [[nodiscard]] std::int64_t write(const void* data, std::size_t size) override;
  [[nodiscard]] std::int64_t write(std::string_view data) {
    return write(data.data(), data.size());
  }
  /// The same as write().
  [[nodiscard]] std::int64_t writeData(const void* data, std::int64_t size);

  /// Moves the position; the buffer is flushed first when writing. Positions past the end are
  /// allowed.
  /// @return The new position, or -1.
  [[nodiscard]] std::int64_t seek(std::int64_t offset);
  /// Bytes from the start of the file at which the next read or write happens.
  [[nodiscard]] std::int64_t pos() const {
    return writing_ ? position_ + static_cast<std::int64_t>(buffer_.size()) : position_;
  }
  /// Bytes that the file holds now, the write buffer not counted; -1 on failure.
  [[nodiscard]] std::int64_t size() const;

  /// Hands the write buffer to the system. @return False with errno set; what could not be written
  /// stays in the buffer.
  [[nodiscard]] bool flush();
  /// flush(), then waits until the storage device has it all.
  [[nodiscard]] bool sync();
  /// Cuts the file, buffered bytes included, back to `offset` and continues writing there.
  [[nodiscard]] bool truncate(std::int64_t offset);
  /// Flushes and closes. The descriptor is gone in either case. True when nothing is open.
  /// @return False with errno set when bytes were lost.
  bool close();

  [[nodiscard]] static bool exists(const std::string& path);
  /// Removes a file or a link, not what the link names. @return True when it is gone, also when it
  /// was not there.
  static bool remove(const std::string& path);

 private:
  [[nodiscard]] std::int64_t readAt(void* out, std::size_t size, std::int64_t offset) const;
  [[nodiscard]] std::int64_t writeAt(const void* data, std::size_t size, std::int64_t offset) const;
  [[nodiscard]] bool cutTo(std::int64_t size) const;
  [[nodiscard]] bool isServable(OpenMode mode) const;
  [[nodiscard]] bool isReading() const;
  /// What lies ready from the position on.
  [[nodiscard]] std::string_view ahead() const {
    const std::int64_t skip = position_ - aheadStart_;
    if (skip < 0 || skip >= static_cast<std::int64_t>(aheadSize_)) return {};
    return {ahead_.get() + skip, aheadSize_ - static_cast<std::size_t>(skip)};
  }
  [[nodiscard]] bool goesOn() const;
  [[nodiscard]] std::int64_t lookAhead(std::size_t size);
  std::int64_t readDirectly(char* out, std::size_t size);
  std::size_t takeAhead(char* out, std::size_t size);

  std::string path_;
  int fd_ = -1;
  bool writing_ = false;
  std::int64_t position_ =
      0;  ///< reading: next byte; writing: file offset of the buffer's first byte
  std::vector<char> buffer_;  ///< bytes not yet written

  // Reading: aheadSize_ bytes of the file from aheadStart_ on. They end where the last read ended.
  std::unique_ptr<char[]> ahead_;
  std::size_t aheadCapacity_ = 0;
  std::size_t aheadSize_ = 0;
  std::int64_t aheadStart_ = 0;
  std::size_t step_ = 0;  ///< how far the next look ahead goes, if there is no jump before it
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_FILE_H_

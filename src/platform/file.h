#ifndef MORVA_PLATFORM_FILE_H_
#define MORVA_PLATFORM_FILE_H_

#include <cstddef>
#include <cstdint>
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
/// Owns the descriptor and the buffers. Reading keeps a small read-ahead buffer; writing keeps the
/// buffer of setWMBuffer, so a failure may show only at flush() or close(): look at both.
/// Interrupted system calls are repeated. Threads: one at a time.
class File final : public IODevice {
 public:
  File() = default;
  ~File() override;

  /// @return False with errno set: no such file, no permission, a path with a NUL byte, a mode that
  ///         finds something else than a file, or the object holds an open file.
  [[nodiscard]] bool open(const std::string& path, OpenMode mode);
  [[nodiscard]] bool isOpen() const { return fd_ >= 0; }
  [[nodiscard]] const std::string& path() const { return path_; }

  [[nodiscard]] std::int64_t read(void* out, std::size_t size) override;
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
  [[nodiscard]] std::int64_t pos() const;
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
  [[nodiscard]] bool isServable(OpenMode mode) const;
  std::size_t takeBuffered(char* out, std::size_t size);

  std::string path_;
  int fd_ = -1;
  bool writing_ = false;
  std::int64_t position_ =
      0;  ///< reading: next byte; writing: file offset of the buffer's first byte
  std::vector<char> buffer_;  ///< reading: bytes from bufferStart_; writing: bytes not yet written
  std::int64_t bufferStart_ = 0;
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_FILE_H_

#ifndef MORVA_KIT_DOCTOR_BYTE_SOURCE_H_
#define MORVA_KIT_DOCTOR_BYTE_SOURCE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/file.h"

namespace morva::doctor {

/// Part of a file, in bytes from its start.
struct ByteRange {
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
};

/// The bytes of a file on a disk that may fail: what it does not give reads as zeros and is noted.
class ByteSource {
 public:
  /// @return False with errno set.
  [[nodiscard]] bool open(const std::string& path);

  /// Bytes that the file held when it was opened.
  [[nodiscard]] std::uint64_t size() const { return size_; }

  /// Fills `out` with the bytes from `offset` on; beyond the end of the file they are zeros.
  void read(std::uint64_t offset, std::size_t size, char* out);
  [[nodiscard]] std::string read(std::uint64_t offset, std::size_t size);

  /// What could not be read so far, in ascending order, touching ranges joined.
  [[nodiscard]] std::vector<ByteRange> unreadable() const;

 private:
  [[nodiscard]] bool readWhole(std::uint64_t offset, std::size_t size, char* out);

  osmik::File file_;
  std::uint64_t size_ = 0;
  std::vector<ByteRange> unreadable_;
};

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_BYTE_SOURCE_H_

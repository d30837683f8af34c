#include "platform/crc32.h"

#include <libdeflate.h>

std::uint32_t Crc32(const void* bytes, std::size_t length) { return Crc32(0, bytes, length); }

std::uint32_t Crc32(std::uint32_t before, const void* bytes, std::size_t length) {
  // libdeflate takes a null pointer to mean "give me the initial value".
  return length == 0 ? before : libdeflate_crc32(before, bytes, length);
}

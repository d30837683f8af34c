#include "platform/crc32.h"

#include <libdeflate.h>

std::uint32_t Crc32(const void* bytes, std::size_t length) {
  // libdeflate takes a null pointer to mean "give me the initial value", which is the value of an
  // empty range as well.
  return libdeflate_crc32(0, bytes, length);
}

#ifndef MORVA_PLATFORM_CRC32_H_
#define MORVA_PLATFORM_CRC32_H_

#include <cstddef>
#include <cstdint>

/// The one checksum of the bag format: zlib's CRC-32 (reflected polynomial 0x04C11DB7, initial
/// value and final inversion 0xFFFFFFFF) over `length` bytes. `Crc32("123456789", 9)` is
/// 0xCBF43926. Threads: any.
[[nodiscard]] std::uint32_t Crc32(const void* bytes, std::size_t length);

/// The checksum of what `before` is the checksum of, followed by these bytes.
[[nodiscard]] std::uint32_t Crc32(std::uint32_t before, const void* bytes, std::size_t length);

#endif  // MORVA_PLATFORM_CRC32_H_

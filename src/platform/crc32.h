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

/// The checksum of the last `length` bytes of a range, from that of the whole range and that of
/// what stands before them: any number of ranges can be verified in one pass over a file, however
/// they overlap. Threads: any. Cost: some 100 ns, whatever the length.
/// @param length  Less than 2^40.
[[nodiscard]] std::uint32_t Crc32OfTail(std::uint32_t whole, std::uint32_t before,
                                        std::uint64_t length);

/// The four bytes, as a little-endian number, that turn the checksum `before` into `wanted` when
/// they follow what it is the checksum of.
[[nodiscard]] std::uint32_t Crc32Patch(std::uint32_t before, std::uint32_t wanted);

#endif  // MORVA_PLATFORM_CRC32_H_

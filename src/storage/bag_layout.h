#ifndef MORVA_STORAGE_BAG_LAYOUT_H_
#define MORVA_STORAGE_BAG_LAYOUT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Offsets, sizes and constants of the bag format; docs/format.md explains them. All integers are
/// little-endian, nothing is padded, times are microseconds since the Unix epoch.
namespace morva::layout {

// File header: 4096 bytes at offset 0.
inline constexpr std::string_view kTag = "KBAG";
inline constexpr std::size_t kHeaderBytes = 4096;
inline constexpr std::size_t kTagOffset = 0;                // 4 characters
inline constexpr std::size_t kReservedOffset = 4;           // u8, written 0
inline constexpr std::size_t kCompressionOffset = 5;        // u8
inline constexpr std::size_t kVersionOffset = 6;            // u16
inline constexpr std::size_t kCreationTimeOffset = 8;       // u64
inline constexpr std::size_t kDataStartOffset = 16;         // u64
inline constexpr std::size_t kIndexChunkOffsetOffset = 24;  // u64, 0: no index chunk
inline constexpr std::size_t kPrivateSizeOffset = 32;       // u32
inline constexpr std::size_t kPrivateDataOffset = 36;       // then random filler
inline constexpr std::size_t kHeaderCrcOffset = 4092;       // u32, over all bytes before it
inline constexpr std::size_t kMaxPrivateBytes = kHeaderCrcOffset - kPrivateDataOffset;
inline constexpr std::uint16_t kVersion = 1;
/// Tag to data start: what a side file must share with its bag.
inline constexpr std::size_t kMatchBytes = kIndexChunkOffsetOffset;

// Chunk: u32 size, u16 type, u16 header size H, header, u32 data size D, data, u32 CRC-32 of the
// data.
inline constexpr std::uint16_t kDefinitionChunk = 0;
inline constexpr std::uint16_t kTopicDataChunk = 1;
inline constexpr std::uint16_t kIndexChunk = 255;
inline constexpr std::size_t kChunkTypeOffset = 4;
inline constexpr std::size_t kHeaderSizeOffset = 6;
inline constexpr std::size_t kChunkPrefixBytes = 8;    // size, type, header size
inline constexpr std::size_t kChunkFramingBytes = 16;  // all but header and data
inline constexpr std::size_t kMinChunkHeaderBytes =
    12;                                           // definition and index chunk: time, raw size
inline constexpr std::size_t kRawSizeOffset = 8;  // u32 in every chunk header
inline constexpr std::size_t kCrcBytes = 4;

/// Bytes of a whole chunk.
[[nodiscard]] constexpr std::size_t chunkBytes(std::size_t headerSize, std::size_t storedSize) {
  return headerSize + storedSize + kChunkFramingBytes;
}

/// Whether `dataSize` bytes, stored as they stand, leave the chunk within its 32-bit size.
[[nodiscard]] constexpr bool fitsChunk(std::size_t headerSize, std::size_t dataSize) {
  constexpr std::size_t kMaxChunkBytes = 0xFFFFFFFF;
  return dataSize <= kMaxChunkBytes - kChunkFramingBytes - headerSize;
}

// Header of a topic data chunk.
inline constexpr std::size_t kTopicHeaderBytes = 36;
inline constexpr std::size_t kTopicTimeOffset = 0;         // i64
inline constexpr std::size_t kTopicCountOffset = 12;       // u32
inline constexpr std::size_t kTopicFirstTimeOffset = 16;   // i64
inline constexpr std::size_t kTopicSecondTimeOffset = 24;  // i64
inline constexpr std::size_t kTopicIdOffset = 32;          // u32
/// From the start of a topic data chunk to its data.
inline constexpr std::size_t kTopicDataOffset = kChunkPrefixBytes + kTopicHeaderBytes + 4;

// Topic record of the definition chunk: u32 id, NUL-terminated name.
inline constexpr std::size_t kTopicRecordBytes = 64;
inline constexpr std::size_t kTopicNameOffset = 4;
inline constexpr std::size_t kTopicNameBytes = kTopicRecordBytes - kTopicNameOffset;

// The index chunk is followed by spaces up to the next multiple of this.
inline constexpr std::size_t kAlignment = 4096;

inline constexpr std::string_view kSideFileSuffix = ".index";

}  // namespace morva::layout

#endif  // MORVA_STORAGE_BAG_LAYOUT_H_

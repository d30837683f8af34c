#ifndef MORVA_KIT_DOCTOR_FOUND_CHUNK_H_
#define MORVA_KIT_DOCTOR_FOUND_CHUNK_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "storage/bag_file.h"

namespace morva::doctor {

/// Header size of a chunk type; 0 for a type that no bag has.
[[nodiscard]] std::size_t headerBytesOf(std::uint16_t type);

/// Bytes of a message's chunk.
[[nodiscard]] std::uint64_t messageBytes(std::uint32_t storedSize);

/// Something in a file that says of itself that it is a chunk, without contradiction.
struct FoundChunk {
  [[nodiscard]] std::uint64_t dataBegin() const;
  [[nodiscard]] std::uint64_t end() const;  ///< where the next chunk begins

  std::uint64_t offset = 0;  ///< bytes from the start of the file
  std::uint16_t type = 0;
  std::uint32_t crc = 0;  ///< of the stored data
  /// A message's header. Of other chunks: rawSize and, as of all, storedSize.
  BagFile::TopicHeader header;
};

/// Bytes from the start of a chunk to its data, at most.
inline constexpr std::size_t kMaxFramingBytes = layout::kTopicDataOffset;

/// Takes what stands at the start of `bytes` for a chunk's framing and header.
/// @return The chunk, where type, header size, chunk size and data size agree with each other;
///         whether the file holds its data, and the checksum, have not been looked at.
[[nodiscard]] std::optional<FoundChunk> parseFraming(std::string_view bytes, std::uint64_t offset);

/// Whether two headers say the same, the stored size included.
[[nodiscard]] bool isSameHeader(const BagFile::TopicHeader& a, const BagFile::TopicHeader& b);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_FOUND_CHUNK_H_

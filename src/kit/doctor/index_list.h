#ifndef MORVA_KIT_DOCTOR_INDEX_LIST_H_
#define MORVA_KIT_DOCTOR_INDEX_LIST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/doctor/byte_source.h"
#include "kit/doctor/found_chunk.h"
#include "platform/compress.h"
#include "storage/bag_file.h"

namespace morva::doctor {

/// One message, as an index has it.
struct IndexEntry {
  std::uint64_t offset = 0;  ///< where its chunk was written
  BagFile::TopicHeader header;
};

/// All messages of an index, in the order in which they were written.
using IndexList = std::vector<IndexEntry>;

/// The codec of a header's compression byte; null for "never compressed".
[[nodiscard]] const basalt::Compressor* codecOf(std::uint8_t compression);

/// Reads an index chunk that was found sound.
/// @param compression  The bag's compression byte.
/// @return Nothing where the chunk cannot be restored or parsed.
[[nodiscard]] std::optional<IndexList> readIndexChunk(const FoundChunk& chunk,
                                                      std::uint8_t compression, ByteSource* source);

/// A bag's side file.
struct SideFile {
  bool exists = false;
  bool isHeaderSound = false;  ///< tag and checksum
  BagFile::Header header;
  std::optional<IndexList> entries;  ///< nothing: damaged
};

/// Reads "<bag>.index".
[[nodiscard]] SideFile readSideFile(const std::string& bagPath);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_INDEX_LIST_H_

#ifndef MORVA_TESTS_STORAGE_RAW_BAG_H_
#define MORVA_TESTS_STORAGE_RAW_BAG_H_

#include <cstdint>
#include <string>
#include <vector>

#include "support/bag_builder.h"

namespace morva::test {

struct RawChunk {
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
  std::uint16_t type = 0;
  std::string header;
  std::string data;
  std::uint32_t crc = 0;
};

/// A bag taken apart by counting bytes, without the reader.
struct RawBag {
  std::string header;            ///< 4096 bytes
  std::vector<RawChunk> chunks;  ///< up to the index chunk, or the end
  std::string rest;              ///< what follows the last chunk
};

inline RawChunk takeChunk(const std::string& bytes, std::uint64_t offset) {
  RawChunk chunk;
  chunk.offset = offset;
  chunk.size = numberAt<std::uint32_t>(bytes, offset);
  chunk.type = numberAt<std::uint16_t>(bytes, offset + 4);
  const auto headerSize = numberAt<std::uint16_t>(bytes, offset + 6);
  chunk.header = bytes.substr(offset + 8, headerSize);
  const auto dataSize = numberAt<std::uint32_t>(bytes, offset + 8 + headerSize);
  chunk.data = bytes.substr(offset + 12 + headerSize, dataSize);
  chunk.crc = numberAt<std::uint32_t>(bytes, offset + 12 + headerSize + dataSize);
  return chunk;
}

inline RawBag takeApart(const std::string& bytes) {
  RawBag bag;
  bag.header = bytes.substr(0, 4096);
  std::uint64_t offset = 4096;
  while (offset < bytes.size() && (bag.chunks.empty() || bag.chunks.back().type != 255)) {
    bag.chunks.push_back(takeChunk(bytes, offset));
    offset += bag.chunks.back().size;
  }
  bag.rest = bytes.substr(offset);
  return bag;
}

}  // namespace morva::test

#endif  // MORVA_TESTS_STORAGE_RAW_BAG_H_

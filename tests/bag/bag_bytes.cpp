#include "bag/bag_bytes.h"

#include "platform/crc32.h"
#include "support/bag_builder.h"

namespace morva::test {

std::string definitionChunk(const Topics& topics) {
  std::string records;
  for (const auto& [id, name] : topics) records += topicRecord(id, name);
  return chunkBytes(0, timedChunkHeader(records.size()), records);
}

std::string indexChunk(const std::string& data) {
  return chunkBytes(255, timedChunkHeader(data.size()), data);
}

std::string unclosedBag(const Topics& topics, const std::vector<std::string>& chunks,
                        std::uint8_t compression) {
  HeaderFields fields;
  fields.compression = compression;
  std::string bag = headerBytes(fields) + definitionChunk(topics);
  for (const std::string& chunk : chunks) bag += chunk;
  return bag;
}

std::string withoutClose(std::string bag) {
  bag.resize(numberAt<std::uint64_t>(bag, 24));
  patch<std::uint64_t>(&bag, 16, 0);
  patch<std::uint64_t>(&bag, 24, 0);
  fixHeaderCrc(&bag);
  return bag;
}

std::vector<RawChunk> walkBytes(const std::string& bag) {
  std::vector<RawChunk> chunks;
  std::size_t offset = 4096;
  while (bag.size() >= offset + 8) {
    const std::size_t headerSize = numberAt<std::uint16_t>(bag, offset + 6);
    if (bag.size() < offset + 8 + headerSize + 4) break;
    const std::size_t dataSize = numberAt<std::uint32_t>(bag, offset + 8 + headerSize);
    const std::size_t end = offset + 16 + headerSize + dataSize;
    if (bag.size() < end) break;

    RawChunk chunk;
    chunk.offset = offset;
    chunk.type = numberAt<std::uint16_t>(bag, offset + 4);
    chunk.header = bag.substr(offset + 8, headerSize);
    chunk.data = bag.substr(offset + 12 + headerSize, dataSize);
    chunk.isSound =
        numberAt<std::uint32_t>(bag, offset) == end - offset &&
        numberAt<std::uint32_t>(bag, end - 4) == Crc32(chunk.data.data(), chunk.data.size());
    chunks.push_back(chunk);
    if (chunk.type == 255) break;
    offset = end;
  }
  return chunks;
}

}  // namespace morva::test

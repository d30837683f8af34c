#include "kit/doctor/found_chunk.h"

#include <tuple>

#include "platform/byte_order.h"
#include "platform/ignore_result.h"
#include "storage/index_codec.h"

namespace morva::doctor {
namespace {

constexpr std::size_t kTypeOffset = 4;
constexpr std::size_t kHeaderSizeOffset = 6;

auto fieldsOf(const BagFile::TopicHeader& header) {
  return std::tie(header.topicId, header.headerTimes, header.time, header.rawSize, header.count,
                  header.storedSize);
}

}  // namespace

std::size_t headerBytesOf(std::uint16_t type) {
  switch (type) {
    case layout::kTopicDataChunk:
      return layout::kTopicHeaderBytes;
    case layout::kDefinitionChunk:
    case layout::kIndexChunk:
      return layout::kMinChunkHeaderBytes;
    default:
      return 0;
  }
}

std::uint64_t messageBytes(std::uint32_t storedSize) {
  return layout::chunkBytes(layout::kTopicHeaderBytes, storedSize);
}

std::uint64_t FoundChunk::dataBegin() const {
  return offset + layout::kChunkPrefixBytes + headerBytesOf(type) + sizeof(std::uint32_t);
}

std::uint64_t FoundChunk::end() const {
  return offset + layout::chunkBytes(headerBytesOf(type), header.storedSize);
}

std::optional<FoundChunk> parseFraming(std::string_view bytes, std::uint64_t offset) {
  if (bytes.size() < layout::kChunkPrefixBytes) return std::nullopt;
  FoundChunk chunk;
  chunk.offset = offset;
  chunk.type = loadLe<std::uint16_t>(bytes.data() + kTypeOffset);
  const std::size_t headerSize = headerBytesOf(chunk.type);
  const std::size_t framing = layout::kChunkPrefixBytes + headerSize + sizeof(std::uint32_t);
  if (headerSize == 0 || bytes.size() < framing) return std::nullopt;
  if (loadLe<std::uint16_t>(bytes.data() + kHeaderSizeOffset) != headerSize) return std::nullopt;

  const std::string_view header = bytes.substr(layout::kChunkPrefixBytes, headerSize);
  const auto storedSize = loadLe<std::uint32_t>(header.data() + headerSize);
  if (loadLe<std::uint32_t>(bytes.data()) != layout::chunkBytes(headerSize, storedSize)) {
    return std::nullopt;
  }
  // Short of a message's header only in chunks that are none.
  ignoreResult(decodeTopicHeader(header, &chunk.header));
  chunk.header.rawSize = loadLe<std::uint32_t>(header.data() + layout::kRawSizeOffset);
  chunk.header.storedSize = storedSize;
  return chunk;
}

bool isSameHeader(const BagFile::TopicHeader& a, const BagFile::TopicHeader& b) {
  return fieldsOf(a) == fieldsOf(b);
}

}  // namespace morva::doctor

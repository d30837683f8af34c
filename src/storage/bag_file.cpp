#include "storage/bag_file.h"

#include <algorithm>

#include "platform/byte_order.h"
#include "platform/memory.h"

namespace morva {

std::uint8_t BagFile::Header::compression() const {
  return loadLe<std::uint8_t>(&bytes[layout::kCompressionOffset]);
}
std::uint16_t BagFile::Header::version() const {
  return loadLe<std::uint16_t>(&bytes[layout::kVersionOffset]);
}
std::uint64_t BagFile::Header::creationTime() const {
  return loadLe<std::uint64_t>(&bytes[layout::kCreationTimeOffset]);
}
std::uint64_t BagFile::Header::dataStart() const {
  return loadLe<std::uint64_t>(&bytes[layout::kDataStartOffset]);
}
std::uint64_t BagFile::Header::indexChunkOffset() const {
  return loadLe<std::uint64_t>(&bytes[layout::kIndexChunkOffsetOffset]);
}
std::uint32_t BagFile::Header::privateSize() const {
  return loadLe<std::uint32_t>(&bytes[layout::kPrivateSizeOffset]);
}
std::uint32_t BagFile::Header::checksum() const {
  return loadLe<std::uint32_t>(&bytes[layout::kHeaderCrcOffset]);
}
std::string BagFile::Header::privateData() const {
  return {&bytes[layout::kPrivateDataOffset],
          std::min<std::size_t>(privateSize(), layout::kMaxPrivateBytes)};
}

void BagFile::Header::setCompression(std::uint8_t value) {
  storeLe(&bytes[layout::kCompressionOffset], value);
}
void BagFile::Header::setVersion(std::uint16_t value) {
  storeLe(&bytes[layout::kVersionOffset], value);
}
void BagFile::Header::setCreationTime(std::uint64_t value) {
  storeLe(&bytes[layout::kCreationTimeOffset], value);
}
void BagFile::Header::setDataStart(std::uint64_t value) {
  storeLe(&bytes[layout::kDataStartOffset], value);
}
void BagFile::Header::setIndexChunkOffset(std::uint64_t value) {
  storeLe(&bytes[layout::kIndexChunkOffsetOffset], value);
}
void BagFile::Header::setPrivateSize(std::uint32_t value) {
  storeLe(&bytes[layout::kPrivateSizeOffset], value);
}
void BagFile::Header::setPrivateData(std::string_view data) {
  data.substr(0, layout::kMaxPrivateBytes)
      .copy(&bytes[layout::kPrivateDataOffset], layout::kMaxPrivateBytes);
}

void BagFile::TopicIndex::append(const TopicHeader& entry, std::uint64_t chunkOffset) {
  countSum += entry.count;
  rawSizeSum += entry.rawSize;
  startTime = startTime == 0 ? entry.headerTimes[0] : std::min(startTime, entry.headerTimes[0]);
  endTime = std::max(endTime, entry.headerTimes[1]);
  if (entries.size() == entries.capacity()) grow();
  chunkOffsets.push_back(chunkOffset);
  entries.push_back(entry);
}

void BagFile::TopicIndex::grow() {
  constexpr std::size_t kFirst = 16;
  const std::size_t capacity = std::max(kFirst, 2 * entries.capacity());
  chunkOffsets.reserve(capacity);
  entries.reserve(capacity);
  osmik::useLargePages(entries.data(), capacity * sizeof(TopicHeader));
}

BagFile::TopicTotals BagFile::TopicIndex::totals() const {
  return {.countSum = countSum,
          .rawSizeSum = rawSizeSum,
          .startTime = startTime,
          .endTime = endTime,
          .chunks = entries.size()};
}

int BagFile::open(const std::string& /*path*/) { return kOpenFailed; }

bool BagFile::close() { return true; }

std::int64_t BagFile::read(Chunk* /*chunk*/, std::int64_t /*offset*/, std::int64_t* /*next*/) {
  return -1;
}

std::int64_t BagFile::read(const MsgIndex& /*index*/, std::string* /*data*/) { return -1; }

std::int64_t BagFile::readNextChunk(Chunk* /*chunk*/, std::int64_t /*offset*/,
                                    std::int64_t* /*next*/) {
  return -1;
}

std::int64_t BagFile::write(const TopicHeader& /*header*/, const std::string& /*topic*/,
                            const std::string& /*data*/) {
  return -1;
}

std::shared_ptr<BagFile::TopicIndex> BagFile::topicIndex(const std::string& topic) const {
  const auto id = topicIds_.find(topic);
  if (id == topicIds_.end()) return nullptr;
  const auto index = topicIndexes_.find(id->second);
  return index == topicIndexes_.end() ? nullptr : index->second;
}

std::shared_ptr<const basalt::Compressor> BagFile::makeCompressor(std::uint8_t type) {
  switch (static_cast<CompressionType>(type)) {
    case CompressionType::kLz4:
      return std::make_shared<basalt::Lz4Compress>();
    case CompressionType::kZstd:
      return std::make_shared<basalt::ZstdCompress>();
    default:
      return nullptr;
  }
}

}  // namespace morva

#include "limits/loose_bag.h"

#include <algorithm>

#include "platform/crc32.h"
#include "storage/bag_layout.h"

namespace morva::test {
namespace {

/// As the builder's, with a quicker checksum.
std::string chunkOf(std::uint16_t type, const std::string& header, const std::string& data) {
  return le<std::uint32_t>(
             static_cast<std::uint32_t>(layout::chunkBytes(header.size(), data.size()))) +
         le<std::uint16_t>(type) + le<std::uint16_t>(static_cast<std::uint16_t>(header.size())) +
         header + le<std::uint32_t>(static_cast<std::uint32_t>(data.size())) + data +
         le<std::uint32_t>(Crc32(data.data(), data.size()));
}

std::uint32_t rawSizeOf(const BuiltMessage& message) {
  return message.rawSize != 0 ? message.rawSize : static_cast<std::uint32_t>(message.stored.size());
}

}  // namespace

LooseBag::LooseBag(CompressionType compression, const Topics& topics, std::string privateData) {
  header_.compression = static_cast<std::uint8_t>(compression);
  header_.privateData = std::move(privateData);
  std::string records;
  for (const auto& [id, name] : topics) records += topicRecord(id, name);
  replaceDefinition(records, static_cast<std::uint32_t>(records.size()));
}

void LooseBag::replaceDefinition(const std::string& stored, std::uint32_t rawSize) {
  bytes_ = chunkOf(layout::kDefinitionChunk, timedChunkHeader(rawSize), stored);
  dataStart_ = layout::kHeaderBytes + bytes_.size();
}

std::uint64_t LooseBag::message(const BuiltMessage& message) {
  const std::uint64_t offset = layout::kHeaderBytes + bytes_.size();
  const std::string header =
      le<std::int64_t>(message.timeUs) + le<std::uint32_t>(rawSizeOf(message)) +
      le<std::uint32_t>(message.count) + le<std::int64_t>(message.firstTimeUs) +
      le<std::int64_t>(message.secondTimeUs) + le<std::uint32_t>(message.topicId);
  bytes_ += chunkOf(layout::kTopicDataChunk, header, message.stored);
  entry(message, offset);
  return offset;
}

void LooseBag::entry(const BuiltMessage& message, std::uint64_t chunkOffset) {
  BuiltIndex& topic = index_[message.topicId];
  topic.topicId = message.topicId;
  topic.countSum += message.count;
  topic.rawSizeSum += rawSizeOf(message);
  topic.startTimeUs = message.firstTimeUs;
  topic.endTimeUs = std::max(topic.endTimeUs, message.secondTimeUs);
  topic.offsets.push_back(chunkOffset);
  topic.messages.push_back(message);
}

void LooseBag::replaceIndex(const std::string& stored, std::uint32_t rawSize) {
  indexChunk_ = chunkOf(layout::kIndexChunk, timedChunkHeader(rawSize), stored);
}

std::string LooseBag::build() const {
  HeaderFields header = header_;
  header.dataStart = dataStart_;
  header.indexChunkOffset = layout::kHeaderBytes + bytes_.size();
  std::vector<BuiltIndex> topics;
  for (const auto& [id, topic] : index_) topics.push_back(topic);
  std::string index = indexChunk_;
  if (index.empty()) {
    const std::string data = indexBytes(topics);
    index = chunkOf(layout::kIndexChunk, timedChunkHeader(data.size()), data);
  }
  return headerBytes(header) + bytes_ + index;
}

}  // namespace morva::test

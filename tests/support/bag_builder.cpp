#include "support/bag_builder.h"

#include <algorithm>

namespace morva::test {
namespace {

constexpr std::size_t kHeaderBytes = 4096;
constexpr std::size_t kHeaderCrcOffset = 4092;

std::uint32_t rawSizeOf(const BuiltMessage& message) {
  return message.rawSize != 0 ? message.rawSize : static_cast<std::uint32_t>(message.stored.size());
}

std::string varint(std::uint64_t value) {
  std::string bytes;
  for (; value >= 0x80; value >>= 7) bytes += static_cast<char>((value & 0x7F) | 0x80);
  bytes += static_cast<char>(value);
  return bytes;
}

/// A number field; left out when it is 0, as proto3 does.
std::string numberField(int field, std::uint64_t value) {
  if (value == 0) return {};
  return varint(static_cast<std::uint64_t>(field) << 3) + varint(value);
}

std::string bytesField(int field, const std::string& bytes) {
  return varint(static_cast<std::uint64_t>(field) << 3 | 2) + varint(bytes.size()) + bytes;
}

std::string infoBytes(const BuiltMessage& message) {
  return numberField(1, static_cast<std::uint64_t>(message.timeUs)) +
         numberField(2, message.count) + numberField(3, rawSizeOf(message)) +
         numberField(4, static_cast<std::uint64_t>(message.firstTimeUs)) +
         numberField(5, static_cast<std::uint64_t>(message.secondTimeUs)) +
         numberField(6, message.stored.size());
}

std::string topicIndexBytes(const BuiltIndex& topic) {
  std::string offsets;
  for (const std::uint64_t offset : topic.offsets) offsets += varint(offset);
  std::string bytes = numberField(1, topic.topicId) + numberField(2, topic.countSum) +
                      numberField(3, topic.rawSizeSum) +
                      numberField(4, static_cast<std::uint64_t>(topic.startTimeUs)) +
                      numberField(5, static_cast<std::uint64_t>(topic.endTimeUs));
  if (!offsets.empty()) bytes += bytesField(6, offsets);
  for (const BuiltMessage& message : topic.messages) bytes += bytesField(7, infoBytes(message));
  return bytes;
}

void addMessage(const BuiltMessage& message, std::uint64_t offset, BuiltIndex* topic) {
  topic->countSum += message.count;
  topic->rawSizeSum += rawSizeOf(message);
  topic->startTimeUs = topic->offsets.empty() ? message.firstTimeUs
                                              : std::min(topic->startTimeUs, message.firstTimeUs);
  topic->endTimeUs = std::max(topic->endTimeUs, message.secondTimeUs);
  topic->offsets.push_back(offset);
  topic->messages.push_back(message);
}

}  // namespace

std::uint32_t referenceCrc32(std::string_view bytes) {
  constexpr std::uint32_t kReflectedPolynomial = 0xEDB88320;
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1U) != 0 ? kReflectedPolynomial : 0);
  }
  return ~crc;
}

std::string headerBytes(const HeaderFields& fields) {
  std::string bytes =
      fields.tag + le<std::uint8_t>(fields.reserved) + le<std::uint8_t>(fields.compression) +
      le<std::uint16_t>(fields.version) + le<std::uint64_t>(fields.creationTimeUs) +
      le<std::uint64_t>(fields.dataStart) + le<std::uint64_t>(fields.indexChunkOffset) +
      le<std::uint32_t>(static_cast<std::uint32_t>(fields.privateData.size())) + fields.privateData;
  bytes.resize(kHeaderCrcOffset, fields.filler);
  return bytes + le<std::uint32_t>(referenceCrc32(bytes));
}

void fixHeaderCrc(std::string* bag) {
  patch<std::uint32_t>(bag, kHeaderCrcOffset,
                       referenceCrc32(std::string_view(*bag).substr(0, kHeaderCrcOffset)));
}

std::string chunkBytes(std::uint16_t type, const std::string& header, const std::string& data) {
  const std::size_t size = header.size() + data.size() + 16;
  return le<std::uint32_t>(static_cast<std::uint32_t>(size)) + le<std::uint16_t>(type) +
         le<std::uint16_t>(static_cast<std::uint16_t>(header.size())) + header +
         le<std::uint32_t>(static_cast<std::uint32_t>(data.size())) + data +
         le<std::uint32_t>(referenceCrc32(data));
}

std::string timedChunkHeader(std::size_t rawSize) {
  return le<std::uint64_t>(1'700'000'000'500'000) +
         le<std::uint32_t>(static_cast<std::uint32_t>(rawSize));
}

std::string topicRecord(std::uint32_t id, const std::string& name) {
  std::string text = name.substr(0, 59);
  text.resize(60, '\0');
  return le<std::uint32_t>(id) + text;
}

std::string messageChunk(const BuiltMessage& message) {
  return chunkBytes(1,
                    le<std::int64_t>(message.timeUs) + le<std::uint32_t>(rawSizeOf(message)) +
                        le<std::uint32_t>(message.count) + le<std::int64_t>(message.firstTimeUs) +
                        le<std::int64_t>(message.secondTimeUs) + le<std::uint32_t>(message.topicId),
                    message.stored);
}

std::string indexBytes(const std::vector<BuiltIndex>& topics) {
  std::string bytes;
  for (const BuiltIndex& topic : topics) bytes += bytesField(1, topicIndexBytes(topic));
  return bytes;
}

BagBuilder& BagBuilder::topic(std::uint32_t id, const std::string& name) {
  records_ += topicRecord(id, name);
  topicIds_.push_back(id);
  return *this;
}

BagBuilder& BagBuilder::message(const BuiltMessage& message) {
  messages_.push_back(message);
  return *this;
}

std::uint64_t BagBuilder::dataStart() const { return kHeaderBytes + 12 + 16 + records_.size(); }

std::uint64_t BagBuilder::chunkOffset(std::size_t i) const {
  std::uint64_t offset = dataStart();
  for (std::size_t before = 0; before < i; ++before) {
    offset += 36 + 16 + messages_.at(before).stored.size();
  }
  return offset;
}

std::string BagBuilder::index() const {
  std::vector<BuiltIndex> topics;
  std::vector<std::uint32_t> ids = topicIds_;
  std::ranges::sort(ids);
  for (const std::uint32_t id : ids) {
    BuiltIndex topic;
    topic.topicId = id;
    for (std::size_t i = 0; i < messages_.size(); ++i) {
      if (messages_[i].topicId == id) addMessage(messages_[i], chunkOffset(i), &topic);
    }
    topics.push_back(topic);
  }
  return indexBytes(topics);
}

std::string BagBuilder::body() const {
  std::string bytes = chunkBytes(0, timedChunkHeader(records_.size()), records_);
  for (const BuiltMessage& message : messages_) bytes += messageChunk(message);
  return bytes;
}

std::string BagBuilder::build() const {
  HeaderFields fields = header;
  fields.dataStart = dataStart();
  fields.indexChunkOffset = chunkOffset(messages_.size());
  const std::string data = index();
  std::string bytes =
      headerBytes(fields) + body() + chunkBytes(255, timedChunkHeader(data.size()), data);
  bytes.resize((bytes.size() + kHeaderBytes - 1) / kHeaderBytes * kHeaderBytes, ' ');
  return bytes;
}

std::string BagBuilder::buildUnclosed() const { return headerBytes(header) + body(); }

std::string BagBuilder::buildSideFile() const {
  HeaderFields fields = header;
  fields.dataStart = dataStart();
  fields.indexChunkOffset = kHeaderBytes;
  fields.filler = '\x21';
  const std::string data = index();
  return headerBytes(fields) + chunkBytes(255, timedChunkHeader(data.size()), data);
}

}  // namespace morva::test

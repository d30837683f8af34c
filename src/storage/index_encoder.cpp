// Writes the index messages byte by byte, as protobuf's serializer would: an object for each entry
// costs more than all else that closing a recording does.

#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/overwrite_string.h"
#include "storage/index_codec.h"
#include "storage/index_fields.h"

namespace morva {
namespace {

using namespace index_fields;

// A number takes 7 bits a byte, the lowest first. Negative ones are as large as they are in 64
// bits.
std::size_t numberBytes(std::uint64_t value) {
  return (static_cast<std::size_t>(std::bit_width(value | 1U)) + 6) / 7;
}

char* putNumber(std::uint64_t value, char* at) {
  while (value >= 0x80) {
    *at++ = static_cast<char>(value | 0x80U);
    value >>= 7U;
  }
  *at++ = static_cast<char>(value);
  return at;
}

/// A message's fields that are numbers. Zero is what a missing field is read as, and not written.
struct NumberField {
  std::uint8_t tag;
  std::uint64_t value;
};

template <std::size_t kCount>
std::size_t fieldBytes(const NumberField (&fields)[kCount]) {
  std::size_t bytes = 0;
  for (const NumberField& field : fields) {
    if (field.value != 0) bytes += 1 + numberBytes(field.value);
  }
  return bytes;
}

template <std::size_t kCount>
char* putFields(const NumberField (&fields)[kCount], char* at) {
  for (const NumberField& field : fields) {
    if (field.value == 0) continue;
    *at++ = static_cast<char>(field.tag);
    at = putNumber(field.value, at);
  }
  return at;
}

std::uint64_t asUnsigned(std::int64_t value) { return static_cast<std::uint64_t>(value); }

/// Calls `use` with the fields of an entry.
template <typename Use>
auto withFields(const BagFile::TopicHeader& entry, Use use) {
  const NumberField fields[] = {{kTimeTag, asUnsigned(entry.time)},
                                {kCountTag, entry.count},
                                {kRawSizeTag, entry.rawSize},
                                {kFirstTimeTag, asUnsigned(entry.headerTimes[0])},
                                {kSecondTimeTag, asUnsigned(entry.headerTimes[1])},
                                {kStoredSizeTag, entry.storedSize}};
  return use(fields);
}

/// Calls `use` with the fields of a topic, its lists aside.
template <typename Use>
auto withFields(std::uint32_t topicId, const BagFile::TopicIndex& index, Use use) {
  const NumberField fields[] = {{kTopicIdTag, topicId},
                                {kCountSumTag, index.countSum},
                                {kRawSizeSumTag, index.rawSizeSum},
                                {kStartTimeTag, asUnsigned(index.startTime)},
                                {kEndTimeTag, asUnsigned(index.endTime)}};
  return use(fields);
}

std::size_t entryBytes(const BagFile::TopicHeader& entry) {
  return withFields(entry, [](const auto& fields) { return fieldBytes(fields); });
}

/// Tag, length and `size` bytes.
std::size_t messageBytes(std::size_t size) { return 1 + numberBytes(size) + size; }

/// A topic, and how much room its parts take.
struct SizedTopic {
  std::uint32_t id = 0;
  const BagFile::TopicIndex* index = nullptr;
  std::size_t offsetBytes = 0;
  std::size_t bytes = 0;
};

SizedTopic sized(std::uint32_t id, const BagFile::TopicIndex& index) {
  SizedTopic topic{.id = id, .index = &index};
  for (const std::uint64_t offset : index.chunkOffsets) topic.offsetBytes += numberBytes(offset);
  topic.bytes = withFields(id, index, [](const auto& fields) { return fieldBytes(fields); });
  if (topic.offsetBytes > 0) topic.bytes += messageBytes(topic.offsetBytes);
  for (const BagFile::TopicHeader& entry : index.entries) {
    topic.bytes += messageBytes(entryBytes(entry));
  }
  return topic;
}

char* putHead(std::uint8_t tag, std::size_t size, char* at) {
  *at++ = static_cast<char>(tag);
  return putNumber(size, at);
}

char* putTopic(const SizedTopic& topic, char* at) {
  at = putHead(kTopicTag, topic.bytes, at);
  at = withFields(topic.id, *topic.index,
                  [at](const auto& fields) { return putFields(fields, at); });
  if (topic.offsetBytes > 0) {
    at = putHead(kOffsetsTag, topic.offsetBytes, at);
    for (const std::uint64_t offset : topic.index->chunkOffsets) at = putNumber(offset, at);
  }
  for (const BagFile::TopicHeader& entry : topic.index->entries) {
    // An entry is shorter than 128 bytes: its length takes one, which is filled in afterwards.
    *at++ = static_cast<char>(kEntryTag);
    char* const length = at++;
    at = withFields(entry, [at](const auto& fields) { return putFields(fields, at); });
    *length = static_cast<char>(at - length - 1);
  }
  return at;
}

}  // namespace

bool encodeTopicIndexes(const BagFile::TopicIndexes& indexes, std::string* data) {
  std::vector<SizedTopic> topics;
  std::uint64_t bytes = 0;
  for (const auto& [id, index] : indexes) {
    topics.push_back(sized(id, *index));
    bytes += messageBytes(topics.back().bytes);
  }
  if (bytes > INT_MAX) {
    data->clear();
    return false;
  }
  overwriteString(data, static_cast<std::size_t>(bytes), [&](char* memory, std::size_t size) {
    char* at = memory;
    for (const SizedTopic& topic : topics) at = putTopic(topic, at);
    return size;
  });
  return true;
}

}  // namespace morva

#include "storage/index_codec.h"

#include <algorithm>
#include <climits>

#include <google/protobuf/arena.h>

#include "kbag_msgs.pb.h"
#include "platform/byte_order.h"
#include "storage/index_scan.h"

namespace morva {
namespace {

using protix::kbag_msgs::ChunkIndex;
using protix::kbag_msgs::ChunkIndexData;
using protix::kbag_msgs::ChunkInfo;

BagFile::TopicHeader decodeEntry(const ChunkInfo& info, std::uint32_t topicId) {
  BagFile::TopicHeader entry;
  entry.time = info.time();
  entry.rawSize = info.raw_size();
  entry.count = info.count();
  entry.headerTimes = {info.first_header_time(), info.second_header_time()};
  entry.topicId = static_cast<std::int32_t>(topicId);
  entry.storedSize = info.stored_size();
  return entry;
}

std::shared_ptr<BagFile::TopicIndex> decodeIndex(const ChunkIndex& message) {
  auto index = std::make_shared<BagFile::TopicIndex>();
  index->countSum = message.count_sum();
  index->rawSizeSum = message.raw_size_sum();
  index->startTime = message.start_time();
  index->endTime = message.end_time();
  index->chunkOffsets.assign(message.chunk_offsets().begin(), message.chunk_offsets().end());
  index->entries.reserve(static_cast<std::size_t>(message.infos_size()));
  for (const ChunkInfo& info : message.infos()) {
    index->entries.push_back(decodeEntry(info, message.topic_id()));
  }
  return index;
}

}  // namespace

std::string encodeTopicHeader(const BagFile::TopicHeader& entry) {
  std::string bytes;
  bytes.reserve(layout::kTopicHeaderBytes);
  appendLe<std::int64_t>(&bytes, entry.time);
  appendLe<std::uint32_t>(&bytes, entry.rawSize);
  appendLe<std::uint32_t>(&bytes, entry.count);
  appendLe<std::int64_t>(&bytes, entry.headerTimes[0]);
  appendLe<std::int64_t>(&bytes, entry.headerTimes[1]);
  appendLe<std::uint32_t>(&bytes, static_cast<std::uint32_t>(entry.topicId));
  return bytes;
}

bool decodeTopicHeader(std::string_view header, BagFile::TopicHeader* entry) {
  if (header.size() < layout::kTopicHeaderBytes) return false;
  const char* const bytes = header.data();
  entry->time = loadLe<std::int64_t>(bytes + layout::kTopicTimeOffset);
  entry->rawSize = loadLe<std::uint32_t>(bytes + layout::kRawSizeOffset);
  entry->count = loadLe<std::uint32_t>(bytes + layout::kTopicCountOffset);
  entry->headerTimes = {loadLe<std::int64_t>(bytes + layout::kTopicFirstTimeOffset),
                        loadLe<std::int64_t>(bytes + layout::kTopicSecondTimeOffset)};
  entry->topicId = loadLe<std::int32_t>(bytes + layout::kTopicIdOffset);
  return true;
}

bool parseTopicIndexes(std::string_view data, BagFile::TopicIndexes* indexes) {
  if (data.empty() || data.size() > INT_MAX) return false;
  google::protobuf::Arena arena;
  auto* const message = google::protobuf::Arena::CreateMessage<ChunkIndexData>(&arena);
  if (!message->ParseFromArray(data.data(), static_cast<int>(data.size()))) return false;
  for (const ChunkIndex& topic : message->indexes()) {
    if (topic.chunk_offsets().empty() || topic.chunk_offsets_size() != topic.infos_size()) continue;
    const auto [entry, isNew] = indexes->try_emplace(topic.topic_id());
    if (isNew) entry->second = decodeIndex(topic);
  }
  return true;
}

bool decodeTopicIndexes(std::string_view data, BagFile::TopicIndexes* indexes) {
  std::vector<EncodedTopic> topics;
  if (data.empty() || !scanTopicIndexes(data, &topics)) return parseTopicIndexes(data, indexes);
  for (const EncodedTopic& topic : topics) {
    const auto [entry, isNew] = indexes->try_emplace(topic.topicId);
    if (isNew) entry->second = decodeTopic(data, topic);
  }
  return true;
}

bool canBeIndexSize(std::uint64_t rawSize, std::int64_t fileBytes, std::size_t topicCount) {
  // An entry takes at most 63 bytes, the chunk of its message at least 52; a topic at most 57.
  constexpr std::uint64_t kSlackBytes = 65'536;
  constexpr std::uint64_t kTopicBytes = 64;
  return rawSize / 2 <= static_cast<std::uint64_t>(std::max<std::int64_t>(fileBytes, 0)) +
                            kSlackBytes + kTopicBytes * topicCount;
}

}  // namespace morva

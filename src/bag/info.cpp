#include "morva/bag.h"
#include "storage/bag_reader.h"

namespace morva {
namespace {

TopicInfo makeTopicInfo(const std::string& name, std::uint32_t id,
                        const BagFile::TopicIndex& index) {
  TopicInfo info;
  info.topicId = id;
  info.messageCount = index.countSum;
  info.total = index.rawSizeSum;
  info.startTime = index.startTime;
  info.endTime = index.endTime;
  info.name = name;
  return info;
}

}  // namespace

BagInfo MorvaBag::getInfo() const {
  BagInfo info;
  const std::shared_ptr<BagReader> bag = reader();
  if (bag == nullptr) return info;

  const BagFile::Header& header = bag->header();
  info.versionByte0 = header.version() & 0xFFU;
  info.versionByte1 = header.version() >> 8U;
  info.dataStart = header.dataStart();
  info.indexChunkOffset = header.indexChunkOffset();
  info.topicCount = static_cast<std::uint32_t>(bag->topicIds().size());
  for (const auto& [name, id] : bag->topicIds()) {
    const std::shared_ptr<BagFile::TopicIndex> index = bag->topicIndex(name);
    if (index == nullptr || index->countSum == 0) continue;
    info.chunkCount += static_cast<std::uint32_t>(index->chunkOffsets.size());
    info.topics.push_back(makeTopicInfo(name, id, *index));
  }
  return info;
}

}  // namespace morva

#include <memory>
#include <optional>

#include "bag/device_record.h"
#include "morva/bag.h"
#include "platform/ignore_result.h"
#include "storage/bag_reader.h"

namespace morva {
namespace {

TopicInfo makeTopicInfo(const std::string& name, std::uint32_t id,
                        const BagFile::TopicTotals& totals) {
  TopicInfo info;
  info.topicId = id;
  info.messageCount = totals.countSum;
  info.total = totals.rawSizeSum;
  info.startTime = totals.startTime;
  info.endTime = totals.endTime;
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
    const std::optional<BagFile::TopicTotals> totals = bag->topicTotals(name);
    if (!totals || totals->countSum == 0) continue;
    info.chunkCount += static_cast<std::uint32_t>(totals->chunks);
    info.topics.push_back(makeTopicInfo(name, id, *totals));
  }
  return info;
}

DeviceInfo MorvaBag::getDeviceInfo(std::string* text) const {
  DeviceInfo info;
  const std::shared_ptr<BagReader> bag = reader();
  if (bag == nullptr) return info;
  // Neither of its forms: an empty record.
  ignoreResult(decodeDeviceRecord(bag->header().privateData(), &info, text));
  return info;
}

}  // namespace morva

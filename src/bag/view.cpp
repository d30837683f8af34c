#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

#include "bag/msg_index.h"
#include "bag/scan.h"
#include "morva/bag.h"
#include "platform/ignore_result.h"
#include "platform/log.h"
#include "platform/memory.h"
#include "storage/bag_reader.h"

namespace morva {
namespace {

constexpr std::uint32_t kNoTopicId = 0xFFFFFFFF;
constexpr std::int64_t kYear2100Us = 4102444800000000;  // 2100-01-01 00:00:00 UTC
constexpr std::int64_t kUsPerSecond = 1000000;

/// The last time, inclusive, of a selection that begins at `startUs` and takes `durationS`; times
/// that do not fit saturate.
std::int64_t lastTimeUs(std::int64_t startUs, std::int64_t durationS) {
  if (startUs <= 0 || durationS <= 0) return kYear2100Us;
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  if (durationS > (kMax - startUs) / kUsPerSecond) return kMax;
  return startUs + durationS * kUsPerSecond;
}

}  // namespace

View MorvaBag::getView(const std::string& topic, std::int64_t startUs,
                       std::int64_t durationS) const {
  View view;
  const std::shared_ptr<BagReader> bag = reader();
  if (bag == nullptr || !bag->hasIndex()) return view;

  const auto found = bag->topicIds().find(topic);
  if (found == bag->topicIds().end() || found->second == kNoTopicId) {
    Log("MorvaBag").error("not found topic [%s]!", topic);
    return view;
  }
  const std::optional<BagFile::TopicTotals> totals = bag->topicTotals(topic);
  if (!totals) return view;

  const std::int64_t endUs = lastTimeUs(startUs, durationS);
  const auto isSelected = [startUs, endUs](const BagFile::TopicHeader& entry) {
    return entry.headerTimes[0] >= startUs && entry.headerTimes[0] <= endUs;
  };
  std::size_t selected = totals->chunks;
  if (startUs > 0) {
    selected = 0;
    ignoreResult(bag->visitTopic(topic, [&](const auto& entry, std::uint64_t /*chunkOffset*/) {
      if (isSelected(entry)) ++selected;
    }));
  }
  // A long topic's records are tens of megabytes, which must not be copied as the view grows.
  view.indexes.reserve(selected);
  osmik::useLargePages(view.indexes.data(), view.indexes.capacity() * sizeof(MsgIndex));
  ignoreResult(bag->visitTopic(topic, [&](const auto& entry, std::uint64_t chunkOffset) {
    if (!isSelected(entry)) return;
    view.indexes.push_back(makeMsgIndex(found->second, entry, chunkOffset, topic));
  }));
  return view;
}

View MorvaBag::getView(const std::vector<std::string>& topicNames, std::int64_t startUs,
                       std::int64_t durationS) const {
  View view;
  for (const std::string& topic : topicNames) {
    const View part = getView(topic, startUs, durationS);
    view.indexes.insert(view.indexes.end(), part.indexes.begin(), part.indexes.end());
  }
  return view;
}

View MorvaBag::getAllView(const std::string& path, std::string* index) {
  View view;
  // A walk that cannot begin has logged why, and leaves the view empty.
  ignoreResult(scanMessages(path, &view, index));
  return view;
}

}  // namespace morva

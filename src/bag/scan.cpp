#include "bag/scan.h"

#include "bag/chunk_walk.h"
#include "bag/msg_index.h"
#include "platform/ignore_result.h"
#include "platform/log.h"
#include "storage/bag_reader.h"
#include "storage/index_codec.h"

namespace morva {
namespace {

/// Gathers the index of a bag's messages, with an entry for every topic of the bag.
class IndexBuilder {
 public:
  explicit IndexBuilder(const BagReader::TopicNames& names) {
    for (const auto& [id, name] : names) indexes_.emplace(id, newIndex());
  }

  void add(std::uint32_t topicId, const BagFile::TopicHeader& entry, std::uint64_t chunkOffset) {
    std::shared_ptr<BagFile::TopicIndex>& index = indexes_[topicId];
    if (index == nullptr) index = newIndex();
    index->append(entry, chunkOffset);
  }

  [[nodiscard]] bool serialize(std::string* data) const {
    return encodeTopicIndexes(indexes_, data);
  }

 private:
  static std::shared_ptr<BagFile::TopicIndex> newIndex() {
    return std::make_shared<BagFile::TopicIndex>();
  }

  BagFile::TopicIndexes indexes_;
};

}  // namespace

bool scanMessages(const std::string& path, View* view, std::string* index) {
  const Log log({}, "getAllView");
  BagReader bag;
  if (!isWalkable(openForWalk(path, log, &bag))) return false;

  const BagReader::TopicNames& names = bag.topicNames();
  IndexBuilder builder(names);
  const auto onMessage = [&](const BagFile::TopicHeader& entry, std::uint64_t chunkOffset) {
    const auto topicId = static_cast<std::uint32_t>(entry.topicId);
    if (view != nullptr) {
      const auto name = names.find(topicId);
      view->indexes.push_back(makeMsgIndex(topicId, entry, chunkOffset,
                                           name == names.end() ? std::string() : name->second));
    }
    if (index != nullptr) builder.add(topicId, entry, chunkOffset);
    return true;
  };
  // A walk that ended at damage has said so; what it found counts.
  ignoreResult(walkChunks(&bag, log, onMessage));
  return index == nullptr || builder.serialize(index);
}

}  // namespace morva

#include "bag/msg_index.h"

namespace morva {

MsgIndex makeMsgIndex(std::uint32_t topicId, const BagFile::TopicHeader& entry,
                      std::uint64_t chunkOffset, const std::string& topic) {
  MsgIndex index;
  index.topicId = topicId;
  index.count = entry.count;
  index.rawSize = entry.rawSize;
  index.storedSize = entry.storedSize;
  index.headerTimes = entry.headerTimes;
  index.writeTime = entry.time;
  index.chunkOffset = chunkOffset;
  // The record starts zeroed and its last character is never written: always terminated.
  topic.copy(index.topicName.data(), index.topicName.size() - 1);
  return index;
}

}  // namespace morva

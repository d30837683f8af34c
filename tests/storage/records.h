#ifndef MORVA_TESTS_STORAGE_RECORDS_H_
#define MORVA_TESTS_STORAGE_RECORDS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "storage/bag_file.h"
#include "support/bag_builder.h"

namespace morva::test {

/// What the writer is given with a payload.
inline BagFile::TopicHeader entryOf(const std::string& payload, bool compress,
                                    std::uint32_t count = 1) {
  BagFile::TopicHeader entry;
  entry.time = 1'700'000'000'000'000;
  entry.rawSize = static_cast<std::uint32_t>(payload.size());
  entry.count = count;
  entry.headerTimes = {1'700'000'000'000'001, 1'700'000'000'000'002};
  entry.storedSize = compress ? 0 : entry.rawSize;
  return entry;
}

/// The record that reads the i-th message of a topic.
inline MsgIndex messageIndex(const BagFile::TopicIndex& topic, std::size_t i) {
  const BagFile::TopicHeader& entry = topic.entries.at(i);
  MsgIndex index;
  index.topicId = static_cast<std::uint32_t>(entry.topicId);
  index.count = entry.count;
  index.rawSize = entry.rawSize;
  index.storedSize = entry.storedSize;
  index.headerTimes = entry.headerTimes;
  index.writeTime = entry.time;
  index.chunkOffset = topic.chunkOffsets.at(i);
  return index;
}

/// The same for a message that a test has placed by hand.
inline MsgIndex messageIndex(const BuiltMessage& message, std::uint64_t chunkOffset) {
  MsgIndex index;
  index.topicId = message.topicId;
  index.count = message.count;
  index.storedSize = static_cast<std::uint32_t>(message.stored.size());
  index.rawSize = message.rawSize != 0 ? message.rawSize : index.storedSize;
  index.chunkOffset = chunkOffset;
  return index;
}

using Lines = std::vector<std::string>;

/// Log lines as LogCapture gives them: errorLine("BagReader::open", "open file(x) error!").
inline std::string errorLine(const std::string& place, const std::string& text) {
  return "<E>TIME [" + place + ",L0] " + text;
}
inline std::string warningLine(const std::string& place, const std::string& text) {
  return "<W>TIME [" + place + ",L0] " + text;
}
inline std::string infoLine(const std::string& place, const std::string& text) {
  return "<I>TIME [" + place + "] " + text;
}

}  // namespace morva::test

#endif  // MORVA_TESTS_STORAGE_RECORDS_H_

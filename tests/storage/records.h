#ifndef MORVA_TESTS_STORAGE_RECORDS_H_
#define MORVA_TESTS_STORAGE_RECORDS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/compress.h"
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

/// The compressed form of `raw`, which must have one.
inline std::string compressed(const basalt::Compressor& codec, const std::string& raw) {
  std::string stored(codec.bound(raw.size()), '\0');
  const auto length = codec.compress(raw.data(), raw.size(), stored.data(), stored.size());
  EXPECT_GT(length, 0);
  stored.resize(static_cast<std::size_t>(length));
  return stored;
}

/// An index of one topic with no offsets and `count` entries of two bytes, which compresses to
/// nothing.
inline std::string indexOfEmptyEntries(std::size_t count) {
  std::string entries;
  for (std::size_t i = 0; i < count; ++i) entries.append("\x3A\x00", 2);
  std::string length;
  for (std::size_t rest = entries.size(); rest > 0; rest >>= 7) {
    length += static_cast<char>((rest & 0x7F) | (rest >> 7 > 0 ? 0x80 : 0));
  }
  return '\x0A' + length + entries;
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

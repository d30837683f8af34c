#include "bag/recording.h"

#include <gtest/gtest.h>

namespace morva::test {

void record(const std::string& path, const std::vector<std::string>& topics,
            const std::vector<Message>& messages, const RecordingOptions& options) {
  MorvaBag bag;
  bag.topics = topics;
  bag.compressionType = options.compression;
  ASSERT_EQ(bag.open(path, BagMode::kWrite, options.privateData), 0);
  for (const Message& message : messages) ASSERT_TRUE(write(bag, message));
  ASSERT_TRUE(bag.close());
}

bool write(MorvaBag& bag, const Message& message) {
  const std::int64_t secondTimeUs =
      message.secondTimeUs == 0 ? message.firstTimeUs : message.secondTimeUs;
  const std::string header = MorvaBag::makeMessageHeader(message.compress, message.count,
                                                         message.firstTimeUs, secondTimeUs);
  return bag.writeMessage(message.topic, writeTimeOf(message), header, message.data);
}

std::vector<std::string> readAll(const MorvaBag& bag, const View& view) {
  std::vector<std::string> payloads;
  for (const MsgIndex& index : view.indexes) {
    std::string payload;
    EXPECT_TRUE(bag.readMessage(index, &payload));
    payloads.push_back(payload);
  }
  return payloads;
}

std::vector<std::int64_t> timesOf(const View& view) {
  std::vector<std::int64_t> times;
  for (const MsgIndex& index : view.indexes) times.push_back(index.headerTimes[0]);
  return times;
}

std::string nameOf(const MsgIndex& index) { return index.topicName.data(); }

}  // namespace morva::test

// bench_record none|lz4|zstd FROM TO: records the messages of one bag into another, from memory,
// and tells the CPU time of the recording.

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/peers/cpu_clock.h"
#include "morva/bag.h"

namespace {

using morva::CompressionType;
using morva::MorvaBag;

CompressionType codecOf(const std::string& name) {
  if (name == "lz4") return CompressionType::kLz4;
  return name == "zstd" ? CompressionType::kZstd : CompressionType::kNone;
}

struct Message {
  std::string topic;
  std::int64_t timeUs = 0;
  std::string header;
  std::string payload;
};

/// Every message of a bag; none where one cannot be read.
std::vector<Message> messagesOf(const char* path) {
  MorvaBag bag;
  std::vector<Message> messages;
  if (bag.open(path, morva::BagMode::kRead) != MorvaBag::kOpenOk) return {};
  for (const morva::MsgIndex& index : MorvaBag::getAllView(path, nullptr).indexes) {
    Message& message = messages.emplace_back();
    message.topic = index.topicName.data();
    message.timeUs = index.writeTime;
    message.header =
        MorvaBag::makeMessageHeader(true, index.count, index.headerTimes[0], index.headerTimes[1]);
    if (!bag.readMessage(index, &message.payload)) return {};
  }
  return messages;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 4) return EXIT_FAILURE;
  const std::vector<Message> messages = messagesOf(arguments[2]);
  if (messages.empty()) return EXIT_FAILURE;

  const peers::CpuClock clock;
  MorvaBag bag;
  bag.topics = {"/imu", "/lidar"};
  bag.compressionType = codecOf(arguments[1]);
  bag.writeBufferSize = 1U << 18U;
  if (bag.open(arguments[3], morva::BagMode::kWrite) != MorvaBag::kOpenOk) return EXIT_FAILURE;
  for (const Message& message : messages) {
    if (!bag.writeMessage(message.topic, message.timeUs, message.header, message.payload)) {
      return EXIT_FAILURE;
    }
  }
  if (!bag.close()) return EXIT_FAILURE;
  clock.tell();
  return EXIT_SUCCESS;
}

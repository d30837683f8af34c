#include "support/recording_builder.h"

#include <algorithm>
#include <stdexcept>

namespace morva::test {

RecordingBuilder& RecordingBuilder::addTopic(const std::string& topic) {
  if (std::ranges::find(topics_, topic) == topics_.end()) topics_.push_back(topic);
  return *this;
}

RecordingBuilder& RecordingBuilder::addPayload(const std::string& topic, const std::string& payload,
                                               std::uint32_t count, std::int64_t firstTimeUs,
                                               std::int64_t secondTimeUs) {
  addTopic(topic);
  messages_.push_back({topic, payload, count, firstTimeUs, secondTimeUs});
  return *this;
}

RecordingBuilder& RecordingBuilder::setPrivateData(const std::string& privateData) {
  privateData_ = privateData;
  return *this;
}

std::string RecordingBuilder::write(const std::string& path) const {
  MorvaBag bag;
  bag.topics = topics_;
  bag.compressionType = compression_;
  if (bag.open(path, MorvaBag::BagMode::kWrite, privateData_) != MorvaBag::kOpenOk) {
    throw std::runtime_error("cannot create " + path);
  }
  const bool compress = compression_ != MorvaBag::CompressionType::kNone;
  for (const Message& message : messages_) {
    const std::string header = MorvaBag::makeMessageHeader(
        compress, message.count, message.firstTimeUs, message.secondTimeUs);
    if (!bag.writeMessage(message.topic, message.firstTimeUs, header, message.payload)) {
      throw std::runtime_error("cannot record a message of " + message.topic);
    }
  }
  if (!bag.close()) throw std::runtime_error("cannot finish " + path);
  return path;
}

}  // namespace morva::test

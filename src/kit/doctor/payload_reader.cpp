#include "kit/doctor/payload_reader.h"

#include <utility>

#include "platform/crc32.h"

namespace morva::doctor {

bool PayloadReader::read(Message* message, std::string* payload) {
  BagFile::TopicHeader& header = message->header;
  stored_.resize(header.storedSize);
  source_.read(message->offset + layout::kTopicDataOffset, stored_.size(), stored_.data());
  if (Crc32(stored_.data(), stored_.size()) != message->crc) return false;
  if (codec_ == nullptr || header.rawSize == header.storedSize) {
    std::swap(*payload, stored_);
  } else if (codec_->decompress(stored_.data(), stored_.size(), header.rawSize, payload) < 1) {
    return false;
  }
  const bool isConfirmed = message->proof != Proof::kUnverified;
  if (isConfirmed && codec_ != nullptr && payload->size() != header.rawSize) return false;
  header.rawSize = static_cast<std::uint32_t>(payload->size());
  return true;
}

}  // namespace morva::doctor

#include "kit/doctor/report_words.h"

#include "platform/str_util.h"

namespace morva::doctor {

using osmik::StrUtil;

std::string_view wordFor(Verdict verdict) {
  switch (verdict) {
    case Verdict::kSound:
      return "sound";
    case Verdict::kDamaged:
      return "damaged";
    case Verdict::kUnreadable:
      break;
  }
  return "unreadable";
}

std::string_view wordFor(HeaderState state) {
  switch (state) {
    case HeaderState::kSound:
      return "sound";
    case HeaderState::kDamaged:
      return "damaged";
    case HeaderState::kMissing:
      break;
  }
  return "missing";
}

std::string_view wordFor(IndexState state) {
  switch (state) {
    case IndexState::kSound:
      return "sound";
    case IndexState::kMoved:
      return "moved";
    case IndexState::kDamaged:
      return "damaged";
    case IndexState::kNotClosed:
      return "not written";
    case IndexState::kUnknown:
      break;
  }
  return "missing";
}

std::string_view wordFor(SideState state) {
  switch (state) {
    case SideState::kNone:
      return "none";
    case SideState::kMatches:
      return "matches";
    case SideState::kOther:
      return "does not match";
    case SideState::kDamaged:
      break;
  }
  return "damaged";
}

std::string_view wordFor(Part part) {
  switch (part) {
    case Part::kFileHeader:
      return "file header";
    case Part::kDefinition:
      return "topic names";
    case Part::kMessages:
      return "messages";
    case Part::kChunkHeader:
      return "message header";
    case Part::kIndex:
      return "index";
    case Part::kPadding:
      return "end padding";
    case Part::kBehindEnd:
      return "behind the end";
    case Part::kRepetition:
      break;
  }
  return "repeated chunks";
}

std::string_view wordFor(DeviceSource source) {
  switch (source) {
    case DeviceSource::kNone:
      return "none";
    case DeviceSource::kHeader:
      return "header";
    case DeviceSource::kSideFile:
      return "side file";
    case DeviceSource::kDamagedHeader:
      return "damaged header";
    case DeviceSource::kOtherRecording:
      break;
  }
  return "other recording";
}

std::string compressionName(std::uint8_t compression) {
  switch (static_cast<CompressionType>(compression)) {
    case CompressionType::kLz4:
      return "lz4";
    case CompressionType::kZstd:
      return "zstd";
    default:
      return "none";
  }
}

std::string topicLabel(const Account& account, std::int64_t topicId) {
  const auto name = account.topicNames.find(static_cast<std::uint32_t>(topicId));
  if (name == account.topicNames.end()) return StrUtil::format("topic %lld", topicId);
  return name->second;
}

MessageCounts countsOf(const Account& account) {
  MessageCounts counts;
  for (const auto& [id, topic] : account.topics) {
    counts.readable += topic.readable();
    counts.confirmed += topic.confirmed;
    counts.restored += topic.restored;
    counts.unverified += topic.unverified;
    counts.lost += topic.lost;
    counts.unrestorable += topic.unrestorable;
    counts.undecodable += topic.undecodable;
  }
  return counts;
}

}  // namespace morva::doctor

#include "kit/inspect/recording.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "bag/chunk_walk.h"
#include "bag/device_record.h"
#include "bag/msg_index.h"
#include "platform/file.h"
#include "platform/ignore_result.h"
#include "platform/log.h"

namespace morva::inspect {
namespace {

constexpr Problem kMissing = {"missing", "there is no such file"};
constexpr Problem kUnreadable = {"unreadable", "it cannot be opened"};
constexpr Problem kBadHeader = {"damaged_header", "the checksum of its header is wrong"};
constexpr Problem kNoRecording = {"no_recording",
                                  "it is no recording, or its header or topic list is damaged"};
constexpr Problem kNoIndex = {
    "no_index",
    "it has no usable index; --scan walks through it instead, `kbag reindex` makes an index"};

std::optional<Problem> problemOf(int openCode) {
  switch (openCode) {
    case BagFile::kOpenOk:
      return std::nullopt;
    case BagFile::kOpenNoIndex:
      return kNoIndex;
    case BagFile::kOpenChecksum:
      return kBadHeader;
    case BagFile::kOpenMalformed:
      return kNoRecording;
    default:
      return kUnreadable;
  }
}

}  // namespace

std::string_view wordFor(IndexSource source) {
  switch (source) {
    case IndexSource::kRecording:
      return "recording";
    case IndexSource::kSideFile:
      return "side_file";
    case IndexSource::kScan:
      return "scan";
    case IndexSource::kNone:
      break;
  }
  return "none";
}

std::optional<Problem> Recording::open(const std::string& path, bool scan) {
  path_ = path;
  if (!osmik::File::exists(path)) return kMissing;
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return kUnreadable;
  fileBytes_ = std::filesystem::file_size(path, error);
  if (error) return kUnreadable;

  const int code = reader_.open(path);
  hasHeader_ = code == BagFile::kOpenOk || code == BagFile::kOpenNoIndex;
  if (hasHeader_) listTopics();
  if (code == BagFile::kOpenNoIndex && scan) {
    this->scan();
    return std::nullopt;
  }
  if (code == BagFile::kOpenOk) {
    const bool hasSideFile = osmik::File::exists(path + std::string(layout::kSideFileSuffix));
    indexSource_ = hasSideFile ? IndexSource::kSideFile : IndexSource::kRecording;
  }
  return problemOf(code);
}

void Recording::listTopics() {
  for (const auto& [id, name] : reader_.topicNames()) {
    // A second topic of the same name cannot be reached by it.
    if (reader_.topicIds().at(name) == id) topics_.push_back({id, name});
  }
  std::ranges::sort(topics_, {}, &Topic::name);
}

void Recording::scan() {
  indexSource_ = IndexSource::kScan;
  scannedBytes_ = header().dataStart();
  // Damage, or the end of a recording that was cut off, ends it; what lies before counts.
  ignoreResult(walkChunks(&reader_, Log({}, "scan"),
                          [this](const BagFile::TopicHeader& entry, std::uint64_t chunkOffset) {
                            auto& index = scanned_[static_cast<std::uint32_t>(entry.topicId)];
                            if (index == nullptr) index = std::make_shared<BagFile::TopicIndex>();
                            index->append(entry, chunkOffset);
                            scannedBytes_ =
                                chunkOffset +
                                layout::chunkBytes(layout::kTopicHeaderBytes, entry.storedSize);
                            return true;
                          }));
}

std::optional<DeviceInfo> Recording::device() const {
  DeviceInfo device;
  if (!decodeDeviceRecord(header().privateData(), &device, nullptr)) return std::nullopt;
  return device;
}

std::shared_ptr<const BagFile::TopicIndex> Recording::messagesOf(const Topic& topic) const {
  if (indexSource_ != IndexSource::kScan) return reader_.topicIndex(topic.name);
  const auto found = scanned_.find(topic.id);
  return found == scanned_.end() ? nullptr : found->second;
}

std::optional<BagFile::TopicTotals> Recording::totalsOf(const Topic& topic) const {
  if (indexSource_ != IndexSource::kScan) return reader_.topicTotals(topic.name);
  const auto messages = messagesOf(topic);
  if (messages == nullptr) return std::nullopt;
  return messages->totals();
}

std::optional<TimeSpan> Recording::span() const {
  std::optional<TimeSpan> span;
  for (const Topic& topic : topics_) {
    const auto totals = totalsOf(topic);
    if (!totals || totals->chunks == 0) continue;
    if (!span) span = TimeSpan{totals->startTime, totals->endTime};
    span->startUs = std::min(span->startUs, totals->startTime);
    span->endUs = std::max(span->endUs, totals->endTime);
  }
  return span;
}

bool Recording::read(const BagFile::TopicHeader& entry, std::uint64_t chunkOffset,
                     std::string* payload) {
  const auto topicId = static_cast<std::uint32_t>(entry.topicId);
  return reader_.read(makeMsgIndex(topicId, entry, chunkOffset, {}), payload) >= 0;
}

}  // namespace morva::inspect

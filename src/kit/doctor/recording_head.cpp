#include "kit/doctor/recording_head.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "platform/byte_order.h"
#include "platform/crc32.h"

namespace morva::doctor {
namespace {

using Kind = ChunkWalk::Step::Kind;

constexpr std::array kCodecs = {CompressionType::kZstd, CompressionType::kLz4};

bool isRestoredBy(const FoundChunk& chunk, const std::string& stored, CompressionType codec) {
  std::string data;
  const std::int64_t length =
      codecOf(static_cast<std::uint8_t>(codec))
          ->decompress(stored.data(), stored.size(), chunk.header.rawSize, &data);
  return length == chunk.header.rawSize;
}

std::vector<std::pair<std::uint32_t, std::string>> topicsOf(const std::string& records) {
  std::vector<std::pair<std::uint32_t, std::string>> topics;
  for (std::size_t at = 0; at + layout::kTopicRecordBytes <= records.size();
       at += layout::kTopicRecordBytes) {
    const std::string_view record = std::string_view(records).substr(at, layout::kTopicRecordBytes);
    const std::string_view name = record.substr(layout::kTopicNameOffset);
    topics.emplace_back(loadLe<std::uint32_t>(record.data()), name.substr(0, name.find('\0')));
  }
  return topics;
}

}  // namespace

RecordingHead::RecordingHead(const ChunkWalk& walk, ByteSource* source, Account* account)
    : walk_(walk), source_(*source), account_(*account) {}

void RecordingHead::read() {
  readHeader();
  findParts();
  findCompression();
  readDefinition();
  findIndex();
  judgeIndex();
  readSide();
}

void RecordingHead::readHeader() {
  BagFile::Header& header = account_.header;
  source_.read(0, header.bytes.size(), header.bytes.data());
  const std::string_view image(header.bytes.data(), header.bytes.size());
  if (source_.size() < layout::kHeaderBytes || !image.starts_with(layout::kTag)) return;
  const bool isSound = Crc32(image.data(), layout::kHeaderCrcOffset) == header.checksum();
  account_.headerState = isSound ? HeaderState::kSound : HeaderState::kDamaged;
}

/// Behind a sound header the chunks begin at a known place; behind another, bytes may be missing.
void RecordingHead::findParts() {
  const bool isSound = account_.headerState == HeaderState::kSound;
  bool isFirst = true;
  for (const auto& step : walk_.walk(isSound ? layout::kHeaderBytes : 0, source_.size(), {})) {
    if (step.kind != Kind::kChunk) continue;
    if (step.chunk->type == layout::kTopicDataChunk) messages_.push_back(step.chunk);
    if (step.chunk->type == layout::kIndexChunk) indexChunks_.push_back(step.chunk);
    if (isFirst && canBeDefinition(*step.chunk)) definition_ = step.chunk;
    isFirst = false;
  }
  for (const FoundChunk* const chunk : messages_) messageTimes_.push_back(chunk->header.time);
  std::ranges::sort(messageTimes_);
}

/// Elsewhere it would be that of a recording that a message carries.
bool RecordingHead::canBeDefinition(const FoundChunk& chunk) const {
  if (chunk.type != layout::kDefinitionChunk) return false;
  const std::uint64_t dataStart = account_.header.dataStart();
  const bool isKnown = account_.headerState == HeaderState::kSound && dataStart != 0;
  return !isKnown || chunk.end() - chunk.offset == dataStart - layout::kHeaderBytes;
}

void RecordingHead::findCompression() {
  account_.compression = account_.header.compression();
  if (account_.headerState == HeaderState::kSound) return;
  account_.isCompressionGuessed = true;
  constexpr std::size_t kSamples = 16;
  constexpr std::uint32_t kMaxSampleBytes = 16 * 1024 * 1024;
  std::array<std::size_t, kCodecs.size()> votes{};
  std::size_t samples = 0;
  for (const FoundChunk* const chunk : messages_) {
    const BagFile::TopicHeader& header = chunk->header;
    if (header.rawSize <= header.storedSize || header.rawSize > kMaxSampleBytes) continue;
    if (++samples > kSamples) break;
    const std::string stored = source_.read(chunk->dataBegin(), header.storedSize);
    for (std::size_t i = 0; i < kCodecs.size(); ++i) {
      if (isRestoredBy(*chunk, stored, kCodecs[i])) ++votes[i];
    }
  }
  const auto best = std::ranges::max_element(votes);
  // Where nothing is compressed, a damaged header may still be right.
  const bool isUnsaid = samples == 0 && account_.headerState == HeaderState::kDamaged;
  if (*best == 0 && isUnsaid) return;
  if (*best == 0) {
    account_.compression = static_cast<std::uint8_t>(CompressionType::kNone);
    return;
  }
  account_.compression =
      static_cast<std::uint8_t>(kCodecs[static_cast<std::size_t>(best - votes.begin())]);
}

void RecordingHead::readDefinition() {
  if (definition_ == nullptr) return;
  std::string records = source_.read(definition_->dataBegin(), definition_->header.storedSize);
  // With a lost header the definition itself may be the only compressed chunk.
  const basalt::Compressor* const codec = codecOf(account_.compression);
  const std::uint32_t rawSize = definition_->header.rawSize;
  if (rawSize != records.size()) {
    std::string data;
    const auto restores = [&](const basalt::Compressor* candidate) {
      return candidate != nullptr &&
             candidate->decompress(records.data(), records.size(), rawSize, &data) == rawSize;
    };
    const bool isGuess = account_.isCompressionGuessed && codec == nullptr;
    if (restores(codec)) {
      records = std::move(data);
    } else if (isGuess) {
      for (const CompressionType type : kCodecs) {
        if (!restores(codecOf(static_cast<std::uint8_t>(type)))) continue;
        account_.compression = static_cast<std::uint8_t>(type);
        records = std::move(data);
        break;
      }
    }
  }
  account_.isDefinitionSound =
      records.size() == rawSize && rawSize % layout::kTopicRecordBytes == 0;
  if (!account_.isDefinitionSound) return;
  // Names that stand for the same id: the first one counts, as it does for a reader.
  for (auto& [id, name] : topicsOf(records)) account_.topicNames.emplace(id, std::move(name));
}

void RecordingHead::dropDefinition() {
  definition_ = nullptr;
  account_.isDefinitionSound = false;
  account_.topicNames.clear();
}

/// How many of an index' messages are where it says, or at least somewhere: all of them may have
/// moved, and each time stands for its message.
std::size_t RecordingHead::hits(const IndexList& entries) const {
  return static_cast<std::size_t>(std::ranges::count_if(entries, [this](const IndexEntry& entry) {
    const FoundChunk* const chunk = walk_.soundAt(entry.offset);
    return (chunk != nullptr && isSameHeader(chunk->header, entry.header)) ||
           std::ranges::binary_search(messageTimes_, entry.header.time);
  }));
}

/// Damage may lay open the index of a recording that a message carries. That one knows few of the
/// messages, and does not lie where the header says.
bool RecordingHead::canBeIndex(const FoundChunk& chunk, const IndexList& entries) const {
  if (account_.headerState == HeaderState::kSound) {
    const std::uint64_t claimed = account_.header.indexChunkOffset();
    if (claimed == 0) return false;  // cut off before one was written
    if (claimed == chunk.offset) return true;
  }
  return hits(entries) * 2 >= messageTimes_.size();
}

/// With a lost header the index itself may be the only compressed chunk.
std::optional<IndexList> RecordingHead::readIndex(const FoundChunk& chunk) {
  auto entries = readIndexChunk(chunk, account_.compression, &source_);
  if (entries || !account_.isCompressionGuessed) return entries;
  for (const CompressionType codec : kCodecs) {
    entries = readIndexChunk(chunk, static_cast<std::uint8_t>(codec), &source_);
    if (!entries) continue;
    if (codecOf(account_.compression) == nullptr) {
      account_.compression = static_cast<std::uint8_t>(codec);
    }
    break;
  }
  return entries;
}

void RecordingHead::findIndex() {
  constexpr std::size_t kMaxCandidates = 8;
  std::size_t bestHits = 0;
  std::size_t tried = 0;
  for (auto at = indexChunks_.rbegin(); at != indexChunks_.rend() && tried < kMaxCandidates; ++at) {
    ++tried;
    auto entries = readIndex(**at);
    if (!entries || !canBeIndex(**at, *entries)) continue;
    const std::size_t count = hits(*entries);
    if (indexChunk_ != nullptr && count <= bestHits) continue;
    indexChunk_ = *at;
    index_ = std::move(*entries);
    bestHits = count;
  }
}

void RecordingHead::judgeIndex() {
  const std::uint64_t claimed = account_.header.indexChunkOffset();
  const bool isHeaderSound = account_.headerState == HeaderState::kSound;
  if (indexChunk_ != nullptr) {
    account_.indexOffset = indexChunk_->offset;
    const bool isInPlace = !isHeaderSound || claimed == indexChunk_->offset;
    account_.indexState = isInPlace ? IndexState::kSound : IndexState::kMoved;
    account_.hasIndex = true;
  } else if (!isHeaderSound) {
    account_.indexState = IndexState::kUnknown;
  } else {
    account_.indexState = claimed == 0 ? IndexState::kNotClosed : IndexState::kDamaged;
  }
}

bool RecordingHead::belongs(const SideFile& side) const {
  if (account_.headerState != HeaderState::kSound) return hits(*side.entries) > 0;
  const auto& own = account_.header.bytes;
  const auto& other = side.header.bytes;
  if (!std::equal(own.begin(), own.begin() + layout::kDataStartOffset, other.begin())) return false;
  return definition_ == nullptr || side.header.dataStart() == definition_->end();
}

void RecordingHead::readSide() {
  SideFile side = readSideFile(account_.path);
  if (!side.exists) return;
  if (!side.entries) {
    account_.sideState = SideState::kDamaged;
    return;
  }
  account_.sideEntries = side.entries->size();
  account_.sideState = belongs(side) ? SideState::kMatches : SideState::kOther;
  if (account_.sideState != SideState::kMatches) return;
  if (side.isHeaderSound) useHeaderOf(side);
  if (!account_.hasIndex) {
    index_ = std::move(*side.entries);
    account_.hasIndex = true;
    return;
  }
  const auto isSame = [](const IndexEntry& a, const IndexEntry& b) {
    return a.offset == b.offset && isSameHeader(a.header, b.header);
  };
  if (!std::ranges::equal(index_, *side.entries, isSame)) account_.sideState = SideState::kOther;
}

/// It is a copy of the recording's header, which may be lost.
void RecordingHead::useHeaderOf(const SideFile& side) {
  account_.sideHeader = side.header;
  if (!account_.isCompressionGuessed) return;
  account_.compression = side.header.compression();
  account_.isCompressionGuessed = false;
}

}  // namespace morva::doctor

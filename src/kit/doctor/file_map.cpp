#include "kit/doctor/file_map.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <utility>

namespace morva::doctor {
namespace {

using Kind = ChunkWalk::Step::Kind;

std::uint64_t endOf(const Place& place, const IndexEntry& entry) {
  return place.offset + messageBytes(entry.header.storedSize);
}

Part partOf(std::uint16_t chunkType) {
  switch (chunkType) {
    case layout::kDefinitionChunk:
      return Part::kDefinition;
    case layout::kIndexChunk:
      return Part::kIndex;
    default:
      return Part::kMessages;
  }
}

void addLost(const BagFile::TopicHeader& header, Damage* damage) {
  ++damage->lost[header.topicId];
  const std::int64_t timeUs = header.headerTimes[0];
  damage->firstLostUs = std::min(damage->firstLostUs.value_or(timeUs), timeUs);
  damage->lastLostUs = std::max(damage->lastLostUs.value_or(timeUs), timeUs);
}

std::uint64_t beginOf(const Damage& damage) { return damage.range.begin; }

std::uint64_t alignedEnd(std::uint64_t end) {
  return (end + layout::kAlignment - 1) / layout::kAlignment * layout::kAlignment;
}

}  // namespace

FileMap::FileMap(const ChunkWalk& walk, const RecordingHead& head, const IndexMatch& match,
                 ByteSource* source, Account* account)
    : walk_(walk), head_(head), match_(match), source_(*source), account_(*account) {}

void FileMap::draw() {
  takeIndexed();
  findRoom();
  mapSpaces();
  addMissingParts();
  assignLost();
  std::ranges::stable_sort(written_, {}, [](const Written& w) {
    return std::pair(w.entry, w.isBehindEntry);  // stable: else as they lie in the file
  });
  for (const Written& written : written_) account_.messages.push_back(written.message);
}

/// Messages that the index knows: in their place, or moved, or with a damaged header.
void FileMap::takeIndexed() {
  const IndexList& index = head_.index();
  account_.indexEntries = index.size();
  lostBefore_.push_back(0);
  for (std::size_t i = 0; i < index.size(); ++i) {
    const auto& place = match_.places()[i];
    lostBefore_.push_back(lostBefore_.back() + (place ? 0 : 1));
    if (!place || place->offset != index[i].offset) ++account_.pointNowhere;
    if (!place) {
      account_.lost.push_back({index[i].offset, index[i].header});
      continue;
    }
    if (place->offset != index[i].offset) ++account_.moved;
    indexed_.emplace(index[i].header.storedSize, place->crc);
    const Proof proof = place->isFramed ? Proof::kConfirmed : Proof::kRestored;
    written_.push_back({static_cast<std::ptrdiff_t>(i), false,
                        Message{place->offset, index[i].header, place->crc, proof}});
    if (place->isFramed) continue;
    addDamage(place->offset, place->offset + layout::kTopicDataOffset, Part::kChunkHeader);
  }
}

std::vector<FileMap::Anchor> FileMap::anchors() const {
  std::vector<Anchor> anchors;
  const IndexList& index = head_.index();
  for (std::size_t i = 0; i < index.size(); ++i) {
    const auto& place = match_.places()[i];
    if (!place) continue;
    anchors.push_back({place->offset, endOf(*place, index[i]), static_cast<std::ptrdiff_t>(i)});
  }
  for (const FoundChunk* const chunk : {head_.definition(), head_.indexChunk()}) {
    if (chunk != nullptr) anchors.push_back({chunk->offset, chunk->end(), -1});
  }
  std::ranges::sort(anchors, {}, &Anchor::begin);
  return anchors;
}

bool FileMap::hasLostBetween(std::ptrdiff_t before, std::ptrdiff_t behind) const {
  const auto lostBefore = [this](std::ptrdiff_t entry) {
    return lostBefore_[static_cast<std::size_t>(entry)];
  };
  return behind > before && lostBefore(behind) > lostBefore(before + 1);
}

/// Chunks are written back to back: where the index has one end where the next begins, no message
/// that it does not know was written between them.
void FileMap::findRoom() {
  const IndexList& index = head_.index();
  std::uint64_t dataStart = layout::kHeaderBytes;
  if (account_.headerState == HeaderState::kSound && account_.header.dataStart() != 0) {
    dataStart = account_.header.dataStart();
  } else if (head_.definition() != nullptr) {
    dataStart += head_.definition()->end() - head_.definition()->offset;
  } else if (!index.empty()) {
    dataStart = index.front().offset;
  }
  std::uint64_t end = dataStart;
  std::size_t room = 0;
  for (const IndexEntry& entry : index) {
    if (entry.offset > end) ++room;
    roomBefore_.push_back(room);
    end = entry.offset + messageBytes(entry.header.storedSize);
  }
  // A side file may be older than what was recorded last; the recording's own index is not.
  const bool isHeaderSound = account_.headerState == HeaderState::kSound;
  const std::uint64_t closedAt = isHeaderSound ? account_.header.indexChunkOffset() : 0;
  const bool isRoomAtEnd = closedAt != 0 ? closedAt > end : head_.indexChunk() == nullptr;
  roomBefore_.push_back(room + (isRoomAtEnd ? 1 : 0));
}

bool FileMap::hasRoomBetween(std::ptrdiff_t before, std::ptrdiff_t behind) const {
  if (!account_.hasIndex) return true;
  if (behind <= before) return false;
  const std::size_t roomBefore = before < 0 ? 0 : roomBefore_[static_cast<std::size_t>(before)];
  return roomBefore_[static_cast<std::size_t>(behind)] > roomBefore;
}

FileMap::Space FileMap::spaceOf(std::uint64_t begin, std::uint64_t end, std::ptrdiff_t before,
                                std::ptrdiff_t behind) const {
  return {begin, end, before, hasLostBetween(before, behind), hasRoomBetween(before, behind)};
}

void FileMap::mapSpaces() {
  const bool isHeaderSound = account_.headerState == HeaderState::kSound;
  std::vector<Anchor> anchors = this->anchors();
  const auto entryCount = static_cast<std::ptrdiff_t>(head_.index().size());
  std::vector<std::ptrdiff_t> entryBehind(anchors.size() + 1, entryCount);
  for (std::size_t i = anchors.size(); i-- > 0;) {
    entryBehind[i] = anchors[i].entry < 0 ? entryBehind[i + 1] : anchors[i].entry;
  }
  std::uint64_t at = isHeaderSound ? layout::kHeaderBytes : 0;
  std::ptrdiff_t entry = -1;
  for (std::size_t i = 0; i < anchors.size(); ++i) {
    if (anchors[i].begin < at) continue;  // overlaps what stands before it
    if (anchors[i].begin > at) {
      mapSpace(spaceOf(at, anchors[i].begin, entry, entryBehind[i]));
    }
    at = anchors[i].end;
    if (anchors[i].entry >= 0) entry = anchors[i].entry;
    if (head_.indexChunk() == nullptr || anchors[i].begin != head_.indexChunk()->offset) continue;
    if (i + 1 == anchors.size()) {
      mapTail(at);
      return;
    }
    addDamage(at, at, Part::kPadding);  // an index has named a message behind it
  }
  if (at < source_.size()) {
    mapSpace(spaceOf(at, source_.size(), entry, entryCount));
  }
}

void FileMap::mapSpace(const Space& space) {
  bool isReached = true;  // without passing damage
  for (const ChunkWalk::Step& step : walk_.walk(space.begin, space.end, match_.isTaken())) {
    switch (step.kind) {
      case Kind::kChunk:
        isReached = mapChunk(*step.chunk, space, isReached);
        break;
      case Kind::kTorn:
        ++stretch_;
        addDamage(step.begin, step.end, partOf(step.chunk->type));
        countClaim(*step.chunk, &lastDamage());
        isReached = true;
        break;
      case Kind::kGap:
        ++stretch_;
        mapGap(step, isReached);
        isReached = false;
        break;
    }
  }
}

/// @return Whether what follows the chunk is reached.
bool FileMap::mapChunk(const FoundChunk& chunk, const Space& space, bool isReached) {
  if (isCopy(chunk)) {
    if (chunk.type == layout::kTopicDataChunk) ++account_.repeated;
    addDamage(chunk.offset, chunk.end(), Part::kRepetition);
    return isReached;
  }
  const bool isMessage = chunk.type == layout::kTopicDataChunk;
  if (!isMessage || !space.hasRoom || (space.hasLost && !isReached)) {
    ++account_.withinDamage;
    addDamage(chunk.offset, chunk.end(), Part::kMessages);
    return isReached;
  }
  if (account_.hasIndex) ++account_.notInIndex;
  written_.push_back({space.entryBefore, true,
                      Message{chunk.offset, chunk.header, chunk.crc, Proof::kUnverified}});
  return true;
}

/// A message that stands in the file elsewhere, too. Where no index tells how often it was written,
/// one without damage between the two is not taken for a copy.
bool FileMap::isCopy(const FoundChunk& chunk) {
  const CopyKey content(chunk.header.storedSize, chunk.crc);
  if (chunk.type != layout::kTopicDataChunk) {
    const auto isSame = [&](const FoundChunk* part) {
      return part != nullptr && part->type == chunk.type && part->crc == chunk.crc;
    };
    return isSame(head_.definition()) || isSame(head_.indexChunk());
  }
  if (chunk.header.storedSize > 0 && indexed_.contains(content)) return true;
  const BagFile::TopicHeader& header = chunk.header;
  const FullKey key(content, header.topicId, header.time, header.headerTimes[0],
                    header.headerTimes[1], header.rawSize, header.count);
  return seen_.emplace(key, stretch_).first->second != stretch_;
}

/// Without an index, a chunk that says what it was is the account of what was lost.
void FileMap::countClaim(const FoundChunk& chunk, Damage* damage) const {
  if (account_.hasIndex || chunk.type != layout::kTopicDataChunk) return;
  const auto id = static_cast<std::uint32_t>(chunk.header.topicId);
  if (account_.isDefinitionSound && !account_.topicNames.contains(id)) return;
  addLost(chunk.header, damage);
}

void FileMap::mapGap(const ChunkWalk::Step& step, bool isReached) {
  std::uint64_t at = step.begin;
  const auto claim = parseFraming(source_.read(at, kMaxFramingBytes), at);
  const bool isMessage = isReached && claim && claim->type == layout::kTopicDataChunk;
  const auto cut = [&](std::uint64_t end, Part part) {
    end = std::min(end, step.end);
    if (end <= at) return;
    addDamage(at, end, part);
    if (part == Part::kMessages && isMessage && at == step.begin) countClaim(*claim, &lastDamage());
    at = end;
  };
  const BagFile::Header& header = account_.header;
  const bool isHeaderSound = account_.headerState == HeaderState::kSound;
  if (!isHeaderSound && at < layout::kHeaderBytes) cut(layout::kHeaderBytes, Part::kFileHeader);
  if (at == layout::kHeaderBytes && head_.definition() == nullptr) {
    const bool isKnown = isHeaderSound && header.dataStart() > at;
    const bool isClaimed = claim && claim->offset == at && claim->type == layout::kDefinitionChunk;
    cut(isKnown ? header.dataStart() : isClaimed ? claim->end() : step.end, Part::kDefinition);
  }
  const bool isIndexLost = isHeaderSound && head_.indexChunk() == nullptr;
  if (isIndexLost && header.indexChunkOffset() > layout::kHeaderBytes) {
    cut(header.indexChunkOffset(), Part::kMessages);
    cut(step.end, Part::kIndex);
  }
  cut(step.end, claim ? partOf(claim->type) : Part::kMessages);
}

/// Behind the index stand spaces, up to where the file's size is a multiple of some number.
void FileMap::mapTail(std::uint64_t begin) {
  const FoundChunk& index = *head_.indexChunk();
  const bool isMoved = account_.indexState == IndexState::kMoved;
  const std::uint64_t writtenEnd =
      (isMoved ? account_.header.indexChunkOffset() : index.offset) + (index.end() - index.offset);
  const std::uint64_t end = begin + (alignedEnd(writtenEnd) - writtenEnd);
  const std::uint64_t held = std::min(end, source_.size());
  const std::string padding = source_.read(begin, static_cast<std::size_t>(held - begin));
  if (padding.find_first_not_of(' ') != std::string::npos) addDamage(begin, held, Part::kPadding);
  if (held < end) addDamage(held, held, Part::kPadding);
  if (end < source_.size()) {
    const std::size_t before = account_.damage.size();
    mapSpace({.begin = end,
              .end = source_.size(),
              .entryBefore = static_cast<std::ptrdiff_t>(head_.index().size()),
              .hasRoom = false});
    for (std::size_t i = before; i < account_.damage.size(); ++i) {
      if (account_.damage[i].part == Part::kMessages) account_.damage[i].part = Part::kBehindEnd;
    }
  }
}

/// Joins it with the one before where they touch and are of a kind.
void FileMap::addDamage(std::uint64_t begin, std::uint64_t end, Part part) {
  if (!account_.damage.empty()) {
    Damage& last = account_.damage.back();
    if (last.part == part && part != Part::kChunkHeader && last.range.end >= begin &&
        last.range.begin <= begin) {
      last.range.end = std::max(last.range.end, end);
      return;
    }
  }
  Damage damage;
  damage.range = {begin, end};
  damage.part = part;
  account_.damage.push_back(damage);
}

/// What is gone without a trace leaves a place of no length.
void FileMap::addMissingParts() {
  const auto has = [this](Part part) {
    return std::ranges::any_of(account_.damage, [part](const Damage& d) { return d.part == part; });
  };
  const std::uint64_t size = source_.size();
  if (head_.definition() == nullptr && !has(Part::kDefinition)) {
    const std::uint64_t at = std::min<std::uint64_t>(size, layout::kHeaderBytes);
    addDamage(at, at, Part::kDefinition);
  }
  const bool isIndexMissing =
      account_.indexState == IndexState::kDamaged && head_.indexChunk() == nullptr;
  if (isIndexMissing && !has(Part::kIndex)) addDamage(size, size, Part::kIndex);
}

void FileMap::assignLost() {
  std::ranges::stable_sort(account_.damage, {}, beginOf);
  const auto& places = match_.places();
  std::vector<Damage> cutOut;
  for (std::size_t i = 0; i < places.size();) {
    if (places[i]) {
      ++i;
      continue;
    }
    std::size_t end = i;
    while (end < places.size() && !places[end]) ++end;
    assignRun(i, end, &cutOut);
    i = end;
  }
  std::ranges::move(cutOut, std::back_inserter(account_.damage));
  std::ranges::stable_sort(account_.damage, {}, beginOf);
}

/// Messages that are lost one after another are lost where the ones around them leave room.
void FileMap::assignRun(std::size_t first, std::size_t end, std::vector<Damage>* cutOut) {
  const IndexList& index = head_.index();
  const auto& places = match_.places();
  const FoundChunk* const definition = head_.definition();
  std::uint64_t from = definition == nullptr ? 0 : definition->end();
  if (first > 0) from = endOf(*places[first - 1], index[first - 1]);
  std::uint64_t to = source_.size();
  if (end < index.size()) {
    to = places[end]->offset;
  } else if (head_.indexChunk() != nullptr) {
    to = head_.indexChunk()->offset;
  }
  Damage* damage = damageWithin(from, to);
  if (damage == nullptr) {
    const std::uint64_t at = std::min(from, source_.size());
    damage = &cutOut->emplace_back();
    damage->range = {at, at};
  }
  damage->isLostKnown = true;
  for (std::size_t i = first; i < end; ++i) addLost(index[i].header, damage);
}

Damage* FileMap::damageWithin(std::uint64_t begin, std::uint64_t end) {
  auto at = std::ranges::lower_bound(account_.damage, begin, {}, beginOf);
  for (; at != account_.damage.end() && at->range.begin <= end; ++at) {
    if (at->part == Part::kMessages) return &*at;
  }
  return nullptr;
}

}  // namespace morva::doctor

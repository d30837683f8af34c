#include "kit/doctor/index_match.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <tuple>

#include "platform/byte_order.h"
#include "platform/crc32.h"

namespace morva::doctor {
namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();
constexpr std::uint64_t kReadsOfFile = 4;

auto keyOf(const BagFile::TopicHeader& header) {
  return std::make_tuple(header.topicId, header.time, header.headerTimes[0], header.headerTimes[1],
                         header.storedSize, header.rawSize, header.count);
}

/// Whether a damaged header may have been this one: the sizes that its checksum vouches for agree,
/// and so does at least half of the rest.
bool isSimilar(const BagFile::TopicHeader& a, const BagFile::TopicHeader& b) {
  if (a.storedSize != b.storedSize) return false;
  const std::array<bool, 6> agree = {a.topicId == b.topicId,
                                     a.time == b.time,
                                     a.rawSize == b.rawSize,
                                     a.count == b.count,
                                     a.headerTimes[0] == b.headerTimes[0],
                                     a.headerTimes[1] == b.headerTimes[1]};
  return std::ranges::count(agree, true) >= 3;
}

/// The checksum of a part of the file, taken in steps.
std::uint32_t crcOf(ByteSource* source, std::uint64_t offset, std::uint64_t size) {
  constexpr std::uint64_t kStepBytes = 1024UL * 1024;
  std::string step;
  std::uint32_t crc = 0;
  for (std::uint64_t done = 0; done < size; done += step.size()) {
    step = source->read(offset + done, static_cast<std::size_t>(std::min(kStepBytes, size - done)));
    crc = Crc32(crc, step.data(), step.size());
  }
  return crc;
}

}  // namespace

bool Extents::overlaps(std::uint64_t begin, std::uint64_t end) const {
  const auto behind = ends_.lower_bound(end);
  return behind != ends_.begin() && std::prev(behind)->second > begin;
}

bool Extents::take(std::uint64_t begin, std::uint64_t end) {
  if (overlaps(begin, end)) return false;
  ends_.emplace(begin, end);
  return true;
}

IndexMatch::IndexMatch(const IndexList& entries, const std::vector<FoundChunk>& chunks,
                       ByteSource* source)
    : entries_(entries),
      chunks_(chunks),
      source_(*source),
      readBudget_(kReadsOfFile * source->size()),
      places_(entries.size()),
      isTaken_(chunks.size()) {}

void IndexMatch::run() {
  placeWhereWritten();
  placeDamagedWhereWritten();
  placeMoved();
  findNeighbours();
  placeMovedWithDamagedHeader();
  placeMovedWithDamagedFraming();
  findNeighbours();
}

std::size_t IndexMatch::firstChunkFrom(std::uint64_t offset) const {
  const auto first = std::ranges::lower_bound(chunks_, offset, {}, &FoundChunk::offset);
  return static_cast<std::size_t>(first - chunks_.begin());
}

bool IndexMatch::takeChunk(std::size_t entry, std::size_t chunk, bool isFramed) {
  const FoundChunk& found = chunks_[chunk];
  if (isTaken_[chunk] || !extents_.take(found.offset, found.end())) return false;
  isTaken_[chunk] = true;
  places_[entry] = Place{found.offset, found.crc, isFramed};
  return true;
}

void IndexMatch::placeWhereWritten() {
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const std::size_t at = firstChunkFrom(entries_[i].offset);
    if (at == chunks_.size() || chunks_[at].offset != entries_[i].offset) continue;
    if (chunks_[at].type != layout::kTopicDataChunk) continue;
    if (isSameHeader(chunks_[at].header, entries_[i].header)) takeChunk(i, at, true);
  }
}

/// Takes what lies at an offset for an entry's chunk of which only payload and checksum are left.
bool IndexMatch::restoreAt(std::size_t entry, std::uint64_t offset) {
  const std::uint32_t storedSize = entries_[entry].header.storedSize;
  if (offset >= source_.size()) return false;
  if (source_.size() - offset < messageBytes(storedSize)) return false;
  const std::uint64_t end = offset + messageBytes(storedSize);
  if (extents_.overlaps(offset, end)) return false;

  const std::size_t at = firstChunkFrom(offset);
  if (at < chunks_.size() && chunks_[at].offset == offset &&
      chunks_[at].type == layout::kTopicDataChunk && chunks_[at].header.storedSize == storedSize) {
    return takeChunk(entry, at, isSameHeader(chunks_[at].header, entries_[entry].header));
  }
  // An empty payload has no bytes that its checksum could vouch for.
  if (storedSize == 0 || storedSize > readBudget_) return false;
  readBudget_ -= storedSize;
  const std::string crcBytes = source_.read(end - layout::kCrcBytes, layout::kCrcBytes);
  const auto crc = loadLe<std::uint32_t>(crcBytes.data());
  if (crcOf(&source_, offset + layout::kTopicDataOffset, storedSize) != crc) return false;
  if (!extents_.take(offset, end)) return false;
  places_[entry] = Place{offset, crc, false};
  return true;
}

void IndexMatch::placeDamagedWhereWritten() {
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (!places_[i]) restoreAt(i, entries_[i].offset);
  }
}

void IndexMatch::placeMoved() {
  std::vector<std::size_t> free;
  for (std::size_t i = 0; i < chunks_.size(); ++i) {
    if (chunks_[i].type == layout::kTopicDataChunk && !isTaken_[i]) free.push_back(i);
  }
  const auto keyOfChunk = [this](std::size_t i) { return keyOf(chunks_[i].header); };
  std::ranges::stable_sort(free, {}, keyOfChunk);
  std::vector<std::size_t> tried(free.size());  // by the begin of a run of equal keys
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (places_[i]) continue;
    const auto key = keyOf(entries_[i].header);
    const auto begin = std::ranges::lower_bound(free, key, {}, keyOfChunk);
    const auto end = std::ranges::upper_bound(begin, free.end(), key, {}, keyOfChunk);
    if (begin == end) continue;
    std::size_t& next = tried[static_cast<std::size_t>(begin - free.begin())];
    const auto count = static_cast<std::size_t>(end - begin);
    while (next < count && !takeChunk(i, begin[static_cast<std::ptrdiff_t>(next++)], true)) {
    }
  }
}

void IndexMatch::findNeighbours() {
  previous_.assign(entries_.size(), kNone);
  next_.assign(entries_.size(), kNone);
  std::size_t last = kNone;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    previous_[i] = last;
    if (places_[i]) last = i;
  }
  last = kNone;
  for (std::size_t i = entries_.size(); i-- > 0;) {
    next_[i] = last;
    if (places_[i]) last = i;
  }
}

std::optional<std::int64_t> IndexMatch::shiftAt(std::size_t placedEntry) const {
  if (placedEntry == kNone) return std::nullopt;
  return static_cast<std::int64_t>(places_[placedEntry]->offset - entries_[placedEntry].offset);
}

bool IndexMatch::isAmongMessages(std::uint64_t offset) const {
  const auto isWithin = [&](std::size_t entry, std::uint64_t begin) {
    return begin < offset && offset - begin < messageBytes(entries_[entry].header.storedSize);
  };
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (places_[i]) {
      if (places_[i]->offset < offset) return true;
      continue;
    }
    for (const auto& shift : {shiftAt(previous_[i]), shiftAt(next_[i])}) {
      if (shift && isWithin(i, entries_[i].offset + static_cast<std::uint64_t>(*shift))) {
        return true;
      }
    }
  }
  return false;
}

/// Between two neighbours that were found, in order: what is left of the chunks may be what is left
/// of the entries.
void IndexMatch::matchGap(std::size_t firstEntry, std::size_t endEntry) {
  constexpr std::size_t kLookAhead = 64;
  const std::size_t before = previous_[firstEntry];
  const std::uint64_t begin =
      before == kNone ? 0
                      : places_[before]->offset + messageBytes(entries_[before].header.storedSize);
  const std::uint64_t end =
      next_[firstEntry] == kNone ? source_.size() : places_[next_[firstEntry]]->offset;
  std::size_t chunk = firstChunkFrom(begin);
  for (std::size_t i = firstEntry; i < endEntry; ++i) {
    for (std::size_t at = chunk; at < chunks_.size() && at < chunk + kLookAhead; ++at) {
      if (chunks_[at].offset >= end) break;
      if (chunks_[at].type != layout::kTopicDataChunk || isTaken_[at]) continue;
      if (!isSimilar(chunks_[at].header, entries_[i].header) || !takeChunk(i, at, false)) continue;
      chunk = at + 1;
      break;
    }
  }
}

void IndexMatch::placeMovedWithDamagedHeader() {
  for (std::size_t i = 0; i < entries_.size();) {
    if (places_[i]) {
      ++i;
      continue;
    }
    const std::size_t end = next_[i] == kNone ? entries_.size() : next_[i];
    matchGap(i, end);
    i = end;
  }
}

void IndexMatch::placeMovedWithDamagedFraming() {
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    const std::array shifts = {shiftAt(previous_[i]), shiftAt(next_[i])};
    for (const auto& shift : shifts) {
      if (places_[i] || !shift || *shift == 0) continue;
      restoreAt(i, entries_[i].offset + static_cast<std::uint64_t>(*shift));
    }
  }
}

}  // namespace morva::doctor

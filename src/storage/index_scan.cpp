#include "storage/index_scan.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>

#include "platform/byte_order.h"
#include "platform/memory.h"
#include "storage/index_fields.h"

namespace morva {
namespace {

using namespace index_fields;

constexpr std::size_t kMaxNumberBytes = 10;
constexpr std::size_t kMaxDataBytes = 0x7FFF0000;  // the general parser ends a little below 2 GiB
constexpr std::size_t kMaxEntryBytes = 6 * (1 + kMaxNumberBytes);
constexpr std::uint64_t kMore = 0x8080808080808080;  // set in every byte of a number but its last

std::uint8_t byteAt(const char* at) { return static_cast<std::uint8_t>(*at); }

bool isNarrow(std::uint64_t value) { return value >> 32U == 0; }

std::int64_t asSigned(std::uint64_t value) { return static_cast<std::int64_t>(value); }
std::uint32_t asNarrow(std::uint64_t value) { return static_cast<std::uint32_t>(value); }

const char* readNumberByByte(const char* at, const char* end, std::uint64_t* value) {
  std::uint64_t sum = 0;
  for (unsigned shift = 0; shift < 64 && at != end; shift += 7) {
    const std::uint8_t byte = byteAt(at++);
    if (shift == 63 && byte > 1) return nullptr;
    sum |= std::uint64_t{byte & 0x7FU} << shift;
    if (byte < 0x80) {
      *value = sum;
      return at;
    }
  }
  return nullptr;
}

/// Reads a number of 7 bits a byte. @return Where it ends; null where it is cut off by `end` or
/// does not fit 64 bits.
const char* readNumber(const char* at, const char* end, std::uint64_t* value) {
  if (end - at < 8) return readNumberByByte(at, end, value);
  const auto word = loadLe<std::uint64_t>(at);
  if ((word & 0x80) == 0) {
    *value = word & 0x7F;
    return at + 1;
  }
  const std::uint64_t last = ~word & kMore;
  if (last == 0) return readNumberByByte(at, end, value);
  // Groups of 7 bits move together: pairs, then pairs of pairs, then both halves.
  std::uint64_t bits = word & (last ^ (last - 1)) & ~kMore;
  bits = (bits & 0x007F007F007F007F) | (bits & 0x7F007F007F007F00) >> 1U;
  bits = (bits & 0x00003FFF00003FFF) | (bits & 0x3FFF00003FFF0000) >> 2U;
  *value = (bits & 0x000000000FFFFFFF) | (bits & 0x0FFFFFFF00000000) >> 4U;
  return at + std::countr_zero(last) / 8 + 1;
}

/// The same for the length of what follows, which the general parser takes from 5 bytes at most.
const char* readLength(const char* at, const char* end, std::uint64_t* value) {
  constexpr std::ptrdiff_t kMaxLengthBytes = 5;
  return readNumber(at, end - at > kMaxLengthBytes ? at + kMaxLengthBytes : end, value);
}

/// Reads the fields of an entry. @return False where they have not the usual form.
/// @param readable  Not before `end`: up to here there are bytes to look at.
bool readEntry(const char* at, const char* end, const char* readable, BagFile::TopicHeader* entry) {
  std::uint8_t before = 0;
  while (at < end) {
    const std::uint8_t tag = byteAt(at++);
    if (tag <= before) return false;
    before = tag;
    std::uint64_t value = 0;
    at = readNumber(at, readable, &value);
    if (at == nullptr) return false;
    switch (tag) {
      case kTimeTag:
        entry->time = asSigned(value);
        continue;
      case kFirstTimeTag:
        entry->headerTimes[0] = asSigned(value);
        continue;
      case kSecondTimeTag:
        entry->headerTimes[1] = asSigned(value);
        continue;
      case kCountTag:
        entry->count = asNarrow(value);
        break;
      case kRawSizeTag:
        entry->rawSize = asNarrow(value);
        break;
      case kStoredSizeTag:
        entry->storedSize = asNarrow(value);
        break;
      default:
        return false;
    }
    if (!isNarrow(value)) return false;
  }
  return at == end;
}

/// What entries of one length have in common: their tags, which bytes end a number, and the upper
/// bits of long numbers, which decide whether they fit. Entries rarely differ in these, so most of
/// them need no more than a comparison.
class EntryShape {
 public:
  /// @param body  kLookedAtBytes can be looked at.
  [[nodiscard]] bool fits(const char* body) const {
    std::uint64_t difference = words_ == 0 ? 1 : 0;
    for (std::size_t i = 0; i < words_; ++i) {
      difference |= (loadLe<std::uint64_t>(body + 8 * i) & masks_[i]) ^ bits_[i];
    }
    return difference == 0;
  }

  /// Takes the shape of an entry of `size` bytes that has the usual form.
  void learn(const char* body, std::size_t size) {
    std::array<std::uint8_t, kLookedAtBytes> mask{};
    std::size_t place = 0;  // 0: a tag; from 1: within a number
    for (std::size_t at = 0; at < size; ++at) {
      mask[at] = place == 0 || place >= kUpperPlace ? 0xFF : 0x80;
      place = place != 0 && byteAt(body + at) < 0x80 ? 0 : place + 1;
    }
    words_ = (size + 7) / 8;
    for (std::size_t i = 0; i < words_; ++i) {
      masks_[i] = loadLe<std::uint64_t>(&mask[8 * i]);
      bits_[i] = loadLe<std::uint64_t>(body + 8 * i) & masks_[i];
    }
  }

  static constexpr std::size_t kLookedAtBytes = (kMaxEntryBytes + 7) / 8 * 8;

 private:
  static constexpr std::size_t kUpperPlace = 5;  // the byte in which a number may pass 32 bits

  std::size_t words_ = 0;  ///< 0: nothing learnt
  std::array<std::uint64_t, kLookedAtBytes / 8> masks_{};
  std::array<std::uint64_t, kLookedAtBytes / 8> bits_{};
};

}  // namespace

/// Shapes of entries, by their size.
class IndexScan::Shapes {
 public:
  /// @return Whether the entry has the usual form. @param readable  Up to here there are bytes.
  [[nodiscard]] bool isUsual(const char* body, std::size_t size, const char* readable) {
    const bool canLook = static_cast<std::size_t>(readable - body) >= EntryShape::kLookedAtBytes;
    if (canLook && shapes_[size].fits(body)) return true;
    BagFile::TopicHeader entry;
    if (!readEntry(body, body + size, readable, &entry)) return false;
    if (canLook) shapes_[size].learn(body, size);
    return true;
  }

 private:
  std::array<EntryShape, kMaxEntryBytes + 1> shapes_;
};

/// The piece of the index that can be looked at.
struct IndexScan::Cursor {
  [[nodiscard]] std::uint64_t position() const {
    return at + static_cast<std::uint64_t>(next - bytes.data());
  }
  /// The end of the index's bytes up to `end`, as far as they can be looked at.
  [[nodiscard]] const char* upTo(std::uint64_t end) const {
    return bytes.data() + std::min<std::uint64_t>(end - at, bytes.size());
  }
  [[nodiscard]] const char* readable() const { return bytes.data() + bytes.size(); }

  std::uint64_t at;  ///< of the first byte, in the index
  std::string_view bytes;
  const char* next;  ///< not consumed yet
  const char* stop;  ///< what begins here, or behind, may be cut off
};

IndexScan::IndexScan(std::uint64_t size) : size_(size), shapes_(std::make_unique<Shapes>()) {}

IndexScan::~IndexScan() = default;

bool IndexScan::isComplete() const { return position_ == size_ && !inTopic_; }

std::int64_t IndexScan::feed(std::string_view piece) {
  if (size_ > kMaxDataBytes) return -1;
  const std::string_view bytes = piece.substr(0, size_ - position_);
  const bool isLast = bytes.size() == size_ - position_;
  const std::size_t tail = isLast ? 0 : std::min(kTailBytes, bytes.size());
  Cursor cursor{.at = position_,
                .bytes = bytes,
                .next = bytes.data(),
                .stop = bytes.data() + (bytes.size() - tail)};
  while (cursor.next < cursor.stop) {
    if (!step(&cursor)) return -1;
  }
  position_ = cursor.position();
  if (inTopic_ && position_ == topicEnd_) endTopic();
  return cursor.next - bytes.data();
}

bool IndexScan::step(Cursor* cursor) {
  const std::uint64_t position = cursor->position();
  if (inTopic_ && position == topicEnd_) endTopic();
  if (!inTopic_) return beginTopic(cursor);
  return position < topic_.offsetsEnd ? takeOffsets(cursor) : takeField(cursor);
}

bool IndexScan::beginTopic(Cursor* cursor) {
  if (byteAt(cursor->next++) != kTopicTag) return false;
  std::uint64_t size = 0;
  cursor->next = readLength(cursor->next, cursor->readable(), &size);
  if (cursor->next == nullptr || size > size_ - cursor->position()) return false;
  inTopic_ = true;
  topicEnd_ = cursor->position() + size;
  lastTag_ = 0;
  entries_ = 0;
  topic_ = {};
  return true;
}

void IndexScan::endTopic() {
  inTopic_ = false;
  if (entries_ > 0 && entries_ == topic_.totals.chunks) topics_.push_back(topic_);
}

bool IndexScan::takeField(Cursor* cursor) {
  const std::uint8_t tag = byteAt(cursor->next);
  if (tag == kEntryTag) return takeEntries(cursor);
  if (tag <= lastTag_) return false;
  lastTag_ = tag;
  const char* const end = cursor->upTo(topicEnd_);
  std::uint64_t value = 0;
  if (tag != kOffsetsTag) {
    cursor->next = readNumber(cursor->next + 1, end, &value);
    return cursor->next != nullptr && takeTotal(tag, value);
  }
  cursor->next = readLength(cursor->next + 1, end, &value);
  if (cursor->next == nullptr || value > topicEnd_ - cursor->position()) return false;
  topic_.offsetsAt = cursor->position();
  topic_.offsetsEnd = topic_.offsetsAt + value;
  return true;
}

bool IndexScan::takeTotal(std::uint8_t tag, std::uint64_t value) {
  switch (tag) {
    case kTopicIdTag:
      topic_.topicId = asNarrow(value);
      return isNarrow(value);
    case kCountSumTag:
      topic_.totals.countSum = asNarrow(value);
      return isNarrow(value);
    case kRawSizeSumTag:
      topic_.totals.rawSizeSum = value;
      return true;
    case kStartTimeTag:
      topic_.totals.startTime = asSigned(value);
      return true;
    case kEndTimeTag:
      topic_.totals.endTime = asSigned(value);
      return true;
    default:
      return false;
  }
}

bool IndexScan::takeOffsets(Cursor* cursor) {
  const char* const end = cursor->upTo(topic_.offsetsEnd);
  const char* const stop = std::min(cursor->stop, end);
  const char* at = cursor->next;
  std::size_t count = 0;
  for (; at < stop; ++count) {
    std::uint64_t offset = 0;
    at = readNumber(at, end, &offset);
    if (at == nullptr) return false;
  }
  topic_.totals.chunks += count;
  cursor->next = at;
  return true;
}

bool IndexScan::takeEntries(Cursor* cursor) {
  if (lastTag_ != kEntryTag) topic_.entriesAt = cursor->position();
  lastTag_ = kEntryTag;
  const char* const end = cursor->upTo(topicEnd_);
  const char* const stop = std::min(cursor->stop, end);
  const char* at = cursor->next;
  while (at < stop) {
    if (byteAt(at) != kEntryTag || end - at < 2) return false;
    const std::size_t size = byteAt(at + 1);
    const char* const body = at + 2;
    if (size > kMaxEntryBytes || size > static_cast<std::size_t>(end - body)) return false;
    if (!shapes_->isUsual(body, size, cursor->readable())) return false;
    at = body + size;
    ++entries_;
  }
  cursor->next = at;
  topic_.entriesEnd = cursor->position();
  return true;
}

bool scanTopicIndexes(std::string_view data, std::vector<EncodedTopic>* topics) {
  IndexScan scan(data.size());
  if (scan.feed(data) < 0 || !scan.isComplete()) return false;
  *topics = scan.topics();
  return true;
}

void visitTopic(std::string_view data, const EncodedTopic& topic, const OnEntry& use) {
  const char* offsetAt = data.data() + topic.offsetsAt;
  const char* const offsetsEnd = data.data() + topic.offsetsEnd;
  const char* at = data.data() + topic.entriesAt;
  const char* const end = data.data() + topic.entriesEnd;
  for (std::size_t i = 0; i < topic.totals.chunks; ++i) {
    std::uint64_t offset = 0;
    offsetAt = readNumber(offsetAt, offsetsEnd, &offset);
    BagFile::TopicHeader entry;
    entry.topicId = static_cast<std::int32_t>(topic.topicId);
    const char* const body = at + 2;  // behind tag and length
    at = body + byteAt(at + 1);
    if (!readEntry(body, at, end, &entry)) break;  // never: the scan has seen that it is sound
    use(entry, offset);
  }
}

std::shared_ptr<BagFile::TopicIndex> decodeTopic(std::string_view data, const EncodedTopic& topic) {
  auto index = std::make_shared<BagFile::TopicIndex>();
  index->countSum = topic.totals.countSum;
  index->rawSizeSum = topic.totals.rawSizeSum;
  index->startTime = topic.totals.startTime;
  index->endTime = topic.totals.endTime;
  index->chunkOffsets.reserve(topic.totals.chunks);
  index->entries.reserve(topic.totals.chunks);
  osmik::useLargePages(index->entries.data(), topic.totals.chunks * sizeof(BagFile::TopicHeader));
  visitTopic(data, topic, [&](const BagFile::TopicHeader& entry, std::uint64_t offset) {
    index->chunkOffsets.push_back(offset);
    index->entries.push_back(entry);
  });
  return index;
}

}  // namespace morva

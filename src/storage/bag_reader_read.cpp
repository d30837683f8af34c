#include "storage/bag_reader.h"

// The reads of BagReader: a chunk, a message, the search for the next chunk. All of them hold the
// lock while they use the file and verify and decompress without it.
#include <algorithm>
#include <array>
#include <limits>
#include <string>
#include <utility>

#include "platform/byte_order.h"
#include "platform/crc32.h"
#include "platform/overwrite_string.h"
#include "storage/index_codec.h"

namespace morva {
namespace {

constexpr std::int64_t kCrcBytes = layout::kCrcBytes;

const Log& readLog() {
  static const Log log("BagReader", "read");
  return log;
}

const Log& searchLog() {
  static const Log log("BagReader", "readNextChunk");
  return log;
}

}  // namespace

std::int64_t BagReader::read(Chunk* chunk, std::int64_t offset, std::int64_t* next) {
  Stored stored;
  std::string packed;
  {
    const std::lock_guard lock(mutex_);
    if (!seekToChunk(chunk, offset, readLog)) return -1;
    if (!readFraming(chunk, offset, &stored)) return -1;
    if (chunk->headerOnly) return skipData(stored.size, next);
    if (isPacked(*chunk, stored)) packed = takeSpare();
    if (!readStored(isPacked(*chunk, stored) ? &packed : &chunk->data, &stored)) return -1;
  }
  const std::string& bytes = isPacked(*chunk, stored) ? packed : chunk->data;
  if (!isSound(Crc32(bytes.data(), bytes.size()), offset, stored)) return -1;
  if (next != nullptr) *next = stored.end;
  if (!isPacked(*chunk, stored)) return stored.size;

  const std::int64_t length = restore(*chunk, offset, stored, packed, &chunk->data);
  giveSpare(std::move(packed));
  return length;
}

std::int64_t BagReader::verify(Chunk* chunk, std::int64_t offset, std::int64_t* next) {
  const std::lock_guard lock(mutex_);
  Stored stored;
  if (!seekToChunk(chunk, offset, readLog)) return -1;
  if (!readFraming(chunk, offset, &stored)) return -1;
  // Found sound when the bag was opened: a walk's last chunk, and often its largest.
  if (offset == soundIndexAt_) return skipData(stored.size, next);
  // Small chunks in one piece: each step costs as much as their checksum.
  constexpr std::uint32_t kSmallBytes = 4096;
  const bool packed = isPacked(*chunk, stored);
  std::uint32_t sum = 0;
  std::string_view data;
  if (packed || stored.size <= kSmallBytes) {
    if (!(packed ? holdStored(&stored, &data) : takeStored(&stored, &data))) return -1;
    sum = Crc32(data.data(), data.size());
  } else if (!sumStored(&stored, &sum)) {
    return -1;
  }
  if (!isSound(sum, offset, stored)) return -1;
  if (next != nullptr) *next = stored.end;
  return packed ? restore(*chunk, offset, stored, data, &restored_) : stored.size;
}

bool BagReader::isSound(std::uint32_t computed, std::int64_t offset, const Stored& stored) {
  if (computed == stored.crc) return true;
  readLog().error(
      "crc32 error(0x%08X : 0x%08X), chunk offset: 0x%016llX, crc32 offset: 0x%016llX, "
      "crc data len: %d!",
      computed, stored.crc, offset, stored.end, stored.size);
  return false;
}

bool BagReader::seekToChunk(const Chunk* chunk, std::int64_t offset, const Log& (*log)()) {
  if (!file_ || chunk == nullptr || offset <= 0) {
    log().error("offset: %lld, param error!", offset);
    return false;
  }
  const std::int64_t position = file_->seek(offset);
  if (position != offset) log().error("set offset(%lld) error: %lld!", offset, position);
  return position == offset;
}

template <typename T>
std::int64_t BagReader::readValue(T* value) {
  std::array<char, sizeof(T)> bytes{};
  const std::int64_t count = file_->read(bytes.data(), bytes.size());
  *value = loadLe<T>(bytes.data());
  return count;
}

bool BagReader::readFraming(Chunk* chunk, std::int64_t offset, Stored* stored) {
  chunk->size = 0;
  chunk->type = 0;
  chunk->header.clear();
  chunk->data.clear();

  std::string_view bytes;
  if (const auto count = file_->peek(layout::kTopicDataOffset, &bytes); count < 0) {
    readLog().error("read chunk size error, offset: %lld, ret: %d!", offset, count);
    return false;
  }
  // Small chunks cost as much as their framing does: where all of it lies ready, as it nearly
  // always does, it is taken in one piece.
  if (bytes.size() < layout::kChunkPrefixBytes) return readFramingByField(chunk, offset, stored);
  const auto headerSize = loadLe<std::uint16_t>(&bytes[layout::kHeaderSizeOffset]);
  const std::size_t sizeAt = layout::kChunkPrefixBytes + headerSize;
  if (headerSize < layout::kMinChunkHeaderBytes || bytes.size() < sizeAt + sizeof stored->size) {
    return readFramingByField(chunk, offset, stored);
  }
  chunk->size = loadLe<std::uint32_t>(bytes.data());
  chunk->type = loadLe<std::uint16_t>(&bytes[layout::kChunkTypeOffset]);
  chunk->header.assign(bytes, layout::kChunkPrefixBytes, headerSize);
  stored->size = loadLe<std::uint32_t>(&bytes[sizeAt]);
  const auto dataAt = offset + static_cast<std::int64_t>(sizeAt + sizeof stored->size);
  return file_->seek(dataAt) == dataAt;
}

bool BagReader::readFramingByField(Chunk* chunk, std::int64_t offset, Stored* stored) {
  const Log& log = readLog();
  if (const auto count = readValue(&chunk->size); count != sizeof chunk->size) {
    log.error("read chunk size error, offset: %lld, ret: %d!", offset, count);
    return false;
  }
  if (const auto count = readValue(&chunk->type); count != sizeof chunk->type) {
    log.error("read chunk type error, ret: %d!", count);
    return false;
  }
  std::uint16_t headerSize = 0;
  if (const auto count = readValue(&headerSize); count != sizeof headerSize) {
    log.error("read chunk header size error, ret: %d!", count);
    return false;
  }
  if (headerSize < layout::kMinChunkHeaderBytes) {
    log.error("chunk header size(%d < %d) error!", headerSize, layout::kMinChunkHeaderBytes);
    return false;
  }
  chunk->header.resize(headerSize);
  if (const auto count = file_->read(chunk->header.data(), headerSize); count != headerSize) {
    log.error("read chunk header error, ret: %d!", count);
    return false;
  }
  if (const auto count = readValue(&stored->size); count != sizeof stored->size) {
    log.error("read data size error, ret: %d!", count);
    return false;
  }
  return true;
}

std::int64_t BagReader::skipData(std::uint32_t size, std::int64_t* next) {
  const std::int64_t rest = std::int64_t{size} + kCrcBytes;
  if (bytesLeft(rest) < rest) return -1;
  const std::int64_t end = file_->pos() + rest;
  if (file_->seek(end) != end) return -1;
  if (next != nullptr) *next = end;
  return size;
}

/// Whether the file has data and checksum behind the position; a line where not even the data.
bool BagReader::holdsStored(const Stored& stored) {
  const std::int64_t size = stored.size;
  const std::int64_t left = bytesLeft(size + kCrcBytes);
  if (left < size) readLog().error("read data(%u) error, ret: %d!", size, left);
  return left >= size;
}

bool BagReader::readStored(std::string* data, Stored* stored) {
  if (!holdsStored(*stored)) return false;
  const std::int64_t size = stored->size;
  // One read for data and checksum, which is not kept.
  std::int64_t count = 0;
  overwriteString(data, stored->size + layout::kCrcBytes, [&](char* memory, std::size_t bytes) {
    count = file_->read(memory, bytes);
    if (count < size + kCrcBytes) return std::size_t{0};
    stored->crc = loadLe<std::uint32_t>(memory + size);
    return bytes - layout::kCrcBytes;
  });
  return isWhole(count, stored);
}

/// Looks at what a read of data and checksum has returned.
bool BagReader::isWhole(std::int64_t count, Stored* stored) {
  const std::int64_t size = stored->size;
  if (size > 0 && count < size) {
    readLog().error("read data(%u) error, ret: %d!", size, count);
    return false;
  }
  if (count < size + kCrcBytes) {
    readLog().error("read crc32 error, ret: %d!", count - size);
    return false;
  }
  stored->end = file_->pos();
  stored->fileSize = fileSize_;
  return true;
}

bool BagReader::sumStored(Stored* stored, std::uint32_t* sum) {
  if (!holdsStored(*stored)) return false;
  // Piece by piece where the bytes lie: copies would cost as much as the checksum.
  std::int64_t done = 0;
  *sum = 0;
  while (done < stored->size) {
    std::string_view piece;
    const std::int64_t count =
        file_->readInPlace(static_cast<std::size_t>(stored->size - done), &piece);
    if (count < 1) return isWhole(done > 0 ? done : count, stored);
    *sum = Crc32(*sum, piece.data(), piece.size());
    done += count;
  }
  const std::int64_t count = readValue(&stored->crc);
  return isWhole(count < 0 && done == 0 ? count : done + std::max<std::int64_t>(count, 0), stored);
}

bool BagReader::takeStored(Stored* stored, std::string_view* data) {
  const std::size_t bytes = stored->size + layout::kCrcBytes;
  const std::int64_t count = file_->take(bytes, data);
  if (count != static_cast<std::int64_t>(bytes)) return isWhole(count, stored);
  stored->crc = loadLe<std::uint32_t>(&(*data)[stored->size]);
  stored->end = file_->pos();
  *data = data->substr(0, stored->size);
  return true;
}

bool BagReader::holdStored(Stored* stored, std::string_view* data) {
  const std::size_t bytes = stored->size + layout::kCrcBytes;
  if (bytes > osmik::File::kMaxPeekBytes) {
    if (!readStored(&packed_, stored)) return false;
    *data = packed_;
    return true;
  }
  if (!holdsStored(*stored) || !takeStored(stored, data)) return false;
  stored->fileSize = fileSize_;
  return true;
}

bool BagReader::isPacked(const Chunk& chunk, const Stored& stored) const {
  return compressor_ && loadLe<std::uint32_t>(&chunk.header[layout::kRawSizeOffset]) != stored.size;
}

std::int64_t BagReader::restore(const Chunk& chunk, std::int64_t offset, const Stored& stored,
                                std::string_view packed, std::string* data) const {
  const auto rawSize = loadLe<std::uint32_t>(&chunk.header[layout::kRawSizeOffset]);
  const bool canBe = chunk.type != layout::kIndexChunk ||
                     canBeIndexSize(rawSize, stored.fileSize, topicNames_.size());
  if (!canBe || compressor_->decompress(packed.data(), packed.size(), rawSize, data) < 1) {
    readLog().error("decompress error, chunk offset: 0x%016llX, msg size: %d!", offset, rawSize);
    return -1;
  }
  return static_cast<std::int64_t>(data->size());
}

std::string BagReader::takeSpare() {
  if (spares_.empty()) return {};
  std::string spare = std::move(spares_.back());
  spares_.pop_back();
  return spare;
}

void BagReader::giveSpare(std::string spare) {
  const std::lock_guard lock(mutex_);
  if (file_) spares_.push_back(std::move(spare));
}

void BagReader::dropSpares() {
  const std::lock_guard lock(mutex_);
  spares_.clear();
}

std::int64_t BagReader::read(const MsgIndex& index, std::string* data) {
  Stored stored;
  stored.size = index.storedSize;
  const bool packed = compressor_ && index.rawSize != index.storedSize;
  std::string spare;
  {
    const std::lock_guard lock(mutex_);
    if (!seekToMessage(index, data)) return -1;
    if (packed) spare = takeSpare();
    if (!readStored(packed ? &spare : data, &stored)) return -1;
  }
  const std::string& bytes = packed ? spare : *data;
  const std::uint32_t computed = Crc32(bytes.data(), bytes.size());
  if (computed != stored.crc) {
    readLog().error("crc32 error(0x%08X : 0x%08X), chunk offset: 0x%016llX, msg data size: %u!",
                    computed, stored.crc, index.chunkOffset, index.storedSize);
    return -1;
  }
  if (!packed) return index.storedSize;

  const std::int64_t length =
      compressor_->decompress(spare.data(), spare.size(), index.rawSize, data);
  giveSpare(std::move(spare));
  if (length >= 1) return length;
  readLog().error("decompress error, chunk offset: 0x%016llX!", index.chunkOffset);
  return -1;
}

bool BagReader::seekToMessage(const MsgIndex& index, const std::string* data) {
  constexpr auto kMaxOffset = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  const auto topicId = static_cast<std::int32_t>(index.topicId);
  if (!file_ || data == nullptr || topicId < 0 || index.rawSize < index.storedSize ||
      index.count == 0 || index.rawSize == 0 || index.chunkOffset < layout::kHeaderBytes) {
    readLog().error("topicId: %d, offset: %lld, index error!", topicId,
                    static_cast<std::int64_t>(index.chunkOffset));
    return false;
  }
  const auto target = static_cast<std::int64_t>(index.chunkOffset + layout::kTopicDataOffset);
  if (index.chunkOffset > kMaxOffset - layout::kTopicDataOffset || file_->seek(target) != target) {
    readLog().error("set offset(%lld) error!", target);
    return false;
  }
  return true;
}

std::int64_t BagReader::readNextChunk(Chunk* chunk, std::int64_t offset, std::int64_t* next) {
  std::int64_t match = -1;
  {
    const std::lock_guard lock(mutex_);
    if (!seekToChunk(chunk, offset, searchLog)) return -1;
    match = findChunk();
  }
  return match < 0 ? -1 : read(chunk, match, next);
}

std::int64_t BagReader::findChunk() {
  constexpr std::size_t kStepBytes = 1024;
  constexpr std::size_t kDropBytes = 4096;
  constexpr std::size_t kMaxBufferBytes = 4099;
  // First byte of 01 00 24 00, the type and header size of a topic data chunk. It alone is
  // searched.
  constexpr char kMark = 0x01;

  std::string buffer;
  std::array<char, kStepBytes> step;
  while (true) {
    const std::int64_t count = file_->read(step.data(), step.size());
    if (count < 1) return -1;
    buffer.append(step.data(), static_cast<std::size_t>(count));
    if (const std::size_t at = buffer.rfind(kMark); at != std::string::npos) {
      const std::int64_t position = file_->pos();
      const std::int64_t match =
          position - static_cast<std::int64_t>(buffer.size()) + static_cast<std::int64_t>(at);
      searchLog().info("---current offset:0x%016llx, start:%d(%d)", position, at, buffer.size());
      searchLog().info("find new chunk at offset: 0x%016llx", match);
      return match;
    }
    if (buffer.size() > kMaxBufferBytes) buffer.erase(0, kDropBytes);
  }
}

std::int64_t BagReader::bytesLeft(std::int64_t wanted) {
  const std::int64_t at = file_->pos();
  if (fileSize_ - at < wanted) fileSize_ = file_->size();
  return std::max<std::int64_t>(fileSize_ - at, 0);
}

}  // namespace morva

#include "kit/doctor/chunk_finder.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

#include "platform/byte_order.h"
#include "platform/crc32.h"

namespace morva::doctor {
namespace {

/// The low byte of the header size, at this place in a chunk, is what claims are searched by: 36 in
/// a message's chunk, 12 in the others.
constexpr std::size_t kMarkOffset = 6;

/// CRC-32 of any bytes that are followed by their own CRC-32.
constexpr std::uint32_t kSoundResidue = 0x2144DF1C;

constexpr std::size_t framingBytes(std::size_t headerBytes) {
  return layout::kChunkPrefixBytes + headerBytes + sizeof(std::uint32_t);
}

}  // namespace

FoundChunks ChunkFinder::find(const Progress& progress) {
  const std::uint64_t size = source_.size();
  while (bufferEnd() < size) {
    if (!progress(static_cast<double>(bufferEnd()) / static_cast<double>(size))) {
      found_.isComplete = false;
      return std::move(found_);
    }
    readBlock();
    addClaims();
    followClaims();
  }
  std::ranges::sort(found_.sound, {}, &FoundChunk::offset);
  std::ranges::sort(found_.torn, {}, &FoundChunk::offset);
  return std::move(found_);
}

/// Keeps so much of the block before that no chunk's framing is cut.
void ChunkFinder::readBlock() {
  const std::size_t kept = std::min(buffer_.size(), kMaxFramingBytes);
  oldEnd_ = bufferEnd();
  bufferBegin_ = oldEnd_ - kept;
  buffer_.erase(0, buffer_.size() - kept);
  const auto count =
      static_cast<std::size_t>(std::min<std::uint64_t>(blockBytes_, source_.size() - oldEnd_));
  buffer_.resize(kept + count);
  source_.read(oldEnd_, count, buffer_.data() + kept);
}

void ChunkFinder::addClaims() {
  newClaims_.clear();
  for (const std::size_t headerBytes : {layout::kTopicHeaderBytes, layout::kMinChunkHeaderBytes}) {
    addMarkedClaims(static_cast<char>(headerBytes), framingBytes(headerBytes) - kMarkOffset);
  }
  std::ranges::sort(newClaims_, {}, &FoundChunk::dataBegin);
}

/// @param bytesBehind  From the mark to the data: claims whose data begins in this block are new.
void ChunkFinder::addMarkedClaims(char mark, std::size_t bytesBehind) {
  const std::string_view bytes = buffer_;
  const std::size_t oldBytes = bytes.size() - static_cast<std::size_t>(bufferEnd() - oldEnd_);
  std::size_t at = oldBytes < bytesBehind ? 0 : oldBytes - bytesBehind + 1;
  at = std::max(at, kMarkOffset);
  while (at + bytesBehind <= bytes.size()) {
    const void* const found =
        std::memchr(bytes.data() + at, mark, bytes.size() - bytesBehind - at + 1);
    if (found == nullptr) return;
    at = static_cast<std::size_t>(static_cast<const char*>(found) - bytes.data());
    const std::size_t begin = at - kMarkOffset;
    const auto chunk = parseFraming(bytes.substr(begin), bufferBegin_ + begin);
    if (chunk && chunk->end() <= source_.size()) newClaims_.push_back(*chunk);
    ++at;
  }
}

void ChunkFinder::followClaims() {
  auto next = newClaims_.begin();
  while (true) {
    const std::uint64_t opens = next == newClaims_.end() ? bufferEnd() + 1 : next->dataBegin();
    const std::uint64_t decides =
        openClaims_.empty() ? bufferEnd() + 1 : openClaims_.begin()->first;
    if (std::min(opens, decides) > bufferEnd()) break;
    advanceTo(std::min(opens, decides));
    if (opens <= decides) {
      open(*next++);
    } else {
      closeFirst();
    }
  }
  advanceTo(bufferEnd());
}

void ChunkFinder::open(const FoundChunk& chunk) {
  openClaims_.emplace(chunk.end(), Claim{chunk, crc_});
  if (openClaims_.size() > kMaxOpenClaims) openClaims_.erase(std::prev(openClaims_.end()));
}

void ChunkFinder::closeFirst() {
  Claim& claim = openClaims_.begin()->second;
  FoundChunk& chunk = claim.chunk;
  const std::uint64_t length = chunk.end() - chunk.dataBegin();
  // The checksum itself is still in the buffer, which keeps more of the last block than that.
  chunk.crc = loadLe<std::uint32_t>(
      &buffer_[static_cast<std::size_t>(chunk.end() - layout::kCrcBytes - bufferBegin_)]);
  if (Crc32OfTail(crc_, claim.crcBefore, length) == kSoundResidue) {
    found_.sound.push_back(chunk);
  } else if (found_.torn.size() < kMaxTorn) {
    found_.torn.push_back(chunk);
  }
  openClaims_.erase(openClaims_.begin());
}

void ChunkFinder::advanceTo(std::uint64_t offset) {
  const auto from = static_cast<std::size_t>(crcEnd_ - bufferBegin_);
  crc_ = Crc32(crc_, buffer_.data() + from, static_cast<std::size_t>(offset - crcEnd_));
  crcEnd_ = offset;
}

}  // namespace morva::doctor

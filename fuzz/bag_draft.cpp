#include "bag_draft.h"

#include <algorithm>
#include <map>
#include <memory>

#include <kbag_msgs.pb.h>

#include "platform/byte_order.h"
#include "platform/compress.h"
#include "platform/crc32.h"
#include "storage/bag_layout.h"
#include "storage/index_codec.h"

namespace morva::fuzz {
namespace {

namespace pb = protix::kbag_msgs;

constexpr std::size_t kMaxRestoredBytes = 256UL * 1024;

std::unique_ptr<basalt::Compressor> codecOf(std::uint8_t compression) {
  if (compression == 2) return std::make_unique<basalt::Lz4Compress>();
  if (compression == 3) return std::make_unique<basalt::ZstdCompress>();
  return nullptr;
}

/// Whether a chunk of a type that there is, with a header of the usual sizes, may begin here: a
/// quick look, since most places do not.
bool mayBeChunk(std::string_view bytes) {
  if (bytes.size() < layout::kChunkFramingBytes) return false;
  const auto type = loadLe<std::uint16_t>(bytes.data() + layout::kChunkTypeOffset);
  const auto headerSize = loadLe<std::uint16_t>(bytes.data() + layout::kHeaderSizeOffset);
  return type <= 0xFF && headerSize >= layout::kMinChunkHeaderBytes && headerSize <= 0xFF;
}

/// The chunk at the start of `bytes`, where its sizes lie within them.
std::optional<DraftChunk> parseChunk(std::string_view bytes) {
  if (bytes.size() < layout::kChunkFramingBytes) return std::nullopt;
  DraftChunk chunk;
  chunk.type = loadLe<std::uint16_t>(&bytes[layout::kChunkTypeOffset]);
  const std::size_t headerSize = loadLe<std::uint16_t>(&bytes[layout::kHeaderSizeOffset]);
  if (headerSize < layout::kMinChunkHeaderBytes ||
      bytes.size() - layout::kChunkFramingBytes < headerSize) {
    return std::nullopt;
  }
  const std::size_t sizeAt = layout::kChunkPrefixBytes + headerSize;
  const std::size_t dataSize = loadLe<std::uint32_t>(&bytes[sizeAt]);
  if (bytes.size() - layout::kChunkFramingBytes - headerSize < dataSize) return std::nullopt;
  chunk.header = bytes.substr(layout::kChunkPrefixBytes, headerSize);
  chunk.data = bytes.substr(sizeAt + 4, dataSize);
  const auto size = loadLe<std::uint32_t>(bytes.data());
  if (size != chunk.size()) chunk.wrongSize = size;
  const auto crc = loadLe<std::uint32_t>(&bytes[sizeAt + 4 + dataSize]);
  if (crc != Crc32(chunk.data.data(), chunk.data.size())) chunk.wrongCrc = crc;
  return chunk;
}

void appendChunk(std::string* bytes, const DraftChunk& chunk) {
  if (!chunk.isChunk) {
    *bytes += chunk.data;
    return;
  }
  const auto size = static_cast<std::uint32_t>(chunk.size());
  appendLe<std::uint32_t>(bytes, chunk.wrongSize.value_or(size));
  appendLe<std::uint16_t>(bytes, chunk.type);
  appendLe<std::uint16_t>(
      bytes, chunk.wrongHeaderSize.value_or(static_cast<std::uint16_t>(chunk.header.size())));
  *bytes += chunk.header;
  const auto dataSize = static_cast<std::uint32_t>(chunk.data.size());
  appendLe<std::uint32_t>(bytes, chunk.wrongDataSize.value_or(dataSize));
  *bytes += chunk.data;
  appendLe<std::uint32_t>(
      bytes, chunk.wrongCrc ? *chunk.wrongCrc : Crc32(chunk.data.data(), chunk.data.size()));
}

std::map<std::uint64_t, std::uint64_t> movesOf(const BagDraft& bag) {
  std::map<std::uint64_t, std::uint64_t> moves;
  const std::vector<std::uint64_t> offsets = bag.offsets();
  for (std::size_t i = 0; i < bag.chunks.size(); ++i) {
    moves.try_emplace(bag.chunks[i].origin, offsets[i]);
  }
  return moves;
}

/// @return Nothing where it is no index in the form that is usual, which would not stay as it is.
std::optional<pb::ChunkIndexData> parseUsualIndex(const std::string& raw) {
  pb::ChunkIndexData index;
  if (!index.ParseFromString(raw) || index.SerializeAsString() != raw) return std::nullopt;
  return index;
}

}  // namespace

std::size_t DraftChunk::size() const {
  return isChunk ? layout::chunkBytes(header.size(), data.size()) : data.size();
}

std::uint32_t DraftChunk::rawSize() const {
  return header.size() < layout::kMinChunkHeaderBytes
             ? 0
             : loadLe<std::uint32_t>(&header[layout::kRawSizeOffset]);
}

void DraftChunk::setRawSize(std::size_t size) {
  if (header.size() < layout::kMinChunkHeaderBytes) return;
  storeLe<std::uint32_t>(&header[layout::kRawSizeOffset], static_cast<std::uint32_t>(size));
}

void DraftChunk::mend() {
  wrongSize.reset();
  wrongDataSize.reset();
  wrongCrc.reset();
  wrongHeaderSize.reset();
}

bool BagDraft::hasHeader() const { return header.size() == layout::kHeaderBytes; }

std::uint8_t BagDraft::compression() const {
  return hasHeader() ? static_cast<std::uint8_t>(header[layout::kCompressionOffset]) : 0;
}

BagDraft BagDraft::parse(std::string_view bytes) {
  BagDraft draft;
  draft.header = bytes.substr(0, layout::kHeaderBytes);
  if (!draft.hasHeader()) return draft;
  draft.isHeaderCrcWrong = loadLe<std::uint32_t>(&bytes[layout::kHeaderCrcOffset]) !=
                           Crc32(bytes.data(), layout::kHeaderCrcOffset);
  std::size_t at = layout::kHeaderBytes;
  while (at < bytes.size()) {
    std::optional<DraftChunk> chunk = parseChunk(bytes.substr(at));
    if (!chunk) {
      // Bytes up to where another chunk begins, or all that is left.
      std::size_t next = at + 1;
      while (next < bytes.size() &&
             (!mayBeChunk(bytes.substr(next)) || !parseChunk(bytes.substr(next)))) {
        ++next;
      }
      chunk.emplace();
      chunk->isChunk = false;
      chunk->data = bytes.substr(at, next - at);
    }
    chunk->origin = at;
    at += chunk->size();
    draft.chunks.push_back(*std::move(chunk));
  }
  return draft;
}

std::string BagDraft::bytes() const {
  std::string bytes = header;
  if (hasHeader() && !isHeaderCrcWrong) {
    storeLe<std::uint32_t>(&bytes[layout::kHeaderCrcOffset],
                           Crc32(bytes.data(), layout::kHeaderCrcOffset));
  }
  for (const DraftChunk& chunk : chunks) appendChunk(&bytes, chunk);
  return bytes;
}

std::vector<std::uint64_t> BagDraft::offsets() const {
  std::vector<std::uint64_t> offsets;
  std::uint64_t at = header.size();
  for (const DraftChunk& chunk : chunks) {
    offsets.push_back(at);
    at += chunk.size();
  }
  return offsets;
}

std::optional<std::string> restored(const DraftChunk& chunk, std::uint8_t compression) {
  const std::unique_ptr<basalt::Compressor> codec = codecOf(compression);
  if (codec == nullptr || chunk.rawSize() == chunk.data.size()) return chunk.data;
  std::string raw;
  if (chunk.rawSize() > kMaxRestoredBytes ||
      codec->decompress(chunk.data.data(), chunk.data.size(), chunk.rawSize(), &raw) < 1) {
    return std::nullopt;
  }
  return raw;
}

void store(std::string raw, bool compress, std::uint8_t compression, DraftChunk* chunk) {
  chunk->setRawSize(raw.size());
  if (const auto codec = codecOf(compression); codec != nullptr && compress) {
    std::string packed(codec->bound(raw.size()), '\0');
    const std::int64_t size = codec->compress(raw.data(), raw.size(), packed.data(), packed.size());
    if (size > 0) {
      packed.resize(static_cast<std::size_t>(size));
      raw = std::move(packed);
    }
  }
  chunk->data = std::move(raw);
}

void relocateIndexes(const BagDraft& bag, BagDraft* draft) {
  const std::map<std::uint64_t, std::uint64_t> moves = movesOf(bag);
  for (DraftChunk& chunk : draft->chunks) {
    if (!chunk.isChunk || chunk.type != layout::kIndexChunk) continue;
    const std::optional<std::string> raw = restored(chunk, bag.compression());
    if (!raw) continue;
    std::optional<pb::ChunkIndexData> index = parseUsualIndex(*raw);
    if (!index) continue;
    for (pb::ChunkIndex& topic : *index->mutable_indexes()) {
      for (std::uint64_t& offset : *topic.mutable_chunk_offsets()) {
        const auto move = moves.find(offset);
        if (move != moves.end()) offset = move->second;
      }
    }
    const bool compress = raw->size() != chunk.data.size();
    const std::uint32_t rawSize = chunk.rawSize();
    std::string relocated = index->SerializeAsString();
    const bool isLying = rawSize != raw->size();
    store(std::move(relocated), compress, bag.compression(), &chunk);
    if (isLying) chunk.setRawSize(rawSize);
  }
}

std::string trueIndex(const BagDraft& bag) {
  BagFile::TopicIndexes indexes;
  const std::vector<std::uint64_t> offsets = bag.offsets();
  for (std::size_t i = 0; i < bag.chunks.size(); ++i) {
    const DraftChunk& chunk = bag.chunks[i];
    BagFile::TopicHeader entry;
    if (!chunk.isChunk || chunk.type != layout::kTopicDataChunk ||
        !decodeTopicHeader(chunk.header, &entry)) {
      continue;
    }
    entry.storedSize = static_cast<std::uint32_t>(chunk.data.size());
    auto& topic = indexes[static_cast<std::uint32_t>(entry.topicId)];
    if (topic == nullptr) topic = std::make_shared<BagFile::TopicIndex>();
    topic->append(entry, offsets[i]);
  }
  std::string data;
  if (!encodeTopicIndexes(indexes, &data)) data.clear();
  return data;
}

void correctHeader(BagDraft* bag) {
  if (!bag->hasHeader()) return;
  const std::vector<std::uint64_t> offsets = bag->offsets();
  std::uint64_t dataStart = 0;
  std::uint64_t indexAt = 0;
  for (std::size_t i = 0; i < bag->chunks.size(); ++i) {
    const DraftChunk& chunk = bag->chunks[i];
    if (!chunk.isChunk) continue;
    if (i == 0 && chunk.type == layout::kDefinitionChunk) dataStart = offsets[i] + chunk.size();
    if (chunk.type == layout::kIndexChunk) indexAt = offsets[i];
  }
  if (loadLe<std::uint64_t>(&bag->header[layout::kDataStartOffset]) != 0) {
    storeLe<std::uint64_t>(&bag->header[layout::kDataStartOffset], dataStart);
  }
  if (loadLe<std::uint64_t>(&bag->header[layout::kIndexChunkOffsetOffset]) != 0) {
    storeLe<std::uint64_t>(&bag->header[layout::kIndexChunkOffsetOffset], indexAt);
  }
}

}  // namespace morva::fuzz

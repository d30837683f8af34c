#include "kit/doctor/index_list.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "platform/crc32.h"
#include "platform/file.h"
#include "storage/index_codec.h"

namespace morva::doctor {
namespace {

IndexList listOf(const BagFile::TopicIndexes& indexes) {
  IndexList entries;
  for (const auto& [topicId, index] : indexes) {
    for (std::size_t i = 0; i < index->entries.size(); ++i) {
      entries.push_back({index->chunkOffsets[i], index->entries[i]});
    }
  }
  std::ranges::stable_sort(entries, {}, &IndexEntry::offset);
  return entries;
}

std::optional<IndexList> parseIndex(const std::string& data) {
  BagFile::TopicIndexes indexes;
  // An index without topics has no bytes.
  if (!data.empty() && !decodeTopicIndexes(data, &indexes)) return std::nullopt;
  return listOf(indexes);
}

bool isHeaderSound(const BagFile::Header& header) {
  const std::string_view image(header.bytes.data(), header.bytes.size());
  return image.starts_with(layout::kTag) &&
         Crc32(image.data(), layout::kHeaderCrcOffset) == header.checksum();
}

}  // namespace

const basalt::Compressor* codecOf(std::uint8_t compression) {
  static const basalt::Lz4Compress kLz4;
  static const basalt::ZstdCompress kZstd;
  switch (static_cast<CompressionType>(compression)) {
    case CompressionType::kLz4:
      return &kLz4;
    case CompressionType::kZstd:
      return &kZstd;
    default:
      return nullptr;
  }
}

std::optional<IndexList> readIndexChunk(const FoundChunk& chunk, std::uint8_t compression,
                                        ByteSource* source) {
  const std::string stored = source->read(chunk.dataBegin(), chunk.header.storedSize);
  const basalt::Compressor* const codec = codecOf(compression);
  if (codec == nullptr || chunk.header.rawSize == stored.size()) return parseIndex(stored);
  // How many topics there are may be what was lost: none are counted.
  const auto fileBytes = static_cast<std::int64_t>(source->size());
  if (!canBeIndexSize(chunk.header.rawSize, fileBytes, 0)) return std::nullopt;
  std::string data;
  if (codec->decompress(stored.data(), stored.size(), chunk.header.rawSize, &data) < 1) {
    return std::nullopt;
  }
  return parseIndex(data);
}

SideFile readSideFile(const std::string& bagPath) {
  SideFile side;
  const std::string path = bagPath + std::string(layout::kSideFileSuffix);
  side.exists = osmik::File::exists(path);
  ByteSource source;
  if (!side.exists || !source.open(path)) return side;
  source.read(0, layout::kHeaderBytes, side.header.bytes.data());
  side.isHeaderSound = isHeaderSound(side.header);

  const auto chunk =
      parseFraming(source.read(layout::kHeaderBytes, kMaxFramingBytes), layout::kHeaderBytes);
  if (!chunk || chunk->type != layout::kIndexChunk || chunk->end() > source.size()) return side;
  const std::string data =
      source.read(chunk->dataBegin(), chunk->header.storedSize + layout::kCrcBytes);
  constexpr std::uint32_t kSoundResidue = 0x2144DF1C;  // bytes followed by their own checksum
  if (Crc32(data.data(), data.size()) != kSoundResidue) return side;
  side.entries = readIndexChunk(*chunk, side.header.compression(), &source);
  return side;
}

}  // namespace morva::doctor

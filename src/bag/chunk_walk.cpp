#include "bag/chunk_walk.h"

#include "morva/bag.h"
#include "platform/file.h"
#include "storage/index_codec.h"

namespace morva {
namespace {

/// The index entry of a message chunk that lies between two file offsets.
/// @return False for a chunk whose header is not a message's.
bool makeEntry(const BagFile::Chunk& chunk, std::int64_t offset, std::int64_t next,
               BagFile::TopicHeader* entry) {
  if (chunk.header.size() != layout::kTopicHeaderBytes) return false;
  if (!decodeTopicHeader(chunk.header, entry)) return false;
  constexpr std::size_t kAllButData = layout::kChunkFramingBytes + layout::kTopicHeaderBytes;
  // What the data takes in the file is left from the chunk's extent.
  entry->storedSize =
      static_cast<std::uint32_t>(static_cast<std::size_t>(next - offset) - kAllButData);
  // Zeros are the checksum of no data: where the machine stopped while it wrote, a chunk whose end
  // reads as zeros is a sound, empty message but for its size word.
  return entry->storedSize != 0 || chunk.size == kAllButData;
}

}  // namespace

int openForWalk(const std::string& path, const Log& log, BagReader* reader) {
  if (!osmik::File::exists(path)) {
    log.error("bag file(%s) not exists!", path);
    return MorvaBag::kOpenMissing;
  }
  reader->keepOfIndex(BagReader::Keep::kNothing);
  const int code = reader->open(path);
  if (!isWalkable(code)) log.error("open bag file(%s) error(%d)!", path, code);
  return code;
}

bool isWalkable(int openCode) {
  return openCode == MorvaBag::kOpenOk || openCode == MorvaBag::kOpenNoIndex;
}

bool walkChunks(BagReader* reader, const Log& log, const OnMessage& onMessage) {
  BagFile::Chunk chunk;
  auto offset = static_cast<std::int64_t>(reader->header().dataStart());
  while (true) {
    std::int64_t next = 0;
    BagFile::TopicHeader entry;
    const bool isRead = reader->verify(&chunk, offset, &next) >= 0;
    if (isRead && chunk.type == layout::kIndexChunk) return true;
    if (isRead && chunk.type != layout::kTopicDataChunk) {
      log.warning("invalid chunk type: 0x%04x, offset: 0x%016llx, reindex abort!", chunk.type,
                  offset);
      return false;
    }
    if (!isRead || !makeEntry(chunk, offset, next, &entry)) {
      log.warning("read chunk offset(0x%016llx:%lld) error!", offset, offset);
      return false;
    }
    if (onMessage && !onMessage(entry, static_cast<std::uint64_t>(offset))) return false;
    offset = next;
  }
}

}  // namespace morva

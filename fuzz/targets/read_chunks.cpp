// Chunks are read, verified and skipped, one after another and wherever an offset may point.
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "platform/byte_order.h"
#include "platform/crc32.h"
#include "storage/bag_layout.h"
#include "storage/bag_reader.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {
namespace {

constexpr std::size_t kMaxChunks = 300;

/// Offsets at which a chunk could be asked for: those that the file itself gives, and their
/// neighbours.
std::set<std::int64_t> oddOffsets(const BagReader& reader, std::int64_t fileSize) {
  std::set<std::int64_t> offsets = {-1,
                                    0,
                                    1,
                                    4095,
                                    4097,
                                    fileSize - 17,
                                    fileSize - 1,
                                    fileSize,
                                    fileSize + 1,
                                    INT64_MAX - 20,
                                    INT64_MAX,
                                    INT64_MIN};
  offsets.insert(static_cast<std::int64_t>(reader.header().indexChunkOffset()));
  for (const auto& [id, index] : reader.topicIndexes()) {
    for (const std::uint64_t offset : index->chunkOffsets) {
      offsets.insert(static_cast<std::int64_t>(offset));
      if (offsets.size() > kMaxChunks) return offsets;
    }
  }
  return offsets;
}

/// @return Where the next chunk begins; -1 where this one cannot be read.
std::int64_t readAt(BagReader* reader, const std::string& bag, std::int64_t offset) {
  BagFile::Chunk read, verified, skipped;
  skipped.headerOnly = true;
  std::int64_t next = -1, nextVerified = -1, nextSkipped = -1;
  const std::int64_t length = reader->read(&read, offset, &next);
  const std::int64_t lengthVerified = reader->verify(&verified, offset, &nextVerified);
  const std::int64_t lengthSkipped = reader->read(&skipped, offset, &nextSkipped);
  expect(length == lengthVerified, "reading and verifying a chunk end differently");
  expect(next == nextVerified || length < 0, "read and verified chunks end at different places");
  if (length < 0) return -1;
  expect(read.type == verified.type && read.header == verified.header,
         "read and verified chunks have different headers");
  expect(lengthSkipped >= 0 && nextSkipped == next && skipped.header == read.header,
         "a chunk that can be read cannot be skipped");
  expect(static_cast<std::int64_t>(read.data.size()) == length,
         "a chunk's data has another length");
  expect(offset > 0 && next > offset && next <= static_cast<std::int64_t>(bag.size()),
         "a chunk was read that the file does not hold");
  const auto end = static_cast<std::size_t>(next);
  const std::size_t begin =
      static_cast<std::size_t>(offset) + layout::kChunkPrefixBytes + read.header.size() + 4;
  expect(begin + 4 <= end, "a chunk is shorter than its framing");
  expect(Crc32(&bag[begin], end - 4 - begin) == loadLe<std::uint32_t>(&bag[end - 4]),
         "a chunk was read whose checksum is wrong");
  return next;
}

}  // namespace

void runReadChunks(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  const RecordingInput recording = RecordingInput::parse(input);
  BagReader reader;
  if (!place.open(recording, &reader)) return;

  std::int64_t offset = layout::kHeaderBytes;
  for (std::size_t i = 0; i < kMaxChunks && offset > 0; ++i) {
    offset = readAt(&reader, recording.bag, offset);
  }
  for (const std::int64_t odd :
       oddOffsets(reader, static_cast<std::int64_t>(recording.bag.size()))) {
    static_cast<void>(readAt(&reader, recording.bag, odd));
  }
}

}  // namespace morva::fuzz

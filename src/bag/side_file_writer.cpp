#include "bag/side_file_writer.h"

#include <array>
#include <concepts>
#include <cstdint>
#include <string_view>

#include "platform/byte_order.h"
#include "platform/crc32.h"
#include "platform/date_time.h"
#include "platform/file.h"
#include "platform/new_file.h"

namespace morva {
namespace {

/// One write, with what its failure is called and returns.
struct Field {
  std::string_view name;  ///< completes "write ... error!"
  int code;
  std::string bytes;
};

template <std::integral T>
std::string littleEndian(T value) {
  std::string bytes;
  appendLe<T>(&bytes, value);
  return bytes;
}

std::string checksumOf(const std::string& bytes) {
  return littleEndian<std::uint32_t>(Crc32(bytes.data(), bytes.size()));
}

/// The file's header up to its checksum.
std::string headerBytes(const BagFile::Header& bagHeader) {
  BagFile::Header header = bagHeader;
  header.setIndexChunkOffset(layout::kHeaderBytes);
  return {header.bytes.data(), layout::kHeaderCrcOffset};
}

std::string paddingAfter(std::size_t end) {
  const std::size_t aligned =
      (end + layout::kAlignment - 1) / layout::kAlignment * layout::kAlignment;
  return std::string(aligned - end, ' ');
}

}  // namespace

int writeSideFile(const std::string& path, const Log& log, const BagFile::Header& bagHeader,
                  const std::string& index) {
  osmik::File file;
  // Unbuffered: a write that fails is the one that is named.
  if (!osmik::openNewFile(path, 0, &file)) {
    log.error("create index file(%s) error!", path);
    return kSideFileCreate;
  }

  constexpr std::uint16_t kHeaderSize = layout::kMinChunkHeaderBytes;
  const std::size_t chunkSize = layout::kChunkFramingBytes + kHeaderSize + index.size();
  const auto dataSize = static_cast<std::uint32_t>(index.size());
  const std::string header = headerBytes(bagHeader);
  const std::array fields = {
      Field{"index file header", kSideFileHeader, header},
      Field{"index file crc32", kSideFileCrc, checksumOf(header)},
      Field{"index chunk size", kSideFileWrite,
            littleEndian(static_cast<std::uint32_t>(chunkSize))},
      Field{"index chunk type", kSideFileWrite, littleEndian(layout::kIndexChunk)},
      Field{"index header size", kSideFileHeader, littleEndian(kHeaderSize)},
      Field{"index chunk time", kSideFileWrite, littleEndian(osmik::Time::now().toMicroSec())},
      Field{"index msg size", kSideFileWrite, littleEndian(dataSize)},
      Field{"index data size", kSideFileWrite, littleEndian(dataSize)},
      Field{"index data", kSideFileWrite, index},
      Field{"index file crc32", kSideFileCrc, checksumOf(index)},
      Field{"padding data", kSideFileWrite, paddingAfter(layout::kHeaderBytes + chunkSize)},
  };
  for (const Field& field : fields) {
    if (file.write(field.bytes) == static_cast<std::int64_t>(field.bytes.size())) continue;
    log.error("write %s error!", field.name);
    return field.code;
  }
  if (!file.flush() || !file.close()) {
    log.error("close index file(%s) error!", path);
    return kSideFileWrite;
  }
  return kSideFileOk;
}

}  // namespace morva

#include "storage/header_image.h"

#include <algorithm>
#include <string>

#include "platform/byte_order.h"
#include "platform/crc32.h"
#include "platform/str_util.h"

namespace morva {

void HeaderImage::make(const BagFile::Header& header) {
  fill(header, bytes_.size());
  storeLe(&bytes_[layout::kHeaderCrcOffset], Crc32(bytes_.data(), layout::kHeaderCrcOffset));
}

bool HeaderImage::makeFirstSector(const BagFile::Header& header) {
  constexpr std::size_t kPatchOffset = kSectorBytes - layout::kCrcBytes;
  if (layout::kPrivateDataOffset + header.privateSize() > kPatchOffset) return false;
  // Where the checksum of the first sector remains, so does that of the whole header.
  const std::uint32_t wanted = Crc32(bytes_.data(), kSectorBytes);
  fill(header, kPatchOffset);
  storeLe(&bytes_[kPatchOffset], Crc32Patch(Crc32(bytes_.data(), kPatchOffset), wanted));
  return true;
}

/// Fields, private data and fresh filler, up to `end`.
void HeaderImage::fill(const BagFile::Header& header, std::size_t end) {
  const std::string filler = osmik::StrUtil::randomData(end);
  const std::size_t used = layout::kPrivateDataOffset + header.privateSize();
  std::copy_n(header.bytes.begin(), used, bytes_.begin());
  std::copy(filler.begin() + static_cast<std::ptrdiff_t>(used), filler.end(),
            bytes_.begin() + static_cast<std::ptrdiff_t>(used));
}

}  // namespace morva

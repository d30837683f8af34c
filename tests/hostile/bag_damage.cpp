#include "hostile/bag_damage.h"

#include <cstddef>
#include <cstdint>

#include "platform/byte_order.h"
#include "platform/crc32.h"
#include "storage/bag_layout.h"

namespace morva::test {

void repairChecksums(std::string* bag) {
  storeLe(bag->data() + layout::kHeaderCrcOffset, Crc32(bag->data(), layout::kHeaderCrcOffset));
  std::size_t at = layout::kHeaderBytes;
  while (at + layout::kChunkFramingBytes < bag->size()) {
    const std::size_t header = loadLe<std::uint16_t>(bag->data() + at + 6);
    const std::size_t sizeAt = at + layout::kChunkPrefixBytes + header;
    if (sizeAt + 8 > bag->size()) return;
    const std::size_t size = loadLe<std::uint32_t>(bag->data() + sizeAt);
    if (size > bag->size() - sizeAt - 8) return;
    storeLe(bag->data() + sizeAt + 4 + size, Crc32(bag->data() + sizeAt + 4, size));
    at = sizeAt + 8 + size;
  }
}

}  // namespace morva::test

#include "message_walk.h"

#include <limits>

#include "platform/byte_order.h"
#include "platform/crc32.h"
#include "storage/bag_layout.h"
#include "target.h"

namespace morva::fuzz {

bool isReadable(const MsgIndex& index) {
  return index.count > 0 && index.rawSize > 0 && index.rawSize >= index.storedSize &&
         index.topicId <= std::uint32_t{std::numeric_limits<std::int32_t>::max()};
}

void expectTrueTo(std::string_view bag, std::uint8_t compression, const MsgIndex& index,
                  const std::string& payload) {
  const std::uint64_t begin = index.chunkOffset + layout::kTopicDataOffset;
  expect(begin <= bag.size() && bag.size() - begin >= std::uint64_t{index.storedSize} + 4,
         "a message was read that the file does not hold");
  const std::string_view stored = bag.substr(begin, index.storedSize);
  expect(
      Crc32(stored.data(), stored.size()) == loadLe<std::uint32_t>(&bag[begin + index.storedSize]),
      "a message was read whose checksum is wrong");
  const bool isPacked = (compression == 2 || compression == 3) && index.rawSize != index.storedSize;
  if (!isPacked) {
    expect(payload == stored, "a message was read that is not what the file holds");
  } else if (compression == 3) {
    expect(payload.size() == index.rawSize, "a message was restored to another size");
  } else {
    expect(!payload.empty(), "a message was restored to nothing");
  }
}

}  // namespace morva::fuzz

#ifndef MORVA_BAG_MSG_INDEX_H_
#define MORVA_BAG_MSG_INDEX_H_

#include <cstdint>
#include <string>

#include "morva/records.h"
#include "storage/bag_file.h"

namespace morva {

/// The view's record of one message.
/// @param entry        As an index holds it; its topic id is not looked at.
/// @param chunkOffset  Bytes from the start of the file.
/// @param topic        Cut to 63 characters.
[[nodiscard]] MsgIndex makeMsgIndex(std::uint32_t topicId, const BagFile::TopicHeader& entry,
                                    std::uint64_t chunkOffset, const std::string& topic);

}  // namespace morva

#endif  // MORVA_BAG_MSG_INDEX_H_

#ifndef MORVA_STORAGE_INDEX_FIELDS_H_
#define MORVA_STORAGE_INDEX_FIELDS_H_

#include <cstdint>

/// The fields of the index messages of kbag_msgs.proto, as they are tagged in serialized bytes.
namespace morva::index_fields {

// Field numbers with their wire types: 0 a number, 2 bytes with a length before them.
constexpr std::uint8_t tagOf(unsigned field, unsigned wireType) {
  return static_cast<std::uint8_t>(field << 3U | wireType);
}
constexpr std::uint8_t kTopicTag = tagOf(1, 2);    // ChunkIndexData.indexes
constexpr std::uint8_t kTopicIdTag = tagOf(1, 0);  // ChunkIndex
constexpr std::uint8_t kCountSumTag = tagOf(2, 0);
constexpr std::uint8_t kRawSizeSumTag = tagOf(3, 0);
constexpr std::uint8_t kStartTimeTag = tagOf(4, 0);
constexpr std::uint8_t kEndTimeTag = tagOf(5, 0);
constexpr std::uint8_t kOffsetsTag = tagOf(6, 2);
constexpr std::uint8_t kEntryTag = tagOf(7, 2);
constexpr std::uint8_t kTimeTag = tagOf(1, 0);  // ChunkInfo
constexpr std::uint8_t kCountTag = tagOf(2, 0);
constexpr std::uint8_t kRawSizeTag = tagOf(3, 0);
constexpr std::uint8_t kFirstTimeTag = tagOf(4, 0);
constexpr std::uint8_t kSecondTimeTag = tagOf(5, 0);
constexpr std::uint8_t kStoredSizeTag = tagOf(6, 0);

}  // namespace morva::index_fields

#endif  // MORVA_STORAGE_INDEX_FIELDS_H_

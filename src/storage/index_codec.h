#ifndef MORVA_STORAGE_INDEX_CODEC_H_
#define MORVA_STORAGE_INDEX_CODEC_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "storage/bag_file.h"

/// Index records to bytes and back: the chunk header of one message, and the data of an index
/// chunk.
namespace morva {

/// The chunk header of a message: layout::kTopicHeaderBytes bytes with entry.topicId. The stored
/// size is not part of it.
[[nodiscard]] std::string encodeTopicHeader(const BagFile::TopicHeader& entry);

/// Reads a topic data chunk's header.
/// @param entry  [out, not null] All fields but storedSize, which the chunk's data size gives.
/// @return False, with `entry` unchanged, when `header` is shorter than layout::kTopicHeaderBytes.
[[nodiscard]] bool decodeTopicHeader(std::string_view header, BagFile::TopicHeader* entry);

/// Serializes an index, topics in ascending id order.
/// @param data  [out, not null] Empty on failure, and for an index without topics.
/// @return False when the index exceeds what one chunk can hold (2 GiB).
[[nodiscard]] bool encodeTopicIndexes(const BagFile::TopicIndexes& indexes, std::string* data);

/// Parses the data of an index chunk. Topics without messages, and those whose offsets and entries
/// differ in number, are left out.
/// @param indexes  [in/out, not null] Gains the topics of `data` that it does not hold yet.
/// @return False, with `indexes` unchanged, when `data` is empty or cannot be parsed.
[[nodiscard]] bool decodeTopicIndexes(std::string_view data, BagFile::TopicIndexes* indexes);

/// The same by the general parser alone, whose verdict is the rule.
[[nodiscard]] bool parseTopicIndexes(std::string_view data, BagFile::TopicIndexes* indexes);

/// Whether the index of a file of `fileBytes` with `topicCount` topics can be as large as its chunk
/// says. A few compressed bytes could otherwise restore to billions of entries.
[[nodiscard]] bool canBeIndexSize(std::uint64_t rawSize, std::int64_t fileBytes,
                                  std::size_t topicCount);

}  // namespace morva

#endif  // MORVA_STORAGE_INDEX_CODEC_H_

#ifndef MORVA_MESSAGES_CROWDED_PAYLOAD_H_
#define MORVA_MESSAGES_CROWDED_PAYLOAD_H_

#include <cstddef>
#include <string_view>

#include "messages/message_kind.h"

namespace morva {

/// Whether a payload holds more samples than its stored bytes are believed to.
///
/// An empty sample takes two bytes, becomes an object of more than a hundred and a row or a file:
/// without this a few kilobytes that restore to a megabyte would fill memory and disk. Samples of a
/// device have times and take several bytes each, however well they compress.
///
/// Believed are 1,024 samples or one for each stored byte, whichever is more; and of what samples
/// consist of, points above all, 1,000,000 or four for each stored byte.
/// @param payload      A serialized array message, or anything else.
/// @param storedBytes  What it takes in the file.
/// @param kind         Where given: what has no kind is not decoded, and so never crowded.
/// Threads: any. Cost: none where the payload is too small for it; else a pass over the lengths.
[[nodiscard]] bool isCrowded(std::string_view payload, std::size_t storedBytes);
[[nodiscard]] bool isCrowded(MessageKind kind, std::string_view payload, std::size_t storedBytes);

}  // namespace morva

#endif  // MORVA_MESSAGES_CROWDED_PAYLOAD_H_

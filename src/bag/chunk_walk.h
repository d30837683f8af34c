#ifndef MORVA_BAG_CHUNK_WALK_H_
#define MORVA_BAG_CHUNK_WALK_H_

#include <cstdint>
#include <functional>
#include <string>

#include "platform/log.h"
#include "storage/bag_file.h"
#include "storage/bag_reader.h"

namespace morva {

/// Opens a bag to walk its chunks, for which it needs no usable index.
/// @param log  Names the operation that an error line is about.
/// @return 0 or 1 when it is open; after an error line 3 when there is no file, or the reader's
/// code.
[[nodiscard]] int openForWalk(const std::string& path, const Log& log, BagReader* reader);

/// True for the codes of openForWalk() after which a walk can begin.
[[nodiscard]] bool isWalkable(int openCode);

/// Takes one message, as an index holds it, and its chunk's file offset. @return False to end the
/// walk.
using OnMessage = std::function<bool(const BagFile::TopicHeader& entry, std::uint64_t chunkOffset)>;

/// Reads and verifies the chunks of an open bag in file order, from its first message chunk to the
/// index chunk, or to the first chunk that cannot be read, has a wrong header or an unknown type;
/// the latter end the walk with a warning.
/// @param onMessage  Called with every message; may be empty.
/// @return True when the walk came to the index chunk.
[[nodiscard]] bool walkChunks(BagReader* reader, const Log& log, const OnMessage& onMessage);

}  // namespace morva

#endif  // MORVA_BAG_CHUNK_WALK_H_

#ifndef MORVA_BAG_SIDE_FILE_WRITER_H_
#define MORVA_BAG_SIDE_FILE_WRITER_H_

#include <string>

#include "platform/log.h"
#include "storage/bag_file.h"

namespace morva {

/// Results of writeSideFile(). Values reach callers through reindex(): never renumber.
enum SideFileCode : int {
  kSideFileOk = 0,
  kSideFileCreate = 4,  ///< it cannot be created
  kSideFileWrite = 5,   ///< any write that has no code of its own, a flush or a close
  kSideFileCrc = 6,     ///< one of the two checksums
  kSideFileHeader = 8,  ///< the file's header or the chunk's header size
};

/// Creates the side file of a bag, in the place of what has its name, no link being followed: a
/// header that matches the bag's, then one index chunk with its padding. A failed write leaves what
/// was written behind.
/// @param log        Names the operation that an error line is about.
/// @param bagHeader  The header of the open bag, with the data start that its reader has measured.
/// @param index      The serialized index, less than 2 GiB; stored uncompressed.
/// @return 0, or a SideFileCode after an error line.
[[nodiscard]] int writeSideFile(const std::string& path, const Log& log,
                                const BagFile::Header& bagHeader, const std::string& index);

}  // namespace morva

#endif  // MORVA_BAG_SIDE_FILE_WRITER_H_

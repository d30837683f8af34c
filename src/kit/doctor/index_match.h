#ifndef MORVA_KIT_DOCTOR_INDEX_MATCH_H_
#define MORVA_KIT_DOCTOR_INDEX_MATCH_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "kit/doctor/byte_source.h"
#include "kit/doctor/found_chunk.h"
#include "kit/doctor/index_list.h"

namespace morva::doctor {

/// Parts of a file that are taken, none of them twice.
class Extents {
 public:
  /// @return False, with nothing changed, where it overlaps what is taken.
  bool take(std::uint64_t begin, std::uint64_t end);
  [[nodiscard]] bool overlaps(std::uint64_t begin, std::uint64_t end) const;

 private:
  std::map<std::uint64_t, std::uint64_t> ends_;  ///< by begin
};

/// Where the message of an index entry lies.
struct Place {
  std::uint64_t offset = 0;  ///< of its chunk
  std::uint32_t crc = 0;     ///< of its stored bytes
  bool isFramed = false;     ///< the chunk's own header agrees; else the index alone knows it
};

/// Holds the chunks of a file against its index: finds each entry's message where the index says,
/// or elsewhere, where bytes before it were cut out or put in; also where the chunk's header or
/// framing is damaged, as long as the payload has its checksum.
///
/// Reads no more than a few times the size of the file, whatever the index says.
class IndexMatch {
 public:
  /// @param entries  In the order of their offsets.
  /// @param chunks   The sound chunks of the file, in the order of their offsets.
  IndexMatch(const IndexList& entries, const std::vector<FoundChunk>& chunks, ByteSource* source);

  void run();

  /// By entry; nothing where its message is lost.
  [[nodiscard]] const std::vector<std::optional<Place>>& places() const { return places_; }
  /// By chunk: whether an entry's message was found in it.
  [[nodiscard]] const std::vector<bool>& isTaken() const { return isTaken_; }

  /// Whether a place lies behind a message that was found, or in the remains of one that was not:
  /// what is found there and begins a recording is the beginning of another one.
  [[nodiscard]] bool isAmongMessages(std::uint64_t offset) const;

 private:
  void placeWhereWritten();
  void placeDamagedWhereWritten();
  void placeMoved();
  void placeMovedWithDamagedHeader();
  void placeMovedWithDamagedFraming();
  void findNeighbours();
  [[nodiscard]] std::optional<std::int64_t> shiftAt(std::size_t placedEntry) const;
  void matchGap(std::size_t firstEntry, std::size_t endEntry);
  bool takeChunk(std::size_t entry, std::size_t chunk, bool isFramed);
  bool restoreAt(std::size_t entry, std::uint64_t offset);
  [[nodiscard]] std::size_t firstChunkFrom(std::uint64_t offset) const;

  const IndexList& entries_;
  const std::vector<FoundChunk>& chunks_;
  ByteSource& source_;
  std::uint64_t readBudget_;
  Extents extents_;
  std::vector<std::optional<Place>> places_;
  std::vector<bool> isTaken_;
  std::vector<std::size_t> previous_;  ///< by entry: the last one before it that was found
  std::vector<std::size_t> next_;      ///< by entry: the first one behind it that was found
};

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_INDEX_MATCH_H_

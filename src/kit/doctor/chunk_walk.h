#ifndef MORVA_KIT_DOCTOR_CHUNK_WALK_H_
#define MORVA_KIT_DOCTOR_CHUNK_WALK_H_

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "kit/doctor/chunk_finder.h"

namespace morva::doctor {

/// Tells the chunks of a recording from those that its messages may carry: goes from chunk to
/// chunk, never into a sound one, nor into one whose payload alone is damaged; behind other damage
/// it goes on with the next sound chunk.
class ChunkWalk {
 public:
  struct Step {
    enum class Kind : std::uint8_t {
      kChunk,  ///< a sound chunk
      kTorn,   ///< a chunk whose payload is damaged; another chunk follows, or the file's end
      kGap,    ///< anything else
    };
    Kind kind = Kind::kGap;
    std::uint64_t begin = 0, end = 0;
    const FoundChunk* chunk = nullptr;  ///< null: a gap
  };

  /// @param chunks  Borrowed.
  ChunkWalk(const FoundChunks& chunks, std::uint64_t fileBytes);

  /// The steps that cover [begin, end).
  /// @param isSkipped  Of each sound chunk, by its place in the list; may be empty.
  [[nodiscard]] std::vector<Step> walk(std::uint64_t begin, std::uint64_t end,
                                       const std::vector<bool>& isSkipped) const;

  /// The sound chunk that begins at `offset`; null where there is none.
  [[nodiscard]] const FoundChunk* soundAt(std::uint64_t offset) const;

 private:
  [[nodiscard]] bool isFollowed(std::size_t torn) const;
  [[nodiscard]] const FoundChunk* followedTornAt(std::uint64_t offset) const;
  [[nodiscard]] std::vector<const FoundChunk*> soundWithin(
      std::uint64_t begin, std::uint64_t end, const std::vector<bool>& isSkipped) const;

  const FoundChunks& chunks_;
  const std::uint64_t fileBytes_;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> soundEnds_;  ///< (end, offset), ascending
  std::vector<bool> isTornFollowed_;
};

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_CHUNK_WALK_H_

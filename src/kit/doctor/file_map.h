#ifndef MORVA_KIT_DOCTOR_FILE_MAP_H_
#define MORVA_KIT_DOCTOR_FILE_MAP_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <vector>

#include "kit/doctor/account.h"
#include "kit/doctor/chunk_walk.h"
#include "kit/doctor/index_match.h"
#include "kit/doctor/recording_head.h"

namespace morva::doctor {

/// Divides a file into what belongs to the recording and what is damage, and fills the messages and
/// the damage of an account.
///
/// What the index knows is in its place. The spaces between are walked from chunk to chunk: what is
/// sound there counts as a message too, unless it stands elsewhere as well, or lies in the remains
/// of messages that the index says are lost.
class FileMap {
 public:
  FileMap(const ChunkWalk& walk, const RecordingHead& head, const IndexMatch& match,
          ByteSource* source, Account* account);

  void draw();

 private:
  /// Something of the recording whose place is known.
  struct Anchor {
    std::uint64_t begin = 0, end = 0;
    std::ptrdiff_t entry = -1;  ///< of the index; negative: no message
  };
  /// The bytes between two anchors.
  struct Space {
    std::uint64_t begin = 0, end = 0;
    std::ptrdiff_t entryBefore = -1;  ///< the last one of the index that lies before it
    bool hasLost = false;             ///< the index has messages here that were not found
    bool hasRoom = true;              ///< there may have been messages that the index does not know
  };
  /// Sorts messages as they were written.
  struct Written {
    std::ptrdiff_t entry = -1;  ///< its own, or the last one before it
    bool isBehindEntry = false;
    Message message;
  };
  using CopyKey = std::tuple<std::uint32_t, std::uint32_t>;  ///< stored size and checksum
  using FullKey = std::tuple<CopyKey, std::int32_t, std::int64_t, std::int64_t, std::int64_t,
                             std::uint32_t, std::uint32_t>;

  void takeIndexed();
  [[nodiscard]] std::vector<Anchor> anchors() const;
  [[nodiscard]] bool hasLostBetween(std::ptrdiff_t before, std::ptrdiff_t behind) const;
  [[nodiscard]] bool hasRoomBetween(std::ptrdiff_t before, std::ptrdiff_t behind) const;
  [[nodiscard]] Space spaceOf(std::uint64_t begin, std::uint64_t end, std::ptrdiff_t before,
                              std::ptrdiff_t behind) const;
  void findRoom();
  void mapSpaces();
  void mapSpace(const Space& space);
  bool mapChunk(const FoundChunk& chunk, const Space& space, bool isReached);
  void mapGap(const ChunkWalk::Step& step, bool isReached);
  void mapTail(std::uint64_t begin);
  [[nodiscard]] bool isCopy(const FoundChunk& chunk);
  void countClaim(const FoundChunk& chunk, Damage* damage) const;
  void addDamage(std::uint64_t begin, std::uint64_t end, Part part);
  Damage& lastDamage() { return account_.damage.back(); }
  void addMissingParts();
  void assignLost();
  void assignRun(std::size_t first, std::size_t end, std::vector<Damage>* cutOut);
  [[nodiscard]] Damage* damageWithin(std::uint64_t begin, std::uint64_t end);

  const ChunkWalk& walk_;
  const RecordingHead& head_;
  const IndexMatch& match_;
  ByteSource& source_;
  Account& account_;
  std::vector<std::size_t> lostBefore_;  ///< by entry: lost ones before it
  /// By entry, and one more: places before it where the index leaves bytes to other messages.
  std::vector<std::size_t> roomBefore_;
  std::vector<Written> written_;
  std::set<CopyKey> indexed_;            ///< messages that the index knows
  std::map<FullKey, std::size_t> seen_;  ///< others, and behind how much damage they were seen
  std::size_t stretch_ = 0;              ///< how much damage was passed
};

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_FILE_MAP_H_

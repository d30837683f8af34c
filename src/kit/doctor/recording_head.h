#ifndef MORVA_KIT_DOCTOR_RECORDING_HEAD_H_
#define MORVA_KIT_DOCTOR_RECORDING_HEAD_H_

#include <optional>
#include <vector>

#include "kit/doctor/account.h"
#include "kit/doctor/chunk_finder.h"
#include "kit/doctor/chunk_walk.h"
#include "kit/doctor/index_list.h"

namespace morva::doctor {

/// What of a recording tells about all of it: header, topics, codec and index, as far as they are
/// left. Fills its part of an account.
class RecordingHead {
 public:
  RecordingHead(const ChunkWalk& walk, ByteSource* source, Account* account);

  void read();

  /// Takes the definition for what a message carries.
  void dropDefinition();

  [[nodiscard]] const FoundChunk* definition() const { return definition_; }  ///< null: lost
  [[nodiscard]] const FoundChunk* indexChunk() const { return indexChunk_; }  ///< null: lost
  /// The account of the messages: the recording's own index or else that of the side file; empty
  /// where account.hasIndex is not set.
  [[nodiscard]] const IndexList& index() const { return index_; }

 private:
  void readHeader();
  void findParts();
  [[nodiscard]] bool canBeDefinition(const FoundChunk& chunk) const;
  void readDefinition();
  void findCompression();
  [[nodiscard]] bool canBeIndex(const FoundChunk& chunk, const IndexList& entries) const;
  [[nodiscard]] std::optional<IndexList> readIndex(const FoundChunk& chunk);
  void findIndex();
  void judgeIndex();
  void readSide();
  void useHeaderOf(const SideFile& side);
  [[nodiscard]] bool belongs(const SideFile& side) const;
  [[nodiscard]] std::size_t hits(const IndexList& entries) const;

  const ChunkWalk& walk_;
  ByteSource& source_;
  Account& account_;
  const FoundChunk* definition_ = nullptr;
  const FoundChunk* indexChunk_ = nullptr;
  std::vector<const FoundChunk*> messages_;     ///< of the walk without an index
  std::vector<std::int64_t> messageTimes_;      ///< of these, ascending
  std::vector<const FoundChunk*> indexChunks_;  ///< of the same
  IndexList index_;
};

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_RECORDING_HEAD_H_

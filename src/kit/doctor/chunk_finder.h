#ifndef MORVA_KIT_DOCTOR_CHUNK_FINDER_H_
#define MORVA_KIT_DOCTOR_CHUNK_FINDER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kit/doctor/byte_source.h"
#include "kit/doctor/found_chunk.h"

namespace morva::doctor {

/// Told how far something is, 0 to 1; false ends it.
using Progress = std::function<bool(double done)>;

/// All chunks of a file, wherever they lie, in ascending order of their offsets.
struct FoundChunks {
  std::vector<FoundChunk> sound;  ///< whole, with the right checksum; some lie within others
  std::vector<FoundChunk> torn;   ///< sizes agree and fit the file, the checksum is wrong
  bool isComplete = true;         ///< not ended half-way
};

/// Finds every chunk of a file in one pass over its bytes, whatever lies between them.
///
/// Each place whose type and sizes agree is a claim: a number of data bytes and their checksum.
/// Claims may overlap in any way. One running checksum serves all of them: a claim's own is the
/// difference of its values at the begin and the end of the data. So the time is that of one
/// checksum over the file, plus little for each claim, however much they claim.
class ChunkFinder {
 public:
  /// Claims that are followed at a time. In a recording there are as many as recordings lie within
  /// each other; a file made to hold more loses those that reach farthest.
  static constexpr std::size_t kMaxOpenClaims = 65'536;
  static constexpr std::size_t kMaxTorn = 65'536;

  explicit ChunkFinder(ByteSource* source, std::size_t blockBytes = 1024UL * 1024)
      : source_(*source), blockBytes_(blockBytes) {}

  [[nodiscard]] FoundChunks find(const Progress& progress);

 private:
  struct Claim {
    FoundChunk chunk;
    std::uint32_t crcBefore = 0;  ///< of all that stands before its data
  };

  void readBlock();
  void addClaims();
  void addMarkedClaims(char mark, std::size_t bytesBehind);
  void followClaims();
  void open(const FoundChunk& chunk);
  void closeFirst();
  void advanceTo(std::uint64_t offset);
  [[nodiscard]] std::uint64_t bufferEnd() const { return bufferBegin_ + buffer_.size(); }

  ByteSource& source_;
  const std::size_t blockBytes_;
  std::string buffer_;
  std::uint64_t bufferBegin_ = 0;
  std::uint64_t oldEnd_ = 0;                        ///< buffered bytes before it have been searched
  std::vector<FoundChunk> newClaims_;               ///< of this block
  std::multimap<std::uint64_t, Claim> openClaims_;  ///< by the offset where they are decided
  std::uint64_t crcEnd_ = 0;
  std::uint32_t crc_ = 0;  ///< of all bytes before crcEnd_
  FoundChunks found_;
};

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_CHUNK_FINDER_H_

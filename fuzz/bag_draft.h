#ifndef MORVA_FUZZ_BAG_DRAFT_H_
#define MORVA_FUZZ_BAG_DRAFT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace morva::fuzz {

/// A chunk, or (`isChunk` false) bytes that belong to none. What is written about it is right where
/// nothing else is said.
struct DraftChunk {
  static constexpr std::uint64_t kNew = ~0ULL;

  bool isChunk = true;
  std::uint16_t type = 0;
  std::string header;
  std::string data;  ///< as stored
  std::optional<std::uint32_t> wrongSize, wrongDataSize, wrongCrc;
  std::optional<std::uint16_t> wrongHeaderSize;
  std::uint64_t origin = kNew;  ///< where it stood in the bytes that were parsed

  [[nodiscard]] std::size_t size() const;
  [[nodiscard]] std::uint32_t rawSize() const;  ///< 0 where the header is too short
  void setRawSize(std::size_t size);
  void mend();
};

/// A bag or side file, taken apart so that it can be changed and put together again.
struct BagDraft {
  std::string header;  ///< 4096 bytes, fewer only where the file has fewer
  bool isHeaderCrcWrong = false;
  std::vector<DraftChunk> chunks;

  /// Takes any bytes.
  [[nodiscard]] static BagDraft parse(std::string_view bytes);
  /// Checksum and sizes are right but where the draft says otherwise.
  [[nodiscard]] std::string bytes() const;

  [[nodiscard]] bool hasHeader() const;
  [[nodiscard]] std::uint8_t compression() const;
  /// Where the chunks stand in bytes().
  [[nodiscard]] std::vector<std::uint64_t> offsets() const;
};

/// The payload of a chunk before compression; nothing where it cannot be restored.
[[nodiscard]] std::optional<std::string> restored(const DraftChunk& chunk,
                                                  std::uint8_t compression);
/// Stores `raw`, compressed or not.
void store(std::string raw, bool compress, std::uint8_t compression, DraftChunk* chunk);

/// Lets indexes in chunks of `draft` follow the messages of `bag` to where they stand now.
void relocateIndexes(const BagDraft& bag, BagDraft* draft);
/// The true index of a bag's chunks, serialized.
[[nodiscard]] std::string trueIndex(const BagDraft& bag);
/// Lets the header say where definition chunk and index chunk stand.
void correctHeader(BagDraft* bag);

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_BAG_DRAFT_H_

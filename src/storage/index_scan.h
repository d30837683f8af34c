#ifndef MORVA_STORAGE_INDEX_SCAN_H_
#define MORVA_STORAGE_INDEX_SCAN_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "storage/bag_file.h"

/// Reads the index messages that bags hold, as a writer makes them, far faster than the general
/// parser does: an index has an entry for every message of its bag.
namespace morva {

/// One topic of a serialized index that has been scanned; its entries are still encoded.
struct EncodedTopic {
  std::uint32_t topicId = 0;
  BagFile::TopicTotals totals;
  // Places in the serialized index.
  std::uint64_t offsetsAt = 0;  ///< totals.chunks packed numbers
  std::uint64_t offsetsEnd = 0;
  std::uint64_t entriesAt = 0;  ///< as many ChunkInfo messages, each with tag and length
  std::uint64_t entriesEnd = 0;
};

/// Checks every byte of a serialized index that has the usual form: each field at most once and in
/// ascending order, chunk offsets packed, numbers that fit their fields. Whatever is otherwise is
/// left to the general parser.
class IndexScan {
 public:
  /// @param size  Bytes of the serialized index, which come in pieces of any size.
  explicit IndexScan(std::uint64_t size);
  ~IndexScan();

  /// Goes on with `piece`, which follows what has been consumed. All of the last piece is consumed.
  /// @return Bytes consumed, all but kTailBytes at least: the caller gives the others again, with
  ///         more behind them. -1 at the first byte that has not the usual form.
  [[nodiscard]] std::int64_t feed(std::string_view piece);
  /// Whether the index has been consumed whole.
  [[nodiscard]] bool isComplete() const;
  /// Topics that have messages, and as many offsets as entries, in the order of the index.
  [[nodiscard]] const std::vector<EncodedTopic>& topics() const { return topics_; }

  static constexpr std::size_t kTailBytes = 96;

 private:
  class Shapes;
  struct Cursor;

  [[nodiscard]] bool step(Cursor* cursor);
  [[nodiscard]] bool beginTopic(Cursor* cursor);
  [[nodiscard]] bool takeField(Cursor* cursor);
  [[nodiscard]] bool takeTotal(std::uint8_t tag, std::uint64_t value);
  [[nodiscard]] bool takeOffsets(Cursor* cursor);
  [[nodiscard]] bool takeEntries(Cursor* cursor);
  void endTopic();

  const std::uint64_t size_;
  std::uint64_t position_ = 0;  ///< bytes consumed
  bool inTopic_ = false;
  std::uint64_t topicEnd_ = 0;
  std::uint8_t lastTag_ = 0;   ///< of the topic's fields
  std::uint64_t entries_ = 0;  ///< of the topic
  EncodedTopic topic_;
  std::vector<EncodedTopic> topics_;
  std::unique_ptr<Shapes> shapes_;
};

/// Scans an index that lies in memory. @return False where it has not the usual form.
[[nodiscard]] bool scanTopicIndexes(std::string_view data, std::vector<EncodedTopic>* topics);

/// Takes an entry, and the offset of its message's chunk.
using OnEntry = std::function<void(const BagFile::TopicHeader& entry, std::uint64_t chunkOffset)>;

/// Calls `use` with every entry of a topic that a scan of `data` has found.
void visitTopic(std::string_view data, const EncodedTopic& topic, const OnEntry& use);

/// Decodes a topic that a scan of `data` has found.
[[nodiscard]] std::shared_ptr<BagFile::TopicIndex> decodeTopic(std::string_view data,
                                                               const EncodedTopic& topic);

}  // namespace morva

#endif  // MORVA_STORAGE_INDEX_SCAN_H_

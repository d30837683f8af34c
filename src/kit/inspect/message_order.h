#ifndef MORVA_KIT_INSPECT_MESSAGE_ORDER_H_
#define MORVA_KIT_INSPECT_MESSAGE_ORDER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "kit/inspect/recording.h"
#include "kit/inspect/selection.h"

namespace morva::inspect {

/// A message, as an index knows it.
struct ListedMessage {
  const Topic* topic = nullptr;
  const BagFile::TopicHeader* entry = nullptr;
  std::uint64_t chunkOffset = 0;
};

/// Which messages are within the limits of time: those whose first header time is, or those that
/// may hold samples that are.
enum class SelectBy : std::uint8_t { kFirstTime, kSamples };

/// The selected messages of a recording, of all topics in the order in which they lie in the file.
/// Takes no memory but the index. The recording must stay open.
class MessageOrder {
 public:
  MessageOrder(const Recording& recording, const Selection& selection, SelectBy rule);

  /// The topics that are selected, whether they have messages or not.
  [[nodiscard]] const std::vector<const Topic*>& topics() const { return topics_; }
  [[nodiscard]] const TimeWindow& window() const { return window_; }
  /// Nothing at the end.
  [[nodiscard]] std::optional<ListedMessage> next();

 private:
  /// How far a topic has been listed.
  struct Cursor {
    const Topic* topic = nullptr;
    std::shared_ptr<const BagFile::TopicIndex> index;
    std::size_t at = 0;

    [[nodiscard]] std::uint64_t offset() const { return index->chunkOffsets[at]; }
  };
  static bool isBehind(const Cursor& a, const Cursor& b) { return a.offset() > b.offset(); }

  [[nodiscard]] bool isSelected(const BagFile::TopicHeader& entry) const;
  [[nodiscard]] bool toSelected(Cursor* cursor) const;

  SelectBy rule_;
  TimeWindow window_;
  std::vector<const Topic*> topics_;
  std::vector<Cursor> heads_;  ///< a heap: the first one's message comes next
};

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_MESSAGE_ORDER_H_

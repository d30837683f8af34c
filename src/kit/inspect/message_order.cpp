#include "kit/inspect/message_order.h"

#include <algorithm>
#include <utility>

namespace morva::inspect {

MessageOrder::MessageOrder(const Recording& recording, const Selection& selection, SelectBy rule)
    : rule_(rule), window_(windowOf(selection, recording.span().value_or(TimeSpan{}))) {
  for (const Topic& topic : recording.topics()) {
    if (!selection.hasTopic(topic.name)) continue;
    topics_.push_back(&topic);
    Cursor cursor{.topic = &topic, .index = recording.messagesOf(topic)};
    if (cursor.index != nullptr && toSelected(&cursor)) heads_.push_back(std::move(cursor));
  }
  std::ranges::make_heap(heads_, isBehind);
}

std::optional<ListedMessage> MessageOrder::next() {
  if (heads_.empty()) return std::nullopt;
  std::ranges::pop_heap(heads_, isBehind);
  Cursor& cursor = heads_.back();
  // The entry belongs to the recording, which keeps its indexes.
  const ListedMessage message{cursor.topic, &cursor.index->entries[cursor.at], cursor.offset()};
  ++cursor.at;
  if (toSelected(&cursor)) {
    std::ranges::push_heap(heads_, isBehind);
  } else {
    heads_.pop_back();
  }
  return message;
}

bool MessageOrder::isSelected(const BagFile::TopicHeader& entry) const {
  const auto& [first, second] = entry.headerTimes;
  return rule_ == SelectBy::kFirstTime ? window_.contains(first) : window_.touches(first, second);
}

/// Moves a cursor on to the next message within the limits, which may be its own.
/// @return False where there is none.
bool MessageOrder::toSelected(Cursor* cursor) const {
  const auto& entries = cursor->index->entries;
  while (cursor->at < entries.size() && !isSelected(entries[cursor->at])) ++cursor->at;
  return cursor->at < entries.size();
}

}  // namespace morva::inspect

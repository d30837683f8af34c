#include "kit/inspect/sample_listing.h"

#include <algorithm>
#include <optional>

#include "messages/crowded_payload.h"
#include "platform/log.h"

namespace morva::inspect {
namespace {

constexpr Problem kUnreadable = {"unreadable", "the message is damaged"};
constexpr Problem kUndecodable = {"undecodable", "the message is not of its topic's kind"};

}  // namespace

SampleListing::SampleListing(Recording* recording, const Selection& selection, const Detail& detail)
    : recording_(recording),
      detail_(detail),
      messages_(*recording, selection, SelectBy::kSamples) {}

bool SampleListing::isOfOneKind() const {
  const auto& topics = messages_.topics();
  return std::ranges::all_of(topics, [&](const Topic* topic) {
    return messageKindOf(topic->name) == messageKindOf(topics.front()->name);
  });
}

std::uint64_t SampleListing::print(RowWriter* writer, const Print& print) {
  std::uint64_t lost = 0;
  if (!hasTopics() || !print(writer->header(tableOf(*messages_.topics().front())))) return lost;
  std::string payload;
  while (const std::optional<ListedMessage> message = messages_.next()) {
    const SampleTable& table = tableOf(*message->topic);
    const auto printRow = [&](Row row) {
      if (!row.timeUs) row.timeUs = message->entry->headerTimes[0];
      return !messages_.window().contains(*row.timeUs) || print(writer->row(*message, table, row));
    };
    const bool isRead = recording_->read(*message->entry, message->chunkOffset, &payload);
    const bool isTooMuch = isRead && isCrowded(messageKindOf(message->topic->name), payload,
                                               message->entry->storedSize);
    const auto result =
        isRead && !isTooMuch ? table.decode(payload, printRow) : SampleTable::Result::kUndecodable;
    if (result == SampleTable::Result::kStopped) return lost;
    if (result == SampleTable::Result::kDone) continue;
    ++lost;
    if (isRead) {
      Log({}, "cat").error("message of %s at byte %llu is not of its topic's kind!",
                           message->topic->name, message->chunkOffset);
    }
    if (!print(writer->problem(*message, isRead ? kUndecodable : kUnreadable))) return lost;
  }
  return lost;
}

const SampleTable& SampleListing::tableOf(const Topic& topic) {
  const MessageKind kind = messageKindOf(topic.name);
  std::unique_ptr<SampleTable>& table = tables_[kind];
  if (table == nullptr) table = makeSampleTable(kind, detail_);
  return *table;
}

}  // namespace morva::inspect

// A bag is opened, with its side file where there is one, in every way that there is.
#include <string>

#include "morva/bag.h"
#include "storage/bag_reader.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {
namespace {

bool isSame(const BagFile::TopicTotals& a, const BagFile::TopicTotals& b) {
  return a.countSum == b.countSum && a.rawSizeSum == b.rawSizeSum && a.startTime == b.startTime &&
         a.endTime == b.endTime && a.chunks == b.chunks;
}

void lookAtTopics(const BagReader& reader) {
  for (const auto& [name, id] : reader.topicIds()) {
    const auto totals = reader.topicTotals(name);
    const auto index = reader.topicIndex(name);
    expect(totals.has_value() == (index != nullptr), "a topic has an index, but no totals");
    if (index == nullptr) continue;
    if (index->entries.empty()) {  // refused for what its entries name
      expect(index->chunkOffsets.empty() && totals->chunks > 0, "a refused index is not empty");
      continue;
    }
    expect(isSame(*totals, index->totals()), "a topic's totals are not those of its index");
    expect(index->entries.size() == index->chunkOffsets.size(),
           "an index has not as many offsets as entries");
  }
}

}  // namespace

void runOpen(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  place.put(RecordingInput::parse(input));

  BagReader reader;
  const int code = reader.open(place.bag());
  expect(code == BagFile::kOpenOk || code == BagFile::kOpenNoIndex ||
             code == BagFile::kOpenFailed || code == BagFile::kOpenChecksum ||
             code == BagFile::kOpenMalformed,
         "open() returned an unknown code");
  const bool isOpen = code == BagFile::kOpenOk || code == BagFile::kOpenNoIndex;
  expect(reader.hasIndex() == isOpen, "a reader is open, or closed, against its code");
  if (isOpen) lookAtTopics(reader);

  BagReader walker;
  walker.keepOfIndex(BagReader::Keep::kNothing);
  expect(walker.open(place.bag()) == code, "a reader that keeps no index opens otherwise");

  MorvaBag bag;
  expect(bag.open(place.bag(), BagMode::kRead) == code, "the handle opens otherwise");
  const BagInfo info = bag.getInfo();
  expect(code == BagFile::kOpenOk || info.topics.empty(), "a closed bag has topics");
  expect(info.topics.size() <= reader.topicIds().size(), "more topics than names");
  for (const TopicInfo& topic : info.topics) {
    const View view = bag.getView(topic.name, 0, -1);
    const auto index = reader.topicIndex(topic.name);
    expect(index != nullptr && view.indexes.size() <= index->entries.size(),
           "a view has more messages than the index");
  }
  place.expectNothingElse();
}

}  // namespace morva::fuzz

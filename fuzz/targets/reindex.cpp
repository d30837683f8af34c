// The whole of a reindex: the bag opens with what it made.
#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "morva/bag.h"
#include "storage/bag_reader.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {
namespace {

using Offsets = std::map<std::uint32_t, std::multiset<std::uint64_t>>;

Offsets offsetsOf(const View& view) {
  Offsets offsets;
  for (const MsgIndex& index : view.indexes) offsets[index.topicId].insert(index.chunkOffset);
  return offsets;
}

Offsets offsetsOf(const BagFile::TopicIndexes& indexes) {
  Offsets offsets;
  for (const auto& [id, index] : indexes) {
    offsets[id].insert(index->chunkOffsets.begin(), index->chunkOffsets.end());
  }
  return offsets;
}

}  // namespace

void runReindex(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  const RecordingInput recording = RecordingInput::parse(input);
  place.put(recording);
  const int sound = MorvaBag::checkAll(place.bag());
  std::string serialized;
  const View all = MorvaBag::getAllView(place.bag(), &serialized);

  const int code = MorvaBag::reindex(place.bag());
  place.expectNothingElse();
  expect(contentsOf(place.bag()) == recording.bag, "a reindex changes the bag");
  if (code != 0) {
    expect(code == 4 || code == 6 || code == 7, "a reindex returned an unknown code");
    expect(sound != 0, "a sound bag cannot be reindexed");
    return;
  }
  const std::string side = contentsOf(place.side());
  expect(MorvaBag::checkAll(place.bag()) == sound, "a reindex changes what a check finds");

  BagReader reader;
  const int openCode = reader.open(place.bag());
  // The index of a bag that defines nothing and holds nothing has no bytes, which is no index.
  if (serialized.empty()) return;
  expect(openCode == BagFile::kOpenOk, "a bag does not open after its reindex");
  expect(offsetsOf(reader.topicIndexes()) == offsetsOf(all),
         "the new index does not hold what the walk has found");

  expect(MorvaBag::reindex(place.bag()) == 0, "a second reindex fails");
  const std::string again = contentsOf(place.side());
  expect(again.size() == side.size(), "a second reindex makes another side file");
}

}  // namespace morva::fuzz

// Every message that an index, or a walk through the file, gives is read.
#include <string>

#include "message_walk.h"
#include "morva/bag.h"
#include "storage/bag_reader.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {
namespace {

void readAll(const View& view, const std::string& bytes, BagReader* reader, const MorvaBag* bag) {
  std::string data, same;
  std::size_t reads = 0;
  for (const MsgIndex& index : view.indexes) {
    if (++reads > kMaxReads) return;
    const std::int64_t length = reader->read(index, &data);
    expect(length < 0 || static_cast<std::size_t>(length) == data.size(),
           "a message has another length than its payload");
    expect(length < 0 || isReadable(index), "a message was read that has to be refused");
    if (length >= 0) expectTrueTo(bytes, reader->header().compression(), index, data);
    if (bag == nullptr) continue;
    expect(bag->readMessage(index, &same) == (length >= 0) && (length < 0 || same == data),
           "handle and reader read different messages");
  }
}

}  // namespace

void runReadMessages(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  const RecordingInput recording = RecordingInput::parse(input);
  BagReader reader;
  if (!place.open(recording, &reader)) return;
  readAll(MorvaBag::getAllView(place.bag(), nullptr), recording.bag, &reader, nullptr);

  MorvaBag bag;
  if (bag.open(place.bag(), BagMode::kRead) != 0) return;
  for (const auto& [name, id] : reader.topicIds()) {
    const View view = bag.getView(name, 0, -1);
    readAll(view, recording.bag, &reader, &bag);
    if (view.indexes.empty()) continue;
    const std::int64_t time = view.indexes[view.indexes.size() / 2].headerTimes[0];
    const View part = bag.getView(name, time, 1);
    expect(part.indexes.size() <= view.indexes.size(), "a part of a topic is more than all of it");
    for (const MsgIndex& index : part.indexes) {
      expect(time <= 0 || index.headerTimes[0] >= time, "a view begins before its start");
    }
  }
}

}  // namespace morva::fuzz

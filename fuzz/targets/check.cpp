// The check of a whole bag: what it finds sound can be read.
#include <string>

#include "message_walk.h"
#include "morva/bag.h"
#include "storage/bag_reader.h"
#include "target.h"
#include "work_place.h"

namespace morva::fuzz {

void runCheck(std::string_view input) {
  WorkPlace& place = WorkPlace::get();
  const RecordingInput recording = RecordingInput::parse(input);
  place.put(recording);
  std::size_t calls = 0;
  const int code = MorvaBag::checkAll(place.bag(), [&calls](std::uint64_t /*offset*/) {
    ++calls;
    return true;
  });
  expect(code == 0 || code == 4 || code == 6 || code == 7, "a check returned an unknown code");
  place.expectNothingElse();

  const View all = MorvaBag::getAllView(place.bag(), nullptr);
  expect(all.indexes.size() == calls, "check and walk find different messages");
  BagReader reader;
  const int openCode = reader.open(place.bag());
  const bool isOpen = openCode == BagFile::kOpenOk || openCode == BagFile::kOpenNoIndex;
  expect(isOpen || (code != 0 && all.indexes.empty()),
         "a bag that does not open is sound, or holds messages");
  if (!isOpen) return;
  std::string data;
  std::size_t reads = 0;
  for (const MsgIndex& index : all.indexes) {
    if (++reads > kMaxReads) break;
    const bool isRead = reader.read(index, &data) >= 0;
    expect(isRead == isReadable(index), "a message that was verified cannot be read");
    if (isRead) expectTrueTo(recording.bag, reader.header().compression(), index, data);
  }
}

}  // namespace morva::fuzz

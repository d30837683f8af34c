// Reads the messages of one topic:  03_read REC.kbag TOPIC
//
// A payload is one serialized array message of the schema; parse it with the classes of
// kbag_msgs.proto.

#include <cinttypes>
#include <cstdio>
#include <string>

#include "morva/bag.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s REC.kbag TOPIC\n", argv[0]);
    return 2;
  }

  morva::MorvaBag bag;
  const int code = bag.open(argv[1], morva::BagMode::kRead);
  if (code != morva::MorvaBag::kOpenOk) {
    std::fprintf(stderr, "cannot open %s: code %d\n", argv[1], code);
    return 1;
  }

  // From the beginning, without an end. A view is plain data: it outlives the bag, and each of its
  // records finds one message.
  const morva::View view = bag.getView(argv[2], 0, 0);
  std::uint64_t samples = 0;
  std::string payload;
  for (const morva::MsgIndex& index : view.indexes) {
    if (!bag.readMessage(index, &payload)) return 1;
    std::printf("%" PRId64 " us: %" PRIu32 " samples, %zu bytes (%" PRIu32 " stored)\n",
                index.headerTimes[0], index.count, payload.size(), index.storedSize);
    samples += index.count;
  }
  std::printf("%zu messages, %" PRIu64 " samples\n", view.indexes.size(), samples);
  return view.indexes.empty() ? 1 : 0;
}

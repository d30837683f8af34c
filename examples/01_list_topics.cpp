// Lists the topics of a recording:  01_list_topics REC.kbag

#include <cinttypes>
#include <cstdio>

#include "morva/bag.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s REC.kbag\n", argv[0]);
    return 2;
  }

  morva::MorvaBag bag;
  const int code = bag.open(argv[1], morva::BagMode::kRead);
  if (code != morva::MorvaBag::kOpenOk) {
    std::fprintf(stderr, "cannot open %s: code %d\n", argv[1], code);
    return 1;
  }

  for (const morva::TopicInfo& topic : bag.getInfo().topics) {
    std::printf("%s: %" PRIu32 " samples in %" PRId64 " us, %" PRIu64 " bytes\n",
                topic.name.c_str(), topic.messageCount, topic.endTime - topic.startTime,
                topic.total);
  }
  return 0;
}

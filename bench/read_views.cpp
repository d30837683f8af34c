// bench_read_views in-order|shuffled BAG: reads every message of a bag through its view, topic by
// topic or in any order, and tells the CPU time of the reading.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "bench/peers/cpu_clock.h"
#include "morva/bag.h"

int main(int count, char** arguments) {
  morva::MorvaBag bag;
  if (count != 3 || bag.open(arguments[2], morva::BagMode::kRead) != 0) return EXIT_FAILURE;
  std::vector<std::string> topics;
  for (const morva::TopicInfo& topic : bag.getInfo().topics) topics.push_back(topic.name);
  morva::View view = bag.getView(topics, 0, -1);
  if (std::string(arguments[1]) == "shuffled") {
    std::ranges::shuffle(view.indexes, std::mt19937(1));
  }
  std::uint64_t bytes = 0;
  std::string payload;
  const peers::CpuClock clock;
  for (const morva::MsgIndex& index : view.indexes) {
    if (!bag.readMessage(index, &payload)) return EXIT_FAILURE;
    bytes += payload.size();
  }
  clock.tell();
  std::printf("%zu messages, %llu bytes\n", view.indexes.size(),
              static_cast<unsigned long long>(bytes));
  return EXIT_SUCCESS;
}

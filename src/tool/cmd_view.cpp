#include <algorithm>
#include <string>
#include <vector>

#include "tool/commands.h"
#include "tool/console.h"

namespace morva {
namespace {

constexpr int kSeparatorWidth = 40;

// The topics to show, in the order of the bag, each as often as it is asked for.
std::vector<std::string> chosenTopics(const BagInfo& info, const std::vector<std::string>& asked) {
  std::vector<std::string> chosen;
  for (const TopicInfo& topic : info.topics) {
    const auto times = asked.empty() ? 1 : std::ranges::count(asked, topic.name);
    chosen.insert(chosen.end(), static_cast<std::size_t>(times), topic.name);
  }
  return chosen;
}

void printView(const std::string& topic, const View& view) {
  Console::line(Ink::kGreen, "%s\ntopic     : [%s]", std::string(kSeparatorWidth, '-'), topic);
  Console::line(Ink::kGreen, "chunk nums: %ld", view.indexes.size());
  int number = 0;
  for (const MsgIndex& index : view.indexes) {
    Console::line(Ink::kGreen, "chunk idx : %d, timestamp:%llu, offset: 0x%016llX", number++,
                  index.headerTimes[0], index.chunkOffset);
  }
}

}  // namespace

void kbag_view(MorvaBag* bag, const std::vector<std::string>& topics, long start, long duration,
               bool /*detail*/) {
  for (const std::string& topic : chosenTopics(bag->getInfo(), topics)) {
    printView(topic, bag->getView(topic, start, duration));
  }
}

}  // namespace morva

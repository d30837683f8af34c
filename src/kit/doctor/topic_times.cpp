#include "kit/doctor/topic_times.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace morva::doctor {
namespace {

constexpr std::size_t kMinSteps = 10;
constexpr std::uint64_t kGapPeriods = 3;

struct Step {
  std::uint64_t offset = 0;  ///< of the later message
  std::int64_t fromUs = 0, toUs = 0;

  [[nodiscard]] bool isBack() const { return toUs < fromUs; }
  /// Hostile times may lie farther apart than their own type can tell.
  [[nodiscard]] std::uint64_t lengthUs() const {
    return static_cast<std::uint64_t>(toUs) - static_cast<std::uint64_t>(fromUs);
  }
};

/// The median of the steps forward where they are regular; else 0.
std::uint64_t periodOf(const std::vector<Step>& steps) {
  std::vector<std::uint64_t> lengths;
  for (const Step& step : steps) {
    if (!step.isBack()) lengths.push_back(step.lengthUs());
  }
  if (lengths.size() < kMinSteps) return 0;
  const auto middle = lengths.begin() + static_cast<std::ptrdiff_t>(lengths.size() / 2);
  std::ranges::nth_element(lengths, middle);
  const std::uint64_t period = *middle;
  const auto regular = std::ranges::count_if(lengths, [period](std::uint64_t length) {
    return length >= period / 2 && length / 2 <= period;
  });
  return static_cast<std::size_t>(regular) * 10 >= lengths.size() * 9 ? period : 0;
}

void assess(const std::vector<Step>& steps, TopicAccount* topic) {
  const std::uint64_t period = periodOf(steps);
  topic->periodUs = static_cast<std::int64_t>(period);
  for (const Step& step : steps) {
    if (step.isBack()) {
      topic->stepsBack.push_back({step.offset, step.fromUs, step.toUs});
    } else if (period > 0 && step.lengthUs() / kGapPeriods >= period &&
               step.lengthUs() > kGapPeriods * period) {
      const std::uint64_t missing = (step.lengthUs() + period / 2) / period - 1;
      topic->gaps.push_back({step.fromUs, step.toUs, missing});
    }
  }
}

}  // namespace

void assessTimes(Account* account) {
  std::map<std::int32_t, std::vector<Step>> steps;
  std::map<std::int32_t, std::int64_t> lastUs;
  for (const Message& message : account->messages) {
    const std::int64_t timeUs = message.header.headerTimes[0];
    TopicAccount& topic = account->topics[message.header.topicId];
    const auto [last, isFirst] = lastUs.emplace(message.header.topicId, timeUs);
    if (isFirst) {
      topic.firstUs = topic.lastUs = timeUs;
      continue;
    }
    topic.firstUs = std::min(topic.firstUs, timeUs);
    topic.lastUs = std::max(topic.lastUs, timeUs);
    steps[message.header.topicId].push_back({message.offset, last->second, timeUs});
    last->second = timeUs;
  }
  for (const auto& [id, topicSteps] : steps) assess(topicSteps, &account->topics[id]);
}

}  // namespace morva::doctor

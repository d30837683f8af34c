#include "kit/doctor/topic_times.h"

#include <algorithm>
#include <map>

namespace morva::doctor {
namespace {

constexpr std::size_t kMinSteps = 10;
constexpr std::uint64_t kGapPeriods = 3;

void note(const TopicTimes& times, TopicAccount* topic) {
  const std::uint64_t periodUs = times.periodUs();
  topic->firstUs = times.leastUs();
  topic->lastUs = times.greatestUs();
  topic->periodUs = static_cast<std::int64_t>(periodUs);
  topic->gaps = times.gaps(periodUs);
  topic->stepsBack = times.stepsBack();
}

}  // namespace

void TopicTimes::add(std::uint64_t offset, std::int64_t timeUs) {
  if (messages_ == 0) {
    leastUs_ = greatestUs_ = timeUs;
  } else {
    leastUs_ = std::min(leastUs_, timeUs);
    greatestUs_ = std::max(greatestUs_, timeUs);
    steps_.push_back({offset, lastUs_, timeUs});
  }
  lastUs_ = timeUs;
  ++messages_;
}

std::uint64_t TopicTimes::periodUs() const {
  std::vector<std::uint64_t> lengths;
  for (const Step& step : steps_) {
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

std::vector<Gap> TopicTimes::gaps(std::uint64_t periodUs) const {
  std::vector<Gap> gaps;
  if (periodUs == 0) return gaps;
  for (const Step& step : steps_) {
    if (step.isBack() || step.lengthUs() / kGapPeriods < periodUs) continue;
    if (step.lengthUs() == kGapPeriods * periodUs) continue;
    const std::uint64_t missing = (step.lengthUs() + periodUs / 2) / periodUs - 1;
    gaps.push_back({step.fromUs, step.toUs, missing});
  }
  return gaps;
}

std::vector<StepBack> TopicTimes::stepsBack() const {
  std::vector<StepBack> back;
  for (const Step& step : steps_) {
    if (step.isBack()) back.push_back({step.offset, step.fromUs, step.toUs});
  }
  return back;
}

void assessTimes(Account* account) {
  std::map<std::int32_t, TopicTimes> times;
  for (const Message& message : account->messages) {
    times[message.header.topicId].add(message.offset, message.header.headerTimes[0]);
  }
  for (const auto& [id, topicTimes] : times) note(topicTimes, &account->topics[id]);
}

}  // namespace morva::doctor

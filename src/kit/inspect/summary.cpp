#include "kit/inspect/summary.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "kit/doctor/topic_times.h"

namespace morva::inspect {
namespace {

using doctor::TopicTimes;

constexpr double kUsPerSecond = 1e6;

double lengthUs(std::int64_t fromUs, std::int64_t toUs) {
  return static_cast<double>(toUs) - static_cast<double>(fromUs);
}

std::int64_t subtractSaturated(std::int64_t a, std::int64_t b) {
  std::int64_t difference = 0;
  if (!__builtin_sub_overflow(a, b, &difference)) return difference;
  return b > 0 ? std::numeric_limits<std::int64_t>::min()
               : std::numeric_limits<std::int64_t>::max();
}

double medianOf(std::vector<std::int64_t>* values) {
  const auto middle = values->begin() + static_cast<std::ptrdiff_t>(values->size() / 2);
  std::ranges::nth_element(*values, middle);
  const auto upper = static_cast<double>(*middle);
  if (values->size() % 2 == 1) return upper;
  return (static_cast<double>(*std::max_element(values->begin(), middle)) + upper) / 2.0;
}

std::optional<StepSpread> spreadOf(const std::vector<TopicTimes::Step>& steps) {
  if (steps.empty()) return std::nullopt;
  std::vector<std::int64_t> lengths;
  lengths.reserve(steps.size());
  StepSpread spread;
  double squares = 0.0;  // of the distances from the mean
  for (const TopicTimes::Step& step : steps) {
    lengths.push_back(subtractSaturated(step.toUs, step.fromUs));
    const auto length = static_cast<double>(lengths.back());
    const double distance = length - spread.meanUs;
    spread.meanUs += distance / static_cast<double>(lengths.size());
    squares += distance * (length - spread.meanUs);
  }
  spread.count = lengths.size();
  spread.deviationUs = std::sqrt(squares / static_cast<double>(lengths.size()));
  spread.minUs = *std::ranges::min_element(lengths);
  spread.maxUs = *std::ranges::max_element(lengths);
  spread.medianUs = medianOf(&lengths);
  return spread;
}

Amounts amountsOf(const BagFile::TopicHeader& entry) {
  return {.messages = 1,
          .samples = entry.count,
          .rawBytes = entry.rawSize,
          .storedBytes = entry.storedSize};
}

std::optional<Rates> ratesOf(const Amounts& amounts, const Amounts& last, const TopicTimes& times) {
  const double seconds = lengthUs(times.leastUs(), times.greatestUs()) / kUsPerSecond;
  if (!(seconds > 0.0)) return std::nullopt;
  const auto perSecond = [seconds](std::uint64_t all, std::uint64_t ofLast) {
    return static_cast<double>(all - ofLast) / seconds;
  };
  return Rates{.messagesHz = perSecond(amounts.messages, last.messages),
               .samplesHz = perSecond(amounts.samples, last.samples),
               .rawBytesPerS = perSecond(amounts.rawBytes, last.rawBytes)};
}

/// Widens a span, which may be empty yet.
void widen(std::optional<TimeSpan>* span, const TimeSpan& by) {
  if (!*span) *span = by;
  (*span)->startUs = std::min((*span)->startUs, by.startUs);
  (*span)->endUs = std::max((*span)->endUs, by.endUs);
}

TopicSummary summarizeTopic(const Recording& recording, const Topic& topic,
                            const TimeWindow& window) {
  TopicSummary summary;
  summary.topic = topic;
  summary.kind = messageKindOf(topic.name);
  const auto index = recording.messagesOf(topic);
  if (index == nullptr) return summary;

  TopicTimes times;
  Amounts last;
  for (std::size_t i = 0; i < index->entries.size(); ++i) {
    const BagFile::TopicHeader& entry = index->entries[i];
    if (!window.contains(entry.headerTimes[0])) continue;
    times.add(index->chunkOffsets[i], entry.headerTimes[0]);
    last = amountsOf(entry);
    summary.amounts.add(last);
    widen(&summary.span, {entry.headerTimes[0], entry.headerTimes[1]});
  }
  if (times.messages() == 0) return summary;
  summary.rates = ratesOf(summary.amounts, last, times);
  summary.steps = spreadOf(times.steps());
  if (const std::uint64_t periodUs = times.periodUs(); periodUs > 0) summary.periodUs = periodUs;
  summary.gaps = times.gaps(summary.periodUs.value_or(0));
  summary.stepsBack =
      static_cast<std::uint64_t>(std::ranges::count_if(times.steps(), &TopicTimes::Step::isBack));
  return summary;
}

}  // namespace

void Amounts::add(const Amounts& other) {
  messages += other.messages;
  samples += other.samples;
  rawBytes += other.rawBytes;
  storedBytes += other.storedBytes;
}

std::optional<double> Amounts::compressionRatio() const {
  if (storedBytes == 0) return std::nullopt;
  return static_cast<double>(rawBytes) / static_cast<double>(storedBytes);
}

Summary summarize(const Recording& recording, const Selection& selection) {
  Summary summary;
  summary.window = windowOf(selection, recording.span().value_or(TimeSpan{}));
  for (const Topic& topic : recording.topics()) {
    if (!selection.hasTopic(topic.name)) continue;
    summary.topics.push_back(summarizeTopic(recording, topic, summary.window));
    const TopicSummary& added = summary.topics.back();
    summary.amounts.add(added.amounts);
    if (added.span) widen(&summary.span, *added.span);
  }
  return summary;
}

double secondsOf(const TimeSpan& span) { return lengthUs(span.startUs, span.endUs) / kUsPerSecond; }

}  // namespace morva::inspect

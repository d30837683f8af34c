#ifndef MORVA_KIT_INSPECT_SUMMARY_H_
#define MORVA_KIT_INSPECT_SUMMARY_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "kit/doctor/account.h"
#include "kit/inspect/recording.h"
#include "kit/inspect/selection.h"
#include "messages/message_kind.h"

namespace morva::inspect {

/// How regularly messages come: the times between the first header times of one message and the
/// next, in writing order, us; negative where time runs back.
struct StepSpread {
  std::uint64_t count = 0;  ///< never 0
  double medianUs = 0.0;
  double meanUs = 0.0;
  double deviationUs = 0.0;  ///< standard deviation, of all of them
  std::int64_t minUs = 0;
  std::int64_t maxUs = 0;
};

/// What came from the first message's time until the last message's, by the second.
struct Rates {
  double messagesHz = 0.0;
  double samplesHz = 0.0;
  double rawBytesPerS = 0.0;
};

/// Amounts that add up.
struct Amounts {
  std::uint64_t messages = 0;
  std::uint64_t samples = 0;  ///< by the messages' own account
  std::uint64_t rawBytes = 0;
  std::uint64_t storedBytes = 0;

  void add(const Amounts& other);
  /// Raw by stored bytes; nothing where there are none.
  [[nodiscard]] std::optional<double> compressionRatio() const;
};

struct TopicSummary {
  Topic topic;
  MessageKind kind = MessageKind::kUnknown;
  Amounts amounts;
  std::optional<TimeSpan> span;  ///< from the least first to the greatest second header time
  std::optional<Rates> rates;
  std::optional<StepSpread> steps;
  std::optional<std::uint64_t> periodUs;  ///< of a topic that comes regularly
  std::vector<doctor::Gap> gaps;
  std::uint64_t stepsBack = 0;
};

struct Summary {
  TimeWindow window;
  Amounts amounts;
  std::optional<TimeSpan> span;
  std::vector<TopicSummary> topics;  ///< selected ones, in ascending order of names
};

/// Sums up the selected messages. Looks at the index alone, one topic after another.
[[nodiscard]] Summary summarize(const Recording& recording, const Selection& selection);

/// The length of a span, s.
[[nodiscard]] double secondsOf(const TimeSpan& span);

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_SUMMARY_H_

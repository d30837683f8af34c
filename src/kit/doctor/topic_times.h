#ifndef MORVA_KIT_DOCTOR_TOPIC_TIMES_H_
#define MORVA_KIT_DOCTOR_TOPIC_TIMES_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kit/doctor/account.h"

namespace morva::doctor {

/// The first header times of one topic's messages, in the order in which they were written, and
/// what they say:
///
/// - a step back: a time that is before the one of the message written before it;
/// - a gap: a step of more than 3 periods, in a topic that otherwise comes regularly. The period is
///   the median of the steps forward; a topic is regular where it has at least 10 of them and 9 in
///   10 are half a period to two periods long.
///
/// Memory: 24 bytes a message.
class TopicTimes {
 public:
  /// From one message to the next.
  struct Step {
    std::uint64_t offset = 0;  ///< of the later message
    std::int64_t fromUs = 0, toUs = 0;

    [[nodiscard]] bool isBack() const { return toUs < fromUs; }
    /// Of a step forward. Hostile times may lie farther apart than their own type can tell.
    [[nodiscard]] std::uint64_t lengthUs() const {
      return static_cast<std::uint64_t>(toUs) - static_cast<std::uint64_t>(fromUs);
    }
  };

  /// Adds the next message.
  /// @param offset  Of its chunk in the file.
  void add(std::uint64_t offset, std::int64_t timeUs);

  [[nodiscard]] std::size_t messages() const { return messages_; }
  [[nodiscard]] std::int64_t leastUs() const { return leastUs_; }        ///< 0 without messages
  [[nodiscard]] std::int64_t greatestUs() const { return greatestUs_; }  ///< the same
  [[nodiscard]] const std::vector<Step>& steps() const { return steps_; }

  /// 0 where the topic is not regular.
  [[nodiscard]] std::uint64_t periodUs() const;
  [[nodiscard]] std::vector<Gap> gaps(std::uint64_t periodUs) const;
  [[nodiscard]] std::vector<StepBack> stepsBack() const;

 private:
  std::size_t messages_ = 0;
  std::int64_t lastUs_ = 0;
  std::int64_t leastUs_ = 0;
  std::int64_t greatestUs_ = 0;
  std::vector<Step> steps_;
};

/// Notes what the times of each topic's messages say in its account.
void assessTimes(Account* account);

}  // namespace morva::doctor

#endif  // MORVA_KIT_DOCTOR_TOPIC_TIMES_H_

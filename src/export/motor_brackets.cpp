#include "export/motor_brackets.h"

#include <algorithm>

namespace morva {
namespace {

constexpr std::size_t kStepsAhead = 3;

/// Not so where a time is not a number.
bool areInOrder(const std::vector<double>& times) {
  for (std::size_t i = 1; i < times.size(); ++i) {
    if (!(times[i - 1] <= times[i])) return false;
  }
  return times.front() <= times.back();
}

}  // namespace

MotorBrackets::MotorBrackets(const std::vector<std::shared_ptr<MotorMsg>>& motors) {
  times_.reserve(motors.size());
  for (const auto& motor : motors) times_.push_back(motor->time);
  isInOrder_ = areInOrder(times_);
}

std::size_t MotorBrackets::firstNotBefore(double timeS) const {
  const auto isIt = [&](std::size_t at) { return times_[at - 1] < timeS && timeS <= times_[at]; };
  if (isInOrder_) {
    const std::size_t end = std::min(last_ + kStepsAhead, times_.size());
    for (std::size_t at = std::max<std::size_t>(last_, 1); at < end; ++at) {
      if (isIt(at)) return at;
    }
  }
  const auto found = std::ranges::lower_bound(times_, timeS);
  return static_cast<std::size_t>(found - times_.begin());
}

MotorBrackets::Bracket MotorBrackets::find(double timeS) {
  last_ = firstNotBefore(timeS);
  if (last_ == times_.size()) return {};
  if (last_ == 0) {
    // The time of the first record has its orientation; earlier is no better than too late.
    if (timeS != times_.front()) return {};
    return {.isFound = true, .first = 0, .second = 0, .afterS = timeS, .upToS = timeS};
  }
  return {.isFound = true,
          .first = last_ - 1,
          .second = last_,
          .afterS = isInOrder_ ? times_[last_ - 1] : timeS,
          .upToS = isInOrder_ ? times_[last_] : timeS};
}

}  // namespace morva

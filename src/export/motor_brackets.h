#ifndef MORVA_EXPORT_MOTOR_BRACKETS_H_
#define MORVA_EXPORT_MOTOR_BRACKETS_H_

#include <cstddef>
#include <memory>
#include <vector>

#include "messages/frames.h"

namespace morva {

/// Finds the motor records around the times of points, which mostly follow each other: the next
/// bracket is looked for beside the last one before all are searched.
/// Threads: one at a time.
class MotorBrackets {
 public:
  /// @param motors  Not empty. Where their times are out of order a search is all that is done.
  explicit MotorBrackets(const std::vector<std::shared_ptr<MotorMsg>>& motors);

  /// The records around a time. `second` is the first record that is not earlier, `first` the one
  /// before it, or the same where the time is that of the very first record.
  struct Bracket {
    bool isFound = false;
    std::size_t first = 0;
    std::size_t second = 0;
    double afterS = 0.0;  ///< the bracket holds the times from here, exclusive,
    double upToS = 0.0;   ///< to here, inclusive

    [[nodiscard]] bool holds(double timeS) const { return afterS < timeS && timeS <= upToS; }
  };
  [[nodiscard]] Bracket find(double timeS);

 private:
  [[nodiscard]] std::size_t firstNotBefore(double timeS) const;

  std::vector<double> times_;
  bool isInOrder_ = false;
  std::size_t last_ = 0;  ///< what firstNotBefore() gave last
};

}  // namespace morva

#endif  // MORVA_EXPORT_MOTOR_BRACKETS_H_

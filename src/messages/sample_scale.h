#ifndef MORVA_MESSAGES_SAMPLE_SCALE_H_
#define MORVA_MESSAGES_SAMPLE_SCALE_H_

#include <cstdint>
#include <limits>

#include "platform/date_time.h"

namespace morva {

/// The factor of one sample's integer-coded values; see MsgConverterPri for the rule.
class SampleScale {
 public:
  /// @param scale  As the sample's header gives it.
  explicit SampleScale(std::int64_t scale) : factor_(factorOf(scale)) {}

  [[nodiscard]] double toDouble(std::int64_t coded) const {
    return static_cast<double>(coded) * factor_;
  }
  /// Never out of range: no product of two 64-bit integers passes what a float can hold.
  [[nodiscard]] float toFloat(std::int64_t coded) const {
    return static_cast<float>(toDouble(coded));
  }

 private:
  static double factorOf(std::int64_t scale) {
    if (scale > 0) return 1.0 / static_cast<double>(scale);
    return scale == 0 ? 1.0 : static_cast<double>(scale);
  }

  double factor_;
};

[[nodiscard]] inline double toSeconds(std::int64_t us) { return osmik::Time(us).toSec(); }

[[nodiscard]] inline std::int64_t addSaturated(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  return b < 0 ? std::numeric_limits<std::int64_t>::min()
               : std::numeric_limits<std::int64_t>::max();
}

}  // namespace morva

#endif  // MORVA_MESSAGES_SAMPLE_SCALE_H_

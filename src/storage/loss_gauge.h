#ifndef MORVA_STORAGE_LOSS_GAUGE_H_
#define MORVA_STORAGE_LOSS_GAUGE_H_

#include <cstdint>

#include "morva/records.h"

namespace morva {

/// Counts what a recording would lose if the machine stopped now, and holds it against a bound.
class LossGauge {
 public:
  explicit LossGauge(const LossBound& bound = {}) : bound_(bound) {}

  [[nodiscard]] bool isBound() const { return bound_.isSet(); }

  /// Whether the bound is reached once a chunk of `bytes` bytes is written.
  /// @param nowUs  Of a clock that never goes back; any origin.
  [[nodiscard]] bool isReachedWith(std::uint64_t bytes, std::int64_t nowUs) const {
    if (bound_.bytes > 0 && bytes_ + bytes >= bound_.bytes) return true;
    return bound_.intervalUs > 0 && bytes_ > 0 && nowUs - oldestUs_ >= bound_.intervalUs;
  }

  /// Counts a chunk that is not on the storage device.
  void add(std::uint64_t bytes, std::int64_t nowUs) {
    if (bytes_ == 0) oldestUs_ = nowUs;
    bytes_ += bytes;
  }

  /// Everything is on the storage device.
  void clear() { bytes_ = 0; }

 private:
  LossBound bound_;
  std::uint64_t bytes_ = 0;
  std::int64_t oldestUs_ = 0;  ///< when the first of them was written
};

}  // namespace morva

#endif  // MORVA_STORAGE_LOSS_GAUGE_H_

#ifndef MORVA_FUZZ_DICE_H_
#define MORVA_FUZZ_DICE_H_

#include <array>
#include <cstddef>
#include <cstdint>

namespace morva::fuzz {

/// Random numbers, the same for the same seed everywhere.
class Dice {
 public:
  explicit Dice(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next() {
    state_ += 0x9E3779B97F4A7C15U;
    std::uint64_t z = state_;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
  }
  /// Less than `limit`; 0 where that is 0.
  std::size_t below(std::size_t limit) { return limit == 0 ? 0 : next() % limit; }
  bool oneIn(std::size_t n) { return below(n) == 0; }

  template <typename List>
  auto& pick(List& list) {
    return list[below(std::size(list))];
  }

  /// A number at which code may go wrong, or near one, or any.
  std::uint64_t number() {
    static constexpr std::array<std::uint64_t, 22> kLimits = {
        0,          1,          2,          4,          12,
        36,         0x7F,       0x80,       0xFF,       0x7FFF,
        0x8000,     0xFFFF,     0xFFFFFF,   0x7FFFFFFF, 0x80000000,
        0xFFFFFFFF, 1ULL << 32, 1ULL << 53, 1ULL << 62, 0x7FFFFFFFFFFFFFFF,
        1ULL << 63, ~0ULL};
    constexpr std::uint64_t kNowUs = 1'700'000'000'000'000;
    switch (below(8)) {
      case 0:
      case 1:
      case 2:
        return pick(kLimits);
      case 3:
        return pick(kLimits) + below(5) - 2;
      case 4:
        return next() >> below(64);
      case 5:
        return kNowUs + below(2'000'000);
      default:
        return below(300);
    }
  }
  /// A changed number: a neighbour, a flipped bit, or another one.
  std::uint64_t changed(std::uint64_t value) {
    switch (below(6)) {
      case 0:
        return value + 1 + below(4);
      case 1:
        return value - 1 - below(4);
      case 2:
        return value ^ (1ULL << below(64));
      case 3:
        return value ^ (1ULL << below(32));
      case 4:
        return oneIn(2) ? value * 2 : 0 - value;
      default:
        return number();
    }
  }

 private:
  std::uint64_t state_;
};

}  // namespace morva::fuzz

#endif  // MORVA_FUZZ_DICE_H_

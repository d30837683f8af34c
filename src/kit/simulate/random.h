#ifndef MORVA_KIT_SIMULATE_RANDOM_H_
#define MORVA_KIT_SIMULATE_RANDOM_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>

namespace morva::sim {

/// Random numbers that are the same with every standard library (whose distributions differ; the
/// engine does not).
///
/// Each use has a stream of its own, named and numbered: what one part of the recording draws never
/// shifts what another part draws.
class Random {
 public:
  Random(std::uint64_t seed, std::string_view stream, std::uint64_t number = 0);

  /// In [0, 1), in steps of 2^-53.
  [[nodiscard]] double uniform();
  [[nodiscard]] double uniform(double low, double high);
  /// Normal distribution of mean 0 and standard deviation 1.
  [[nodiscard]] double gaussian();
  /// In [0, bound); `bound` is not 0.
  [[nodiscard]] std::uint64_t below(std::uint64_t bound);
  /// `size` bytes, every value equally likely.
  [[nodiscard]] std::string bytes(std::size_t size);

 private:
  std::mt19937_64 engine_;
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_RANDOM_H_

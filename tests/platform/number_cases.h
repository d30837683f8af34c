#ifndef MORVA_TESTS_PLATFORM_NUMBER_CASES_H_
#define MORVA_TESTS_PLATFORM_NUMBER_CASES_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

/// Numbers that are hard to print, and the comparison of their texts with snprintf's.
namespace osmik::test {

/// Makes numbers of every kind: any bits, ties, neighbours of half a last decimal, powers,
/// subnormal ones, and those that recordings hold.
class NumberCases {
 public:
  explicit NumberCases(std::uint64_t seed) : random_(seed) {}

  [[nodiscard]] float nextFloat();
  /// @param decimals  To which the number is to be printed.
  [[nodiscard]] double nextDouble(int decimals);

 private:
  [[nodiscard]] std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
  [[nodiscard]] int exponent(int low, int high) {
    return low + static_cast<int>(below(static_cast<std::uint64_t>(high - low) + 1));
  }

  std::mt19937_64 random_;
};

/// The text of the first number that does not print as snprintf prints it, with both texts; empty
/// where all do. `count` numbers: six in ten are floats, the others doubles of six and nine
/// decimals.
[[nodiscard]] std::string firstDifference(std::uint64_t seed, std::size_t count);

}  // namespace osmik::test

#endif  // MORVA_TESTS_PLATFORM_NUMBER_CASES_H_

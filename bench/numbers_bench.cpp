// Numbers to text, against snprintf: the same bytes.

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/number_text.h"

namespace {

using Text = std::array<char, 512>;

constexpr std::size_t kNumbers = 10'000;

/// Values of [0, 1), the same in every run.
class Random {
 public:
  double next() { return static_cast<double>(random_() >> 11) * 0x1p-53; }

 private:
  std::mt19937_64 random_{1};
};

/// Coordinates and accelerations, of one to three digits before the point.
std::vector<float> floats() {
  Random random;
  std::vector<float> numbers(kNumbers);
  for (float& number : numbers) number = static_cast<float>((random.next() - 0.5) * 200.0);
  return numbers;
}

std::vector<double> todaysSeconds() {
  Random random;
  std::vector<double> numbers(kNumbers);
  for (double& number : numbers) number = 1.7e9 + random.next() * 1e8;
  return numbers;
}

std::vector<double> degrees() {
  Random random;
  std::vector<double> numbers(kNumbers);
  for (double& number : numbers) number = (random.next() - 0.5) * 360.0;
  return numbers;
}

/// Prints all numbers into one place, again and again.
template <typename Number, typename Put>
void print(benchmark::State& state, const std::vector<Number>& numbers, Put put) {
  Text text;
  for (auto _ : state) {
    for (const Number number : numbers) {
      benchmark::DoNotOptimize(put(number, &text));
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(numbers.size()));
}

/// Registers "<work>/ours" and "<work>/peer". `ours` and `peer` take a number and where its text
/// goes, and return its length.
template <typename Number, typename Ours, typename Peer>
void compare(const char* work, const std::vector<Number>& numbers, Ours ours, Peer peer) {
  const std::string name(work);
  bool isSame = true;
  for (const Number number : numbers) {
    Text a;
    Text b;
    isSame = isSame && std::string_view(a.data(), ours(number, &a)) ==
                           std::string_view(b.data(), peer(number, &b));
  }
  benchmark::RegisterBenchmark((name + "/ours").c_str(), [=](benchmark::State& state) {
    if (!isSame) return state.SkipWithError("the texts are not snprintf's");
    print(state, numbers, ours);
  });
  benchmark::RegisterBenchmark((name + "/peer").c_str(),
                               [=](benchmark::State& state) { print(state, numbers, peer); });
}

[[maybe_unused]] const bool kRegistered = [] {
  compare(
      "FloatSix", floats(),
      [](float number, Text* text) {
        return static_cast<std::size_t>(osmik::putFixed6(number, text->data()) - text->data());
      },
      [](float number, Text* text) {
        return static_cast<std::size_t>(
            std::snprintf(text->data(), text->size(), "%f", static_cast<double>(number)));
      });
  compare(
      "DoubleSix", todaysSeconds(),
      [](double number, Text* text) {
        return static_cast<std::size_t>(osmik::putFixed6(number, text->data()) - text->data());
      },
      [](double number, Text* text) {
        return static_cast<std::size_t>(std::snprintf(text->data(), text->size(), "%.6f", number));
      });
  compare(
      "DoubleNine", degrees(),
      [](double number, Text* text) {
        return static_cast<std::size_t>(osmik::putFixed9(number, text->data()) - text->data());
      },
      [](double number, Text* text) {
        return static_cast<std::size_t>(std::snprintf(text->data(), text->size(), "%.9f", number));
      });
  return true;
}();

}  // namespace

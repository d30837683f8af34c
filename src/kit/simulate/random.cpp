#include "kit/simulate/random.h"

#include <cmath>
#include <numbers>

namespace morva::sim {

namespace {

// SplitMix64's finaliser: spreads every bit of the input over all bits of the output.
std::uint64_t mix(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15U;
  value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9U;
  value = (value ^ (value >> 27U)) * 0x94D049BB133111EBU;
  return value ^ (value >> 31U);
}

// FNV-1a.
std::uint64_t hashOf(std::string_view text) {
  std::uint64_t hash = 0xCBF29CE484222325U;
  for (const char c : text) hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001B3U;
  return hash;
}

}  // namespace

Random::Random(std::uint64_t seed, std::string_view stream, std::uint64_t number)
    : engine_(mix(mix(mix(seed) ^ hashOf(stream)) ^ number)) {}

double Random::uniform() { return static_cast<double>(engine_() >> 11U) * 0x1p-53; }

double Random::uniform(double low, double high) { return low + (high - low) * uniform(); }

double Random::gaussian() {
  const double radius = std::sqrt(-2.0 * std::log(1.0 - uniform()));  // never the logarithm of 0
  return radius * std::cos(2.0 * std::numbers::pi * uniform());
}

std::uint64_t Random::below(std::uint64_t bound) {
  // Draws from the incomplete last interval are thrown away, or small results would be more likely.
  const std::uint64_t limit = ~std::uint64_t{0} - (~std::uint64_t{0} % bound + 1) % bound;
  for (;;) {
    const std::uint64_t value = engine_();
    if (value <= limit) return value % bound;
  }
}

std::string Random::bytes(std::size_t size) {
  std::string result(size, '\0');
  for (char& c : result) c = static_cast<char>(engine_() >> 56U);
  return result;
}

}  // namespace morva::sim

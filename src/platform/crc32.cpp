#include "platform/crc32.h"

#include <array>
#include <libdeflate.h>

namespace {

// Polynomials over GF(2) modulo the checksum's, reflected: the highest bit is the constant term.
constexpr std::uint32_t kPolynomial = 0xEDB88320;
constexpr std::uint32_t kOne = 1U << 31U;
constexpr std::uint32_t kXToThe8 = 1U << 23U;

constexpr std::uint32_t multiply(std::uint32_t a, std::uint32_t b) {
  std::uint32_t product = 0;
  for (std::uint32_t bit = kOne; bit != 0; bit >>= 1U) {
    if ((a & bit) != 0) product ^= b;
    b = (b >> 1U) ^ ((b & 1U) != 0 ? kPolynomial : 0U);
  }
  return product;
}

constexpr std::size_t kDigits = 5;
constexpr std::size_t kDigitValues = 256;
using Powers = std::array<std::array<std::uint32_t, kDigitValues>, kDigits>;

/// powers[d][v] is x^(8 * v * 256^d): what v * 256^d appended zero bytes multiply a checksum by.
Powers makePowers() {
  Powers powers;
  std::uint32_t base = kXToThe8;
  for (auto& digit : powers) {
    std::uint32_t power = kOne;
    for (std::uint32_t& value : digit) {
      value = power;
      power = multiply(power, base);
    }
    base = power;
  }
  return powers;
}

}  // namespace

std::uint32_t Crc32(const void* bytes, std::size_t length) { return Crc32(0, bytes, length); }

std::uint32_t Crc32(std::uint32_t before, const void* bytes, std::size_t length) {
  // libdeflate takes a null pointer to mean "give me the initial value".
  return length == 0 ? before : libdeflate_crc32(before, bytes, length);
}

std::uint32_t Crc32OfTail(std::uint32_t whole, std::uint32_t before, std::uint64_t length) {
  static const Powers kPowers = makePowers();
  for (const auto& digit : kPowers) {
    const std::size_t value = length % kDigitValues;
    if (value != 0) before = multiply(before, digit[value]);
    length /= kDigitValues;
  }
  return whole ^ before;
}

std::uint32_t Crc32Patch(std::uint32_t before, std::uint32_t wanted) {
  // Four bytes are added to the register, which is then shifted 32 times: shift it back. A shift
  // that has added the polynomial shows in the highest bit, which the polynomial alone can set.
  constexpr std::uint32_t kHighest = 1U << 31U;
  std::uint32_t state = ~wanted;
  for (int bit = 0; bit < 32; ++bit) {
    const bool added = (state & kHighest) != 0;
    state = added ? (state ^ kPolynomial) << 1U | 1U : state << 1U;
  }
  return state ^ ~before;
}

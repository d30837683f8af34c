// A finite number is m * 2^e with a whole m of 24 or 53 bits. Where e is negative the whole part is
// the upper bits of m, and the lower ones times a power of ten, shifted right by -e, are the
// decimals: whole numbers all along, so that rounding half to even once is exact.

#include "platform/number_text.h"

#include <bit>
#include <charconv>
#include <cstring>

#include "platform/byte_order.h"

namespace osmik {
namespace {

__extension__ using Uint128 = unsigned __int128;

constexpr std::uint64_t kTen4 = 10'000;
constexpr std::uint64_t kTen6 = 1'000'000;
constexpr std::uint64_t kTen8 = 100'000'000;

/// The eight decimal digits of a number below 10^8, one a byte, the first in the lowest byte. Both
/// halves, then all quarters, then all digits are divided at once in the lanes of one word: no
/// table, and no jump that could be mispredicted.
std::uint64_t eightDigits(std::uint64_t number) {
  const std::uint64_t halves = (number / kTen4) | (number % kTen4) << 32;
  const std::uint64_t hundreds = ((halves * 10486) >> 20) & 0x0000'007F'0000'007F;
  const std::uint64_t quarters = hundreds | (halves - 100 * hundreds) << 16;
  const std::uint64_t tens = ((quarters * 103) >> 10) & 0x000F'000F'000F'000F;
  return tens | (quarters - 10 * tens) << 8;
}

constexpr std::uint64_t kAsciiZeros = 0x3030'3030'3030'3030;

char* putEight(std::uint64_t digits, char* at) {
  morva::storeLe(at, digits | kAsciiZeros);
  return at + 8;
}

/// A number below 10^8 without leading zeros.
char* putBelowTen8(std::uint64_t number, char* at) {
  if (number < 100) {  // coordinates and rates are that near to zero
    const auto word = static_cast<std::uint32_t>(number);
    const std::uint32_t tens = (word * 103) >> 10;
    const std::uint32_t digits = tens | (word - 10 * tens) << 8 | 0x3030;
    const std::uint32_t skipped = tens == 0 ? 1 : 0;
    morva::storeLe(at, static_cast<std::uint16_t>(digits >> (8 * skipped)));
    return at + 2 - skipped;
  }
  const std::uint64_t digits = eightDigits(number);
  constexpr std::uint64_t kLastDigit = std::uint64_t{1} << 56;
  const int leadingZeros = std::countr_zero(digits | kLastDigit) / 8;
  morva::storeLe(at, (digits | kAsciiZeros) >> (8 * leadingZeros));
  return at + 8 - leadingZeros;
}

/// ".", and a number below 10^6 in six digits.
char* putDecimals6(std::uint64_t decimals, char* at) {
  const std::uint64_t digits = (eightDigits(decimals) | kAsciiZeros) >> 16;
  morva::storeLe(at, digits << 8 | '.');
  return at + 7;
}

char* putDecimals9(std::uint64_t decimals, char* at) {
  *at++ = '.';
  *at++ = static_cast<char>('0' + decimals / kTen8);
  return putEight(eightDigits(decimals % kTen8), at);
}

/// "-" where it is due.
char* putSign(bool negative, char* at) {
  *at = '-';
  return at + (negative ? 1 : 0);
}

/// number / 2^shift, rounded half to even; shift is at least 1, and the sum with half of 2^shift
/// fits.
template <typename Uint>
std::uint64_t shiftRounded(Uint number, int shift) {
  const Uint odd = (number >> shift) & 1;
  // Half, less one where the quotient is even, carries into it exactly where it is to be rounded
  // up.
  return static_cast<std::uint64_t>((number + (Uint{1} << (shift - 1)) - 1 + odd) >> shift);
}

/// What is not finite or has more than 19 digits: rare, and exact in the library too.
char* putByLibrary(double value, int decimals, char* at, std::size_t bytes) {
  return std::to_chars(at, at + bytes, value, std::chars_format::fixed, decimals).ptr;
}

constexpr int kFloatFractionBits = 23;
constexpr int kFloatBias = 127 + kFloatFractionBits;
constexpr int kDoubleFractionBits = 52;
constexpr int kDoubleBias = 1023 + kDoubleFractionBits;

template <int kDecimals, std::size_t kBytes = kDoubleTextBytes>
char* putFixed(double value, char* at) {
  static_assert(kDecimals == 6 || kDecimals == 9);
  constexpr std::uint64_t kPower = kDecimals == 6 ? kTen6 : kTen6 * 1000;

  const auto bits = std::bit_cast<std::uint64_t>(value);
  const auto biased = static_cast<int>((bits >> kDoubleFractionBits) & 0x7FF);
  const std::uint64_t fraction = bits & ((std::uint64_t{1} << kDoubleFractionBits) - 1);
  // A biased exponent of 0 means the same power as 1, without the leading bit.
  const std::uint64_t mantissa = fraction | static_cast<std::uint64_t>(biased != 0)
                                                << kDoubleFractionBits;
  const int shift = kDoubleBias - (biased != 0 ? biased : 1);
  if (shift < -10) return putByLibrary(value, kDecimals, at, kBytes);

  std::uint64_t whole = 0;
  std::uint64_t decimals = 0;
  if (shift <= 0) {
    whole = mantissa << -shift;
  } else if (shift <= kDoubleFractionBits) {
    whole = mantissa >> shift;
    const std::uint64_t rest = mantissa & ((std::uint64_t{1} << shift) - 1);
    constexpr int kFitsInWord = 63 - std::bit_width(kPower);
    decimals = shift <= kFitsInWord ? shiftRounded(rest * kPower, shift)
                                    : shiftRounded(Uint128{rest} * kPower, shift);
  } else if (shift < 127) {  // beyond, even 2^53 * 10^9 is less than half of 2^shift
    decimals = shiftRounded(Uint128{mantissa} * kPower, shift);
  }
  if (decimals == kPower) {
    ++whole;
    decimals = 0;
  }
  at = putUnsigned(whole, putSign((bits >> 63) != 0, at));
  return kDecimals == 6 ? putDecimals6(decimals, at) : putDecimals9(decimals, at);
}

}  // namespace

char* putUnsigned(std::uint64_t value, char* at) {
  if (value < kTen8) return putBelowTen8(value, at);
  const std::uint64_t upper = value / kTen8;
  at = upper < kTen8 ? putBelowTen8(upper, at)
                     : putEight(eightDigits(upper % kTen8), putBelowTen8(upper / kTen8, at));
  return putEight(eightDigits(value % kTen8), at);
}

char* putSigned(std::int64_t value, char* at) {
  const auto bits = static_cast<std::uint64_t>(value);
  // Negated as unsigned: the lowest value has no positive counterpart.
  return putUnsigned(value < 0 ? 0 - bits : bits, putSign(value < 0, at));
}

char* putFixed6(float value, char* at) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  const auto biased = static_cast<int>((bits >> kFloatFractionBits) & 0xFF);
  const std::uint64_t fraction = bits & ((1U << kFloatFractionBits) - 1);
  const std::uint64_t mantissa = fraction | static_cast<std::uint64_t>(biased != 0)
                                                << kFloatFractionBits;
  const int shift = kFloatBias - (biased != 0 ? biased : 1);
  // Below 1, whole numbers from 2^23 on; above 44, less than half of the last decimal.
  if (shift < 1) return putFixed<6, kFloatTextBytes>(static_cast<double>(value), at);
  std::uint64_t scaled = 0;
  if (shift <= 44) scaled = shiftRounded(mantissa * kTen6, shift);
  at = putBelowTen8(scaled / kTen6, putSign((bits >> 31) != 0, at));
  return putDecimals6(scaled % kTen6, at);
}

char* putFixed6(double value, char* at) { return putFixed<6>(value, at); }

char* putFixed9(double value, char* at) { return putFixed<9>(value, at); }

char* putMicrosAsSeconds(std::int64_t microseconds, char* at) {
  const auto bits = static_cast<std::uint64_t>(microseconds);
  const std::uint64_t magnitude = microseconds < 0 ? 0 - bits : bits;
  at = putUnsigned(magnitude / kTen6, putSign(microseconds < 0, at));
  return putDecimals6(magnitude % kTen6, at);
}

}  // namespace osmik

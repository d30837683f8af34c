#include "platform/number_cases.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "platform/number_text.h"

namespace osmik::test {
namespace {

/// `value`, or the number just below or above it.
template <typename Number>
Number nearby(Number value, std::uint64_t choice) {
  switch (choice % 3) {
    case 0:
      return value;
    case 1:
      return std::nextafter(value, static_cast<Number>(INFINITY));
    default:
      return std::nextafter(value, static_cast<Number>(-INFINITY));
  }
}

std::string_view print(float value, std::array<char, 512>* text) {
  const int length = std::snprintf(text->data(), text->size(), "%f", static_cast<double>(value));
  return {text->data(), static_cast<std::size_t>(length)};
}

std::string_view print(double value, int decimals, std::array<char, 512>* text) {
  const int length = std::snprintf(text->data(), text->size(), "%.*f", decimals, value);
  return {text->data(), static_cast<std::size_t>(length)};
}

std::string_view put(float value, std::array<char, 512>* text) {
  return {text->data(), putFixed6(value, text->data())};
}

std::string_view put(double value, int decimals, std::array<char, 512>* text) {
  char* const end = decimals == 6 ? putFixed6(value, text->data()) : putFixed9(value, text->data());
  return {text->data(), end};
}

}  // namespace

float NumberCases::nextFloat() {
  const float sign = below(2) == 0 ? 1.0F : -1.0F;
  switch (below(8)) {
    case 0:  // any bits: not a number, infinities, subnormal ones and 39 digits among them
      return std::bit_cast<float>(static_cast<std::uint32_t>(random_()));
    case 1:  // any bits of a usual magnitude
      return sign * std::ldexp(static_cast<float>(below(1 << 24)), exponent(-48, 8));
    case 2:  // ties: the last of 7 to 24 binary decimals is 1
      return sign * std::ldexp(static_cast<float>(2 * below(1 << 23) + 1), -exponent(7, 24));
    case 3:  // as near to half of the last decimal as it gets
      return nearby(sign * (static_cast<float>(below(1 << 22)) + 0.5F) * 1e-6F, random_());
    case 4:  // powers of two, and of ten
      return below(2) == 0
                 ? nearby(std::ldexp(sign, exponent(-149, 127)), random_())
                 : nearby(sign * std::pow(10.0F, static_cast<float>(exponent(-9, 38))), random_());
    case 5:  // a carry through nines
      return nearby(sign * static_cast<float>(below(1 << 20)), random_());
    case 6:  // coordinates in whole tenths of a millimetre
      return sign * static_cast<float>(static_cast<double>(below(2'000'000)) * 1e-4);
    default:  // accelerations
      return sign * static_cast<float>(static_cast<double>(below(1 << 30)) * 1e-8);
  }
}

double NumberCases::nextDouble(int decimals) {
  const double sign = below(2) == 0 ? 1.0 : -1.0;
  const std::uint64_t kMantissaEnd = std::uint64_t{1} << 53;
  switch (below(8)) {
    case 0:  // any bits, now and then: their texts are long
      if (below(16) == 0) return std::bit_cast<double>(random_());
      return sign * std::ldexp(static_cast<double>(below(kMantissaEnd)), exponent(-140, 20));
    case 1:
      return sign * std::ldexp(static_cast<double>(below(kMantissaEnd)), exponent(-83, 11));
    case 2:  // ties: the last of `decimals` + 1 to 53 binary decimals is 1
      return sign * std::ldexp(static_cast<double>(2 * below(kMantissaEnd / 2) + 1),
                               -exponent(decimals + 1, 53));
    case 3:
      return nearby(
          sign * (static_cast<double>(below(kMantissaEnd / 64)) + 0.5) * std::pow(10.0, -decimals),
          random_());
    case 4:
      return below(2) == 0 ? nearby(std::ldexp(sign, exponent(-1074, 80)), random_())
                           : nearby(sign * std::pow(10.0, exponent(-12, 30)), random_());
    case 5:
      return nearby(sign * static_cast<double>(below(kMantissaEnd)), random_());
    case 6:  // today's seconds
      return static_cast<double>(1'700'000'000'000'000 + below(100'000'000'000'000)) / 1e6;
    default:  // degrees
      return sign * std::ldexp(static_cast<double>(below(kMantissaEnd)), -53) * 180.0;
  }
}

std::string firstDifference(std::uint64_t seed, std::size_t count) {
  NumberCases cases(seed);
  std::array<char, 512> ours;
  std::array<char, 512> expected;
  for (std::size_t i = 0; i < count; ++i) {
    std::string_view oursText;
    std::string_view expectedText;
    if (const std::size_t kind = i % 10; kind < 6) {
      const float value = cases.nextFloat();
      oursText = put(value, &ours);
      expectedText = print(value, &expected);
    } else {
      const int decimals = kind < 8 ? 6 : 9;
      const double value = cases.nextDouble(decimals);
      oursText = put(value, decimals, &ours);
      expectedText = print(value, decimals, &expected);
    }
    if (oursText != expectedText) {
      return "number " + std::to_string(i) + ": " + std::string(oursText) + " instead of " +
             std::string(expectedText);
    }
  }
  return {};
}

}  // namespace osmik::test

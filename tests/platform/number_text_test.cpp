#include "platform/number_text.h"

#include <array>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "platform/number_cases.h"

namespace osmik {
namespace {

std::string fixed6(float value) {
  std::array<char, kFloatTextBytes> text;
  return {text.data(), putFixed6(value, text.data())};
}

std::string fixed6(double value) {
  std::array<char, kDoubleTextBytes> text;
  return {text.data(), putFixed6(value, text.data())};
}

std::string fixed9(double value) {
  std::array<char, kDoubleTextBytes> text;
  return {text.data(), putFixed9(value, text.data())};
}

std::string printed(const char* format, double value) {
  std::array<char, 512> text;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::snprintf(text.data(), text.size(), format, value);
#pragma GCC diagnostic pop
  return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace

TEST(NumberText, EqualsPrintfForAMillionNumbers) {
  EXPECT_EQ(test::firstDifference(1, 1'000'000), "");
}

TEST(NumberText, EqualsPrintfForSpecialNumbers) {
  using Float = std::numeric_limits<float>;
  using Double = std::numeric_limits<double>;
  for (const float value :
       {0.0F, Float::infinity(), Float::quiet_NaN(), Float::max(), Float::min(),
        Float::denorm_min(), 5e-7F, 4.9999997e-7F, 1.5e-6F, 0.9999995F, 0.99999994F, 8388607.5F,
        8388608.0F, 16777215.0F, 16777216.0F, 99999999.0F, 1e8F}) {
    EXPECT_EQ(fixed6(value), printed("%f", static_cast<double>(value)));
    EXPECT_EQ(fixed6(-value), printed("%f", -static_cast<double>(value)));
  }
  for (const double value : {0.0,
                             Double::infinity(),
                             Double::quiet_NaN(),
                             Double::max(),
                             Double::min(),
                             Double::denorm_min(),
                             5e-7,
                             5e-10,
                             1.5e-9,
                             0.9999995,
                             0.9999999995,
                             0.99999999999999989,
                             9007199254740991.0,
                             9007199254740992.0,
                             9223372036854774784.0,
                             9223372036854775808.0,
                             18446744073709551616.0,
                             1e16,
                             9999999999999998.0,
                             99999999.9999995,
                             1e22,
                             1e23}) {
    EXPECT_EQ(fixed6(value), printed("%.6f", value));
    EXPECT_EQ(fixed6(-value), printed("%.6f", -value));
    EXPECT_EQ(fixed9(value), printed("%.9f", value));
    EXPECT_EQ(fixed9(-value), printed("%.9f", -value));
  }
}

TEST(NumberText, RoundsTiesToTheEvenDecimal) {
  EXPECT_EQ(fixed6(0.0078125F), "0.007812");  // 1/128
  EXPECT_EQ(fixed6(0.0234375F), "0.023438");  // 3/128
  EXPECT_EQ(fixed6(0.0078125), "0.007812");
  EXPECT_EQ(fixed9(0.0009765625), "0.000976562");  // 1/1024
  EXPECT_EQ(fixed9(0.0029296875), "0.002929688");  // 3/1024
}

TEST(NumberText, TouchesNoMoreThanItPromises) {
  for (const double value : {-std::numeric_limits<double>::max(), -1.5, -1700000000.123456}) {
    std::array<char, kDoubleTextBytes + 8> text;
    text.fill('#');
    EXPECT_LE(putFixed9(value, text.data()), text.data() + kDoubleTextBytes);
    EXPECT_EQ(std::string(text.end() - 8, text.end()), "########");
  }
  for (const float value : {-std::numeric_limits<float>::max(), -16777216.0F, -1.5F}) {
    std::array<char, kFloatTextBytes + 8> text;
    text.fill('#');
    EXPECT_LE(putFixed6(value, text.data()), text.data() + kFloatTextBytes);
    EXPECT_EQ(std::string(text.end() - 8, text.end()), "########");
  }
  std::array<char, kIntegerTextBytes + 8> text;
  text.fill('#');
  EXPECT_EQ(putSigned(std::numeric_limits<std::int64_t>::min(), text.data()), text.data() + 20);
  EXPECT_EQ(putMicrosAsSeconds(std::numeric_limits<std::int64_t>::min(), text.data()),
            text.data() + 21);
  EXPECT_EQ(std::string(text.end() - 8, text.end()), "########");
}

TEST(NumberText, EqualsPrintfForIntegersOfEveryLength) {
  std::mt19937_64 random(5);
  std::array<char, 32> ours;
  std::array<char, 32> expected;
  for (int i = 0; i < 100'000; ++i) {
    const auto value = static_cast<std::int64_t>(random() >> (i % 64)) * (i % 2 == 0 ? 1 : -1);
    *putSigned(value, ours.data()) = '\0';
    std::snprintf(expected.data(), expected.size(), "%lld", static_cast<long long>(value));
    ASSERT_STREQ(ours.data(), expected.data());
    const auto bits = static_cast<std::uint64_t>(value);
    *putUnsigned(bits, ours.data()) = '\0';
    std::snprintf(expected.data(), expected.size(), "%llu", static_cast<unsigned long long>(bits));
    ASSERT_STREQ(ours.data(), expected.data());
  }
  std::uint64_t power = 1;
  for (int digits = 1; digits <= 20; ++digits, power *= 10) {
    for (const std::uint64_t value : {power - 1, power, power + 1}) {
      *putUnsigned(value, ours.data()) = '\0';
      EXPECT_EQ(std::string(ours.data()), std::to_string(value));
    }
  }
}

TEST(NumberText, PrintsMicrosecondsAsSeconds) {
  const auto seconds = [](std::int64_t microseconds) {
    std::array<char, kIntegerTextBytes> text;
    return std::string(text.data(), putMicrosAsSeconds(microseconds, text.data()));
  };
  EXPECT_EQ(seconds(0), "0.000000");
  EXPECT_EQ(seconds(-1), "-0.000001");
  EXPECT_EQ(seconds(1'700'000'000'123'456), "1700000000.123456");
  EXPECT_EQ(seconds(999'999), "0.999999");
  EXPECT_EQ(seconds(std::numeric_limits<std::int64_t>::max()), "9223372036854.775807");
  EXPECT_EQ(seconds(std::numeric_limits<std::int64_t>::min()), "-9223372036854.775808");
}

}  // namespace osmik

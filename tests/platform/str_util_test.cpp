#include "platform/str_util.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

using osmik::StrUtil;

namespace {

// The C library is the reference here, with formats that the tests choose.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename... Args>
std::string printfBytes(const char* format, Args... args) {
  char buffer[1024];
  const int length = std::snprintf(buffer, sizeof buffer, format, args...);
  return {buffer, static_cast<std::size_t>(length)};
}

}  // namespace

TEST(StrUtilFormat, GivesPrintfBytesForRandomDoubles) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {
    const double value = std::ldexp(static_cast<double>(static_cast<std::int64_t>(random())),
                                    static_cast<int>(random() % 120) - 90);
    for (const char* format : {"%f", "%.9f", "%-17.6f", "%.6f"}) {
      ASSERT_EQ(StrUtil::format(format, value), printfBytes(format, value));
    }
  }
}

TEST(StrUtilFormat, GivesPrintfBytesForSpecialValues) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const double value : {0.0, -0.0, infinity, -infinity, nan, -nan, 1e308, -5e-324, 0.5, 1.5}) {
    EXPECT_EQ(StrUtil::format("%f|%-6.3f|%10.1f", value, value, value),
              printfBytes("%f|%-6.3f|%10.1f", value, value, value));
  }
}

TEST(StrUtilFormat, GivesPrintfBytesForIntegersAndText) {
  EXPECT_EQ(StrUtil::format("%-3d %-10d %-12ld|", 7, -1, 1234567890123L),
            printfBytes("%-3d %-10d %-12ld|", 7, -1, 1234567890123L));
  EXPECT_EQ(StrUtil::format("0x%04X 0x%08X 0x%016llX %llu", 255U, 0xABCDEFU, 0x12345ULL, ~0ULL),
            printfBytes("0x%04X 0x%08X 0x%016llX %llu", 255U, 0xABCDEFU, 0x12345ULL, ~0ULL));
  EXPECT_EQ(StrUtil::format("%s|%-5s|%%", std::string("a"), "b"), "a|b    |%");
  EXPECT_EQ(StrUtil::format("%d", 0xFFFFFFFFU), "-1");
  EXPECT_EQ(StrUtil::format("%u", -1), "4294967295");
}

TEST(StrUtilFormat, PrintsDoubleWithLongLongModifier) {
  EXPECT_EQ(StrUtil::format("%llf", 1.25), "1.250000");
}

TEST(StrUtilFormat, GivesFormatTextWhenItDoesNotFit) {
  EXPECT_EQ(StrUtil::format("%d %d", 1), "%d %d");
}

TEST(StrUtilRandomData, GivesOtherBytesEachTime) {
  const std::string first = StrUtil::randomData(4096);
  EXPECT_EQ(first.size(), 4096U);
  EXPECT_NE(first, StrUtil::randomData(4096));
  EXPECT_EQ(StrUtil::randomData(3).size(), 3U);
}

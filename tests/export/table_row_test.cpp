#include "export/table_row.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "platform/date_time.h"
#include "platform/str_util.h"

namespace morva {
namespace {

using osmik::StrUtil;

TEST(TableRow, EqualsPrintfForValuesOfEveryType) {
  std::mt19937_64 random(11);
  TableRow row;
  for (int i = 0; i < 20'000; ++i) {
    const auto unsigned32 = static_cast<std::uint32_t>(random());
    const auto signed32 = static_cast<std::int32_t>(random());
    const auto signed64 = static_cast<std::int64_t>(random());
    const std::uint64_t unsigned64 = random();
    const float single = std::ldexp(static_cast<float>(signed32), -20);
    const double degrees = std::ldexp(static_cast<double>(signed64), -56);
    row.set(',', unsigned32, signed64, signed32, single, NineDecimals{degrees}, degrees, unsigned64,
            InSeconds{signed64});
    ASSERT_EQ(row.text(), StrUtil::format("%u,%lld,%d,%f,%.9f,%f,%llu,%s\n", unsigned32, signed64,
                                          signed32, single, degrees, degrees, unsigned64,
                                          osmik::Time(signed64).toString()));
  }
}

TEST(TableRow, HoldsTheLongestRow) {
  const double longest = -std::numeric_limits<double>::max();
  TableRow row;
  row.set(' ', longest, NineDecimals{longest}, longest, longest, longest, longest, longest, longest,
          longest, longest, longest);
  EXPECT_EQ(row.text(), StrUtil::format("%f %.9f %f %f %f %f %f %f %f %f %f\n", longest, longest,
                                        longest, longest, longest, longest, longest, longest,
                                        longest, longest, longest));
}

TEST(TableRow, IsReplacedByTheNextOne) {
  TableRow row;
  row.set(',', 1.5, 2.5, 3.5);
  row.set(' ', 7U);
  EXPECT_EQ(row.text(), "7\n");
}

}  // namespace
}  // namespace morva

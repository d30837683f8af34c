#include "platform/date_time.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "platform/str_util.h"

using osmik::DateTime;
using osmik::Time;

namespace {

/// Local time is that of `zone` while it lives.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    const char* const before = std::getenv("TZ");
    hadZone_ = before != nullptr;
    if (hadZone_) before_ = before;
    setenv("TZ", zone, 1);
    tzset();
  }
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;
  ~TimeZone() {
    if (hadZone_) {
      setenv("TZ", before_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }

 private:
  bool hadZone_ = false;
  std::string before_;
};

// The point in time that `text` names in universal time, us.
std::int64_t universalUs(const std::string& text) {
  std::tm fields{};
  long micros = 0;
  const int read =
      std::sscanf(text.c_str(), "%4d-%2d-%2d %2d:%2d:%2d.%6ld", &fields.tm_year, &fields.tm_mon,
                  &fields.tm_mday, &fields.tm_hour, &fields.tm_min, &fields.tm_sec, &micros);
  EXPECT_EQ(read, 7) << text;
  fields.tm_year -= 1900;
  fields.tm_mon -= 1;
  return static_cast<std::int64_t>(timegm(&fields)) * 1000000 + micros;
}

}  // namespace

TEST(TimeToString, IsSecondsWithSixDecimals) {
  EXPECT_EQ(Time(std::int64_t{1700000000123456}).toString(), "1700000000.123456");
  EXPECT_EQ(Time(std::int64_t{1000001}).toString(), "1.000001");
  EXPECT_EQ(Time(std::int64_t{999999}).toString(), "0.999999");
  EXPECT_EQ(Time().toString(), "0.000000");
}

TEST(TimeToString, KeepsTheSignOfNegativeTimes) {
  EXPECT_EQ(Time(std::int64_t{-1}).toString(), "-0.000001");
  EXPECT_EQ(Time(std::int64_t{-1500000}).toString(), "-1.500000");
  EXPECT_EQ(Time(std::numeric_limits<std::int64_t>::min()).toString(), "-9223372036854.775808");
}

TEST(TimeFromSeconds, RoundsToTheNearestMicrosecond) {
  EXPECT_EQ(Time(1700000000.123456).toMicroSec(), 1700000000123456);
  EXPECT_EQ(Time(0.0000014).toMicroSec(), 1);
  EXPECT_EQ(Time(0.0000016).toMicroSec(), 2);
  EXPECT_EQ(Time(-0.0000016).toMicroSec(), -2);
}

TEST(TimeFromSeconds, SaturatesWhatDoesNotFit) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(Time(1e300).toMicroSec(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Time(infinity).toMicroSec(), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Time(-infinity).toMicroSec(), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Time(std::numeric_limits<double>::quiet_NaN()).toMicroSec(), 0);
}

TEST(TimeToSec, GivesSeconds) {
  EXPECT_DOUBLE_EQ(Time(std::int64_t{1700000000123456}).toSec(), 1700000000.123456);
  EXPECT_DOUBLE_EQ(Time(std::int64_t{-500000}).toSec(), -0.5);
}

TEST(TimeMono, NeverRunsBackwards) {
  const Time start = Time::fromMono();
  std::int64_t last = 0;
  for (int i = 0; i < 1000; ++i) {
    const std::int64_t passed = Time::usSinceMono(start);
    ASSERT_GE(passed, last);
    last = passed;
  }
  EXPECT_LT(last, 60'000'000);
}

TEST(DateTimeNow, IsTheCurrentTimeAsText) {
  const TimeZone zone("UTC0");
  const std::int64_t before = Time::now().toMicroSec();
  const std::string text = DateTime::getDateTime().toString();
  const std::int64_t after = Time::now().toMicroSec();
  EXPECT_EQ(text.size(), 26U) << text;
  EXPECT_GE(universalUs(text), before) << text;
  EXPECT_LE(universalUs(text), after) << text;
}

TEST(DateTimeNow, IsLocalTime) {
  const TimeZone zone("HERE-05:30");  // five and a half hours ahead of universal time
  const std::int64_t before = Time::now().toMicroSec();
  const std::string text = DateTime::getDateTime().toString();
  const std::int64_t after = Time::now().toMicroSec();
  constexpr std::int64_t kAheadUs = 19800LL * 1000000;
  EXPECT_GE(universalUs(text), before + kAheadUs) << text;
  EXPECT_LE(universalUs(text), after + kAheadUs) << text;
}

TEST(DateTimeFields, AreThoseOfTheText) {
  const DateTime now = DateTime::getDateTime();
  const std::string fields =
      osmik::StrUtil::format("%04d-%02d-%02d %02d:%02d:%02d", now.year(), now.month(), now.day(),
                             now.hour(), now.minute(), now.second());
  EXPECT_EQ(now.toString().substr(0, 19), fields);
}

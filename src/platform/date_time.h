#ifndef MORVA_PLATFORM_DATE_TIME_H_
#define MORVA_PLATFORM_DATE_TIME_H_

#include <cstdint>
#include <string>

namespace osmik {

/// A point in time, microseconds since the Unix epoch; or, from fromMono(), since an arbitrary
/// start that no clock adjustment moves.
class Time {
 public:
  Time() = default;
  explicit Time(std::int64_t microseconds) : microseconds_(microseconds) {}
  /// Seconds, rounded to the nearest microsecond. Values that do not fit (and not-a-number)
  /// saturate.
  explicit Time(double seconds);

  [[nodiscard]] static Time now();
  [[nodiscard]] static Time fromMono();
  /// Microseconds that have passed since `start`, a time of fromMono().
  [[nodiscard]] static std::int64_t usSinceMono(const Time& start);

  [[nodiscard]] std::int64_t toMicroSec() const { return microseconds_; }
  [[nodiscard]] double toSec() const { return static_cast<double>(microseconds_) / 1e6; }
  /// Seconds with six decimals, "1700000000.123456": sorts, parses as a number, names files.
  [[nodiscard]] std::string toString() const;

 private:
  std::int64_t microseconds_ = 0;
};

/// A calendar time with microseconds.
class DateTime {
 public:
  /// The current local time.
  [[nodiscard]] static DateTime getDateTime();

  [[nodiscard]] int year() const { return year_; }
  [[nodiscard]] int month() const { return month_; }    ///< 1 to 12
  [[nodiscard]] int day() const { return day_; }        ///< 1 to 31
  [[nodiscard]] int hour() const { return hour_; }      ///< 0 to 23
  [[nodiscard]] int minute() const { return minute_; }  ///< 0 to 59
  [[nodiscard]] int second() const { return second_; }  ///< 0 to 60

  /// "2026-01-31 23:59:59.123456"
  [[nodiscard]] std::string toString() const;

 private:
  int year_ = 1970;
  int month_ = 1;
  int day_ = 1;
  int hour_ = 0;
  int minute_ = 0;
  int second_ = 0;
  int microsecond_ = 0;
};

}  // namespace osmik

#endif  // MORVA_PLATFORM_DATE_TIME_H_

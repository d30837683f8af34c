#include "platform/date_time.h"

#include <array>
#include <chrono>
#include <cmath>
#include <ctime>
#include <limits>

#include "platform/number_text.h"
#include "platform/str_util.h"

namespace osmik {
namespace {

constexpr std::int64_t kMicrosPerSecond = 1000000;

std::int64_t roundToMicroseconds(double seconds) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63, the first value that does not fit
  const double microseconds = std::round(seconds * 1e6);
  if (std::isnan(microseconds)) return 0;
  if (microseconds >= kLimit) return std::numeric_limits<std::int64_t>::max();
  if (microseconds < -kLimit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(microseconds);
}

template <typename Clock>
std::int64_t clockMicroseconds() {
  const auto sinceStart = Clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(sinceStart).count();
}

}  // namespace

Time::Time(double seconds) : microseconds_(roundToMicroseconds(seconds)) {}

Time Time::now() { return Time(clockMicroseconds<std::chrono::system_clock>()); }

Time Time::fromMono() { return Time(clockMicroseconds<std::chrono::steady_clock>()); }

std::int64_t Time::usSinceMono(const Time& start) {
  return fromMono().toMicroSec() - start.toMicroSec();
}

std::string Time::toString() const {
  std::array<char, kIntegerTextBytes> text;
  return {text.data(), putMicrosAsSeconds(microseconds_, text.data())};
}

DateTime DateTime::getDateTime() {
  const std::int64_t now = Time::now().toMicroSec();
  const std::time_t seconds = now / kMicrosPerSecond;
  std::tm local{};
  localtime_r(&seconds, &local);

  DateTime result;
  result.year_ = local.tm_year + 1900;
  result.month_ = local.tm_mon + 1;
  result.day_ = local.tm_mday;
  result.hour_ = local.tm_hour;
  result.minute_ = local.tm_min;
  result.second_ = local.tm_sec;
  result.microsecond_ = static_cast<int>(now % kMicrosPerSecond);
  return result;
}

std::string DateTime::toString() const {
  return StrUtil::format("%04d-%02d-%02d %02d:%02d:%02d.%06d", year_, month_, day_, hour_, minute_,
                         second_, microsecond_);
}

}  // namespace osmik

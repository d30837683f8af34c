#include "kit/simulate/nmea.h"

#include <chrono>
#include <cmath>
#include <cstdint>

#include "platform/str_util.h"

namespace morva::sim {

namespace {

using osmik::StrUtil;

// "4808.2440000,N": degrees and minutes without a sign.
std::string angleField(double degrees, int degreeDigits, char positive, char negative) {
  // Rounded as a whole: minutes of "60.0000000" must never appear.
  const auto units = static_cast<std::int64_t>(std::llround(std::abs(degrees) * 60.0 * 1e7));
  const std::int64_t minuteUnits = units % 600'000'000;
  return StrUtil::format("%0*lld%02lld.%07lld,", degreeDigits, units / 600'000'000,
                         minuteUnits / 10'000'000, minuteUnits % 10'000'000) +
         (degrees < 0.0 ? negative : positive);
}

std::string positionFields(const GnssFix& fix) {
  return angleField(fix.latitudeDeg, 2, 'N', 'S') + "," + angleField(fix.longitudeDeg, 3, 'E', 'W');
}

// "221320.20": UTC.
std::string timeField(std::int64_t timeUs) {
  const std::int64_t centis = timeUs / 10'000 % 8'640'000;
  return StrUtil::format("%02lld%02lld%02lld.%02lld", centis / 360'000, centis / 6'000 % 60,
                         centis / 100 % 60, centis % 100);
}

// "141123": day, month, year.
std::string dateField(std::int64_t timeUs) {
  const std::chrono::sys_time<std::chrono::microseconds> time{std::chrono::microseconds(timeUs)};
  const std::chrono::year_month_day date(std::chrono::floor<std::chrono::days>(time));
  return StrUtil::format("%02u%02u%02d", static_cast<unsigned>(date.day()),
                         static_cast<unsigned>(date.month()), static_cast<int>(date.year()) % 100);
}

std::string thousandths(std::int64_t value) {
  const std::string sign = value < 0 ? "-" : "";
  const std::int64_t magnitude = value < 0 ? -value : value;
  return sign + StrUtil::format("%lld.%03lld", magnitude / 1000, magnitude % 1000);
}

// The quality digit of GGA.
int ggaQuality(std::int32_t status) {
  switch (status) {
    case 1:
      return 1;
    case 2:
      return 2;
    case 3:
      return 4;
    default:
      return 0;
  }
}

std::string gga(const GnssFix& fix) {
  return "GNGGA," + timeField(fix.timeUs) + "," + positionFields(fix) +
         StrUtil::format(",%d,%02u,", ggaQuality(fix.status), fix.satellites) +
         thousandths(fix.hdop) + "," + thousandths(fix.altitude - fix.undulation) + ",M," +
         thousandths(fix.undulation) + ",M,,";
}

std::string rmc(const GnssFix& fix) {
  constexpr double kKnotsPerMS = 3600.0 / 1852.0;
  return "GNRMC," + timeField(fix.timeUs) + (ggaQuality(fix.status) == 0 ? ",V," : ",A,") +
         positionFields(fix) +
         StrUtil::format(",%.3f,%.2f,", fix.speedMS * kKnotsPerMS, fix.courseDeg) +
         dateField(fix.timeUs) + ",,,";
}

std::string gst(const GnssFix& fix) {
  return "GNGST," + timeField(fix.timeUs) + ",,,,," + thousandths(fix.latSigma) + "," +
         thousandths(fix.lonSigma) + "," + thousandths(fix.hgtSigma);
}

}  // namespace

std::string nmeaSentence(std::string_view body) {
  unsigned checksum = 0;
  for (const char c : body) checksum ^= static_cast<std::uint8_t>(c);
  return "$" + std::string(body) + StrUtil::format("*%02X\r\n", checksum);
}

std::string nmeaSentences(const GnssFix& fix) {
  return nmeaSentence(gga(fix)) + nmeaSentence(rmc(fix)) + nmeaSentence(gst(fix));
}

}  // namespace morva::sim

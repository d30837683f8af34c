#include "kit/inspect/time_limit.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <system_error>

#include "kit/inspect/utc_text.h"
#include "messages/sample_scale.h"

namespace morva::inspect {
namespace {

struct Unit {
  std::string_view name;
  std::int64_t us = 1;
};

constexpr std::array kUnits = {Unit{"us", 1}, Unit{"ms", 1000}, Unit{"s", 1'000'000},
                               Unit{"min", 60'000'000}, Unit{"h", 3'600'000'000}};

template <typename T>
std::optional<T> wholeNumber(std::string_view text) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// What decimal digits behind a point are of a unit. Those that cannot count are not looked at.
std::int64_t fractionOf(std::string_view digits, std::int64_t unitUs) {
  constexpr std::size_t kCounting = 9;  // the largest unit has fewer than 10^10 microseconds
  std::int64_t us = 0;
  std::int64_t divisor = 1;
  for (const char digit : digits.substr(0, kCounting)) {
    divisor *= 10;
    us = us * 10 + (digit - '0');
  }
  return us * unitUs / divisor;  // below 10^9 * 3.6 * 10^9
}

/// "12.5s" as microseconds, not negative.
std::optional<std::int64_t> parseDuration(std::string_view text) {
  const auto numberEnd =
      std::ranges::find_if_not(text, [](char c) { return isDigit(c) || c == '.'; });
  const auto length = static_cast<std::size_t>(numberEnd - text.begin());
  const std::string_view number = text.substr(0, length);
  const auto* const unit = std::ranges::find(kUnits, text.substr(length), &Unit::name);
  if (unit == kUnits.end()) return std::nullopt;

  const std::size_t point = number.find('.');
  const std::string_view fraction =
      point == std::string_view::npos ? std::string_view() : number.substr(point + 1);
  const auto whole = wholeNumber<std::int64_t>(number.substr(0, point));
  if (!whole || !std::ranges::all_of(fraction, isDigit)) return std::nullopt;
  std::int64_t us = 0;
  if (__builtin_mul_overflow(*whole, unit->us, &us)) return std::nullopt;
  if (__builtin_add_overflow(us, fractionOf(fraction, unit->us), &us)) return std::nullopt;
  return us;
}

}  // namespace

std::optional<TimeLimit> TimeLimit::parse(std::string_view text) {
  if (text.starts_with('+') || text.starts_with('-')) return parseRelative(text);
  if (const auto us = wholeNumber<std::int64_t>(text)) return TimeLimit(Base::kEpoch, *us);
  if (const auto us = parseUtc(text)) return TimeLimit(Base::kEpoch, *us);
  return std::nullopt;
}

std::optional<TimeLimit> TimeLimit::parseRelative(std::string_view text) {
  const auto us = parseDuration(text.substr(1));
  if (!us) return std::nullopt;
  return text[0] == '+' ? TimeLimit(Base::kStart, *us) : TimeLimit(Base::kEnd, -*us);
}

std::int64_t TimeLimit::resolve(const TimeSpan& recording) const {
  switch (base_) {
    case Base::kEpoch:
      return us_;
    case Base::kStart:
      return addSaturated(recording.startUs, us_);
    case Base::kEnd:
      break;
  }
  return addSaturated(recording.endUs, us_);
}

}  // namespace morva::inspect

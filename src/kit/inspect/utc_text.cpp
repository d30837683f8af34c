#include "kit/inspect/utc_text.h"

#include <chrono>
#include <cstddef>

namespace morva::inspect {
namespace {

using std::chrono::days;
using std::chrono::sys_days;
using std::chrono::year_month_day;

constexpr std::int64_t kUsPerSecond = 1'000'000;
constexpr std::int64_t kUsPerDay = 86'400 * kUsPerSecond;
constexpr std::int64_t kUsPerMinute = 60 * kUsPerSecond;

constexpr std::int64_t usAtYear(int year) {
  const sys_days day = std::chrono::year{year} / std::chrono::month{1} / std::chrono::day{1};
  return day.time_since_epoch().count() * kUsPerDay;
}

/// Writes `value` right-aligned with leading zeros.
void put(std::int64_t value, std::size_t width, char* at) {
  for (std::size_t i = width; i > 0; --i) {
    at[i - 1] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
}

/// Reads a text from its begin.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  /// Exactly `width` digits. @return False, also later, where they are not there.
  bool number(std::size_t width, int* value) {
    *value = 0;
    for (std::size_t i = 0; i < width; ++i) {
      if (rest_.empty() || rest_[0] < '0' || rest_[0] > '9') return false;
      *value = *value * 10 + (rest_[0] - '0');
      rest_.remove_prefix(1);
    }
    return true;
  }

  /// One of these characters. @return It, or NUL.
  char oneOf(std::string_view characters) {
    if (rest_.empty() || characters.find(rest_[0]) == std::string_view::npos) return '\0';
    const char found = rest_[0];
    rest_.remove_prefix(1);
    return found;
  }

  [[nodiscard]] bool isAtEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

bool readDate(Scanner* text, std::int64_t* us) {
  int year = 0;
  int month = 0;
  int day = 0;
  const bool isRead = text->number(4, &year) && text->oneOf("-") != '\0' &&
                      text->number(2, &month) && text->oneOf("-") != '\0' && text->number(2, &day);
  const year_month_day date(std::chrono::year{year},
                            std::chrono::month{static_cast<unsigned>(month)},
                            std::chrono::day{static_cast<unsigned>(day)});
  if (!isRead || !date.ok()) return false;
  *us = sys_days(date).time_since_epoch().count() * kUsPerDay;
  return true;
}

bool readFraction(Scanner* text, std::int64_t* us) {
  if (text->oneOf(".") == '\0') return true;
  constexpr int kMaxDigits = 9;
  std::int64_t unit = kUsPerSecond;
  for (int digits = 0;; ++digits) {
    const char digit = text->oneOf("0123456789");
    if (digit == '\0') return digits > 0;
    if (digits == kMaxDigits) return false;
    unit /= 10;
    *us += (digit - '0') * unit;
  }
}

bool readClock(Scanner* text, std::int64_t* us) {
  int hour = 0;
  int minute = 0;
  int second = 0;
  const bool isRead = text->number(2, &hour) && text->oneOf(":") != '\0' &&
                      text->number(2, &minute) && text->oneOf(":") != '\0' &&
                      text->number(2, &second);
  if (!isRead || hour > 23 || minute > 59 || second > 60) return false;
  *us += ((hour * 60 + minute) * 60 + second) * kUsPerSecond;
  return readFraction(text, us);
}

/// Takes the offset from UTC off.
bool readZone(Scanner* text, std::int64_t* us) {
  if (text->oneOf("Zz") != '\0') return true;
  const char sign = text->oneOf("+-");
  int hours = 0;
  int minutes = 0;
  const bool isRead = sign != '\0' && text->number(2, &hours) && text->oneOf(":") != '\0' &&
                      text->number(2, &minutes);
  if (!isRead || hours > 23 || minutes > 59) return false;
  const std::int64_t offsetUs = (hours * 60 + minutes) * kUsPerMinute;
  *us -= sign == '+' ? offsetUs : -offsetUs;
  return true;
}

}  // namespace

std::string utcText(std::int64_t timeUs) {
  static constexpr std::int64_t kFirstUs = usAtYear(0);
  static constexpr std::int64_t kEndUs = usAtYear(10000);
  if (timeUs < kFirstUs || timeUs >= kEndUs) return {};

  const std::int64_t shifted = timeUs - kFirstUs;  // so that division rounds down
  const std::int64_t inDayUs = shifted % kUsPerDay;
  const year_month_day date(sys_days(days((timeUs - inDayUs) / kUsPerDay)));
  std::string text = "0000-00-00T00:00:00.000000Z";
  put(static_cast<int>(date.year()), 4, text.data());
  put(static_cast<unsigned>(date.month()), 2, text.data() + 5);
  put(static_cast<unsigned>(date.day()), 2, text.data() + 8);
  const std::int64_t second = inDayUs / kUsPerSecond;
  put(second / 3600, 2, text.data() + 11);
  put(second / 60 % 60, 2, text.data() + 14);
  put(second % 60, 2, text.data() + 17);
  put(inDayUs % kUsPerSecond, 6, text.data() + 20);
  return text;
}

std::optional<std::int64_t> parseUtc(std::string_view text) {
  Scanner scanner(text);
  std::int64_t us = 0;
  const bool isRead = readDate(&scanner, &us) && scanner.oneOf("Tt ") != '\0' &&
                      readClock(&scanner, &us) && readZone(&scanner, &us) && scanner.isAtEnd();
  if (!isRead) return std::nullopt;
  return us;
}

}  // namespace morva::inspect

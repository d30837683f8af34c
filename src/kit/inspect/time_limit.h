#ifndef MORVA_KIT_INSPECT_TIME_LIMIT_H_
#define MORVA_KIT_INSPECT_TIME_LIMIT_H_

#include <cstdint>
#include <optional>
#include <string_view>

namespace morva::inspect {

/// From one moment to another, us since the Unix epoch.
struct TimeSpan {
  std::int64_t startUs = 0;
  std::int64_t endUs = 0;
};

/// A moment as a user gives it: by itself, or relative to a recording's start or end.
class TimeLimit {
 public:
  /// Reads "1700000000000000" (us since the Unix epoch), RFC 3339 text, "+1.5s" (behind the start)
  /// or "-200ms" (before the end). Units: us, ms, s, min, h; fractions of a microsecond are cut
  /// off.
  /// @return Nothing where it is none of these, or does not fit 64 bits of microseconds.
  [[nodiscard]] static std::optional<TimeLimit> parse(std::string_view text);

  /// The moment, us since the Unix epoch, in a recording of this span; what does not fit saturates.
  [[nodiscard]] std::int64_t resolve(const TimeSpan& recording) const;

 private:
  enum class Base : std::uint8_t { kEpoch, kStart, kEnd };

  TimeLimit(Base base, std::int64_t us) : base_(base), us_(us) {}
  [[nodiscard]] static std::optional<TimeLimit> parseRelative(std::string_view text);

  Base base_;
  std::int64_t us_;  ///< from the base
};

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_TIME_LIMIT_H_

#ifndef MORVA_KIT_INSPECT_UTC_TEXT_H_
#define MORVA_KIT_INSPECT_UTC_TEXT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace morva::inspect {

/// Microseconds since the Unix epoch as RFC 3339 text in UTC, "2023-11-14T22:13:20.000000Z".
/// @return Empty outside the years 0000 to 9999, for which there is no such text.
[[nodiscard]] std::string utcText(std::int64_t timeUs);

/// RFC 3339 text as microseconds since the Unix epoch: any offset from UTC, "T" or "t" or a blank
/// between date and time, up to nine digits of a fraction (those behind the sixth are cut off). A
/// second 60 is the first moment of the next minute.
/// @return Nothing where it is no such text.
[[nodiscard]] std::optional<std::int64_t> parseUtc(std::string_view text);

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_UTC_TEXT_H_

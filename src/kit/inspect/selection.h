#ifndef MORVA_KIT_INSPECT_SELECTION_H_
#define MORVA_KIT_INSPECT_SELECTION_H_

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/inspect/time_limit.h"

namespace morva::inspect {

/// Which messages a user wants to see.
struct Selection {
  std::vector<std::string> topics;  ///< patterns of names, see osmik::matchesGlob(); empty: all
  std::optional<TimeLimit> from;
  std::optional<TimeLimit> to;

  [[nodiscard]] bool hasTopic(const std::string& name) const;
};

/// Moments from `fromUs` on and before `toUs`; an empty one is no limit.
struct TimeWindow {
  std::optional<std::int64_t> fromUs, toUs;

  [[nodiscard]] bool isLimited() const { return fromUs || toUs; }
  [[nodiscard]] bool contains(std::int64_t timeUs) const {
    return (!fromUs || timeUs >= *fromUs) && (!toUs || timeUs < *toUs);
  }
  /// Whether a moment between two others, them included, may be within it.
  [[nodiscard]] bool touches(std::int64_t oneUs, std::int64_t otherUs) const {
    return (!fromUs || std::max(oneUs, otherUs) >= *fromUs) &&
           (!toUs || std::min(oneUs, otherUs) < *toUs);
  }
};

/// The limits of a selection in a recording of this span.
[[nodiscard]] TimeWindow windowOf(const Selection& selection, const TimeSpan& recording);

}  // namespace morva::inspect

#endif  // MORVA_KIT_INSPECT_SELECTION_H_

#include "kit/inspect/selection.h"

#include <algorithm>

#include "platform/glob.h"

namespace morva::inspect {

bool Selection::hasTopic(const std::string& name) const {
  return topics.empty() || std::ranges::any_of(topics, [&name](const std::string& pattern) {
           return osmik::matchesGlob(pattern, name);
         });
}

TimeWindow windowOf(const Selection& selection, const TimeSpan& recording) {
  TimeWindow window;
  if (selection.from) window.fromUs = selection.from->resolve(recording);
  if (selection.to) window.toUs = selection.to->resolve(recording);
  return window;
}

}  // namespace morva::inspect

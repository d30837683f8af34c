#ifndef MORVA_KIT_SIMULATE_SIMULATE_H_
#define MORVA_KIT_SIMULATE_SIMULATE_H_

#include <vector>

#include "kit/simulate/options.h"
#include "kit/simulate/recorder.h"

namespace morva::sim {

/// Makes a recording whose truth is known.
///
/// The same options give the same messages (the bag's own creation time aside). Memory does not
/// grow with the length of the recording, but for the bag's index. Nothing that exists is
/// overwritten; what was begun is removed again when the recording fails or is stopped.
///
/// @param progress  May be empty; see Recorder.
/// @param topics    [out] What was recorded; unspecified on failure.
/// @return False after an error line, or when told to stop.
[[nodiscard]] bool simulate(const Options& options, const Progress& progress,
                            std::vector<TopicSummary>* topics);

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_SIMULATE_H_

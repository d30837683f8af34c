#ifndef MORVA_KIT_SIMULATE_TRUTH_H_
#define MORVA_KIT_SIMULATE_TRUTH_H_

#include <vector>

#include "kit/simulate/recorder.h"
#include "kit/simulate/scene.h"
#include "platform/file.h"

namespace morva::sim {

/// Writes what is true of a recording, as JSON: the room, the calibration, the motor, the
/// geographic origin, the counts of every topic, and the scanner's path sampled at the IMU's times.
/// The path is written row by row, so that its length costs no memory.
///
/// @param file  Open for writing; flushed on success.
/// @return False after an error line.
[[nodiscard]] bool writeTruth(const Scene& scene, const std::vector<TopicSummary>& topics,
                              osmik::File* file);

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_TRUTH_H_

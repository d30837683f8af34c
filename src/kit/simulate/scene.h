#ifndef MORVA_KIT_SIMULATE_SCENE_H_
#define MORVA_KIT_SIMULATE_SCENE_H_

#include "kit/simulate/calibration.h"
#include "kit/simulate/motor.h"
#include "kit/simulate/options.h"
#include "kit/simulate/path.h"
#include "kit/simulate/world.h"

namespace morva::sim {

/// Everything that is the case: what the sensors measure, each in its own way. Never changes once
/// made, and outlives the streams made from it. Threads: any.
struct Scene {
  Options options;
  World world;
  Path path;
  Motor motor;
  Calibration calibration;

  /// @param timeS  Seconds since the start of the recording.
  [[nodiscard]] Eigen::Isometry3d worldFromLidarAt(double timeS) const;
};

/// The scene that the options' seed gives.
[[nodiscard]] Scene makeScene(const Options& options);

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_SCENE_H_

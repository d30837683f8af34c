#ifndef MORVA_KIT_SIMULATE_OPTIONS_H_
#define MORVA_KIT_SIMULATE_OPTIONS_H_

#include <cstdint>
#include <string>

#include "morva/records.h"

namespace morva::sim {

/// What a simulated recording is to hold.
struct Options {
  std::string bagPath;    ///< must not exist
  std::string truthPath;  ///< empty: no truth file; must not exist
  double seconds = 10.0;  ///< 0.1 to 86400
  std::uint64_t seed = 1;
  std::uint32_t pointsPerFrame = 20000;
  std::uint32_t cameras = 2;  ///< H.264 cameras, up to 7; 0 leaves out the JPEG camera too
  CompressionType compression = CompressionType::kLz4;
  LossBound lossBound;
  double rangeNoiseM = 0.003;      ///< standard deviation
  double elevationErrorRad = 0.0;  ///< what the raw points' elevation angles lack
  bool still = false;              ///< the scanner stands still
  bool calibrated = true;          ///< what the "calibrated" keys of the documents say
};

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_OPTIONS_H_

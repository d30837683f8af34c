#ifndef MORVA_TESTS_REAL_REAL_RECORDING_H_
#define MORVA_TESTS_REAL_REAL_RECORDING_H_

#include <cstddef>
#include <map>
#include <string>

#include "morva/records.h"
#include "real/real_data.h"

namespace morva::test {

/// Integers per unit with which measurements are recorded. A quantum is one over it.
inline constexpr double kImuScale = 100000;
inline constexpr double kMagneticScale = 1000;
inline constexpr double kMotorScale = 100000;
inline constexpr double kGnssScale = 1000;
inline constexpr double kPointScale = 10000;
/// Geoid above ellipsoid that all fixes are given, m.
inline constexpr double kUndulation = -32.5;

struct TopicCounts {
  std::size_t messages = 0;
  std::size_t samples = 0;
};

/// Records `data` into a new bag at `path`, through the library, every stream in batches as a
/// device does, all streams in the order of their times.
/// @return What was written, by topic. @throw std::runtime_error where the library reports a
/// failure.
std::map<std::string, TopicCounts> recordRealData(const RealData& data, const std::string& path,
                                                  CompressionType compression);

}  // namespace morva::test

#endif  // MORVA_TESTS_REAL_REAL_RECORDING_H_

#ifndef MORVA_KIT_SIMULATE_TIME_BASE_H_
#define MORVA_KIT_SIMULATE_TIME_BASE_H_

#include <cmath>
#include <cstdint>

/// The clock of a simulated recording. Every recording begins at the same moment, so that the same
/// seed gives the same messages on every day.
namespace morva::sim {

inline constexpr std::int64_t kStartUs = 1'700'000'000'000'000;  ///< 2023-11-14 22:13:20 UTC

inline constexpr std::int64_t kLidarFrameUs = 100'000;
inline constexpr std::int64_t kCameraPeriodUs = 100'000;
inline constexpr std::int64_t kMotorPeriodUs = 1'000;
inline constexpr std::int64_t kImuPeriodUs = 5'000;
inline constexpr std::int64_t kMagneticPeriodUs = 20'000;
inline constexpr std::int64_t kGnssPeriodUs = 200'000;

/// The motor is recorded this much before the first lidar point and after the last one, so that two
/// motor records bracket each point.
inline constexpr std::int64_t kMotorMarginUs = 20'000;

/// Seconds since the start of the recording.
[[nodiscard]] inline double sinceStartS(std::int64_t timeUs) {
  return static_cast<double>(timeUs - kStartUs) * 1e-6;
}

[[nodiscard]] inline std::int64_t durationUs(double seconds) { return std::llround(seconds * 1e6); }

}  // namespace morva::sim

#endif  // MORVA_KIT_SIMULATE_TIME_BASE_H_

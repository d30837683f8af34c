#ifndef MORVA_TESTS_PROOF_CLOUD_FIT_H_
#define MORVA_TESTS_PROOF_CLOUD_FIT_H_

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <string>

#include "support/pcd_file.h"
#include "support/truth.h"

namespace morva::test {

/// Distances (m) of points to the surfaces that they were measured on.
struct Fit {
  std::size_t clouds = 0;
  std::size_t points = 0;
  double squares = 0.0;
  double worst = 0.0;

  void add(double distance) {
    ++points;
    squares += distance * distance;
    worst = std::max(worst, distance);
  }
  [[nodiscard]] double rms() const { return std::sqrt(squares / static_cast<double>(points)); }
  void print(const char* what) const {
    std::printf("%s: %zu clouds, %zu points, RMS %.3f mm, worst %.3f mm\n", what, clouds, points,
                1e3 * rms(), 1e3 * worst);
  }
};

/// Puts every point into the world with the IMU's true pose at the point's own time.
inline Fit fitOfClouds(const std::string& folder, const Truth& truth) {
  Fit fit;
  for (const std::string& path : pcdFiles(folder)) {
    ++fit.clouds;
    for (const PcdPoint& point : readPcd(path)) {
      fit.add(truth.distanceToSurface(truth.worldFromImu(point.timeS) * point.position));
    }
  }
  return fit;
}

// What corrected clouds of a recording without noise come to, in metres.
inline constexpr double kSharpRms = 0.002;
inline constexpr double kSharpWorst = 0.010;

}  // namespace morva::test

#endif  // MORVA_TESTS_PROOF_CLOUD_FIT_H_

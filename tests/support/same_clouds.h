#ifndef MORVA_TESTS_SUPPORT_SAME_CLOUDS_H_
#define MORVA_TESTS_SUPPORT_SAME_CLOUDS_H_

#include <algorithm>
#include <bit>
#include <cstdint>
#include <memory>
#include <vector>

#include "messages/frames.h"

/// Clouds compared bit by bit: not-a-number equals itself, and -0 is not 0.
namespace morva::test {

[[nodiscard]] inline bool isSame(float a, float b) {
  return std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
}
[[nodiscard]] inline bool isSame(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

[[nodiscard]] inline bool isSame(const PointIRT& a, const PointIRT& b) {
  return isSame(a.x, b.x) && isSame(a.y, b.y) && isSame(a.z, b.z) &&
         isSame(a.positionPad, b.positionPad) && isSame(a.normal_x, b.normal_x) &&
         isSame(a.intensity, b.intensity) && isSame(a.timestamp, b.timestamp) && a.ring == b.ring;
}

[[nodiscard]] inline bool isSame(const PointCloudFrame& a, const PointCloudFrame& b) {
  const PointCloud& cloudA = *a.cloud->cloud;
  const PointCloud& cloudB = *b.cloud->cloud;
  return a.seq == b.seq && a.collectTimestamp == b.collectTimestamp &&
         a.cloud->seq == b.cloud->seq && isSame(a.cloud->time, b.cloud->time) &&
         cloudA.width == cloudB.width && cloudA.height == cloudB.height &&
         std::equal(cloudA.points.begin(), cloudA.points.end(), cloudB.points.begin(),
                    cloudB.points.end(),
                    [](const PointIRT& p, const PointIRT& q) { return isSame(p, q); });
}

[[nodiscard]] inline bool isSame(const std::vector<std::shared_ptr<PointCloudFrame>>& a,
                                 const std::vector<std::shared_ptr<PointCloudFrame>>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const auto& p, const auto& q) { return isSame(*p, *q); });
}

}  // namespace morva::test

#endif  // MORVA_TESTS_SUPPORT_SAME_CLOUDS_H_

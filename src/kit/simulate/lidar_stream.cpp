#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <numbers>

#include <Eigen/Geometry>

#include "kbag_msgs.pb.h"
#include "kit/simulate/streams.h"
#include "kit/simulate/time_base.h"

namespace morva::sim {

namespace {

using Eigen::Isometry3d;
using Eigen::Vector3d;
namespace pb = protix::kbag_msgs;

constexpr std::uint32_t kRings = 32;
constexpr double kLowestRad = -0.44;
constexpr double kHighestRad = 0.30;
constexpr std::int64_t kCodedScale = 10'000;  // a tenth of a millimetre

std::array<double, kRings> ringElevations() {
  std::array<double, kRings> elevations{};
  for (std::size_t ring = 0; ring < kRings; ++ring) {
    elevations[ring] =
        kLowestRad + (kHighestRad - kLowestRad) * static_cast<double>(ring) / (kRings - 1);
  }
  return elevations;
}

// A lidar that turns once in a frame around its z axis and fires one ring after the other, so that
// every point has a time of its own. One frame a message.
class LidarStream final : public MessageStream {
 public:
  explicit LidarStream(const Scene& scene)
      : MessageStream("/lidar"),
        scene_(scene),
        random_(scene.options.seed, "lidar"),
        elevations_(ringElevations()),
        frames_(durationUs(scene.options.seconds) / kLidarFrameUs) {}

  State next(StreamMessage* message) override {
    if (frame_ >= frames_) return State::kEnd;
    const std::int64_t frameUs = kStartUs + frame_ * kLidarFrameUs;
    array_.Clear();  // keeps the points' memory
    pb::LidarPointMsg* scan = array_.add_msgs();
    scan->mutable_header()->set_timestamp(frameUs);
    scan->mutable_header()->set_scale(kCodedScale);
    scan->mutable_header()->set_seq(static_cast<std::uint32_t>(frame_));
    for (std::uint32_t i = 0; i < scene_.options.pointsPerFrame; ++i) {
      addPoint(i, frameUs, scan->add_points());
    }
    ++frame_;
    message->count = 1;
    message->firstTimeUs = frameUs;
    message->lastTimeUs = frameUs;
    message->writeTimeUs = frameUs + kLidarFrameUs;
    array_.SerializeToString(&message->payload);
    return State::kMessage;
  }

 private:
  void addPoint(std::uint32_t number, std::int64_t frameUs, pb::LidarPoint* point) {
    const std::int64_t offsetUs = number * kLidarFrameUs / scene_.options.pointsPerFrame;
    const std::uint32_t ring = number % kRings;
    const Vector3d direction = fireDirection(ring, offsetUs);

    const Isometry3d worldFromLidar = scene_.worldFromLidarAt(sinceStartS(frameUs + offsetUs));
    const Vector3d origin = worldFromLidar.translation();
    const Vector3d ray = worldFromLidar.linear() * direction;
    const Hit hit = scene_.world.cast(origin, ray);
    const Surface& surface = scene_.world.surfaces()[static_cast<std::size_t>(hit.surface)];

    double range = hit.distance;
    if (scene_.options.rangeNoiseM > 0.0) {
      range += scene_.options.rangeNoiseM * random_.gaussian();
    }
    const Vector3d raw = scene_.calibration.withElevationError(range * direction);
    const auto coded = [](double metres) { return std::llround(metres * kCodedScale); };
    point->set_x(coded(raw.x()));
    point->set_y(coded(raw.y()));
    point->set_z(coded(raw.z()));
    point->set_ring(ring);
    point->set_time_offset(static_cast<std::int32_t>(offsetUs));
    point->set_intensity(intensityOf(surface, origin + hit.distance * ray, ray));
  }

  [[nodiscard]] Vector3d fireDirection(std::uint32_t ring, std::int64_t offsetUs) const {
    const double azimuth = -2.0 * std::numbers::pi * static_cast<double>(offsetUs) /
                           static_cast<double>(kLidarFrameUs);
    const double elevation = elevations_[ring];
    return {std::cos(elevation) * std::cos(azimuth), std::cos(elevation) * std::sin(azimuth),
            std::sin(elevation)};
  }

  // 0 to 255: bright where the surface is, less where the ray only grazes it.
  static std::uint32_t intensityOf(const Surface& surface, const Vector3d& point,
                                   const Vector3d& ray) {
    const double facing = std::abs(surface.normal.dot(ray));
    const double value = 255.0 * surface.reflectivityAt(point) * (0.4 + 0.6 * facing);
    return static_cast<std::uint32_t>(std::clamp(value, 0.0, 255.0));
  }

  const Scene& scene_;
  Random random_;
  std::array<double, kRings> elevations_;
  std::int64_t frames_;
  std::int64_t frame_ = 0;
  pb::LidarPointMsgArray array_;
};

}  // namespace

StreamPtr makeLidarStream(const Scene& scene) { return std::make_unique<LidarStream>(scene); }

}  // namespace morva::sim
